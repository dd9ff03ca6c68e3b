#ifndef VORN_PROGRESS_H
#define VORN_PROGRESS_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>

// "12/200 files, 35.2/s, 5 s left" on standard error while it is a terminal, at most ten times a
// second; nothing at all when it is not, so that scripts and logs stay clean. Any thread may
// count; the line is cleared when the work is done. Counts of a finer unit are shown scaled
// ("1.5/10.0 s" for milliseconds counted with scale 0.001), large ones with a prefix ("2.5M").
class Progress
{
public:
    Progress(uint64_t total, std::string unit, double scale = 1.0);
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    void advance();
    // done of the total reached; a count that goes back is ignored.
    void reach(uint64_t done);
    // Takes the line away while write() prints a result in its place; the next count shows it again.
    void printAbove(const std::function<void()> &write);

private:
    void clearLine();
    void print(uint64_t done);
    std::string quantity(double count) const;

    const uint64_t m_total;
    const std::string m_unit;
    const double m_scale;
    const bool m_shown;
    const std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
    std::atomic<uint64_t> m_done{0};
    std::mutex m_printing;
    std::chrono::steady_clock::time_point m_lastPrint{};
    bool m_printed = false;
};

#endif
