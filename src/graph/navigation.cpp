#include "navigation.h"

#include "vornwaveform.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

// A band is filled to this part of its height, so that neighbouring traces never touch.
constexpr double BAND_FILL = 0.8;
// A logic probe's band, in divisions; together they take at most half of the screen.
constexpr double LOGIC_BAND = 1.0;

// The roundest offset within slack of the exact one, so that the value axis reads 5 V rather than
// 5.71308 V: a whole division, then a half, a fifth and a tenth of one.
double roundedOffset(double exact, double slack, double size)
{
    for (const double step : {size, size / 2, size / 5, size / 10}) {
        const double rounded = std::round(exact / step) * step;
        if (std::fabs(rounded - exact) <= slack)
            return rounded;
    }
    return exact;
}

} // namespace

double fittingDivisionSize(double span, double divisions)
{
    const double least = span / divisions;
    if (!(least > 0.0) || !std::isfinite(least))
        return 1.0;
    const double above = Scale125::nextUp(least);
    const double below = Scale125::nextDown(above);
    return below >= least ? below : above;
}

QVector<WaveformScale> stackedScales(const QVector<WaveformExtent> &extents, int divisions)
{
    const auto logicCount = std::count_if(extents.begin(), extents.end(), [](const WaveformExtent &e) { return e.logic; });
    const auto analogCount = extents.size() - logicCount;
    double logicBand = 0.0;
    if (logicCount > 0)
        logicBand = std::min(LOGIC_BAND, divisions * (analogCount > 0 ? 0.5 : 1.0) / double(logicCount));
    const double analogBand = analogCount > 0 ? (divisions - logicBand * double(logicCount)) / double(analogCount) : 0.0;

    QVector<WaveformScale> scales(extents.size());
    // Bands are laid out downwards from the top edge, in divisions above the centre.
    double top = divisions * 0.5;
    const auto place = [&](qsizetype i, double band) {
        const WaveformExtent &e = extents.at(i);
        const bool known = e.max >= e.min;
        const double middle = known ? (e.min + e.max) * 0.5 : 0.0;
        double span = known ? e.max - e.min : 0.0;
        // A flat trace has no extent to fit: give it a division its level can be read in.
        if (span == 0.0)
            span = std::fabs(middle) > 0.0 ? std::fabs(middle) : 1.0;
        const double size = fittingDivisionSize(span, band * BAND_FILL);
        const double centre = top - band * 0.5;
        const double exact = centre * size - middle;
        // A probe's band is too thin to move; its 0 and 1 need no axis of their own.
        scales[i] = WaveformScale{size, e.logic ? exact : roundedOffset(exact, (band * size - span) * 0.5, size)};
        top -= band;
    };
    for (qsizetype i = 0; i < extents.size(); ++i) {
        if (!extents.at(i).logic)
            place(i, analogBand);
    }
    for (qsizetype i = 0; i < extents.size(); ++i) {
        if (extents.at(i).logic)
            place(i, logicBand);
    }
    return scales;
}

double offsetKeepingTime(double timeOffset, double timePerDivision, double newTimePerDivision, double time)
{
    // Divisions from the screen's centre to time stay the same.
    const double fromCentre = (time + timeOffset) / timePerDivision;
    return fromCentre * newTimePerDivision - time;
}

double nearestSampleValue(const std::vector<double> &samples, SampleTimeBase time, double at)
{
    if (samples.empty() || !(time.interval > 0.0))
        return std::numeric_limits<double>::quiet_NaN();
    const double position = std::round((at - time.start) / time.interval);
    if (!(position >= 0.0) || position > double(samples.size() - 1))
        return std::numeric_limits<double>::quiet_NaN();
    return samples[static_cast<size_t>(position)];
}
