#include "navigation.h"

#include "vornwaveform.h"

#include <algorithm>
#include <iterator>
#include <cmath>
#include <limits>

namespace {

// A band is filled to this part of its height, so that neighbouring traces never touch.
constexpr double BAND_FILL = 0.8;
// A logic probe's lane, in divisions, as a logic analyser draws it: thinner than any analog band
// beside it; together they take at most half of the screen.
constexpr double LOGIC_BAND = 0.5;
constexpr int MAX_SIGNIFICANT = 15;

struct Prefix
{
    const char16_t *text;
    int exponent;
};
// The prefixes ValueFormatter writes, so that the readouts parse back the same way.
const Prefix PREFIXES[] = {
    {u"T", 12}, {u"G", 9}, {u"M", 6}, {u"k", 3}, {u"", 0}, {u"m", -3}, {u"\u03bc", -6}, {u"n", -9}, {u"p", -12},
};

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
    double analogBand = analogCount > 0 ? (divisions - logicBand * double(logicCount)) / double(analogCount) : 0.0;
    if (analogCount > 0 && logicBand > analogBand) {
        logicBand = analogBand = divisions / double(extents.size());
    }

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
        // A lane fills its height with the probe's 0 to 1; a 1-2-5 size would leave it half empty.
        const double size = e.logic ? span / (band * BAND_FILL) : fittingDivisionSize(span, band * BAND_FILL);
        const double centre = top - band * 0.5;
        const double exact = centre * size - middle;
        // A probe's band is too thin to move; its 0 and 1 need no axis of their own.
        scales[i] = WaveformScale{size, e.logic ? exact : roundedOffset(exact, (band * size - span) * 0.5, size), top, band};
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

double roundestWithin(double exact, double slack, double unit)
{
    if (!std::isfinite(exact) || !(unit > 0.0) || !(slack > 0.0))
        return exact;
    double decade = unit;
    // Each decade tries a whole step, a half and a fifth; a step below twice the slack always lands.
    for (int k = 0; k < 40; ++k, decade /= 10) {
        for (const double step : {decade, decade / 2, decade / 5}) {
            const double rounded = std::round(exact / step) * step;
            if (std::fabs(rounded - exact) <= slack)
                return rounded;
        }
    }
    return exact;
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

QString formatResolved(double value, double resolution, const QString &unit, int minSignificant)
{
    if (!std::isfinite(value))
        return ValueFormatter::formatWithUnit(value, unit);
    const double magnitude = std::fabs(value);
    if (magnitude == 0.0 || (resolution > 0.0 && magnitude < resolution * 0.5))
        return ValueFormatter::formatWithUnit(0.0, unit);
    const int leading = int(std::floor(std::log10(magnitude)));
    int significant = minSignificant;
    if (resolution > 0.0 && std::isfinite(resolution))
        significant = std::max(significant, leading - int(std::floor(std::log10(resolution))) + 1);
    significant = std::clamp(significant, 1, MAX_SIGNIFICANT);
    size_t p = std::size(PREFIXES) - 1;
    for (size_t i = 0; i < std::size(PREFIXES); ++i) {
        if (unit.isEmpty() ? PREFIXES[i].exponent == 0 : magnitude >= std::pow(10.0, PREFIXES[i].exponent)) {
            p = i;
            break;
        }
    }
    const auto mantissaText = [&](size_t i) {
        const int exponent = PREFIXES[i].exponent;
        const double mantissa = exponent < 0 ? value * std::pow(10.0, -exponent) : value / std::pow(10.0, exponent);
        const int integerDigits = leading - exponent + 1;
        QString text = QString::number(mantissa, 'f', std::max(0, significant - integerDigits));
        if (text.contains(QLatin1Char('.'))) {
            while (text.endsWith(QLatin1Char('0')))
                text.chop(1);
            if (text.endsWith(QLatin1Char('.')))
                text.chop(1);
        }
        return text;
    };
    QString number = mantissaText(p);
    // Rounding may carry into the next prefix: 999.9996 m is 1.
    if (p > 0 && !unit.isEmpty() && std::fabs(number.toDouble()) >= 1000.0)
        number = mantissaText(--p);
    const QString suffix = QString::fromUtf16(PREFIXES[p].text) + unit;
    return suffix.isEmpty() ? number : number + QLatin1Char(' ') + suffix;
}
