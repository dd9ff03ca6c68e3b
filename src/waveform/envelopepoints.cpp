#include "vornwaveform.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

constexpr double MARGIN = 0.05;     // of the y range, on each side of the samples
constexpr double EMPTY_UPPER = 0.9; // limits where no sample lies, as parts of the y range
constexpr double EMPTY_LOWER = 0.1;

double pointTime(double start, double end, int i, int count)
{
    if (count < 2)
        return start;
    if (i == count - 1)
        return end;
    return start + (end - start) * i / (count - 1);
}

// Smallest and largest non-NaN sample with a time in [from, to]; false when there is none.
bool extremesBetween(const WaveformData &waveform, double from, double to, double &lo, double &hi)
{
    const std::vector<double> &samples = *waveform.samples;
    const double dt = waveform.sampleInterval;
    if (samples.empty() || !(dt > 0.0))
        return false;
    const double last = static_cast<double>(samples.size() - 1);
    // A sample within rounding of a border counts on both sides of it.
    const auto slack = [](double position) { return 1e-6 + 1e-12 * std::fabs(position); };
    const double a = (from - waveform.startTime) / dt, b = (to - waveform.startTime) / dt;
    double first = std::ceil(a - slack(a));
    double final = std::floor(b + slack(b));
    if (first > final) {
        // A window narrower than one sample interval takes the sample nearest to it.
        first = final = std::round(((from + to) / 2 - waveform.startTime) / dt);
    }
    first = std::max(first, 0.0);
    final = std::min(final, last);
    if (!(first <= final))
        return false;
    lo = std::numeric_limits<double>::infinity();
    hi = -lo;
    const auto begin = samples.begin() + static_cast<std::ptrdiff_t>(first);
    const auto stop = samples.begin() + static_cast<std::ptrdiff_t>(final) + 1;
    for (auto it = begin; it != stop; ++it) {
        if (std::isnan(*it))
            continue;
        lo = std::min(lo, *it);
        hi = std::max(hi, *it);
    }
    return lo <= hi;
}

} // namespace

double snapToSampleGrid(double t, double sampleInterval, double startTime)
{
    if (!(sampleInterval > 0.0) || !std::isfinite(t))
        return t;
    const double k = std::round((t - startTime) / sampleInterval);
    return k * sampleInterval + startTime;
}

QVector<EnvelopePoint> generateEnvelopePoints(const WaveformData &waveform, double start, double end,
                                              int count, double yMin, double yMax)
{
    QVector<EnvelopePoint> points;
    if (count < 1)
        return points;
    points.reserve(count);
    const double range = yMax - yMin;
    for (int i = 0; i < count; ++i) {
        const double t = pointTime(start, end, i, count);
        // The limits run straight to the neighbouring points, so each point bounds the samples all
        // the way to both of them.
        const double from = i > 0 ? pointTime(start, end, i - 1, count) : t;
        const double to = i + 1 < count ? pointTime(start, end, i + 1, count) : t;
        EnvelopePoint point;
        point.time = t;
        double lo = 0.0, hi = 0.0;
        if (extremesBetween(waveform, std::min(from, to), std::max(from, to), lo, hi)) {
            point.upperValue = hi + MARGIN * range;
            point.lowerValue = lo - MARGIN * range;
        } else {
            point.upperValue = yMin + EMPTY_UPPER * range;
            point.lowerValue = yMin + EMPTY_LOWER * range;
        }
        points.append(point);
    }
    return points;
}

QVector<EnvelopePoint> sampleEnvelopeToPoints(const EnvelopeData &envelope, int count)
{
    QVector<EnvelopePoint> points;
    if (count < 1 || envelope.isEmpty())
        return points;
    const std::vector<double> &upper = *envelope.upper.samples;
    const std::vector<double> &lower = *envelope.lower.samples;
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const auto at = [nan](const std::vector<double> &v, size_t k) { return k < v.size() ? v[k] : nan; };
    const double dt = envelope.upper.sampleInterval;
    const double t0 = envelope.upper.startTime;
    const size_t n = upper.size();
    const double last = static_cast<double>(n - 1);

    points.reserve(count);
    for (int i = 0; i < count; ++i) {
        EnvelopePoint point;
        double u = 0.0, l = 0.0;
        if (static_cast<size_t>(count) == n) {
            point.time = static_cast<double>(i) * dt + t0;
            u = at(upper, static_cast<size_t>(i));
            l = at(lower, static_cast<size_t>(i));
        } else {
            // Linear between the two samples around the point; a NaN neighbour makes it a gap.
            const double position = count > 1 ? last * i / (count - 1) : 0.0;
            point.time = position * dt + t0;
            const size_t k = static_cast<size_t>(std::floor(position));
            const double f = position - static_cast<double>(k);
            u = f > 0.0 ? at(upper, k) + f * (at(upper, k + 1) - at(upper, k)) : at(upper, k);
            l = f > 0.0 ? at(lower, k) + f * (at(lower, k + 1) - at(lower, k)) : at(lower, k);
        }
        point.enabled = !std::isnan(u) && !std::isnan(l);
        point.upperValue = point.enabled ? u : nan;
        point.lowerValue = point.enabled ? l : nan;
        points.append(point);
    }
    return points;
}
