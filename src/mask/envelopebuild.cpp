#include "vornmask.h"

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

// The largest (sign 1) or smallest (sign -1) value of the curve over [t - dx, t + dx], moved out by
// dy and by fraction of its own size.
double widened(const WaveformData &curve, size_t k, double dx, double dy, double fraction, double sign)
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
    return sign * best + sign * (dy + fraction * std::abs(best));
}

int enabledCount(const QVector<EnvelopePoint> &knots)
{
    return static_cast<int>(std::count_if(knots.begin(), knots.end(), [](const EnvelopePoint &p) { return p.enabled; }));
}

constexpr uint64_t BLOCK = 64; // samples per precomputed extreme for long widenings

// The largest of sign * x over samples [from, to). NaN compares false, so it never wins;
// -infinity when every sample is NaN.
double scanExtreme(const double *x, uint64_t from, uint64_t to, double sign)
{
    double best = -INFINITY;
    for (uint64_t i = from; i < to; ++i) {
        const double v = sign * x[i];
        best = v > best ? v : best;
    }
    return best;
}

// The same over samples [first, last], from the block extremes where whole blocks lie inside.
double rangeExtreme(const double *x, const std::vector<double> &blocks, uint64_t first, uint64_t last, double sign)
{
    const uint64_t firstBlock = (first + BLOCK - 1) / BLOCK, endBlock = (last + 1) / BLOCK;
    if (firstBlock >= endBlock)
        return scanExtreme(x, first, last + 1, sign);
    double best = std::max(scanExtreme(x, first, firstBlock * BLOCK, sign), scanExtreme(x, endBlock * BLOCK, last + 1, sign));
    for (uint64_t b = firstBlock; b < endBlock; ++b)
        best = blocks[b] > best ? blocks[b] : best;
    return best;
}

// The extreme of x, widened by reach samples, over each of cells cells that split samples
// i0 ... i0 + q; a cell holds both samples on its borders, so that a sample the checker places
// a rounding error into the neighbouring cell is bounded there too.
std::vector<double> cellExtremes(const std::vector<double> &x, uint64_t reach, uint64_t i0, uint64_t q,
                                 uint64_t cells, double sign)
{
    const uint64_t n = x.size();
    std::vector<double> blocks(n / BLOCK);
    for (uint64_t b = 0; b < blocks.size(); ++b)
        blocks[b] = scanExtreme(x.data(), b * BLOCK, b * BLOCK + BLOCK, sign);
    std::vector<double> result(cells);
    for (uint64_t j = 0; j < cells; ++j) {
        const uint64_t a = i0 + j * q / cells, b = i0 + ((j + 1) * q + cells - 1) / cells;
        const uint64_t from = a > reach ? a - reach : 0, to = std::min(n - 1, b + reach);
        result[j] = sign * rangeExtreme(x.data(), blocks, from, to, sign);
    }
    return result;
}

} // namespace

// The sources' mean at the envelope's nodes, so that a trigger finds the golden crossing where the
// sources had it, not where the band's middle happens to cross.
void SourceHull::attachReference(EnvelopeData &envelope, double start, double interval, uint64_t cells) const
{
    if (m_sum.size() != m_count || m_captures == 0)
        return;
    const double dt = m_model.sampleInterval, t0 = m_model.startTime;
    WaveformData &reference = envelope.reference;
    reference.name = m_model.name;
    reference.unit = m_model.unit;
    reference.startTime = start;
    reference.sampleInterval = interval;
    std::vector<double> &mean = reference.samples.writable();
    mean.resize(cells + 1);
    for (uint64_t j = 0; j <= cells; ++j) {
        const double u = (start + static_cast<double>(j) * interval - t0) / dt;
        const auto i = static_cast<uint64_t>(std::clamp(std::llround(u), 0LL, static_cast<long long>(m_count - 1)));
        mean[j] = m_sum[i] / m_captures;
    }
    envelope.sourceInterval = dt;
}

