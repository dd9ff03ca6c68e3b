#ifndef VORN_PROGRESS_H
#define VORN_PROGRESS_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

// "12/200 files, 35.2/s, 5 s left" on standard error while it is a terminal, at most ten times a
// second; nothing at all when it is not, so that scripts and logs stay clean. Any thread may
// count; the line is cleared when the work is done.
class Progress
{
public:
    Progress(uint64_t total, std::string unit);
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    void advance();

private:
    void print(uint64_t done);

    const uint64_t m_total;
    const std::string m_unit;
    const bool m_shown;
    const std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
    std::atomic<uint64_t> m_done{0};
    std::mutex m_printing;
    std::chrono::steady_clock::time_point m_lastPrint{};
    bool m_printed = false;
};

#endif
