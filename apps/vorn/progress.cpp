#include "progress.h"

#include <unistd.h>

#include <cstdio>

Progress::Progress(uint64_t total, std::string unit, double scale)
    : m_total(total), m_unit(std::move(unit)), m_scale(scale), m_shown(total > 1 && isatty(STDERR_FILENO) == 1)
{
}

Progress::~Progress()
{
    const std::lock_guard<std::mutex> lock(m_printing);
    clearLine();
}

void Progress::advance()
{
    const uint64_t done = ++m_done;
    if (m_shown)
        print(done);
}

void Progress::reach(uint64_t done)
{
    uint64_t before = m_done;
    while (done > before && !m_done.compare_exchange_weak(before, done)) {
    }
    if (m_shown && done > before)
        print(done);
}

void Progress::printAbove(const std::function<void()> &write)
{
    const std::lock_guard<std::mutex> lock(m_printing);
    clearLine();
    write();
    std::fflush(stdout);
}

void Progress::clearLine()
{
    if (!m_printed)
        return;
    std::fputs("\r\033[K", stderr);
    m_printed = false;
    m_lastPrint = {};
}

std::string Progress::quantity(double count) const
{
    const double value = count * m_scale;
    char text[32];
    if (value >= 10000.0) {
        static const char prefixes[] = "kMGTPE";
        double scaled = value / 1000.0;
        int p = 0;
        while (scaled >= 1000.0 && prefixes[p + 1]) {
            scaled /= 1000.0;
            ++p;
        }
        std::snprintf(text, sizeof text, "%.3g%c", scaled, prefixes[p]);
    } else {
        std::snprintf(text, sizeof text, m_scale == 1.0 ? "%.0f" : "%.1f", value);
    }
    return text;
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
    const double left = rate > 0.0 && done < m_total ? static_cast<double>(m_total - done) / rate : 0.0;
    char rateText[32];
    if (rate * m_scale < 10000.0)
        std::snprintf(rateText, sizeof rateText, "%.1f", rate * m_scale);
    std::fprintf(stderr, "\r\033[K%s/%s %s, %s/s, %.0f s left", quantity(double(done)).c_str(),
                 quantity(double(m_total)).c_str(), m_unit.c_str(),
                 rate * m_scale < 10000.0 ? rateText : quantity(rate).c_str(), left);
    std::fflush(stderr);
    m_printed = true;
}
