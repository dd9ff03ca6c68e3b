#include "vornwaveform.h"

#include <QCoreApplication>

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

constexpr double NaN = std::numeric_limits<double>::quiet_NaN();

QString tr(const char *text)
{
    return QCoreApplication::translate("EnvelopeBuild", text);
}

// Largest and smallest non-NaN sample in samples [first, last]; false when there is none.
bool extremes(const std::vector<double> &s, uint64_t first, uint64_t last, double &lo, double &hi)
{
    lo = INFINITY;
    hi = -INFINITY;
    for (uint64_t i = first; i <= last && i < s.size(); ++i) {
        lo = std::min(lo, s[i]);
        hi = std::max(hi, s[i]);
    }
    return lo <= hi;
}

double mean(const std::vector<double> &v)
{
    double sum = 0.0;
    for (double x : v)
        sum += x;
    return sum / static_cast<double>(v.size());
}

double standardDeviation(const std::vector<double> &v, double m)
{
    if (v.size() < 2)
        return 0.0;
    double sum = 0.0;
    for (double x : v)
        sum += (x - m) * (x - m);
    return std::sqrt(sum / static_cast<double>(v.size() - 1));
}

// The curve's value at t, linear between its samples; NaN outside it or next to a gap.
double valueAt(const WaveformData &curve, double t)
{
    const std::vector<double> &y = *curve.samples;
    const double position = (t - curve.startTime) / curve.sampleInterval;
    if (!(position >= 0.0) || position > static_cast<double>(y.size() - 1))
        return NaN;
    const auto k = static_cast<size_t>(position);
    const double f = position - static_cast<double>(k);
    return f > 0.0 ? y[k] + f * (y[k + 1] - y[k]) : y[k];
}

// The largest (sign 1) or smallest (sign -1) value of the curve over [t - dx, t + dx], moved out by dy.
double widened(const WaveformData &curve, size_t k, double dx, double dy, double sign)
{
    const std::vector<double> &y = *curve.samples;
    if (std::isnan(y[k]))
        return NaN;
    const double t = static_cast<double>(k) * curve.sampleInterval + curve.startTime;
    double best = sign * y[k];
    for (double edge : {valueAt(curve, t - dx), valueAt(curve, t + dx)}) {
        if (!std::isnan(edge))
            best = std::max(best, sign * edge);
    }
    const double reach = std::floor(dx / curve.sampleInterval);
    const size_t from = reach < static_cast<double>(k) ? k - static_cast<size_t>(reach) : 0;
    const size_t to = reach < static_cast<double>(y.size() - k) ? k + static_cast<size_t>(reach) : y.size() - 1;
    for (size_t j = from; j <= to; ++j) {
        if (!std::isnan(y[j]))
            best = std::max(best, sign * y[j]);
    }
    return sign * best + sign * dy;
}

} // namespace

EnvelopeData envelopeFromCaptures(const QVector<WaveformData> &captures, int points, double sigma, QString *error)
{
    const auto fail = [error](const QString &reason) {
        if (error)
            *error = reason;
        return EnvelopeData();
    };
    if (captures.isEmpty() || points < 2)
        return fail(tr("an envelope needs at least one capture and two points"));
    const WaveformData &model = captures.first();
    const uint64_t count = model.samples->size();
    if (count < 2 || !(model.sampleInterval > 0.0))
        return fail(tr("'%1' has fewer than two samples").arg(model.name));
    for (const WaveformData &w : captures) {
        if (w.samples->size() != count || w.sampleInterval != model.sampleInterval || w.startTime != model.startTime)
            return fail(tr("the captures differ in length, sample rate or start: %1 samples at %2 against %3 at %4")
                            .arg(w.samples->size()).arg(ValueFormatter::formatWithUnit(w.sampleInterval, "s"))
                            .arg(count).arg(ValueFormatter::formatWithUnit(model.sampleInterval, "s")));
    }

    EnvelopeData envelope;
    const double lastTime = static_cast<double>(count - 1) * model.sampleInterval + model.startTime;
    double interval = (lastTime - model.startTime) / (points - 1);
    // Rounding must not leave the last sample just outside the curve.
    while ((points - 1) * interval + model.startTime < lastTime)
        interval = std::nextafter(interval, INFINITY);
    for (WaveformData *curve : {&envelope.upper, &envelope.lower}) {
        curve->unit = model.unit;
        curve->startTime = model.startTime;
        curve->sampleInterval = interval;
    }
    envelope.upper.name = model.name + QStringLiteral(" [upper]");
    envelope.lower.name = model.name + QStringLiteral(" [lower]");
    std::vector<double> &upper = envelope.upper.samples.writable();
    std::vector<double> &lower = envelope.lower.samples.writable();
    const double samplesPerPoint = static_cast<double>(count - 1) / (points - 1);
    std::vector<double> highs, lows;
    for (int p = 0; p < points; ++p) {
        // Each point sees the samples half-way to its neighbours.
        const auto first = static_cast<uint64_t>(std::ceil(std::max(0.0, (p - 0.5) * samplesPerPoint)));
        const auto last = static_cast<uint64_t>(std::floor(std::min(count - 1.0, (p + 0.5) * samplesPerPoint)));
        highs.clear();
        lows.clear();
        for (const WaveformData &w : captures) {
            double lo = 0.0, hi = 0.0;
            if (extremes(*w.samples, first, std::max(first, last), lo, hi)) {
                highs.push_back(hi);
                lows.push_back(lo);
            }
        }
        if (highs.empty()) {
            upper.push_back(NaN);
            lower.push_back(NaN);
        } else if (sigma > 0.0) {
            const double mh = mean(highs), ml = mean(lows);
            upper.push_back(mh + sigma * standardDeviation(highs, mh));
            lower.push_back(ml - sigma * standardDeviation(lows, ml));
        } else {
            upper.push_back(*std::max_element(highs.begin(), highs.end()));
            lower.push_back(*std::min_element(lows.begin(), lows.end()));
        }
    }
    return envelope;
}

EnvelopeData widenEnvelope(const EnvelopeData &envelope, double dx, double dy)
{
    EnvelopeData wide = envelope;
    for (auto [curve, sign] : {std::make_pair(&wide.upper, 1.0), std::make_pair(&wide.lower, -1.0)}) {
        const WaveformData &from = sign > 0 ? envelope.upper : envelope.lower;
        std::vector<double> &y = curve->samples.writable();
        for (size_t k = 0; k < y.size(); ++k)
            y[k] = widened(from, k, std::max(dx, 0.0), dy, sign);
    }
    return wide;
}
