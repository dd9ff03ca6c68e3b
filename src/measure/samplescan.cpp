#include "samplescan.h"

#include "vornwaveform.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

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
    std::vector<uint32_t> bins;
};

// The extremes and sums of one block, two samples at a time in each of two vectors of the
// compiler's, so that no addition waits for the one before (the compiler may not reorder them
// itself) and the comparisons become vector minimum and maximum.
struct BlockSums
{
    double min = 0.0, max = 0.0, sum = 0.0, squares = 0.0;
};

typedef double Pair __attribute__((vector_size(2 * sizeof(double))));

BlockSums blockSums(const double *v, size_t n)
{
    Pair mn0 = {v[0], v[0]}, mn1 = mn0, mx0 = mn0, mx1 = mn0, s0 = {}, s1 = {}, q0 = {}, q1 = {};
    size_t i = 0;
    for (; i + 4 <= n; i += 4) {
        Pair a, b;
        std::memcpy(&a, v + i, sizeof a);
        std::memcpy(&b, v + i + 2, sizeof b);
        mn0 = a < mn0 ? a : mn0;
        mn1 = b < mn1 ? b : mn1;
        mx0 = a > mx0 ? a : mx0;
        mx1 = b > mx1 ? b : mx1;
        s0 += a;
        s1 += b;
        q0 += a * a;
        q1 += b * b;
    }
    const Pair mn = mn0 < mn1 ? mn0 : mn1, mx = mx0 > mx1 ? mx0 : mx1, s = s0 + s1, q = q0 + q1;
    BlockSums r{std::min(mn[0], mn[1]), std::max(mx[0], mx[1]), s[0] + s[1], q[0] + q[1]};
    for (; i < n; ++i) {
        r.min = v[i] < r.min ? v[i] : r.min;
        r.max = v[i] > r.max ? v[i] : r.max;
        r.sum += v[i];
        r.squares += v[i] * v[i];
    }
    return r;
}

// Bin of each sample, clamped to the histogram; a NaN lands in the first bin.
void binIndices(const double *v, size_t n, double low, double scale, int32_t *index)
{
    for (size_t i = 0; i < n; ++i) {
        double bin = (v[i] - low) * scale;
        bin = bin > 0.0 ? bin : 0.0;
        bin = bin < HISTOGRAM_BINS - 1 ? bin : HISTOGRAM_BINS - 1;
        index[i] = static_cast<int32_t>(bin);
    }
}

// Above this many samples the histogram takes a part of the blocks: levels are as clear from
// millions of samples as from all of them, and binning costs more than the rest of the pass.
constexpr size_t FULL_HISTOGRAM = size_t(1) << 24;

// Whether block b is binned when one block in 2^shift is: a Weyl sequence of the golden ratio,
// spread evenly over every phase of any periodic signal, so no period can hide a level.
bool binned(size_t b, int shift)
{
    return shift == 0 || (static_cast<uint64_t>(b) * 0x9E3779B97F4A7C15ull) >> (64 - shift) == 0;
}

int histogramShift(size_t count)
{
    int shift = 0;
    while (shift < 6 && (count >> shift) > FULL_HISTOGRAM)
        ++shift;
    return shift;
}

