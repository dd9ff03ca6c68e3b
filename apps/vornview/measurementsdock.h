#ifndef MEASUREMENTSDOCK_H
#define MEASUREMENTSDOCK_H

#include "vornmeasure.h"

#include <QObject>

class QAction;
class QDockWidget;
class QMainWindow;
class QTimer;
class QTreeWidget;
class QTreeWidgetItem;
class WaveformWindow;

// The Measurements dock: the selected waveform's measurements (every visible one's when none is
// selected) over the visible span, or between the cursors while they are shown, each beside the
// limit the capture keeps for it, in the colour of its verdict. Choosing a row marks on the trace
// where that measurement was taken; its context menu sets and removes a row's limit in the
// capture. Lives as long as the capture's window.
class MeasurementsDock : public QObject
{
    Q_OBJECT

public:
    MeasurementsDock(QMainWindow *window, WaveformWindow *document, const QString &path);

    QTreeWidget *table() const { return m_table; }
    // Measures again now rather than once the view has settled.
    void refresh();
    // Keeps limit in the capture in place of the one its waveform and measurement had, beside the
    // envelopes and the user's unsaved edits of them; false with the reason, the file untouched.
    bool setLimit(const MeasurementLimit &limit, QString *error = nullptr);
    // Takes the limit of waveform's measurement out of the capture; false with the reason.
    bool removeLimit(const QString &waveform, Measure measure, QString *error = nullptr);

private:
    void onCurrentItemChanged(QTreeWidgetItem *item);
    void onContextMenuRequested(const QPoint &position);
    void onSetLimitTriggered();
    void onRemoveLimitTriggered();
    bool storeLimits(const std::vector<MeasurementLimit> &limits, QString *error);
    bool chosenRow(QString &waveform, Measure &measure, QString &unit) const;
    void addWaveform(int index, double from, double to);
    const MeasurementLimit *limitFor(const QString &waveform, Measure measure) const;

    WaveformWindow *m_document;
    QDockWidget *m_dock;
    QTreeWidget *m_table;
    QTimer *m_settle;
    QAction *m_setLimit;
    QAction *m_removeLimit;
    std::vector<MeasurementLimit> m_limits;
    std::vector<std::pair<int, PulseMeasurements>> m_measured; // graph index and its measurements
};

#endif
