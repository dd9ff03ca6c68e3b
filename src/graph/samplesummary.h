#ifndef SAMPLESUMMARY_H
#define SAMPLESUMMARY_H

#include "minmaxpyramid.h"
#include "vorngraph_export.h"

// What the information tree shows about a waveform's values.
struct ShownValues
{
    double min = 0.0;
    double max = 0.0;
    double mean = 0.0;
};

// A waveform of gaps only gives NaN. A mean below a millionth of the range is rounding noise of a
// symmetric signal and comes out as 0.
VORNGRAPH_EXPORT ShownValues shownValues(const SampleSummary &summary);

#endif