// Blocks [firstBlock, lastBlock) of the span: statistics, block extremes and the histogram
// over [low, low + HISTOGRAM_BINS / scale).
void scanBlocks(const double *samples, size_t count, size_t firstBlock, size_t lastBlock, double low, double scale,
                SampleScan &scan, Part &part)
{
    const int shift = histogramShift(count);
    part.bins.assign(static_cast<size_t>(WAYS) * HISTOGRAM_BINS, 0);
    uint32_t *bins = part.bins.data();
    int32_t index[SCAN_BLOCK];
    // Totals in locals: the two threads' parts share a cache line.
    Part total;
    for (size_t b = firstBlock; b < lastBlock; ++b) {
        const double *v = samples + b * SCAN_BLOCK;
        const size_t n = std::min(SCAN_BLOCK, count - b * SCAN_BLOCK);
        const BlockSums sums = blockSums(v, n);
        if (binned(b, shift)) {
            binIndices(v, n, low, scale, index);
            for (size_t i = 0; i < n; ++i)
                bins[(i % WAYS) * HISTOGRAM_BINS + static_cast<size_t>(index[i])]++;
        }
        scan.blockMin[b] = sums.min;
        scan.blockMax[b] = sums.max;
        total.min = std::min(total.min, sums.min);
        total.max = std::max(total.max, sums.max);
        total.sum += sums.sum;
        total.sumSquares += sums.squares;
    }
    total.bins = std::move(part.bins);
    part = std::move(total);
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
    // Noise reaches further in all the samples than in the few looked at: room for it.
    const double margin = (high - low) * 0.1;
    low -= margin;
    high += margin;
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
    const auto first = [&] { scanBlocks(samples, count, 0, split == 0 ? blocks : split, low, scale, scan, parts[0]); };
    if (threads == 2)
        runBeside(first, [&] { scanBlocks(samples, count, split, blocks, low, scale, scan, parts[1]); });
    else
        first();
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
    }
    scan.min = total.min;
    scan.max = total.max;
    scan.sum = total.sum;
    scan.sumSquares = total.sumSquares;
    // More than a trace of the blocks reach beyond the guess: count again over the true range.
    size_t outside = 0;
    for (size_t b = 0; b < blocks; ++b)
        outside += scan.blockMin[b] < low || scan.blockMax[b] >= high;
    if (outside > blocks / 1000 || !(high > low)) {
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

namespace {

// The largest (or, false, the smallest) of samples [first, last), a NaN passed over as
// max_element passes it, two samples at a time in each of two vectors.
template <bool Largest>
double rangeExtreme(const double *v, size_t first, size_t last)
{
    const auto beyond = [](auto a, auto m) { return Largest ? a > m : a < m; };
    double m = Largest ? -std::numeric_limits<double>::infinity() : std::numeric_limits<double>::infinity();
    size_t i = first;
    if (last - first >= 4) {
        Pair m0 = {m, m}, m1 = m0;
        for (; i + 4 <= last; i += 4) {
            Pair a, b;
            std::memcpy(&a, v + i, sizeof a);
            std::memcpy(&b, v + i + 2, sizeof b);
            m0 = beyond(a, m0) ? a : m0;
            m1 = beyond(b, m1) ? b : m1;
        }
        for (const double x : {m0[0], m0[1], m1[0], m1[1]})
            m = beyond(x, m) ? x : m;
    }
    for (; i < last; ++i)
        m = beyond(v[i], m) ? v[i] : m;
    return m;
}

} // namespace

// Whole blocks first, so that a ragged end whose block cannot beat them is not read at all.
double spanMax(const SampleScan &scan, size_t first, size_t last)
{
    const size_t head = std::min(last, (first + SCAN_BLOCK - 1) / SCAN_BLOCK * SCAN_BLOCK);
    const size_t tail = std::max(head, last / SCAN_BLOCK * SCAN_BLOCK);
    double m = -std::numeric_limits<double>::infinity();
    for (size_t b = head / SCAN_BLOCK; b < tail / SCAN_BLOCK; ++b)
        m = std::max(m, scan.blockMax[b]);
    if (first < head && scan.blockMax[first / SCAN_BLOCK] > m)
        m = std::max(m, rangeExtreme<true>(scan.samples, first, head));
    if (tail < last && scan.blockMax[tail / SCAN_BLOCK] > m)
        m = std::max(m, rangeExtreme<true>(scan.samples, tail, last));
    return m;
}

double spanMin(const SampleScan &scan, size_t first, size_t last)
{
    const size_t head = std::min(last, (first + SCAN_BLOCK - 1) / SCAN_BLOCK * SCAN_BLOCK);
    const size_t tail = std::max(head, last / SCAN_BLOCK * SCAN_BLOCK);
    double m = std::numeric_limits<double>::infinity();
    for (size_t b = head / SCAN_BLOCK; b < tail / SCAN_BLOCK; ++b)
        m = std::min(m, scan.blockMin[b]);
    if (first < head && scan.blockMin[first / SCAN_BLOCK] < m)
        m = std::min(m, rangeExtreme<false>(scan.samples, first, head));
    if (tail < last && scan.blockMin[tail / SCAN_BLOCK] < m)
        m = std::min(m, rangeExtreme<false>(scan.samples, tail, last));
    return m;
}

} // namespace vornmeasure
