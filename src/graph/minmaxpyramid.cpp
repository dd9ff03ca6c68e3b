#include "minmaxpyramid.h"

#include <algorithm>
#ifdef __SSE2__
#include <emmintrin.h>
#endif
#include <cmath>
#include <limits>
#include <thread>

namespace {

constexpr double INF = std::numeric_limits<double>::infinity();
constexpr size_t PREFETCH_AHEAD = 4;               // ranges, for the samples; twice that for the index
constexpr uint64_t THREADED_SAMPLES = 4'000'000;   // below this a second thread costs more than it saves
constexpr size_t PREFETCHED_LEVELS = 3;            // the levels too large to stay in cache

void scanInto(const double *samples, uint64_t from, uint64_t to, MinMaxPyramid::Extremes &e)
{
    for (uint64_t i = from; i < to; ++i) {
        const double v = samples[i];
        if (v < e.min) {
            e.min = v;
            e.minIndex = i;
        }
        if (v > e.max) {
            e.max = v;
            e.maxIndex = i;
        }
    }
}

void lowestInto(const double *samples, uint64_t from, uint64_t to, MinMaxPyramid::Extremes &e)
{
    for (uint64_t i = from; i < to; ++i) {
        if (samples[i] < e.min) {
            e.min = samples[i];
            e.minIndex = i;
        }
    }
}

void highestInto(const double *samples, uint64_t from, uint64_t to, MinMaxPyramid::Extremes &e)
{
    for (uint64_t i = from; i < to; ++i) {
        if (samples[i] > e.max) {
            e.max = samples[i];
            e.maxIndex = i;
        }
    }
}

void prefetchLines(const double *from, const double *to)
{
    for (const char *line = reinterpret_cast<const char *>(uintptr_t(from) & ~uintptr_t(63));
         line < reinterpret_cast<const char *>(to); line += 64)
        __builtin_prefetch(line);
}

// Extremes, sum and count of one base block, NaN left out, in independent lanes that the
// processor runs side by side; the extremes' values are those of the scan but not their indices.
struct BlockSums
{
    double min;
    double max;
    double sum;
    uint64_t count;
};

#ifdef __SSE2__
BlockSums sumBlock(const double *block)
{
    constexpr int LANES = 2; // of two doubles each
    __m128d lo[LANES], hi[LANES], sum[LANES];
    __m128i count = _mm_setzero_si128();
    for (int l = 0; l < LANES; ++l) {
        lo[l] = _mm_set1_pd(INF);
        hi[l] = _mm_set1_pd(-INF);
        sum[l] = _mm_setzero_pd();
    }
    for (uint64_t i = 0; i < MinMaxPyramid::BASE_BLOCK; i += 2 * LANES) {
        for (int l = 0; l < LANES; ++l) {
            const __m128d v = _mm_loadu_pd(block + i + 2 * l);
            lo[l] = _mm_min_pd(v, lo[l]); // v < lo ? v : lo, so NaN never wins
            hi[l] = _mm_max_pd(v, hi[l]);
            const __m128d ordered = _mm_cmpord_pd(v, v); // all ones where v is no NaN
            sum[l] = _mm_add_pd(sum[l], _mm_and_pd(v, ordered));
            count = _mm_sub_epi64(count, _mm_castpd_si128(ordered));
        }
    }
    lo[0] = _mm_min_pd(lo[1], lo[0]);
    hi[0] = _mm_max_pd(hi[1], hi[0]);
    sum[0] = _mm_add_pd(sum[0], sum[1]);
    alignas(16) double low[2], high[2], sums[2];
    alignas(16) uint64_t counts[2];
    _mm_store_pd(low, lo[0]);
    _mm_store_pd(high, hi[0]);
    _mm_store_pd(sums, sum[0]);
    _mm_store_si128(reinterpret_cast<__m128i *>(counts), count);
    return BlockSums{std::min(low[0], low[1]), std::max(high[0], high[1]), sums[0] + sums[1], counts[0] + counts[1]};
}

// Index of the first sample of the block equal to value, which the block holds.
uint32_t firstEqual(const double *block, double value)
{
    const __m128d wanted = _mm_set1_pd(value);
    for (uint32_t i = 0;; i += 2) {
        const int mask = _mm_movemask_pd(_mm_cmpeq_pd(_mm_loadu_pd(block + i), wanted));
        if (mask)
            return i + ((mask & 1) ? 0 : 1);
    }
}
#else
BlockSums sumBlock(const double *block)
{
    const SampleSummary s = SampleSummary::of(block, 0, MinMaxPyramid::BASE_BLOCK);
    return BlockSums{s.min, s.max, s.sum, s.count};
}

uint32_t firstEqual(const double *block, double value)
{
    uint32_t i = 0;
    while (!(block[i] == value))
        ++i;
    return i;
}
#endif

} // namespace

