#include "liveacquisition.h"

#include <QMetaObject>

LiveAcquisition::LiveAcquisition(QObject *parent) : QObject(parent)
{
    qRegisterMetaType<Acquisition>();
}

LiveAcquisition::~LiveAcquisition()
{
    stop();
    join();
}

bool LiveAcquisition::start(const DeviceOptions &options, uint64_t count)
{
    stop();
    join();
    m_error.clear();
    m_stopped = false;
    m_loop = std::make_unique<AcquisitionLoop>();
    if (!m_loop->start(options, count)) {
        m_error = QString::fromStdString(m_loop->error());
        m_loop.reset();
        return false;
    }
    AcquisitionLoop *loop = m_loop.get();
    m_pump = std::thread([this, loop] {
        Acquisition a;
        while (loop->next(a)) {
            m_waiting.acquire();
            QMetaObject::invokeMethod(this, [this, a] {
                m_waiting.release();
                if (!m_stopped)
                    emit acquired(a);
            }, Qt::QueuedConnection);
        }
        const QString error = QString::fromStdString(loop->error());
        QMetaObject::invokeMethod(this, [this, error] {
            join();
            emit finished(error);
        }, Qt::QueuedConnection);
    });
    return true;
}

void LiveAcquisition::stop()
{
    if (!m_loop || m_stopped)
        return;
    m_stopped = true;
    m_loop->stop();
    // A pump waiting for the GUI to take an acquisition must not wait for one that is dropped.
    m_waiting.release(2);
}

void LiveAcquisition::join()
{
    if (m_pump.joinable())
        m_pump.join();
    m_loop.reset();
    m_waiting.acquire(m_waiting.available());
    m_waiting.release(2);
}
