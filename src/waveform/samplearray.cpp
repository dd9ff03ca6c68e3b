#include "vornwaveform.h"

#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>

#include <cstdio>
#include <new>
#include <system_error>
#include <thread>

#ifndef MADV_POPULATE_WRITE
#define MADV_POPULATE_WRITE 23 // Linux 5.14; older kernels refuse it
#endif

namespace {

// Below this the pages are faulted in by the resize itself.
constexpr uint64_t PARALLEL_SAMPLES = 4'000'000;

// What the kernel reports in one line of a /proc file, in its unit; UINT64_MAX when it does not.
uint64_t procValue(const char *file, const char *format)
{
    unsigned long long value = UINT64_MAX;
    if (std::FILE *info = std::fopen(file, "r")) {
        char line[128];
        while (std::fgets(line, sizeof line, info)) {
            if (std::sscanf(line, format, &value) == 1)
                break;
        }
        std::fclose(info);
    }
    return value;
}

// Left free beside a long array: the rest of the process and the system need some too.
uint64_t margin(uint64_t available)
{
    return available / 8 + (64ull << 20);
}

// Faults the pages in, which the kernel zeroes: in one call where the kernel can, else by one
// write per page. Then one write per page from here as well: under a paravirtualised MMU (as on
// the machine the figures come from) the first write from user space to each page traps even
// after the kernel populated it, and taken by the resize alone those traps made zeroing 800 MB
// take half a second; here both cores take them.
void touchPages(double *first, double *last)
{
    constexpr uintptr_t PAGE = 4096;
    const uintptr_t begin = (reinterpret_cast<uintptr_t>(first) + PAGE - 1) & ~(PAGE - 1);
    const uintptr_t end = reinterpret_cast<uintptr_t>(last) & ~(PAGE - 1);
    if (end > begin)
        madvise(reinterpret_cast<void *>(begin), end - begin, MADV_POPULATE_WRITE); // older kernels refuse it
    for (std::ptrdiff_t i = 0; i < last - first; i += PAGE / sizeof(double))
        static_cast<volatile double *>(first)[i] = 0.0;
}

} // namespace

uint64_t availableMemory()
{
    const uint64_t kib = procValue("/proc/meminfo", "MemAvailable: %llu kB");
    uint64_t available = kib == UINT64_MAX ? UINT64_MAX : kib * 1024;
    // A limit on the address space (ulimit -v) bounds what this process may take, whatever the
    // system has free.
    struct rlimit limit;
    if (getrlimit(RLIMIT_AS, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY) {
        const uint64_t pages = procValue("/proc/self/statm", "%llu");
        const uint64_t used = pages == UINT64_MAX ? 0 : pages * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
        available = std::min<uint64_t>(available, limit.rlim_cur > used ? limit.rlim_cur - used : 0);
    }
    return available;
}

// The first write to fresh memory costs a page fault per page, most of the time of zeroing a long
// array: the two halves are faulted in on two cores first.

bool allocateSamples(std::vector<double> &samples, uint64_t count)
{
    const uint64_t available = availableMemory();
    if (count > (available - std::min(available, margin(available))) / sizeof(double))
        return false;
    try {
        samples.reserve(count);
        if (count >= PARALLEL_SAMPLES) {
            double *data = samples.data();
            const uint64_t half = count / 2;
            runBeside([=] { touchPages(data, data + half); }, [=] { touchPages(data + half, data + count); });
        }
        samples.resize(count);
    } catch (const std::bad_alloc &) {
        return false;
    }
    return true;
}

void runBeside(const std::function<void()> &here, const std::function<void()> &beside)
{
    std::thread helper;
    try {
        helper = std::thread(beside);
    } catch (const std::system_error &) {
        here();
        beside();
        return;
    }
    // The helper must be joined whatever here throws: a thread left running would end the process.
    try {
        here();
    } catch (...) {
        helper.join();
        throw;
    }
    helper.join();
}

QString sampleMemoryShortfall(uint64_t count)
{
    const auto gib = [](double bytes) { return QString::number(bytes / (1u << 30), 'f', 1) + QStringLiteral(" GiB"); };
    const uint64_t available = availableMemory();
    const double spare = static_cast<double>(available - std::min(available, margin(available)));
    return QStringLiteral("%1 samples need %2, more than the %3 this machine can spare")
        .arg(count)
        .arg(gib(static_cast<double>(count) * sizeof(double)), gib(spare));
}
