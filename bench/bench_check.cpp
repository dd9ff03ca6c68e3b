// Checking a long waveform against an envelope, the samples already in memory.

#include "summary.h"

#include "vornmask.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <vector>

void printCheck(std::vector<double> samples, bool plainLine, bool alignedLine)
{
    WaveformData w;
    w.name = QStringLiteral("A0");
    w.sampleInterval = 1e-6;
    const double count = static_cast<double>(samples.size());
    w.samples.writable() = std::move(samples);
    EnvelopeCheckResult result;
    if (plainLine) {
        // The kind of envelope a user makes: at most 20 knots around the trace, a little room above and below.
        SourceHull hull;
        hull.add(w);
        EnvelopeBuildOptions options;
        options.maxKnots = 20;
        options.dy = 0.05;
        const EnvelopeData envelope = hull.build(options);
        double best = INFINITY;
        for (int i = 0; i < 5; ++i) {
            const auto start = std::chrono::steady_clock::now();
            result = checkEnvelope(w, envelope);
            best = std::min(best, std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
        }
        std::printf("check 100M: %.1f ms, %.2f G samples/s (%llu checked, %llu violations)\n", best, count / best / 1e6,
                    static_cast<unsigned long long>(result.checked), static_cast<unsigned long long>(result.violations()));
    }
    if (!alignedLine)
        return;

    // The aligned check needs a capture that few shifts fit and an envelope with room for every
    // shift searched: steps every 999,983 samples leave only shifts near the planted one inside
    // (within the envelope's grid cells of 1,526 samples, where the search centres the capture
    // in the band), and the envelope leaves 20,000 samples free at both ends of the capture, so
    // that coverage alone decides nothing.
    constexpr double DT = 1e-6;
    constexpr long PLANTED = 3217, SEARCHED = 10000, ROOM = 20000;
    std::vector<double> &v = w.samples.writable();
    for (size_t i = 0; i < v.size(); ++i)
        v[i] += (i / 999'983) % 2 ? 1.0 : 0.0;
    SourceHull stepped;
    stepped.add(w);
    EnvelopeBuildOptions room;
    room.dx = 2 * DT;
    room.dy = 0.05;
    room.start = ROOM * DT;
    room.end = (count - ROOM) * DT;
    const EnvelopeData roomy = stepped.build(room);
    // Its events come 3,217 samples late, which the search must find as a shift of +3,217 samples.
    const WaveformData late = shiftedWaveform(w, -PLANTED * DT);
    AlignmentOptions align;
    align.maxShift = SEARCHED * DT;
    std::vector<double> plain, aligned;
    EnvelopeCheckResult plainResult;
    // Interleaved, so that drift hits both.
    for (int i = 0; i < 5; ++i) {
        auto start = std::chrono::steady_clock::now();
        plainResult = checkEnvelope(late, roomy);
        plain.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
        start = std::chrono::steady_clock::now();
        result = checkAligned(late, roomy, align);
        aligned.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    }
    // Medians: the machine is shared, and a ratio of two best cases flatters.
    std::nth_element(plain.begin(), plain.begin() + 2, plain.end());
    std::nth_element(aligned.begin(), aligned.begin() + 2, aligned.end());
    std::printf("check aligned 100M: %.1f ms, %.2fx unaligned (+-%ld samples searched; shift planted %.2f us, found %.2f us; "
                "%llu violations, %llu unaligned)\n",
                aligned[2], aligned[2] / plain[2], SEARCHED, PLANTED * DT * 1e6, result.shift * 1e6,
                static_cast<unsigned long long>(result.violations()), static_cast<unsigned long long>(plainResult.violations()));
}
