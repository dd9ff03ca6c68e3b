#ifndef NAVIGATION_H
#define NAVIGATION_H

#include "downsampling.h"
#include "vorngraph_export.h"

#include <QString>
#include <QVector>

#include <vector>

// The value range of one waveform as the stacked layout sees it; logic probes get thin bands.
struct WaveformExtent
{
    double min = 0.0;
    double max = 0.0;
    bool logic = false;
};

// Units per vertical division and offset (the value at the screen's centre is minus the offset);
// in a stacked layout also the band the waveform was given, in divisions above the centre.
struct WaveformScale
{
    double divisionSize = 1.0;
    double offset = 0.0;
    double bandTop = 0.0;
    double bandHeight = 0.0;
};

// The smallest 1-2-5 value s with span / s <= divisions.
VORNGRAPH_EXPORT double fittingDivisionSize(double span, double divisions);

// One band of the screen's divisions per waveform: analog ones from the top in the given order,
// sharing what the logic probes leave; logic probes below them in thinner lanes.
VORNGRAPH_EXPORT QVector<WaveformScale> stackedScales(const QVector<WaveformExtent> &extents, int divisions);

// The time offset that keeps time at the same place on the screen when the time per division
// changes from timePerDivision to newTimePerDivision.
VORNGRAPH_EXPORT double offsetKeepingTime(double timeOffset, double timePerDivision, double newTimePerDivision,
                                          double time);

// The roundest value within slack of exact: a whole unit, then a half, a fifth, a tenth of one and
// so on down the 1-2-5 steps. A zoom that may move the time under the pointer by half a pixel
// still gets grid times as round as that allows.
VORNGRAPH_EXPORT double roundestWithin(double exact, double slack, double unit);

// The sample nearest to time; NaN when time lies more than half an interval outside the samples.
VORNGRAPH_EXPORT double nearestSampleValue(const std::vector<double> &samples, SampleTimeBase time, double at);

// value with an engineering prefix and as many digits as it takes to tell apart two values
// resolution apart (at least minSignificant), trailing zeros dropped: 78.769901 s where samples
// lie 1 us apart, 100 ms where they lie 1 ms apart. A value below half the resolution reads 0.
// Without a unit there is no prefix either: a logic level reads 0.67, not 671.84 m.
VORNGRAPH_EXPORT QString formatResolved(double value, double resolution, const QString &unit, int minSignificant = 1);

#endif
