#include "vornmask.h"

#include <algorithm>
#include <cmath>

namespace {

QString seconds(double t)
{
    return ValueFormatter::formatWithUnit(t, QStringLiteral("s"));
}

// The limit a curve sets at t, interpolated between its samples around t; NaN outside its span
// and next to a NaN sample, as the check reads it.
double limitAt(const WaveformData &curve, double t)
{
    const std::vector<double> &y = *curve.samples;
    const double position = (t - curve.startTime) / curve.sampleInterval;
    if (!(position >= 0.0) || !(position <= static_cast<double>(y.size() - 1)))
        return NAN;
    const uint64_t k = std::min(static_cast<uint64_t>(position), static_cast<uint64_t>(y.size() - 1));
    if (k + 1 == y.size() || position == static_cast<double>(k))
        return y[k];
    const double f = position - static_cast<double>(k);
    return y[k] + (y[k + 1] - y[k]) * f;
}

// What makes one curve unfit to judge by itself: a time base that goes nowhere, an infinite
// sample, or no two neighbouring samples with values (it then sets no limit anywhere).
QString curveDefect(const WaveformData &curve, const QString &side)
{
    const std::vector<double> &y = *curve.samples;
    const double dt = curve.sampleInterval, t0 = curve.startTime;
    if (!(dt > 0.0) || !std::isfinite(dt) || !std::isfinite(t0))
        return QStringLiteral("the %1 limit has the unusable time base start %2, interval %3")
            .arg(side, seconds(t0), seconds(dt));
    bool bounds = false;
    for (uint64_t k = 0; k < y.size(); ++k) {
        const double t = static_cast<double>(k) * dt + t0;
        if (std::isinf(y[k]))
            return QStringLiteral("the %1 limit is infinite at %2").arg(side, seconds(t));
        if (k > 0 && !(t > static_cast<double>(k - 1) * dt + t0))
            return QStringLiteral("the %1 limit's samples do not advance in time (interval %2 at %3)")
                .arg(side, seconds(dt), seconds(t0));
        bounds = bounds || (k > 0 && !std::isnan(y[k]) && !std::isnan(y[k - 1]));
    }
    if (!bounds)
        return QStringLiteral("the %1 limit has no two neighbouring samples with values, so it sets no limit").arg(side);
    return QString();
}

// Checked at every sample of one curve against the other curve there: since both are straight
// between their samples, limits that do not cross at any sample of either do not cross at all.
QString pairDefect(const WaveformData &curve, const WaveformData &other, bool upper)
{
    const std::vector<double> &y = *curve.samples;
    const QString side = upper ? QStringLiteral("upper") : QStringLiteral("lower");
    const QString otherSide = upper ? QStringLiteral("lower") : QStringLiteral("upper");
    for (uint64_t k = 0; k < y.size(); ++k) {
        const double t = static_cast<double>(k) * curve.sampleInterval + curve.startTime;
        const double o = limitAt(other, t);
        if (std::isnan(o))
            continue;
        if (std::isnan(y[k]))
            return QStringLiteral("the %1 limit is NaN at %2 where the %3 limit has a value").arg(side, seconds(t), otherSide);
        if (upper ? y[k] < o : y[k] > o)
            return QStringLiteral("the limits cross at %1 (upper %2, lower %3)")
                .arg(seconds(t), QString::number(upper ? y[k] : o, 'g', 6), QString::number(upper ? o : y[k], 'g', 6));
    }
    return QString();
}

} // namespace

QString envelopeDefect(const EnvelopeData &envelope, const WaveformData &waveform)
{
    QString defect = curveDefect(envelope.upper, QStringLiteral("upper"));
    if (defect.isEmpty())
        defect = curveDefect(envelope.lower, QStringLiteral("lower"));
    if (defect.isEmpty())
        defect = pairDefect(envelope.upper, envelope.lower, true);
    if (defect.isEmpty())
        defect = pairDefect(envelope.lower, envelope.upper, false);
    if (defect.isEmpty()) {
        // Shorter than one sample step of the capture, limits judge one sample at most.
        const auto end = [](const WaveformData &c) {
            return c.startTime + static_cast<double>(c.samples->size() - 1) * c.sampleInterval;
        };
        const double span = std::max(end(envelope.upper), end(envelope.lower))
                            - std::min(envelope.upper.startTime, envelope.lower.startTime);
        if (span < waveform.sampleInterval)
            defect = QStringLiteral("the limits span %1, less than one sample interval of the capture (%2)")
                         .arg(seconds(span), seconds(waveform.sampleInterval));
    }
    return defect.isEmpty() ? defect : QStringLiteral("its envelope cannot judge: ") + defect;
}
