// Loads every waveform of a capture through the reader's C functions, as the window does, and
// prints the time and the peak resident memory per sample.
//   vorn_loadcapture FILE.sr

#include "vornwaveform.h"
#include "waveform_sigrok.h"

#include <sys/mman.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <thread>
#include <vector>

#ifndef MADV_POPULATE_WRITE
#define MADV_POPULATE_WRITE 23 // Linux 5.14; older kernels refuse it
#endif

namespace {

// The high-water mark of this program's memory. Unlike getrusage(), it starts afresh at exec,
// so a large parent that started us does not count.
double peakResidentBytes()
{
    std::FILE *status = std::fopen("/proc/self/status", "r");
    char line[256];
    double kib = 0;
    while (status && std::fgets(line, sizeof line, status)) {
        if (std::sscanf(line, "VmHWM: %lf kB", &kib) == 1)
            break;
    }
    if (status)
        std::fclose(status);
    return kib * 1024.0;
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

// As the window allocates: the pages of a long array are touched on two cores first.
void allocate(std::vector<double> &samples, uint64_t count)
{
    samples.reserve(count);
    double *data = samples.data();
    const uint64_t half = count / 2;
    std::thread helper([=] { touchPages(data + half, data + count); });
    touchPages(data, data + half);
    helper.join();
    samples.resize(count);
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: vorn_loadcapture FILE.sr\n");
        return 1;
    }
    const char *path = argv[1];
    const auto start = std::chrono::steady_clock::now();
    int32_t count = 0;
    if (sigrok_read_waveform_count(path, &count) != 0) {
        std::fprintf(stderr, "vorn_loadcapture: %s\n", sigrok_get_last_error());
        return 2;
    }
    std::vector<WaveformData> waveforms;
    uint64_t samples = 0;
    for (int32_t i = 0; i < count; ++i) {
        SigrokWaveformInfo info;
        WaveformData w;
        if (sigrok_read_waveform_info_by_index(path, i, &info) != 0) {
            std::fprintf(stderr, "vorn_loadcapture: %s\n", sigrok_get_last_error());
            return 2;
        }
        allocate(w.samples.writable(), info.sampleCount);
        if (sigrok_read_waveform_data_by_index(path, i, w.samples.writable().data(), info.sampleCount) != 0) {
            std::fprintf(stderr, "vorn_loadcapture: %s\n", sigrok_get_last_error());
            return 2;
        }
        samples += info.sampleCount;
        waveforms.push_back(w);
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const double peak = peakResidentBytes();
    std::printf("loaded %d waveforms, %llu samples in %.3f s; peak %.0f bytes, %.2f bytes/sample\n", count,
                static_cast<unsigned long long>(samples), seconds, peak, samples ? peak / samples : 0.0);
    return 0;
}
