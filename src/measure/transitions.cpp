#include "measureinternal.h"

#include <algorithm>
#include <cmath>

namespace vornmeasure {

namespace {

constexpr size_t NONE = SIZE_MAX;

// The first index in [i, end) whose sample hits, passing over whole blocks that cannot.
template <class Hit, class BlockMay>
size_t forward(const SampleScan &s, size_t i, size_t end, Hit hit, BlockMay may)
{
    while (i < end) {
        // A block whose extremes cannot hit is passed over from wherever in it i lies.
        if (!may(i / SCAN_BLOCK)) {
            i = (i / SCAN_BLOCK + 1) * SCAN_BLOCK;
            continue;
        }
        if (hit(s.samples[i]))
            return i;
        ++i;
    }
    return NONE;
}

// The last index in [floor, i) whose sample hits.
template <class Hit, class BlockMay>
size_t backward(const SampleScan &s, size_t floor, size_t i, Hit hit, BlockMay may)
{
    while (i > floor) {
        if (!may((i - 1) / SCAN_BLOCK)) {
            i = std::max(floor, (i - 1) / SCAN_BLOCK * SCAN_BLOCK);
            continue;
        }
        if (hit(s.samples[--i]))
            return i;
    }
    return NONE;
}

struct Levels
{
    double low, high, amplitude, lowRef, midRef, highRef;
};

struct Found
{
    Transition t;
    size_t start, mid, end; // the samples before each crossing, and the first beyond the far level
};

class Finder
{
public:
    Finder(const SampleScan &s, const SpanClock &clock, const Levels &l) : s(s), clock(clock), l(l) {}

    size_t firstBelow(size_t i, size_t end, double level) const
    {
        return forward(s, i, end, [=](double x) { return x < level; }, [&](size_t b) { return s.blockMin[b] < level; });
    }
    size_t firstAbove(size_t i, size_t end, double level) const
    {
        return forward(s, i, end, [=](double x) { return x > level; }, [&](size_t b) { return s.blockMax[b] > level; });
    }
    size_t lastBelow(size_t floor, size_t i, double level) const
    {
        return backward(s, floor, i, [=](double x) { return x <= level; }, [&](size_t b) { return s.blockMin[b] <= level; });
    }
    size_t lastAbove(size_t floor, size_t i, double level) const
    {
        return backward(s, floor, i, [=](double x) { return x >= level; }, [&](size_t b) { return s.blockMax[b] >= level; });
    }

    // When the samples i and i + 1 pass level, linearly between them.
    double crossing(size_t i, double level) const
    {
        const double a = s.samples[i], b = s.samples[i + 1];
        const double f = b != a ? std::clamp((level - a) / (b - a), 0.0, 1.0) : 0.0;
        return clock.at(static_cast<double>(i) + f);
    }

    // The transition that ends at the first sample beyond the far level after pos, starting from
    // the last sample on the near side since the state began at from.
    bool next(bool rising, size_t from, size_t pos, Found &found) const
    {
        const size_t n = s.count;
        const size_t end = rising ? firstAbove(pos, n, l.highRef) : firstBelow(pos, n, l.lowRef);
        if (end == NONE)
            return false;
        const size_t start = rising ? lastBelow(from, end, l.lowRef) : lastAbove(from, end, l.highRef);
        const size_t mid = rising ? lastBelow(start, end, l.midRef) : lastAbove(start, end, l.midRef);
        found.start = start;
        found.mid = mid;
        found.end = end;
        found.t.rising = rising;
        found.t.startTime = crossing(start, rising ? l.lowRef : l.highRef);
        found.t.midTime = crossing(mid, l.midRef);
        found.t.endTime = crossing(end - 1, rising ? l.highRef : l.lowRef);
        return true;
    }

    // Peak and dip beyond the final state from the end of the transition to last, and the time
    // from the middle crossing until the signal stays within the band around the final state.
    void aberrations(Found &f, size_t last, bool lastInSpan, const MeasureOptions &options) const
    {
        Transition &t = f.t;
        const double final = t.rising ? l.high : l.low;
        const double peak = spanMax(s, f.end, last + 1), dip = spanMin(s, f.end, last + 1);
        // Beyond the final state in the direction of travel is overshoot, back past it undershoot,
        // so that a rising and a falling edge that ring alike read alike.
        const double beyond = t.rising ? peak - final : final - dip, back = t.rising ? final - dip : peak - final;
        t.overshoot = std::max(0.0, beyond / l.amplitude * 100.0);
        t.undershoot = std::max(0.0, back / l.amplitude * 100.0);
        t.postEnd = clock.at(static_cast<double>(last));

        const double band = options.settleBand * l.amplitude, lo = final - band, hi = final + band;
        const auto inside = [=](double x) { return x >= lo && x <= hi; };
        const size_t settledEnd = backward(s, f.mid, last + 1, inside,
                                           [&](size_t b) { return s.blockMax[b] >= lo && s.blockMin[b] <= hi; });
        const QString bandText = QStringLiteral("%1 %").arg(options.settleBand * 100.0, 0, 'g', 3);
        if (settledEnd == NONE || (lastInSpan && settledEnd != last)) {
            t.settling.reason = QStringLiteral("does not settle within %1 of the final level before the end of the span")
                                    .arg(bandText);
            return;
        }
        const size_t outside = backward(s, f.mid, settledEnd, [=](double x) { return !inside(x); },
                                        [&](size_t b) { return s.blockMin[b] < lo || s.blockMax[b] > hi; });
        const double settled = outside == NONE ? clock.at(static_cast<double>(f.mid))
                                               : crossing(outside, s.samples[outside] > hi ? hi : lo);
        // Within the band only on the way to the next edge is not settled.
        if (!lastInSpan && clock.at(static_cast<double>(settledEnd)) - settled < t.duration()) {
            t.settling.reason = QStringLiteral("does not settle within %1 of the final level before the next transition")
                                    .arg(bandText);
            return;
        }
        t.settling.value = std::max(0.0, settled - t.midTime);
    }

private:
    const SampleScan &s;
    const SpanClock &clock;
    const Levels &l;
};

} // namespace

std::vector<Transition> findTransitions(const SampleScan &scan, const SpanClock &clock, double low, double high,
                                        const MeasureOptions &options)
{
    const double amplitude = high - low;
    const Levels l{low, high, amplitude, low + options.lowRef * amplitude, low + options.midRef * amplitude,
                   low + options.highRef * amplitude};
    const Finder finder(scan, clock, l);
    const size_t n = scan.count;
    const size_t firstLow = finder.firstBelow(0, n, l.lowRef), firstHigh = finder.firstAbove(0, n, l.highRef);
    if (!(amplitude > 0.0) || (firstLow == NONE && firstHigh == NONE))
        return {};
    bool rising = firstLow < firstHigh;
    size_t from = std::min(firstLow, firstHigh);
    std::vector<Found> found;
    Found f;
    while (finder.next(rising, from, from, f)) {
        found.push_back(f);
        from = f.end;
        rising = !rising;
    }
    std::vector<Transition> transitions;
    for (size_t i = 0; i < found.size(); ++i) {
        const bool lastInSpan = i + 1 == found.size();
        finder.aberrations(found[i], lastInSpan ? n - 1 : found[i + 1].start, lastInSpan, options);
        transitions.push_back(found[i].t);
    }
    return transitions;
}

} // namespace vornmeasure
