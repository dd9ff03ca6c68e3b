#include "minmaxpyramid.h"

#include <limits>
#include <thread>

namespace {

constexpr double INF = std::numeric_limits<double>::infinity();
constexpr size_t PREFETCH_AHEAD = 4;               // ranges
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

} // namespace

MinMaxPyramid::Extremes MinMaxPyramid::scan(const double *samples, uint64_t first, uint64_t last)
{
    Extremes e{samples[first], samples[first], first, first};
    scanInto(samples, first + 1, last, e);
    return e;
}

MinMaxPyramid::MinMaxPyramid(const std::vector<double> &samples)
    : m_sampleCount(samples.size())
{
    // Block values leave NaN out: starting from +inf and -inf, a NaN never wins a comparison.
    const auto toBlock = [](const Extremes &e, uint64_t start) {
        return Block{e.min, e.max, static_cast<uint32_t>(e.minIndex - start), static_cast<uint32_t>(e.maxIndex - start)};
    };
    std::vector<Block> base(samples.size() / BASE_BLOCK);
    for (size_t b = 0; b < base.size(); ++b) {
        const uint64_t start = b * BASE_BLOCK;
        Extremes e{INF, -INF, start, start};
        scanInto(samples.data(), start, start + BASE_BLOCK, e);
        base[b] = toBlock(e, start);
    }
    m_levels.push_back(std::move(base));

    uint64_t childSize = BASE_BLOCK;
    while (m_levels.back().size() >= FAN_OUT) {
        const std::vector<Block> &children = m_levels.back();
        std::vector<Block> parents(children.size() / FAN_OUT);
        for (size_t b = 0; b < parents.size(); ++b) {
            const uint64_t start = b * FAN_OUT * childSize;
            Extremes e{INF, -INF, start, start};
            for (unsigned c = 0; c < FAN_OUT; ++c)
                merge(e, children[b * FAN_OUT + c], start + c * childSize);
            parents[b] = toBlock(e, start);
        }
        childSize *= FAN_OUT;
        if (childSize * FAN_OUT > std::numeric_limits<uint32_t>::max())
            break; // offsets must fit
        m_levels.push_back(std::move(parents));
    }
}

size_t MinMaxPyramid::memoryBytes() const
{
    size_t bytes = 0;
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
    if (m_levels.empty() || alignedStart >= alignedEnd || last > m_sampleCount) {
        scanInto(samples, p, last, e);
        return e;
    }
    scanInto(samples, p, alignedStart, e);
    p = alignedStart;
    // Left to right, each step the largest block that starts at p and ends by alignedEnd, so
    // ties keep the earliest index.
    while (p < alignedEnd) {
        size_t level = 0;
        uint64_t size = BASE_BLOCK;
        // Block sizes are powers of two, so alignment is a mask test.
        while (level + 1 < m_levels.size() && (p & (size * FAN_OUT - 1)) == 0 && p + size * FAN_OUT <= alignedEnd) {
            size *= FAN_OUT;
            ++level;
        }
        merge(e, m_levels[level][p / size], p);
        p += size;
    }
    scanInto(samples, alignedEnd, last, e);
    return e;
}

void MinMaxPyramid::prefetch(const double *samples, uint64_t first, uint64_t last) const
{
    // The ragged ends are the cache lines around the two edges of the range; the blocks are
    // those next to the edges in the lowest levels.
    for (uint64_t edge : {first, last - 1}) {
        const double *line = samples + (edge & ~(BASE_BLOCK - 1));
        for (uint64_t i = 0; i < BASE_BLOCK; i += 8)
            __builtin_prefetch(line + i);
        uint64_t block = edge / BASE_BLOCK;
        for (size_t level = 0; level < m_levels.size() && level < PREFETCHED_LEVELS; ++level, block /= FAN_OUT) {
            if (block < m_levels[level].size())
                __builtin_prefetch(&m_levels[level][block]);
        }
    }
}

void MinMaxPyramid::extremesInOrder(const double *samples, const uint64_t *first, const uint64_t *last,
                                    size_t count, Extremes *out) const
{
    for (size_t i = 0; i < count; ++i) {
        if (i + PREFETCH_AHEAD < count)
            prefetch(samples, first[i + PREFETCH_AHEAD], last[i + PREFETCH_AHEAD]);
        out[i] = extremes(samples, first[i], last[i]);
    }
}

void MinMaxPyramid::extremes(const double *samples, const uint64_t *first, const uint64_t *last, size_t count,
                             Extremes *out) const
{
    if (count == 0)
        return;
    if (count < 2 || last[count - 1] - first[0] < THREADED_SAMPLES) {
        extremesInOrder(samples, first, last, count, out);
        return;
    }
    const size_t half = count / 2;
    std::thread helper([&] { extremesInOrder(samples, first + half, last + half, count - half, out + half); });
    extremesInOrder(samples, first, last, half, out);
    helper.join();
}
