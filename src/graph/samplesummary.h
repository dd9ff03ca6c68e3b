#ifndef SAMPLESUMMARY_H
#define SAMPLESUMMARY_H

#include "vorngraph_export.h"

#include <vector>

// What the information tree shows about a waveform's values.
struct SampleSummary
{
    double min = 0.0;
    double max = 0.0;
    double mean = 0.0;
};

// Gaps (NaN) are no values; a waveform of gaps only gives NaN. A mean below a millionth of the
// range is rounding noise of a symmetric signal and comes out as 0.
VORNGRAPH_EXPORT SampleSummary summariseSamples(const std::vector<double> &samples);

#endif
