// Loads every waveform of a capture through the reader's C functions, as the window does, and
// prints the time and the peak resident memory per sample.
//   vorn_loadcapture FILE.sr

#include "vornwaveform.h"
#include "waveform_sigrok.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

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
        if (!allocateSamples(w.samples.writable(), info.sampleCount)) {
            std::fprintf(stderr, "vorn_loadcapture: not enough memory\n");
            return 2;
        }
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
