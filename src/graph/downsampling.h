#ifndef DOWNSAMPLING_H
#define DOWNSAMPLING_H

#include "vorngraph_export.h"

#include <QPointF>
#include <QVector>

#include <cstdint>
#include <vector>

class MinMaxPyramid;

// Where sample i of a waveform lies in time.
struct SampleTimeBase
{
    double interval = 0.0;
    double start = 0.0;

    double timeOf(std::uint64_t index) const { return static_cast<double>(index) * interval + start; }
};

// Samples to draw for one view: startIndex to endIndex inclusive; both 0 when empty.
struct VisibleRange
{
    std::uint64_t startIndex = 0;
    std::uint64_t endIndex = 0;
    bool empty = true;
};

// Extremes of one bucket; ties keep the earliest index.
struct BucketExtremes
{
    std::uint64_t minIndex = 0;
    std::uint64_t maxIndex = 0;
    double minValue = 0.0;
    double maxValue = 0.0;
};

// The samples of [xMin, xMax] plus one more on each side where there is one, so that the trace
// runs on to the plot border.
VORNGRAPH_EXPORT VisibleRange calculateVisibleIndices(std::uint64_t sampleCount, SampleTimeBase time,
                                                      double xMin, double xMax);

// Samples startIndex to endIndex as (time, value). Above maxPoints samples the range is cut into
// maxPoints / 2 buckets of fractional width, each drawn as its minimum and maximum in time order,
// so that spikes survive. Indices beyond the samples are clamped. A pyramid built on the same
// samples gives the same points in time proportional to the number of buckets.
VORNGRAPH_EXPORT QVector<QPointF> downsampleVisibleRange(const std::vector<double> &samples,
                                                         SampleTimeBase time, std::uint64_t startIndex,
                                                         std::uint64_t endIndex, int maxPoints,
                                                         const MinMaxPyramid *pyramid = nullptr);

// The search downsampleVisibleRange() does per bucket over samples [first, last): a plain scan.
// A faster index over the same samples must give the very same answer, ties included.
VORNGRAPH_EXPORT BucketExtremes scanBucketExtremes(const double *samples, std::uint64_t first,
                                                   std::uint64_t last);

// The polyline through the samples with every sample that lies on the line between its
// neighbouring corners left out: each sample stays within a 10^-12 of its own magnitude of the
// line drawn through the corners, far below a pixel at any zoom. Curves made of straight
// pieces, as envelopes are, keep a few corners however many samples they have. Empty when the
// samples hold a value that is not finite, or need more than maxCorners corners.
VORNGRAPH_EXPORT QVector<QPointF> polylineCorners(const std::vector<double> &samples, SampleTimeBase time,
                                                  std::size_t maxCorners);

#endif
