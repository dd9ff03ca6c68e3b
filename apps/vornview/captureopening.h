#ifndef CAPTUREOPENING_H
#define CAPTUREOPENING_H

#include "vornwaveform.h"

#include <QObject>

#include <atomic>

class QEventLoop;
class QWidget;

// Reads a capture on a worker thread while the viewer stays painted. A reading that takes more
// than half a second shows a progress bar with Cancel over the viewer; until it shows, the
// user's input waits, so that nothing changes under the opening.
class CaptureOpening : public QObject
{
    Q_OBJECT

public:
    explicit CaptureOpening(QWidget *parent);

    // What the viewer can tell before reading (memory) goes to problem, and nothing is read;
    // otherwise the capture as read, cancelled when cancel() came before the reading ended.
    CaptureContents read(const QString &path, QString &problem);

public slots:
    // Stops the reading under way; the capture read so far is dropped.
    void cancel();

signals:
    // The reading of path began.
    void started(const QString &path);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QWidget *m_parent;
    std::atomic<bool> m_cancelled{false};
    QEventLoop *m_waiting = nullptr; // runs while the bar is not shown yet
};

#endif
