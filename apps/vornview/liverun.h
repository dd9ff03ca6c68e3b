#ifndef LIVERUN_H
#define LIVERUN_H

#include "vornacquire.h"
#include "vornmask.h"

#include <QElapsedTimer>
#include <QObject>

class LiveAcquisition;
class QAction;
class QDockWidget;
class QLabel;
class QMainWindow;
class QPushButton;
class WaveformWindow;

// The Acquire menu for one open capture: acquisitions from a sigrok device replace its waveforms
// of the same names and are judged against their envelopes at once; a dock tallies them, the
// last few stay drawn faintly behind the trace, and a failure can stop the run, be saved with the
// envelopes, and beep. Envelope ▸ Make From Acquisitions… builds envelopes from the next ones.
// Lives as long as the capture's window.
class LiveRun : public QObject
{
    Q_OBJECT

public:
    LiveRun(QMainWindow *window, WaveformWindow *document);

    QAction *runAction() const { return m_run; }
    QAction *singleAction() const { return m_single; }
    QAction *stopAction() const { return m_stop; }
    void setDevice(const DeviceOptions &options) { m_device = options; }
    void setFailureFolder(const QString &folder) { m_failureFolder = folder; }
    void setStopOnFailure(bool stop);
    int tested() const { return m_tested; }
    int failed() const { return m_failed; }
    QString panelText() const;

    static const int PERSISTENCE = 8; // acquisitions drawn behind the trace

signals:
    void runFinished();

private:
    void start(uint64_t count);
    void onDeviceTriggered();
    void onAcquired(const Acquisition &acquisition);
    void onFinished(const QString &error);
    void onMakeFromTriggered();
    void judge(const Acquisition &acquisition);
    void gather(const Acquisition &acquisition);
    void saveFailure(const Acquisition &acquisition);
    void updatePanel();
    void updateActions();

    QMainWindow *m_window;
    WaveformWindow *m_document;
    LiveAcquisition *m_live;
    DeviceOptions m_device;
    QAction *m_run, *m_single, *m_stop, *m_stopOnFailure, *m_beep, *m_saveFailures;
    QDockWidget *m_dock;
    QLabel *m_panel;
    QPushButton *m_openFailure;
    QString m_failureFolder;
    int m_tested = 0, m_failed = 0;
    double m_lastFailureTime = -1.0; // seconds into the run
    QString m_lastFailurePath;
    QElapsedTimer m_clock;
    QString m_status;
    // Make From Acquisitions: the captures still to gather, and their hull per waveform.
    int m_toGather = 0;
    std::vector<std::pair<int, SourceHull>> m_hulls;
};

#endif
