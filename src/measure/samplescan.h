#ifndef VORN_SAMPLESCAN_H
#define VORN_SAMPLESCAN_H

// The one pass over a span's samples that every measurement starts from: the plain statistics,
// the level histogram, and each block's extremes, so that finding the transitions afterwards
// touches only the blocks where the signal crosses a reference level.

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vornmeasure {

constexpr size_t SCAN_BLOCK = 256;
constexpr int HISTOGRAM_BINS = 4096;

struct SampleScan
{
    const double *samples = nullptr; // the span's first sample
    size_t count = 0;
    double min = 0.0, max = 0.0, sum = 0.0, sumSquares = 0.0;
    double histogramLow = 0.0, histogramHigh = 0.0; // range of the bins
    std::vector<uint64_t> histogram;                // HISTOGRAM_BINS counts
    std::vector<double> blockMin, blockMax;         // per SCAN_BLOCK samples, the last one partial
};

SampleScan scanSamples(const double *samples, size_t count);

// The extremes of samples [first, last) from the blocks, scanning only the ragged ends.
double spanMax(const SampleScan &scan, size_t first, size_t last);
double spanMin(const SampleScan &scan, size_t first, size_t last);

} // namespace vornmeasure

#endif
