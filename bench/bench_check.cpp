// Checking a long waveform against an envelope, the samples already in memory.

#include "summary.h"

#include "vornmask.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <vector>

void printCheck(std::vector<double> samples)
{
    WaveformData w;
    w.name = QStringLiteral("A0");
    w.sampleInterval = 1e-6;
    const double count = static_cast<double>(samples.size());
    w.samples.writable() = std::move(samples);
    // The kind of envelope a user makes: at most 20 knots around the trace, a little room above and below.
    SourceHull hull;
    hull.add(w);
    EnvelopeBuildOptions options;
    options.maxKnots = 20;
    options.dy = 0.05;
    const EnvelopeData envelope = hull.build(options);
    double best = INFINITY;
    EnvelopeCheckResult result;
    for (int i = 0; i < 5; ++i) {
        const auto start = std::chrono::steady_clock::now();
        result = checkEnvelope(w, envelope);
        best = std::min(best, std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    }
    std::printf("check 100M: %.1f ms, %.2f G samples/s (%llu checked, %llu violations)\n", best, count / best / 1e6,
                static_cast<unsigned long long>(result.checked), static_cast<unsigned long long>(result.violations()));

    // The same capture started 3,217 samples early, found by a search of +-10,000 samples, against
    // the plain check of that capture.
    const WaveformData early = shiftedWaveform(w, -3217e-6);
    AlignmentOptions align;
    align.maxShift = 10000e-6;
    std::vector<double> plain, aligned;
    for (int i = 0; i < 5; ++i) {
        auto start = std::chrono::steady_clock::now();
        result = checkEnvelope(early, envelope);
        plain.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
        start = std::chrono::steady_clock::now();
        result = checkAligned(early, envelope, align);
        aligned.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    }
    // Medians: the machine is shared, and a ratio of two best cases flatters.
    std::nth_element(plain.begin(), plain.begin() + 2, plain.end());
    std::nth_element(aligned.begin(), aligned.begin() + 2, aligned.end());
    std::printf("check aligned 100M: %.1f ms, %.2fx unaligned (shift %.2f us, %llu violations)\n", aligned[2], aligned[2] / plain[2],
                result.shift * 1e6, static_cast<unsigned long long>(result.violations()));
}
