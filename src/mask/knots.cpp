#include "vornmask.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double NaN = std::numeric_limits<double>::quiet_NaN();

// The slopes a line from an anchor may take and still stay inside a corridor at every node seen.
struct Cone
{
    double low = -INFINITY;
    double high = INFINITY;

    Cone narrowed(double from, double to) const { return {std::max(low, from), std::min(high, to)}; }
    bool isEmpty() const { return !(low <= high); }
};

EnvelopePoint knot(double start, double interval, uint64_t node, double upper, double lower)
{
    EnvelopePoint p;
    p.time = static_cast<double>(node) * interval + start;
    p.upperValue = upper;
    p.lowerValue = lower;
    return p;
}

// One run of nodes without gaps, fitted by the cone method: a segment grows from its anchor while
// some line through the anchor stays inside both corridors; where none does, it ends on the last
// node that fitted, at the line closest to the bounds, and the next segment starts there.
void fitRun(const std::vector<double> &up, const std::vector<double> &lo, uint64_t first, uint64_t last,
            double tolerance, double start, double interval, QVector<EnvelopePoint> &knots)
{
    uint64_t anchor = first;
    double u0 = up[first] + tolerance / 2, l0 = lo[first] - tolerance / 2;
    knots.append(knot(start, interval, first, u0, l0));
    Cone cu, cl;
    for (uint64_t j = first + 1; j <= last; ++j) {
        const double run = static_cast<double>(j - anchor);
        const Cone nu = cu.narrowed((up[j] - u0) / run, (up[j] + tolerance - u0) / run);
        const Cone nl = cl.narrowed((lo[j] - tolerance - l0) / run, (lo[j] - l0) / run);
        if (!nu.isEmpty() && !nl.isEmpty()) {
            cu = nu;
            cl = nl;
            continue;
        }
        // The step to the next node always fits, so the segment has at least one node.
        const double span = static_cast<double>(j - 1 - anchor);
        u0 = u0 + cu.low * span;
        l0 = l0 + cl.high * span;
        anchor = j - 1;
        knots.append(knot(start, interval, anchor, u0, l0));
        cu = cl = Cone();
        --j;
    }
    if (anchor != last) {
        const double span = static_cast<double>(last - anchor);
        knots.append(knot(start, interval, last, u0 + cu.low * span, l0 + cl.high * span));
    }
}

// The value at node j on the straight line between two knots at nodes a < b: exactly the knots'
// values at a and b.
double between(double va, double vb, uint64_t a, uint64_t b, uint64_t j)
{
    if (j == a)
        return va;
    if (j == b)
        return vb;
    return va + (vb - va) * (static_cast<double>(j - a) / static_cast<double>(b - a));
}

bool bends(const std::vector<double> &y, size_t k, double scale)
{
    const double second = (y[k + 1] - y[k]) - (y[k] - y[k - 1]);
    return std::fabs(second) > 1e-9 * scale;
}

} // namespace

QVector<EnvelopePoint> fitKnots(const std::vector<double> &upperBound, const std::vector<double> &lowerBound,
                                double tolerance, double start, double interval)
{
    QVector<EnvelopePoint> knots;
    const uint64_t n = std::min(upperBound.size(), lowerBound.size());
    const auto valid = [&](uint64_t j) { return std::isfinite(upperBound[j]) && std::isfinite(lowerBound[j]); };
    tolerance = std::max(tolerance, 0.0);
    for (uint64_t j = 0; j < n;) {
        if (!valid(j)) {
            EnvelopePoint gap = knot(start, interval, j, NaN, NaN);
            gap.enabled = false;
            knots.append(gap);
            while (j < n && !valid(j))
                ++j;
            continue;
        }
        uint64_t last = j;
        while (last + 1 < n && valid(last + 1))
            ++last;
        fitRun(upperBound, lowerBound, j, last, tolerance, start, interval, knots);
        j = last + 1;
    }
    return knots;
}

EnvelopeData resampleKnots(const QVector<EnvelopePoint> &knots, double start, double interval, uint64_t nodes)
{
    EnvelopeData envelope;
    for (WaveformData *curve : {&envelope.upper, &envelope.lower}) {
        curve->startTime = start;
        curve->sampleInterval = interval;
        curve->samples.writable().assign(nodes, NaN);
    }
    std::vector<double> &upper = envelope.upper.samples.writable();
    std::vector<double> &lower = envelope.lower.samples.writable();
    const auto nodeOf = [&](const EnvelopePoint &p) {
        const double k = std::round((p.time - start) / interval);
        return k < 0.0 ? uint64_t(0) : std::min(static_cast<uint64_t>(k), nodes ? nodes - 1 : 0);
    };
    for (int i = 0; i < knots.size(); ++i) {
        const EnvelopePoint &a = knots.at(i);
        if (!a.enabled || nodes == 0)
            continue;
        const uint64_t na = nodeOf(a);
        upper[na] = a.upperValue;
        lower[na] = a.lowerValue;
        if (i + 1 == knots.size() || !knots.at(i + 1).enabled)
            continue;
        const EnvelopePoint &b = knots.at(i + 1);
        const uint64_t nb = nodeOf(b);
        for (uint64_t j = na + 1; j <= nb; ++j) {
            upper[j] = between(a.upperValue, b.upperValue, na, nb, j);
            lower[j] = between(a.lowerValue, b.lowerValue, na, nb, j);
        }
    }
    return envelope;
}

QVector<EnvelopePoint> recoverKnots(const EnvelopeData &envelope)
{
    QVector<EnvelopePoint> knots;
    const std::vector<double> &up = *envelope.upper.samples;
    const std::vector<double> &lo = *envelope.lower.samples;
    const size_t n = std::min(up.size(), lo.size());
    const double start = envelope.upper.startTime, interval = envelope.upper.sampleInterval;
    double scale = 0.0;
    for (size_t k = 0; k < n; ++k) {
        if (!std::isnan(up[k]) && !std::isnan(lo[k]))
            scale = std::max({scale, std::fabs(up[k]), std::fabs(lo[k]), std::fabs(up[k] - lo[k])});
    }
    const auto valid = [&](size_t k) { return k < n && !std::isnan(up[k]) && !std::isnan(lo[k]); };
    for (size_t k = 0; k < n; ++k) {
        if (!valid(k)) {
            if (k == 0 || valid(k - 1)) {
                EnvelopePoint gap = knot(start, interval, k, NaN, NaN);
                gap.enabled = false;
                knots.append(gap);
            }
            continue;
        }
        const bool edge = k == 0 || !valid(k - 1) || !valid(k + 1);
        if (edge || bends(up, k, scale) || bends(lo, k, scale))
            knots.append(knot(start, interval, k, up[k], lo[k]));
    }
    return knots;
}
