#include "downsampling.h"

#include "minmaxpyramid.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

void appendAll(QVector<QPointF> &points, const std::vector<double> &samples, SampleTimeBase time,
               std::uint64_t first, std::uint64_t last)
{
    points.reserve(static_cast<qsizetype>(last - first + 1));
    for (std::uint64_t i = first; i <= last; ++i)
        points.append(QPointF(time.timeOf(i), samples[i]));
}

void appendBucket(QVector<QPointF> &points, SampleTimeBase time, const BucketExtremes &e)
{
    const QPointF atMin(time.timeOf(e.minIndex), e.minValue);
    const QPointF atMax(time.timeOf(e.maxIndex), e.maxValue);
    if (e.minIndex > e.maxIndex) {
        points.append(atMax);
        points.append(atMin);
    } else {
        points.append(atMin);
        points.append(atMax);
    }
}

// The same buckets as the plain loop, with their extremes taken from the pyramid all at once.
void appendBuckets(QVector<QPointF> &points, const std::vector<double> &samples, SampleTimeBase time,
                   std::uint64_t startIndex, std::uint64_t endIndex, int buckets, double bucketSize,
                   const MinMaxPyramid &pyramid)
{
    std::vector<std::uint64_t> first, last;
    first.reserve(static_cast<size_t>(buckets));
    last.reserve(static_cast<size_t>(buckets));
    for (int b = 0; b < buckets; ++b) {
        const std::uint64_t s = startIndex + static_cast<std::uint64_t>(b * bucketSize);
        const std::uint64_t e = std::min(endIndex + 1, startIndex + static_cast<std::uint64_t>((b + 1) * bucketSize));
        if (s < e) {
            first.push_back(s);
            last.push_back(e);
        }
    }
    std::vector<MinMaxPyramid::Extremes> extremes(first.size());
    pyramid.extremes(samples.data(), first.data(), last.data(), first.size(), extremes.data());
    for (const MinMaxPyramid::Extremes &e : extremes)
        appendBucket(points, time, BucketExtremes{e.minIndex, e.maxIndex, e.min, e.max});
}

} // namespace

VisibleRange calculateVisibleIndices(std::uint64_t sampleCount, SampleTimeBase time, double xMin,
                                     double xMax)
{
    VisibleRange range;
    if (sampleCount == 0 || !(time.interval > 0.0) || time.start > xMax)
        return range;
    const std::uint64_t last = sampleCount - 1;
    if (xMin > time.timeOf(last))
        return range;

    const double first = std::floor((xMin - time.start) / time.interval);
    const double end = std::ceil((xMax - time.start) / time.interval);
    range.startIndex = first > 0.0 ? static_cast<std::uint64_t>(first) : 0;
    range.endIndex = end < static_cast<double>(last) ? static_cast<std::uint64_t>(end) : last;
    // Rounding next to a large start time can push the first index past the data.
    range.startIndex = std::min(range.startIndex, last);
    if (range.startIndex > 0)
        --range.startIndex;
    if (range.endIndex < last)
        ++range.endIndex;
    range.empty = false;
    return range;
}

BucketExtremes scanBucketExtremes(const double *samples, std::uint64_t first, std::uint64_t last)
{
    const MinMaxPyramid::Extremes e = MinMaxPyramid::scan(samples, first, last);
    return BucketExtremes{e.minIndex, e.maxIndex, e.min, e.max};
}

QVector<QPointF> downsampleVisibleRange(const std::vector<double> &samples, SampleTimeBase time,
                                        std::uint64_t startIndex, std::uint64_t endIndex, int maxPoints,
                                        const MinMaxPyramid *pyramid)
{
    QVector<QPointF> points;
    if (samples.empty())
        return points;
    endIndex = std::min<std::uint64_t>(endIndex, samples.size() - 1);
    if (startIndex > endIndex)
        return points;

    const std::uint64_t count = endIndex - startIndex + 1;
    if (maxPoints < 0 || count <= static_cast<std::uint64_t>(maxPoints)) {
        appendAll(points, samples, time, startIndex, endIndex);
        return points;
    }
    const int buckets = maxPoints / 2;
    if (buckets < 1)
        return points;
    const double bucketSize = static_cast<double>(count) / static_cast<double>(buckets);
    points.reserve(maxPoints);
    if (pyramid && pyramid->sampleCount() == samples.size()) {
        appendBuckets(points, samples, time, startIndex, endIndex, buckets, bucketSize, *pyramid);
        return points;
    }
    for (int b = 0; b < buckets; ++b) {
        const std::uint64_t s = startIndex + static_cast<std::uint64_t>(b * bucketSize);
        const std::uint64_t e = std::min(endIndex + 1, startIndex + static_cast<std::uint64_t>((b + 1) * bucketSize));
        if (s < e)
            appendBucket(points, time, scanBucketExtremes(samples.data(), s, e));
    }
    return points;
}

QVector<QPointF> polylineCorners(const std::vector<double> &samples, SampleTimeBase time, std::size_t maxCorners)
{
    QVector<QPointF> corners;
    const auto finite = [](double v) { return std::isfinite(v); };
    if (samples.empty() || maxCorners < 2 || !std::all_of(samples.begin(), samples.end(), finite))
        return corners;
    // Each sample's own tolerance, so that a far larger value elsewhere never flattens the rest.
    constexpr double TOLERANCE = 1e-12;
    // A sleeve: the slopes from the last corner that pass within the tolerance of every sample
    // since. A sample that empties it ends the piece at the sample before, on a slope still
    // inside, so no sample strays from the line by more than the tolerance.
    std::uint64_t origin = 0;
    double start = samples.front();
    double low = -std::numeric_limits<double>::infinity(), high = std::numeric_limits<double>::infinity();
    corners.append(QPointF(time.timeOf(0), start));
    const auto endPiece = [&](std::uint64_t end) {
        const double run = static_cast<double>(end - origin);
        start += std::clamp((samples[end] - start) / run, low, high) * run;
        origin = end;
        corners.append(QPointF(time.timeOf(end), start));
    };
    for (std::uint64_t j = 1; j < samples.size(); ++j) {
        // Compared as rises over the run, so that only a sleeve that narrows costs a division.
        const double run = static_cast<double>(j - origin);
        const double tolerance = std::abs(samples[j]) * TOLERANCE;
        const double below = samples[j] - tolerance - start, above = samples[j] + tolerance - start;
        if (below <= high * run && above >= low * run) {
            if (below > low * run)
                low = below / run;
            if (above < high * run)
                high = above / run;
            continue;
        }
        endPiece(j - 1);
        if (static_cast<std::size_t>(corners.size()) >= maxCorners)
            return {};
        low = samples[j] - tolerance - start;
        high = samples[j] + tolerance - start;
    }
    if (samples.size() > 1)
        endPiece(samples.size() - 1);
    return corners;
}
