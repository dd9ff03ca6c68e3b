#include "samplescan.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <thread>

namespace vornmeasure {

namespace {

// Four interleaved histograms, so that a flat level, whose samples all land in one bin, does not
// chain every increment on the one before.
constexpr int WAYS = 4;

struct Part
{
    double min = std::numeric_limits<double>::infinity();
    double max = -std::numeric_limits<double>::infinity();
    double sum = 0.0, sumSquares = 0.0;
    size_t binary = 0, outside = 0;
    std::vector<uint32_t> bins;
};

// Blocks [firstBlock, lastBlock) of the span: statistics, block extremes and the histogram
// over [low, low + HISTOGRAM_BINS / scale).
void scanBlocks(const double *samples, size_t count, size_t firstBlock, size_t lastBlock, double low, double scale,
                SampleScan &scan, Part &part)
{
    part.bins.assign(static_cast<size_t>(WAYS) * HISTOGRAM_BINS, 0);
    uint32_t *bins = part.bins.data();
    // Four accumulators of each kind, so that the sums are not one chain of dependent additions
    // and the loops vectorise.
    constexpr size_t LANES = 4;
    uint32_t index[SCAN_BLOCK];
    for (size_t b = firstBlock; b < lastBlock; ++b) {
        const double *v = samples + b * SCAN_BLOCK;
        const size_t n = std::min(SCAN_BLOCK, count - b * SCAN_BLOCK);
        double mins[LANES], maxs[LANES], s[LANES] = {}, s2[LANES] = {};
        size_t binaries[LANES] = {}, outsides[LANES] = {};
        std::fill_n(mins, LANES, v[0]);
        std::fill_n(maxs, LANES, v[0]);
        size_t i = 0;
        for (; i + LANES <= n; i += LANES) {
            for (size_t k = 0; k < LANES; ++k) {
                const double x = v[i + k];
                mins[k] = x < mins[k] ? x : mins[k];
                maxs[k] = x > maxs[k] ? x : maxs[k];
                s[k] += x;
                s2[k] += x * x;
                binaries[k] += (x == 0.0) | (x == 1.0);
                const double bin = (x - low) * scale;
                outsides[k] += (bin < 0.0) | (bin >= HISTOGRAM_BINS);
                const double clamped = bin >= 0.0 ? (bin < HISTOGRAM_BINS ? bin : HISTOGRAM_BINS - 1) : 0.0;
                index[i + k] = static_cast<uint32_t>(static_cast<int32_t>(clamped));
            }
        }
        for (; i < n; ++i) {
            const double x = v[i];
            mins[0] = std::min(mins[0], x);
            maxs[0] = std::max(maxs[0], x);
            s[0] += x;
            s2[0] += x * x;
            binaries[0] += (x == 0.0) | (x == 1.0);
            const double bin = (x - low) * scale;
            outsides[0] += (bin < 0.0) | (bin >= HISTOGRAM_BINS);
            index[i] = static_cast<uint32_t>(static_cast<int32_t>(bin >= 0.0 ? (bin < HISTOGRAM_BINS ? bin : HISTOGRAM_BINS - 1) : 0.0));
        }
        for (i = 0; i < n; ++i)
            bins[(i % WAYS) * HISTOGRAM_BINS + index[i]]++;
        const double mn = std::min(std::min(mins[0], mins[1]), std::min(mins[2], mins[3]));
        const double mx = std::max(std::max(maxs[0], maxs[1]), std::max(maxs[2], maxs[3]));
        const size_t binary = binaries[0] + binaries[1] + binaries[2] + binaries[3];
        const size_t outside = outsides[0] + outsides[1] + outsides[2] + outsides[3];
        s[0] += s[1] + s[2] + s[3];
        s2[0] += s2[1] + s2[2] + s2[3];
        scan.blockMin[b] = mn;
        scan.blockMax[b] = mx;
        part.min = std::min(part.min, mn);
        part.max = std::max(part.max, mx);
        part.sum += s[0];
        part.sumSquares += s2[0];
        part.binary += binary;
        part.outside += outside;
    }
}

// The histogram's range guessed from a spread of samples, before the pass gives the true one.
void guessRange(const double *samples, size_t count, double &low, double &high)
{
    const size_t step = std::max<size_t>(1, count / 65521);
    low = high = samples[0];
    for (size_t i = 0; i < count; i += step) {
        low = std::min(low, samples[i]);
        high = std::max(high, samples[i]);
    }
    low = std::min(low, samples[count - 1]);
    high = std::max(high, samples[count - 1]);
}

double binScale(double low, double high)
{
    return high > low ? HISTOGRAM_BINS / (high - low) : 0.0;
}

std::vector<Part> scanParts(const double *samples, size_t count, double low, double scale, SampleScan &scan)
{
    const size_t blocks = scan.blockMin.size();
    // A second core pays once the span is long enough to outweigh starting a thread.
    const size_t threads = count >= (size_t(1) << 22) ? 2 : 1;
    std::vector<Part> parts(threads);
    const size_t split = blocks / threads;
    std::thread helper;
    if (threads == 2)
        helper = std::thread([&] { scanBlocks(samples, count, split, blocks, low, scale, scan, parts[1]); });
    scanBlocks(samples, count, 0, split == 0 ? blocks : split, low, scale, scan, parts[0]);
    if (helper.joinable())
        helper.join();
    return parts;
}

} // namespace

SampleScan scanSamples(const double *samples, size_t count)
{
    SampleScan scan;
    scan.samples = samples;
    scan.count = count;
    scan.histogram.assign(HISTOGRAM_BINS, 0);
    if (count == 0)
        return scan;
    const size_t blocks = (count + SCAN_BLOCK - 1) / SCAN_BLOCK;
    scan.blockMin.resize(blocks);
    scan.blockMax.resize(blocks);
    double low = 0.0, high = 0.0;
    guessRange(samples, count, low, high);
    std::vector<Part> parts = scanParts(samples, count, low, binScale(low, high), scan);

    Part total;
    for (const Part &p : parts) {
        total.min = std::min(total.min, p.min);
        total.max = std::max(total.max, p.max);
        total.sum += p.sum;
        total.sumSquares += p.sumSquares;
        total.binary += p.binary;
        total.outside += p.outside;
    }
    scan.min = total.min;
    scan.max = total.max;
    scan.sum = total.sum;
    scan.sumSquares = total.sumSquares;
    scan.binary = total.binary;
    // The guess missed more than a trace of the samples: count them again over the true range.
    if (total.outside > count / 1000 || !(high > low)) {
        low = scan.min;
        high = scan.max;
        const double scale = binScale(low, high);
        parts.resize(1);
        parts[0].bins.assign(HISTOGRAM_BINS, 0);
        for (size_t i = 0; i < count && scale > 0.0; ++i) {
            const double x = (samples[i] - low) * scale;
            parts[0].bins[x >= 0.0 && x < HISTOGRAM_BINS ? static_cast<size_t>(x) : x >= HISTOGRAM_BINS ? HISTOGRAM_BINS - 1 : 0]++;
        }
    }
    scan.histogramLow = low;
    scan.histogramHigh = high;
    for (const Part &p : parts) {
        for (size_t i = 0; i < p.bins.size(); ++i)
            scan.histogram[i % HISTOGRAM_BINS] += p.bins[i];
    }
    return scan;
}

double spanMax(const SampleScan &scan, size_t first, size_t last)
{
    double m = -std::numeric_limits<double>::infinity();
    while (first < last && first % SCAN_BLOCK)
        m = std::max(m, scan.samples[first++]);
    for (; first + SCAN_BLOCK <= last; first += SCAN_BLOCK)
        m = std::max(m, scan.blockMax[first / SCAN_BLOCK]);
    for (; first < last; ++first)
        m = std::max(m, scan.samples[first]);
    return m;
}

double spanMin(const SampleScan &scan, size_t first, size_t last)
{
    double m = std::numeric_limits<double>::infinity();
    while (first < last && first % SCAN_BLOCK)
        m = std::min(m, scan.samples[first++]);
    for (; first + SCAN_BLOCK <= last; first += SCAN_BLOCK)
        m = std::min(m, scan.blockMin[first / SCAN_BLOCK]);
    for (; first < last; ++first)
        m = std::min(m, scan.samples[first]);
    return m;
}

} // namespace vornmeasure
