#include "summary.h"

#include "vornmeasure.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <random>

namespace {

// 100 M samples of a noisy 3.3 V pulse train: 10,000 periods of 10,000 samples, 30 % duty,
// 40-sample edges, noise of 1 % of the amplitude.
WaveformData pulseTrain(size_t count)
{
    WaveformData w;
    w.name = QStringLiteral("A0");
    w.unit = QStringLiteral("V");
    w.sampleInterval = 1e-8;
    std::vector<double> &v = w.samples.writable();
    v.resize(count);
    std::mt19937 random(3);
    std::normal_distribution<double> noise(0.0, 0.033);
    for (size_t i = 0; i < count; ++i) {
        const double p = static_cast<double>(i % 10000);
        const double f = std::clamp(std::min(p / 40.0, (3000.0 - p) / 40.0 + 1.0), 0.0, 1.0);
        v[i] = 3.3 * f + noise(random);
    }
    return w;
}

double milliseconds(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

} // namespace

void printMeasure()
{
    const WaveformData w = pulseTrain(100'000'000);
    const std::vector<double> &v = *w.samples;
    std::vector<double> pass, all;
    PulseMeasurements m;
    volatile double sink = 0.0;
    for (int i = 0; i < 5; ++i) {
        // One plain pass: the sum of every sample, which the compiler cannot drop.
        auto start = std::chrono::steady_clock::now();
        double sum = 0.0;
        for (double x : v)
            sum += x;
        sink = sum;
        pass.push_back(milliseconds(start));
        start = std::chrono::steady_clock::now();
        m = measurePulses(w);
        all.push_back(milliseconds(start));
    }
    (void)sink;
    std::nth_element(pass.begin(), pass.begin() + 2, pass.end());
    std::nth_element(all.begin(), all.begin() + 2, all.end());
    std::printf("measure 100M: %.1f ms, %.2fx one pass (%.1f ms; %zu transitions, rise %s, period %s)\n", all[2],
                all[2] / pass[2], pass[2], m.transitions.size(),
                qPrintable(formatMeasure(Measure::RiseTime, m[Measure::RiseTime].value, w.unit)),
                qPrintable(formatMeasure(Measure::Period, m[Measure::Period].value, w.unit)));
}
