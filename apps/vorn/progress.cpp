#include "progress.h"

#include <unistd.h>

#include <cstdio>

Progress::Progress(uint64_t total, std::string unit)
    : m_total(total), m_unit(std::move(unit)), m_shown(total > 1 && isatty(STDERR_FILENO) == 1)
{
}

Progress::~Progress()
{
    if (m_printed)
        std::fputs("\r\033[K", stderr);
}

void Progress::advance()
{
    const uint64_t done = ++m_done;
    if (m_shown)
        print(done);
}

void Progress::print(uint64_t done)
{
    const std::unique_lock<std::mutex> lock(m_printing, std::try_to_lock);
    const auto now = std::chrono::steady_clock::now();
    if (!lock.owns_lock() || (now - m_lastPrint < std::chrono::milliseconds(100) && done < m_total))
        return;
    m_lastPrint = now;
    const double seconds = std::chrono::duration<double>(now - m_start).count();
    const double rate = seconds > 0.0 ? static_cast<double>(done) / seconds : 0.0;
    const double left = rate > 0.0 ? static_cast<double>(m_total - done) / rate : 0.0;
    std::fprintf(stderr, "\r\033[K%llu/%llu %s, %.1f/s, %.0f s left", static_cast<unsigned long long>(done),
                 static_cast<unsigned long long>(m_total), m_unit.c_str(), rate, left);
    std::fflush(stderr);
    m_printed = true;
}