SampleSummary::SampleSummary()
    : min(INF), max(-INF), finiteMin(INF), finiteMax(-INF), sum(0.0), compensation(0.0), count(0)
{
}

// A hundred million samples summed plainly lose enough to turn the mean of a symmetric signal
// into a visible number; with the lost parts kept, what is left is the rounding of one addition.
void SampleSummary::addToSum(double value)
{
    const double next = sum + value;
    if (std::isfinite(next))
        compensation += std::fabs(sum) >= std::fabs(value) ? (sum - next) + value : (value - next) + sum;
    sum = next;
}

void SampleSummary::add(double value)
{
    if (std::isnan(value))
        return;
    min = std::min(min, value);
    max = std::max(max, value);
    if (std::isfinite(value)) {
        finiteMin = std::min(finiteMin, value);
        finiteMax = std::max(finiteMax, value);
    }
    addToSum(value);
    ++count;
}

void SampleSummary::append(const SampleSummary &later)
{
    min = std::min(min, later.min);
    max = std::max(max, later.max);
    finiteMin = std::min(finiteMin, later.finiteMin);
    finiteMax = std::max(finiteMax, later.finiteMax);
    addToSum(later.sum);
    compensation += later.compensation;
    count += later.count;
}

SampleSummary SampleSummary::of(const double *samples, uint64_t first, uint64_t last)
{
    SampleSummary summary;
    for (uint64_t i = first; i < last; ++i)
        summary.add(samples[i]);
    return summary;
}

MinMaxPyramid::Extremes MinMaxPyramid::scan(const double *samples, uint64_t first, uint64_t last)
{
    Extremes e{samples[first], samples[first], first, first};
    scanInto(samples, first + 1, last, e);
    return e;
}

void MinMaxPyramid::buildBase(const double *samples, size_t firstBlock, size_t lastBlock, SampleSummary &summary,
                              std::vector<Block> &parents)
{
    Extremes group{INF, -INF, 0, 0};
    for (size_t b = firstBlock; b < lastBlock; ++b) {
        const double *block = samples + b * BASE_BLOCK;
        const BlockSums sums = sumBlock(block);
        // The first sample equal to an extreme is the one a front-to-back scan keeps (+0 and -0
        // alike). An extreme still equal to the scan's starting infinity never replaced it, so
        // it stays at the block's start.
        const uint32_t minOffset = sums.min == INF ? 0 : firstEqual(block, sums.min);
        const uint32_t maxOffset = sums.max == -INF ? 0 : firstEqual(block, sums.max);
        m_base[b] = BaseBlock{sums.min == INF ? NO_VALUE : uint8_t(minOffset), sums.max == -INF ? NO_VALUE : uint8_t(maxOffset)};
        SampleSummary part;
        part.min = sums.min == INF ? INF : block[minOffset];
        part.max = sums.max == -INF ? -INF : block[maxOffset];
        part.sum = sums.sum;
        part.count = sums.count;
        // The level above is merged from these blocks while their samples are still in the
        // cache, exactly as from the finished base level: in order, the earliest index winning.
        const uint64_t start = b * BASE_BLOCK;
        if (b / FAN_OUT < parents.size()) {
            if (b % FAN_OUT == 0)
                group = Extremes{INF, -INF, start, start};
            merge(group, Block{part.min, part.max, minOffset, maxOffset}, start);
            if (b % FAN_OUT == FAN_OUT - 1) {
                const uint64_t first = start - (FAN_OUT - 1) * BASE_BLOCK;
                parents[b / FAN_OUT] = Block{group.min, group.max, static_cast<uint32_t>(group.minIndex - first),
                                             static_cast<uint32_t>(group.maxIndex - first)};
            }
        }
        if (std::isfinite(part.min) && std::isfinite(part.max)) {
            part.finiteMin = part.min;
            part.finiteMax = part.max;
        } else {
            const SampleSummary finite = SampleSummary::of(block, 0, BASE_BLOCK);
            part.finiteMin = finite.finiteMin;
            part.finiteMax = finite.finiteMax;
        }
        summary.append(part);
    }
}

