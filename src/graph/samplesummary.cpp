#include "samplesummary.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

constexpr double NEGLIGIBLE_MEAN = 1e-6; // of the range

} // namespace

SampleSummary summariseSamples(const std::vector<double> &samples)
{
    SampleSummary summary;
    summary.min = std::numeric_limits<double>::infinity();
    summary.max = -summary.min;
    double sum = 0.0;
    size_t count = 0;
    for (const double v : samples) {
        if (std::isnan(v))
            continue;
        summary.min = std::min(summary.min, v);
        summary.max = std::max(summary.max, v);
        sum += v;
        ++count;
    }
    if (count == 0) {
        summary.min = summary.max = summary.mean = std::numeric_limits<double>::quiet_NaN();
        return summary;
    }
    summary.mean = sum / double(count);
    if (std::abs(summary.mean) < (summary.max - summary.min) * NEGLIGIBLE_MEAN)
        summary.mean = 0.0;
    return summary;
}