EnvelopeData SourceHull::build(const EnvelopeBuildOptions &options, EnvelopeBuildReport *report, QString *error) const
{
    const auto fail = [error](const QString &reason) {
        if (error)
            *error = reason;
        return EnvelopeData();
    };
    if (m_captures == 0)
        return fail(tr("an envelope needs at least one capture"));
    const double dt = m_model.sampleInterval, t0 = m_model.startTime;
    const double dx = std::isnan(options.dx) ? defaultDx() : options.dx;
    const double dy = std::isnan(options.dy) ? defaultDy() : options.dy;
    if (!(dx >= 0.0) || !(dy >= 0.0) || !std::isfinite(dx) || !std::isfinite(dy))
        return fail(tr("tolerances must be finite and not negative"));

    // The region, on samples: the first at or after its start, the last at or before its end.
    const double last = static_cast<double>(m_count - 1);
    const double from = std::isnan(options.start) ? 0.0 : std::max(0.0, std::ceil((options.start - t0) / dt - 1e-9));
    const double to = std::isnan(options.end) ? last : std::min(last, std::floor((options.end - t0) / dt + 1e-9));
    if (!(from < to))
        return fail(tr("the region holds fewer than two samples of '%1'").arg(m_model.name));
    const auto i0 = static_cast<uint64_t>(from), i1 = static_cast<uint64_t>(to);
    const uint64_t q = i1 - i0;
    const uint64_t cells = std::clamp<uint64_t>(options.maxIntervals, 1, q);
    const auto reach = static_cast<uint64_t>(std::ceil(std::min(dx / dt, last) - 1e-9));

    std::vector<double> high, low;
    if (m_sigma > 0.0) {
        // Mean and sample deviation from the sums; one capture has no spread.
        const double n = m_captures;
        high.resize(m_count);
        low.resize(m_count);
        for (uint64_t i = 0; i < m_count; ++i) {
            const double mean = m_high[i] / n;
            const double var = n > 1 ? std::max(0.0, (m_low[i] - n * mean * mean) / (n - 1)) : 0.0;
            high[i] = mean + m_sigma * std::sqrt(var);
            low[i] = mean - m_sigma * std::sqrt(var);
        }
    }
    const std::vector<double> &hi = m_sigma > 0.0 ? high : m_high;
    const std::vector<double> &lo = m_sigma > 0.0 ? low : m_low;
    std::vector<double> cellHigh = cellExtremes(hi, reach, i0, q, cells, 1.0);
    std::vector<double> cellLow = cellExtremes(lo, reach, i0, q, cells, -1.0);
    high.clear();
    low.clear();

    // A node bounds the straight limits of both cells it joins, so it takes the larger extreme.
    const double pad = 1e-9 * (m_span + std::fabs(m_level));
    std::vector<double> upperBound(cells + 1), lowerBound(cells + 1);
    for (uint64_t j = 0; j <= cells; ++j) {
        const double u = std::max(j > 0 ? cellHigh[j - 1] : -INFINITY, j < cells ? cellHigh[j] : -INFINITY);
        const double l = std::min(j > 0 ? cellLow[j - 1] : INFINITY, j < cells ? cellLow[j] : INFINITY);
        const bool gap = !std::isfinite(u) || !std::isfinite(l);
        upperBound[j] = gap ? NaN : u + dy + pad;
        lowerBound[j] = gap ? NaN : l - dy - pad;
    }

    const double start = static_cast<double>(i0) * dt + t0;
    const double end = static_cast<double>(i1) * dt + t0;
    double interval = (end - start) / static_cast<double>(cells);
    // Rounding must not leave the last sample just outside the curves.
    while (static_cast<double>(cells) * interval + start < end)
        interval = std::nextafter(interval, INFINITY);

    double tolerance = std::max({dy / 2, 1e-3 * m_span, pad});
    if (!(tolerance > 0.0))
        tolerance = std::max(1e-12 * std::fabs(m_level), std::numeric_limits<double>::min());
    QVector<EnvelopePoint> knots = fitKnots(upperBound, lowerBound, tolerance, start, interval);
    if (options.maxKnots > 0 && enabledCount(knots) > options.maxKnots) {
        // Fewer knots need a looser fit: grow the tolerance until they fit, then halve the gap.
        double tight = tolerance, loose = tolerance;
        QVector<EnvelopePoint> fitting;
        for (int i = 0; i < 200 && fitting.isEmpty(); ++i) {
            loose *= 2;
            QVector<EnvelopePoint> k = fitKnots(upperBound, lowerBound, loose, start, interval);
            if (enabledCount(k) <= options.maxKnots)
                fitting = k;
            else
                tight = loose;
        }
        if (fitting.isEmpty())
            return fail(tr("'%1' cannot be bounded by %2 knots").arg(m_model.name).arg(options.maxKnots));
        for (int i = 0; i < 30; ++i) {
            const double middle = (tight + loose) / 2;
            QVector<EnvelopePoint> k = fitKnots(upperBound, lowerBound, middle, start, interval);
            if (enabledCount(k) <= options.maxKnots) {
                fitting = k;
                loose = middle;
            } else {
                tight = middle;
            }
        }
        knots = fitting;
        tolerance = loose;
    }

    EnvelopeData envelope = resampleKnots(knots, start, interval, cells + 1);
    envelope.upper.name = m_model.name + QStringLiteral(" [upper]");
    envelope.lower.name = m_model.name + QStringLiteral(" [lower]");
    envelope.upper.unit = envelope.lower.unit = m_model.unit;
    attachReference(envelope, start, interval, cells);
    if (report)
        *report = {dx, dy, tolerance, enabledCount(knots), cells, m_captures};
    return envelope;
}

EnvelopeData widenEnvelope(const EnvelopeData &envelope, double dx, double dy)
{
    return widenEnvelope(envelope, dx, dy, 0.0);
}

EnvelopeData widenEnvelope(const EnvelopeData &envelope, double dx, double dy, double fraction)
{
    EnvelopeData wide = envelope;
    for (auto [curve, sign] : {std::make_pair(&wide.upper, 1.0), std::make_pair(&wide.lower, -1.0)}) {
        const WaveformData &from = sign > 0 ? envelope.upper : envelope.lower;
        std::vector<double> &y = curve->samples.writable();
        for (size_t k = 0; k < y.size(); ++k)
            y[k] = widened(from, k, std::max(dx, 0.0), dy, fraction, sign);
    }
    return wide;
}