MinMaxPyramid::MinMaxPyramid(const std::vector<double> &samples, bool threadedQueries)
    : m_sampleCount(samples.size())
    , m_threadedQueries(threadedQueries)
{
    // Block values leave NaN out: starting from +inf and -inf, a NaN never wins a comparison.
    const auto toBlock = [](const Extremes &e, uint64_t start) {
        return Block{e.min, e.max, static_cast<uint32_t>(e.minIndex - start), static_cast<uint32_t>(e.maxIndex - start)};
    };
    const size_t blocks = samples.size() / BASE_BLOCK;
    m_base.resize(blocks);
    std::vector<Block> firstLevel(blocks / FAN_OUT);
    // The base level reads every sample: long arrays are split over two threads, at a block
    // of the level above.
    const size_t half = samples.size() >= THREADED_SAMPLES ? blocks / 2 / FAN_OUT * FAN_OUT : 0;
    SampleSummary later;
    std::thread helper;
    if (half > 0)
        helper = std::thread([&] { buildBase(samples.data(), half, blocks, later, firstLevel); });
    buildBase(samples.data(), 0, half > 0 ? half : blocks, m_summary, firstLevel);
    if (helper.joinable()) {
        helper.join();
        m_summary.append(later);
    }
    m_summary.append(SampleSummary::of(samples.data(), blocks * BASE_BLOCK, samples.size()));

    uint64_t childSize = BASE_BLOCK;
    size_t children = m_base.size();
    if (!firstLevel.empty()) {
        childSize *= FAN_OUT;
        children = firstLevel.size();
        m_levels.push_back(std::move(firstLevel));
    }
    while (children >= FAN_OUT) {
        std::vector<Block> parents(children / FAN_OUT);
        for (size_t b = 0; b < parents.size(); ++b) {
            const uint64_t start = b * FAN_OUT * childSize;
            Extremes e{INF, -INF, start, start};
            for (unsigned c = 0; c < FAN_OUT; ++c) {
                const size_t child = b * FAN_OUT + c;
                merge(e, m_levels.back()[child], start + c * childSize);
            }
            parents[b] = toBlock(e, start);
        }
        childSize *= FAN_OUT;
        if (childSize * FAN_OUT > std::numeric_limits<uint32_t>::max())
            break; // offsets must fit
        children = parents.size();
        m_levels.push_back(std::move(parents));
    }
}

void MinMaxPyramid::mergeBase(Extremes &into, BaseBlock block, const double *samples, uint64_t blockStart)
{
    if (block.minOffset != NO_VALUE && samples[blockStart + block.minOffset] < into.min) {
        into.min = samples[blockStart + block.minOffset];
        into.minIndex = blockStart + block.minOffset;
    }
    if (block.maxOffset != NO_VALUE && samples[blockStart + block.maxOffset] > into.max) {
        into.max = samples[blockStart + block.maxOffset];
        into.maxIndex = blockStart + block.maxOffset;
    }
}

size_t MinMaxPyramid::memoryBytes() const
{
    size_t bytes = m_base.capacity() * sizeof(BaseBlock);
    for (const auto &level : m_levels)
        bytes += level.capacity() * sizeof(Block);
    return bytes;
}

