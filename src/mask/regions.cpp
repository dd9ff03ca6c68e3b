#include "vornmask.h"

#include <algorithm>
#include <cmath>

namespace {

double lastTime(const WaveformData &curve)
{
    const size_t n = curve.samples->size();
    return n ? static_cast<double>(n - 1) * curve.sampleInterval + curve.startTime : curve.startTime;
}

EnvelopePoint gapAt(double time)
{
    EnvelopePoint gap;
    gap.time = time;
    gap.upperValue = gap.lowerValue = std::numeric_limits<double>::quiet_NaN();
    gap.enabled = false;
    return gap;
}

// The limits a curve sets at t, straight between its samples; NaN outside it and next to a gap.
double limitAt(const WaveformData &curve, double t)
{
    const std::vector<double> &y = *curve.samples;
    const double x = (t - curve.startTime) / curve.sampleInterval;
    if (!(x >= 0.0) || x > static_cast<double>(y.size() - 1))
        return std::numeric_limits<double>::quiet_NaN();
    const size_t k = std::min(static_cast<size_t>(x), y.size() - 1);
    if (k + 1 >= y.size() || x == static_cast<double>(k))
        return y[k];
    return y[k] + (y[k + 1] - y[k]) * (x - static_cast<double>(k));
}

// A knot of the envelope's own limits at t, for a region that cuts into one of its stretches.
bool edgeKnot(const EnvelopeData &envelope, double t, EnvelopePoint *knot)
{
    knot->time = t;
    knot->upperValue = limitAt(envelope.upper, t);
    knot->lowerValue = limitAt(envelope.lower, t);
    return !std::isnan(knot->upperValue) && !std::isnan(knot->lowerValue);
}

} // namespace

EnvelopeData addEnvelopeRegion(const EnvelopeData &envelope, const EnvelopeData &region, uint64_t maxIntervals)
{
    if (envelope.isEmpty() || !(envelope.upper.sampleInterval > 0.0))
        return region;
    if (region.isEmpty())
        return envelope;
    // The envelope's own grid, so that its knots keep their nodes, spread over both spans.
    const double origin = envelope.upper.startTime;
    double interval = envelope.upper.sampleInterval;
    const double first = std::min(origin, region.upper.startTime);
    const double last = std::max(lastTime(envelope.upper), lastTime(region.upper));
    const auto span = [&] { return std::ceil((last - origin) / interval) - std::floor((first - origin) / interval); };
    if (span() > static_cast<double>(maxIntervals))
        interval *= std::ceil(span() / static_cast<double>(maxIntervals));
    const double k0 = std::floor((first - origin) / interval);
    const double gridStart = k0 * interval + origin;
    const uint64_t nodes = static_cast<uint64_t>(span()) + 1;
    const auto node = [&](double t) { return std::round((t - gridStart) / interval); };
    const auto snapped = [&](EnvelopePoint p) {
        p.time = node(p.time) * interval + gridStart;
        return p;
    };

    QVector<EnvelopePoint> added;
    for (const EnvelopePoint &p : recoverKnots(region))
        added.append(snapped(p));
    const double from = added.first().time, to = added.last().time;
    QVector<EnvelopePoint> before, after;
    for (const EnvelopePoint &p : recoverKnots(envelope)) {
        const EnvelopePoint q = snapped(p);
        if (q.time < from)
            before.append(q);
        else if (q.time > to)
            after.append(q);
    }
    // Where the region cuts into a stretch of the envelope, that stretch runs on up to its edge.
    EnvelopePoint edge;
    if (edgeKnot(envelope, (node(from) - 1) * interval + gridStart, &edge)
        && (before.isEmpty() || before.last().time < edge.time))
        before.append(edge);
    if (edgeKnot(envelope, (node(to) + 1) * interval + gridStart, &edge)
        && (after.isEmpty() || after.first().time > edge.time))
        after.prepend(edge);
    QVector<EnvelopePoint> knots = before;
    // Limits must not run from one region into the other across what lay between them.
    if (!knots.isEmpty() && knots.last().enabled && node(from) - node(knots.last().time) > 1)
        knots.append(gapAt((node(knots.last().time) + 1) * interval + gridStart));
    knots += added;
    if (!after.isEmpty() && added.last().enabled && node(after.first().time) - node(to) > 1)
        knots.append(gapAt((node(to) + 1) * interval + gridStart));
    knots += after;
    EnvelopeData merged = resampleKnots(knots, gridStart, interval, nodes);
    for (auto [to, from] : {std::make_pair(&merged.upper, &envelope.upper), std::make_pair(&merged.lower, &envelope.lower)}) {
        to->name = from->name;
        to->unit = from->unit;
    }
    const EnvelopeData &source = envelope.reference.samples->empty() ? region : envelope;
    merged.reference = source.reference;
    merged.sourceInterval = source.sourceInterval;
    return merged;
}
