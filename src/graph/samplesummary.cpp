#include "samplesummary.h"

#include <cmath>
#include <limits>

namespace {

constexpr double NEGLIGIBLE_MEAN = 1e-6; // of the range

} // namespace

ShownValues shownValues(const SampleSummary &summary)
{
    ShownValues shown;
    if (summary.count == 0) {
        shown.min = shown.max = shown.mean = std::numeric_limits<double>::quiet_NaN();
        return shown;
    }
    shown.min = summary.min;
    shown.max = summary.max;
    shown.mean = summary.total() / double(summary.count);
    if (std::abs(shown.mean) < (shown.max - shown.min) * NEGLIGIBLE_MEAN)
        shown.mean = 0.0;
    return shown;
}