void MinMaxPyramid::merge(Extremes &into, const Block &block, uint64_t blockStart)
{
    if (block.min < into.min) {
        into.min = block.min;
        into.minIndex = blockStart + block.minOffset;
    }
    if (block.max > into.max) {
        into.max = block.max;
        into.maxIndex = blockStart + block.maxOffset;
    }
}

MinMaxPyramid::Extremes MinMaxPyramid::extremes(const double *samples, uint64_t first, uint64_t last) const
{
    Extremes e{samples[first], samples[first], first, first};
    uint64_t p = first + 1;
    const uint64_t alignedStart = (p + BASE_BLOCK - 1) / BASE_BLOCK * BASE_BLOCK;
    const uint64_t alignedEnd = last / BASE_BLOCK * BASE_BLOCK;
    if (m_base.empty() || alignedStart >= alignedEnd || last > m_sampleCount) {
        scanInto(samples, p, last, e);
        return e;
    }
    if (p < alignedStart)
        mergeHead(e, samples, first, alignedStart);
    p = alignedStart;
    // Left to right, each step the largest block that starts at p and ends by alignedEnd, so
    // ties keep the earliest index.
    while (p < alignedEnd) {
        size_t level = 0;
        uint64_t size = BASE_BLOCK;
        // Block sizes are powers of two, so alignment is a mask test.
        while (level < m_levels.size() && (p & (size * FAN_OUT - 1)) == 0 && p + size * FAN_OUT <= alignedEnd) {
            size *= FAN_OUT;
            ++level;
        }
        if (level == 0)
            mergeBase(e, m_base[p / size], samples, p);
        else
            merge(e, m_levels[level - 1][p / size], p);
        p += size;
    }
    if (alignedEnd < last)
        mergeTail(e, samples, alignedEnd, last);
    return e;
}

// The ragged ends lie in one base block each. Where the block's first extreme lies inside the
// end, it is also the end's first extreme; only otherwise are the end's samples compared.
void MinMaxPyramid::mergeHead(Extremes &into, const double *samples, uint64_t first, uint64_t blockEnd) const
{
    const uint64_t blockStart = blockEnd - BASE_BLOCK;
    const BaseBlock block = m_base[blockStart / BASE_BLOCK];
    // The block's extreme at first is already in: the scan starts there.
    if (block.minOffset == NO_VALUE || blockStart + block.minOffset >= first)
        mergeBase(into, BaseBlock{block.minOffset, NO_VALUE}, samples, blockStart);
    else
        lowestInto(samples, first + 1, blockEnd, into);
    if (block.maxOffset == NO_VALUE || blockStart + block.maxOffset >= first)
        mergeBase(into, BaseBlock{NO_VALUE, block.maxOffset}, samples, blockStart);
    else
        highestInto(samples, first + 1, blockEnd, into);
}

void MinMaxPyramid::mergeTail(Extremes &into, const double *samples, uint64_t blockStart, uint64_t last) const
{
    const size_t index = blockStart / BASE_BLOCK;
    const bool indexed = index < m_base.size();
    const BaseBlock block = indexed ? m_base[index] : BaseBlock{0, 0};
    if (indexed && (block.minOffset == NO_VALUE || blockStart + block.minOffset < last))
        mergeBase(into, BaseBlock{block.minOffset, NO_VALUE}, samples, blockStart);
    else
        lowestInto(samples, blockStart, last, into);
    if (indexed && (block.maxOffset == NO_VALUE || blockStart + block.maxOffset < last))
        mergeBase(into, BaseBlock{NO_VALUE, block.maxOffset}, samples, blockStart);
    else
        highestInto(samples, blockStart, last, into);
}

