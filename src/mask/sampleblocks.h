#ifndef SAMPLEBLOCKS_H
#define SAMPLEBLOCKS_H

#include "hugepages.h"
#include "vornmask.h"

#include <cstdint>

// The extremes of consecutive blocks of a sample array: the largest value and the smallest one
// negated, so that a block's slack against an upper-style limit reads the same for both. NaN
// samples are left out of both and marked in nan.
struct SampleBlocks
{
    uint64_t size = 0; // samples a block; the last may hold fewer
    ScratchVector<double> high;
    ScratchVector<double> negLow;
    std::vector<uint8_t> nan;

    // Whether these are the blocks of an array of count samples.
    bool cover(uint64_t count) const { return size > 0 && high.size() == (count + size - 1) / size; }
};

SampleBlocks blockExtremes(const std::vector<double> &samples, uint64_t size);

// checkShifted() that passes whole blocks of the waveform's samples well inside the band on
// their extremes alone; blocks are those of its samples, or null. The result is checkShifted()'s.
EnvelopeCheckResult checkShifted(const WaveformData &waveform, const EnvelopeData &envelope, double shift,
                                 ViolationMask *violations, const SampleBlocks *blocks);

#endif
