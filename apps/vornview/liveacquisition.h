#ifndef LIVEACQUISITION_H
#define LIVEACQUISITION_H

#include "vornacquire.h"

#include <QObject>
#include <QSemaphore>

#include <memory>
#include <thread>

Q_DECLARE_METATYPE(Acquisition)

// Acquisitions from a sigrok device delivered to the GUI thread as signals. The device runs on a
// thread of its own; at most two acquisitions wait for the GUI, so a slow screen holds the device
// back instead of piling up memory.
class LiveAcquisition : public QObject
{
    Q_OBJECT

public:
    explicit LiveAcquisition(QObject *parent = nullptr);
    ~LiveAcquisition() override;

    // Opens the device and acquires count acquisitions (0: until stop()); false, with error(),
    // when the device cannot be opened.
    bool start(const DeviceOptions &options, uint64_t count);
    // Returns at once; no acquired() follows, and finished() comes once the device has let go.
    void stop();
    bool isRunning() const { return m_loop != nullptr; }
    QString error() const { return m_error; }

signals:
    void acquired(const Acquisition &acquisition);
    // The device stopped: asked to, count reached, or failed (error not empty).
    void finished(const QString &error);

private:
    void join();

    std::unique_ptr<AcquisitionLoop> m_loop;
    std::thread m_pump;
    QSemaphore m_waiting{2};
    bool m_stopped = false;
    QString m_error;
};

#endif
