#ifndef MINMAXPYRAMID_H
#define MINMAXPYRAMID_H

#include "vorngraph_export.h"

#include <cstddef>
#include <cstdint>
#include <vector>

// What a whole sample array holds. NaN is no value: it is left out of everything; infinities
// are left out of the finite span only.
struct VORNGRAPH_EXPORT SampleSummary
{
    double min;       // +inf when every sample is NaN
    double max;       // -inf when every sample is NaN
    double finiteMin; // +inf when no sample is finite
    double finiteMax; // -inf when no sample is finite
    double sum;
    double compensation; // what the rounding of sum lost, gathered as it went (Neumaier)
    uint64_t count;      // samples that are not NaN

    SampleSummary();
    void add(double value);
    // Adds the summary of the samples that follow the ones summarised so far.
    void append(const SampleSummary &later);
    static SampleSummary of(const double *samples, uint64_t first, uint64_t last);
    double total() const { return sum + compensation; }

private:
    void addToSum(double value);
};

// Minimum and maximum of every block of a sample array, at block sizes 64, 256, 1024, ...,
// so that the extremes of any index range cost a few block look-ups plus two short scans
// instead of a scan of the whole range. Answers are exactly those of a front-to-back scan that
// starts at the range's first sample and takes a later sample only when it is strictly smaller
// (or greater): the earliest index wins a tie, and NaN wins only as the first sample.
class VORNGRAPH_EXPORT MinMaxPyramid
{
public:
    struct Extremes
    {
        double min;
        double max;
        uint64_t minIndex;
        uint64_t maxIndex;
    };

    static constexpr uint64_t BASE_BLOCK = 64;
    static constexpr unsigned FAN_OUT = 4;

    MinMaxPyramid() = default;
    // With threadedQueries off, long batches of ranges are answered on the calling thread only:
    // a helper started per batch waits for a core whenever the machine is busy.
    explicit MinMaxPyramid(const std::vector<double> &samples, bool threadedQueries = true);

    // The plain front-to-back scan of samples[first, last), first < last, that every answer
    // must equal.
    static Extremes scan(const double *samples, uint64_t first, uint64_t last);

    // Extremes of samples[first, last), first < last; samples must be the array it was built on.
    Extremes extremes(const double *samples, uint64_t first, uint64_t last) const;

    // Extremes of every range [first[i], last[i]) at once, ranges in ascending order and each
    // non-empty. Memory for the ranges ahead is fetched while earlier ones are computed, and
    // long views are split over two threads.
    void extremes(const double *samples, const uint64_t *first, const uint64_t *last, size_t count,
                  Extremes *out) const;

    uint64_t sampleCount() const { return m_sampleCount; }
    // Gathered while the blocks are built, so that the whole array is read once.
    const SampleSummary &summary() const { return m_summary; }
    size_t memoryBytes() const;

private:
    // Values ignore NaN (an all-NaN block holds +inf and -inf, which never win a strict
    // comparison); offsets are from the block's first sample.
    struct Block
    {
        double min;
        double max;
        uint32_t minOffset;
        uint32_t maxOffset;
    };

    // A base block keeps only where its extremes lie; their values are the samples there. An
    // all-NaN block (no minimum, no maximum) holds NO_VALUE.
    struct BaseBlock
    {
        uint8_t minOffset;
        uint8_t maxOffset;
    };
    static constexpr uint8_t NO_VALUE = 0xff;

    static void merge(Extremes &into, const Block &block, uint64_t blockStart);
    static void mergeBase(Extremes &into, BaseBlock block, const double *samples, uint64_t blockStart);
    void prefetchIndex(uint64_t first, uint64_t last) const;
    void prefetchEdges(const double *samples, uint64_t first, uint64_t last) const;
    void mergeHead(Extremes &into, const double *samples, uint64_t first, uint64_t blockEnd) const;
    void mergeTail(Extremes &into, const double *samples, uint64_t blockStart, uint64_t last) const;
    void extremesInOrder(const double *samples, const uint64_t *first, const uint64_t *last, size_t count,
                         Extremes *out) const;

    // Also fills parents, the level above, for the blocks from firstBlock (a multiple of FAN_OUT) on.
    void buildBase(const double *samples, size_t firstBlock, size_t lastBlock, SampleSummary &summary,
                   std::vector<Block> &parents);

    uint64_t m_sampleCount = 0;
    bool m_threadedQueries = true;
    SampleSummary m_summary;
    // The base level is most of the index: a byte per extreme keeps it at 1/256 of the samples.
    std::vector<BaseBlock> m_base;            // blocks of BASE_BLOCK samples
    std::vector<std::vector<Block>> m_levels; // level k: blocks of BASE_BLOCK * FAN_OUT^(k + 1) samples
};

#endif