// Once the index lines are in: the cache lines of the edges' blocks that mergeHead() and
// mergeTail() will read, the extreme where the block answers, the scanned part where not.
void MinMaxPyramid::prefetchEdges(const double *samples, uint64_t first, uint64_t last) const
{
    const uint64_t alignedStart = (first / BASE_BLOCK + 1) * BASE_BLOCK;
    const uint64_t alignedEnd = last / BASE_BLOCK * BASE_BLOCK;
    if (last > m_sampleCount)
        return;
    if (alignedStart >= alignedEnd) { // scanned whole, fewer than two blocks
        prefetchLines(samples + first, samples + last);
        return;
    }
    __builtin_prefetch(samples + first);
    const uint64_t headStart = alignedStart - BASE_BLOCK;
    const BaseBlock head = m_base[headStart / BASE_BLOCK];
    for (uint8_t offset : {head.minOffset, head.maxOffset}) {
        if (offset == NO_VALUE)
            continue;
        if (headStart + offset >= first)
            __builtin_prefetch(samples + headStart + offset);
        else
            prefetchLines(samples + first + 1, samples + alignedStart);
    }
    // The whole base blocks next to the edges keep no values of their own.
    const uint64_t parent = BASE_BLOCK * FAN_OUT;
    const uint64_t headEnd = std::min((alignedStart + parent - 1) / parent * parent, alignedEnd);
    const uint64_t tailStart = std::max(alignedEnd / parent * parent, headEnd);
    for (uint64_t p : {alignedStart, tailStart}) {
        for (const uint64_t end = p == alignedStart ? headEnd : alignedEnd; p < end; p += BASE_BLOCK) {
            const BaseBlock b = m_base[p / BASE_BLOCK];
            for (uint8_t offset : {b.minOffset, b.maxOffset})
                if (offset != NO_VALUE)
                    __builtin_prefetch(samples + p + offset);
        }
    }
    if (alignedEnd == last)
        return;
    if (alignedEnd / BASE_BLOCK >= m_base.size()) { // the array's last, partial block
        prefetchLines(samples + alignedEnd, samples + last);
        return;
    }
    const BaseBlock tail = m_base[alignedEnd / BASE_BLOCK];
    for (uint8_t offset : {tail.minOffset, tail.maxOffset}) {
        if (offset == NO_VALUE)
            continue;
        if (alignedEnd + offset < last)
            __builtin_prefetch(samples + alignedEnd + offset);
        else
            prefetchLines(samples + alignedEnd, samples + last);
    }
}

void MinMaxPyramid::prefetchIndex(uint64_t first, uint64_t last) const
{
    // The blocks next to the two edges of the range in the lowest levels, which prefetchEdges()
    // reads a few ranges later.
    for (uint64_t edge : {first, last - 1}) {
        uint64_t block = edge / BASE_BLOCK;
        if (block < m_base.size())
            __builtin_prefetch(&m_base[block]);
        block /= FAN_OUT;
        for (size_t level = 0; level < m_levels.size() && level + 1 < PREFETCHED_LEVELS; ++level, block /= FAN_OUT) {
            if (block < m_levels[level].size())
                __builtin_prefetch(&m_levels[level][block]);
        }
    }
}

void MinMaxPyramid::extremesInOrder(const double *samples, const uint64_t *first, const uint64_t *last,
                                    size_t count, Extremes *out) const
{
    for (size_t i = 0; i < count; ++i) {
        if (i + 2 * PREFETCH_AHEAD < count)
            prefetchIndex(first[i + 2 * PREFETCH_AHEAD], last[i + 2 * PREFETCH_AHEAD]);
        if (!m_base.empty() && i + PREFETCH_AHEAD < count)
            prefetchEdges(samples, first[i + PREFETCH_AHEAD], last[i + PREFETCH_AHEAD]);
        out[i] = extremes(samples, first[i], last[i]);
    }
}

void MinMaxPyramid::extremes(const double *samples, const uint64_t *first, const uint64_t *last, size_t count,
                             Extremes *out) const
{
    if (count == 0)
        return;
    if (!m_threadedQueries || count < 2 || last[count - 1] - first[0] < THREADED_SAMPLES) {
        extremesInOrder(samples, first, last, count, out);
        return;
    }
    const size_t half = count / 2;
    std::thread helper([&] { extremesInOrder(samples, first + half, last + half, count - half, out + half); });
    extremesInOrder(samples, first, last, half, out);
    helper.join();
}
