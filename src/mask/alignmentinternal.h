#ifndef ALIGNMENTINTERNAL_H
#define ALIGNMENTINTERNAL_H

#include "vornwaveform.h"

/// searchShift() without its shortcuts: every shift of each refined window worked out over all
/// its samples, in order, on one thread. It must choose exactly the shift searchShift() does.
double searchShiftTryingEveryShift(const WaveformData &waveform, const EnvelopeData &envelope, double maxShift);

#endif
