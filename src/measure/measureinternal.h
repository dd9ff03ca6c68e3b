#ifndef VORN_MEASUREINTERNAL_H
#define VORN_MEASUREINTERNAL_H

#include "samplescan.h"
#include "vornmeasure.h"

namespace vornmeasure {

StateLevels stateLevels(const SampleScan &scan);

// The span's samples as times: sample i of the scan lies at start + i * interval.
struct SpanClock
{
    double start = 0.0;
    double interval = 0.0;
    double at(double index) const { return start + index * interval; }
};

// Every transition between the low and the high reference level, with its aberrations and
// settling; a crossing of the far level only after the near one was left counts, so noise
// around any single level never makes a transition.
std::vector<Transition> findTransitions(const SampleScan &scan, const SpanClock &clock, double low, double high,
                                        const MeasureOptions &options);

} // namespace vornmeasure

#endif
