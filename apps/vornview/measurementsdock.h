#ifndef MEASUREMENTSDOCK_H
#define MEASUREMENTSDOCK_H

#include "vornmeasure.h"

#include <QObject>
#include <QVariant>

#include <cstdint>

class QAction;
class QDockWidget;
class QMainWindow;
class QThreadPool;
class QTimer;
class QTreeWidget;
class QTreeWidgetItem;
class WaveformWindow;

// The Measurements dock: the selected waveform's measurements (every visible one's when none is
// selected) over the visible span, or between the cursors while they are shown, each beside the
// limit the capture keeps for it, in the colour of its verdict. Choosing a row marks on the trace
// where that measurement was taken; its context menu sets and removes a row's limit in the
// capture. Lives as long as the capture's window. Measures on a worker thread, and only while the
// dock can be seen, so that a long capture never holds up moving the view.
class MeasurementsDock : public QObject
{
    Q_OBJECT

public:
    MeasurementsDock(QMainWindow *window, WaveformWindow *document, const QString &path);
    ~MeasurementsDock() override;

    QTreeWidget *table() const { return m_table; }
    // Measures again now rather than once the view has settled; the table follows when the worker
    // is done (or, while a measurement runs, once more after it).
    void refresh();
    // Keeps limit in the capture in place of the one its waveform and measurement had, beside the
    // envelopes and the user's unsaved edits of them; false with the reason, the file untouched.
    bool setLimit(const MeasurementLimit &limit, QString *error = nullptr);
    // Takes the limit of waveform's measurement out of the capture; false with the reason.
    bool removeLimit(const QString &waveform, Measure measure, QString *error = nullptr);

private:
    struct Measurement
    {
        int index; // in the graph
        QString name, unit;
        PulseMeasurements p;
    };
    using Measured = std::vector<Measurement>;
    struct Row
    {
        int measure;
        QString value, limit, reason;
        QVariant colour; // a brush for a verdict, none without a limit
    };
    using Rows = std::vector<Row>;

    bool isSeen() const;
    void viewMoved();
    void onMeasured(std::uint64_t generation, const Measured &measured);
    void fillTable();
    void onCurrentItemChanged(QTreeWidgetItem *item);
    void onContextMenuRequested(const QPoint &position);
    void onSetLimitTriggered();
    void onRemoveLimitTriggered();
    bool storeLimits(const std::vector<MeasurementLimit> &limits, QString *error);
    bool chosenRow(QString &waveform, Measure &measure, QString &unit) const;
    Rows rowsOf(const Measurement &measured) const;
    const MeasurementLimit *limitFor(const QString &waveform, Measure measure) const;

    QMainWindow *m_window;
    WaveformWindow *m_document;
    QDockWidget *m_dock;
    QTreeWidget *m_table;
    QTimer *m_settle;
    QAction *m_setLimit;
    QAction *m_removeLimit;
    std::vector<MeasurementLimit> m_limits;
    Measured m_measured; // what the table shows
    QThreadPool *m_worker; // one thread: never two measurements at once
    std::uint64_t m_generation = 0; // counts the view's moves; a result of an older one is dropped
    bool m_running = false;
    bool m_again = false; // asked for while one ran
    bool m_inSight = true; // as the dock last said, which covers tabs
    bool m_stale = true; // the view moved while the dock was out of sight
};

#endif
