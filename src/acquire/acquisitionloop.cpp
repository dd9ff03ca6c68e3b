#include "vornacquire.h"

#include <algorithm>
#include <chrono>

AcquisitionLoop::AcquisitionLoop(size_t depth) : m_depth(std::max<size_t>(depth, 1)) {}

AcquisitionLoop::~AcquisitionLoop()
{
    stop();
    if (m_thread.joinable())
        m_thread.join();
}

bool AcquisitionLoop::start(const DeviceOptions &options, uint64_t count)
{
    std::promise<bool> opened;
    std::future<bool> result = opened.get_future();
    m_thread = std::thread([this, options, count, &opened] {
        const bool ok = m_device.open(options);
        opened.set_value(ok);
        if (ok)
            run(count);
        else
            finish(m_device.error());
    });
    if (result.get())
        return true;
    m_thread.join();
    return false;
}

void AcquisitionLoop::setProgress(std::function<void(uint64_t, const SigrokDevice::Progress &)> progress)
{
    m_device.setProgress([this, progress = std::move(progress)](const SigrokDevice::Progress &p) {
        progress(m_acquisition, p);
    });
}

void AcquisitionLoop::run(uint64_t count)
{
    for (uint64_t k = 0; count == 0 || k < count; ++k) {
        m_acquisition = k;
        Acquisition acquisition;
        const auto start = std::chrono::steady_clock::now();
        if (!m_device.acquire(acquisition)) {
            finish(m_device.stopped() ? std::string() : m_device.error());
            return;
        }
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
        std::unique_lock<std::mutex> lock(m_mutex);
        m_acquiring += took.count();
        m_changed.wait(lock, [&] { return m_queue.size() < m_depth || m_device.stopped(); });
        if (m_device.stopped())
            break;
        m_queue.push_back(std::move(acquisition));
        m_changed.notify_all();
    }
    finish(std::string());
}

void AcquisitionLoop::finish(const std::string &error)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_finished = true;
    m_error = error;
    m_changed.notify_all();
}

bool AcquisitionLoop::next(Acquisition &acquisition)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [&] { return !m_queue.empty() || m_finished; });
    if (m_queue.empty())
        return false;
    acquisition = std::move(m_queue.front());
    m_queue.pop_front();
    m_changed.notify_all();
    return true;
}

void AcquisitionLoop::stop()
{
    m_device.stop();
    std::lock_guard<std::mutex> lock(m_mutex);
    m_queue.clear();
    m_changed.notify_all();
}

std::string AcquisitionLoop::error() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_error;
}

double AcquisitionLoop::acquiringSeconds() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_acquiring;
}
