#include "vornwaveform.h"

#include <sys/mman.h>

#include <cstdio>
#include <new>
#include <thread>

#ifndef MADV_POPULATE_WRITE
#define MADV_POPULATE_WRITE 23 // Linux 5.14; older kernels refuse it
#endif

namespace {

// Below this the pages are faulted in by the resize itself.
constexpr uint64_t PARALLEL_SAMPLES = 4'000'000;

// Memory the system can give without swapping, or the most a 64-bit number holds when it does
// not say: a claim the archive allows is still refused before the allocation would take the
// machine down.
uint64_t availableMemory()
{
    uint64_t kib = UINT64_MAX / 1024;
    if (std::FILE *info = std::fopen("/proc/meminfo", "r")) {
        char line[128];
        while (std::fgets(line, sizeof line, info)) {
            unsigned long long value = 0;
            if (std::sscanf(line, "MemAvailable: %llu kB", &value) == 1) {
                kib = value;
                break;
            }
        }
        std::fclose(info);
    }
    return kib * 1024;
}

// Faults the pages in, which the kernel zeroes: in one call where the kernel can, else by one
// write per page.
void touchPages(double *first, double *last)
{
    constexpr uintptr_t PAGE = 4096;
    const uintptr_t begin = (reinterpret_cast<uintptr_t>(first) + PAGE - 1) & ~(PAGE - 1);
    const uintptr_t end = reinterpret_cast<uintptr_t>(last) & ~(PAGE - 1);
    if (end > begin && madvise(reinterpret_cast<void *>(begin), end - begin, MADV_POPULATE_WRITE) == 0)
        return;
    for (std::ptrdiff_t i = 0; i < last - first; i += PAGE / sizeof(double))
        first[i] = 0.0;
}

} // namespace

// The first write to fresh memory costs a page fault per page, most of the time of zeroing a long
// array: the two halves are faulted in on two cores first.

bool allocateSamples(std::vector<double> &samples, uint64_t count)
{
    if (count > availableMemory() / sizeof(double))
        return false;
    try {
        samples.reserve(count);
        if (count >= PARALLEL_SAMPLES) {
            double *data = samples.data();
            const uint64_t half = count / 2;
            std::thread helper([=] { touchPages(data + half, data + count); });
            touchPages(data, data + half);
            helper.join();
        }
        samples.resize(count);
    } catch (const std::bad_alloc &) {
        return false;
    }
    return true;
}
