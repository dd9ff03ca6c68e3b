#include "measureinternal.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <thread>

namespace vornmeasure {

namespace {

constexpr size_t NONE = SIZE_MAX;

typedef double Pair __attribute__((vector_size(2 * sizeof(double))));

Pair pair(double x)
{
    return Pair{x, x};
}

// Whether any of samples v[0..3] hits: two vector comparisons instead of four branches, so a
// block that may hold a crossing is passed over at the speed of its memory.
template <class HitPair>
bool anyOfFour(const double *v, HitPair hit)
{
    Pair a, b;
    std::memcpy(&a, v, sizeof a);
    std::memcpy(&b, v + 2, sizeof b);
    const auto m = hit(a) | hit(b);
    return (m[0] | m[1]) != 0;
}

// The first index in [i, end) whose sample hits, passing over whole blocks that cannot. hitPair
// is hit for two samples at once.
template <class Hit, class HitPair, class BlockMay>
size_t forward(const SampleScan &s, size_t i, size_t end, Hit hit, HitPair hitPair, BlockMay may)
{
    while (i < end) {
        const size_t block = i / SCAN_BLOCK;
        const size_t stop = std::min(end, (block + 1) * SCAN_BLOCK);
        // A block whose extremes cannot hit is passed over from wherever in it i lies.
        if (may(block)) {
            while (i + 4 <= stop && !anyOfFour(s.samples + i, hitPair))
                i += 4;
            for (; i < stop; ++i) {
                if (hit(s.samples[i]))
                    return i;
            }
        }
        i = stop;
    }
    return NONE;
}

// The last index in [floor, i) whose sample hits.
template <class Hit, class HitPair, class BlockMay>
size_t backward(const SampleScan &s, size_t floor, size_t i, Hit hit, HitPair hitPair, BlockMay may)
{
    while (i > floor) {
        const size_t stop = std::max(floor, (i - 1) / SCAN_BLOCK * SCAN_BLOCK);
        if (may((i - 1) / SCAN_BLOCK)) {
            while (i >= stop + 4 && !anyOfFour(s.samples + i - 4, hitPair))
                i -= 4;
            while (i > stop) {
                if (hit(s.samples[--i]))
                    return i;
            }
        }
        i = stop;
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
        const Pair l = pair(level);
        return forward(s, i, end, [=](double x) { return x < level; }, [=](Pair x) { return x < l; },
                       [&](size_t b) { return s.blockMin[b] < level; });
    }
    size_t firstAbove(size_t i, size_t end, double level) const
    {
        const Pair l = pair(level);
        return forward(s, i, end, [=](double x) { return x > level; }, [=](Pair x) { return x > l; },
                       [&](size_t b) { return s.blockMax[b] > level; });
    }
    size_t lastBelow(size_t floor, size_t i, double level) const
    {
        const Pair l = pair(level);
        return backward(s, floor, i, [=](double x) { return x <= level; }, [=](Pair x) { return x <= l; },
                        [&](size_t b) { return s.blockMin[b] <= level; });
    }
    size_t lastAbove(size_t floor, size_t i, double level) const
    {
        const Pair l = pair(level);
        return backward(s, floor, i, [=](double x) { return x >= level; }, [=](Pair x) { return x >= l; },
                        [&](size_t b) { return s.blockMax[b] >= level; });
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
        const Pair pairLo = pair(lo), pairHi = pair(hi);
        const auto insidePair = [=](Pair x) { return (x >= pairLo) & (x <= pairHi); };
        const size_t settledEnd = backward(s, f.mid, last + 1, inside, insidePair,
                                           [&](size_t b) { return s.blockMax[b] >= lo && s.blockMin[b] <= hi; });
        const QString bandText = QStringLiteral("%1 %").arg(options.settleBand * 100.0, 0, 'g', 3);
        if (settledEnd == NONE || (lastInSpan && settledEnd != last)) {
            t.settling.reason = QStringLiteral("does not settle within %1 of the final level before the end of the span")
                                    .arg(bandText);
            return;
        }
        const size_t outside = backward(s, f.mid, settledEnd, [=](double x) { return !inside(x); },
                                        [=](Pair x) { return ~insidePair(x); },
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

// The transitions from the state at from onwards, in order, until one starts at or past stop,
// which is given back in beyond (false when the span ends first).
bool findFrom(const Finder &finder, bool rising, size_t from, size_t stop, std::vector<Found> &found, Found &beyond)
{
    Found f;
    while (finder.next(rising, from, from, f)) {
        if (f.start >= stop) {
            beyond = f;
            return true;
        }
        found.push_back(f);
        from = f.end;
        rising = !rising;
    }
    return false;
}

// The state a span starting at first is in: whether its first transition rises, and from where.
bool startOf(const Finder &finder, const Levels &l, size_t first, size_t n, bool &rising, size_t &from)
{
    const size_t firstLow = finder.firstBelow(first, n, l.lowRef), firstHigh = finder.firstAbove(first, n, l.highRef);
    rising = firstLow < firstHigh;
    from = std::min(firstLow, firstHigh);
    return from != NONE;
}

// Above this many samples the second half of the span is searched on a thread of its own.
constexpr size_t PARALLEL_SPAN = size_t(1) << 22;

// Every transition, in order, as one search from the start finds them. A long span is searched
// from its start and from its middle at once; the two agree from the first transition the
// search from the start finds past the middle on, since the next one depends only on where that
// one ended, so the second search's results from there are taken as they are.
std::vector<Found> findAll(const Finder &finder, const Levels &l, size_t n)
{
    std::vector<Found> found;
    bool rising = false;
    size_t from = 0;
    Found beyond;
    if (!startOf(finder, l, 0, n, rising, from))
        return found;
    if (n < PARALLEL_SPAN) {
        findFrom(finder, rising, from, NONE, found, beyond);
        return found;
    }
    const size_t middle = n / 2 / SCAN_BLOCK * SCAN_BLOCK;
    std::vector<Found> second;
    std::thread helper([&] {
        bool r = false;
        size_t f = 0;
        Found none;
        if (startOf(finder, l, middle, n, r, f))
            findFrom(finder, r, f, NONE, second, none);
    });
    const bool past = findFrom(finder, rising, from, middle, found, beyond);
    helper.join();
    if (!past)
        return found;
    const auto same = std::find_if(second.begin(), second.end(), [&](const Found &f) {
        return f.start == beyond.start && f.end == beyond.end && f.t.rising == beyond.t.rising;
    });
    if (same != second.end()) {
        found.insert(found.end(), same, second.end());
        return found;
    }
    found.push_back(beyond);
    findFrom(finder, !beyond.t.rising, beyond.end, NONE, found, beyond);
    return found;
}

} // namespace

std::vector<Transition> findTransitions(const SampleScan &scan, const SpanClock &clock, double low, double high,
                                        const MeasureOptions &options)
{
    const double amplitude = high - low;
    const Levels l{low, high, amplitude, low + options.lowRef * amplitude, low + options.midRef * amplitude,
                   low + options.highRef * amplitude};
    if (!(amplitude > 0.0))
        return {};
    const Finder finder(scan, clock, l);
    const size_t n = scan.count;
    std::vector<Found> found = findAll(finder, l, n);
    // Each transition's aberrations lie between it and the next: the two halves apart.
    const auto aberrations = [&](size_t first, size_t last) {
        for (size_t i = first; i < last; ++i) {
            const bool lastInSpan = i + 1 == found.size();
            finder.aberrations(found[i], lastInSpan ? n - 1 : found[i + 1].start, lastInSpan, options);
        }
    };
    const size_t half = n >= PARALLEL_SPAN ? found.size() / 2 : found.size();
    std::thread helper;
    if (half < found.size())
        helper = std::thread(aberrations, half, found.size());
    aberrations(0, half);
    if (helper.joinable())
        helper.join();
    std::vector<Transition> transitions;
    transitions.reserve(found.size());
    for (const Found &f : found)
        transitions.push_back(f.t);
    return transitions;
}

} // namespace vornmeasure
