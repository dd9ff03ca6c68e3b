#ifndef MEASUREMENTSDOCK_H
#define MEASUREMENTSDOCK_H

#include "vornmeasure.h"

#include <QObject>

class QDockWidget;
class QMainWindow;
class QTimer;
class QTreeWidget;
class QTreeWidgetItem;
class WaveformWindow;

// The Measurements dock: the selected waveform's measurements (every visible one's when none is
// selected) over the visible span, or between the cursors while they are shown, each beside the
// limit the capture keeps for it, in the colour of its verdict. Choosing a row marks on the trace
// where that measurement was taken. Lives as long as the capture's window.
class MeasurementsDock : public QObject
{
    Q_OBJECT

public:
    MeasurementsDock(QMainWindow *window, WaveformWindow *document, const QString &path);

    QTreeWidget *table() const { return m_table; }
    // Measures again now rather than once the view has settled.
    void refresh();

private:
    void onCurrentItemChanged(QTreeWidgetItem *item);
    void addWaveform(int index, double from, double to);
    const MeasurementLimit *limitFor(const QString &waveform, Measure measure) const;

    WaveformWindow *m_document;
    QDockWidget *m_dock;
    QTreeWidget *m_table;
    QTimer *m_settle;
    std::vector<MeasurementLimit> m_limits;
    std::vector<std::pair<int, PulseMeasurements>> m_measured; // graph index and its measurements
};

#endif
