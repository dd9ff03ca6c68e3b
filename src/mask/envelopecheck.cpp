#include "sampleblocks.h"
#include "vornmask.h"

#include <QCoreApplication>
#include <QStringList>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <deque>
#include <memory>

namespace {

constexpr uint64_t CHUNK = 4096;           // samples judged at once before their violations are located
constexpr uint64_t SPLIT_ABOVE = 1U << 20; // below this a second thread costs more than it saves

struct TimeBase
{
    double interval;
    double start;
    uint64_t count;

    double at(uint64_t i) const { return static_cast<double>(i) * interval + start; }

    // The first sample at or after t (strictly after when after is set), or count.
    uint64_t firstFrom(double t, bool after) const
    {
        const double guess = std::ceil((t - start) / interval);
        uint64_t i = !(guess > 0.0) ? 0 : !(guess < static_cast<double>(count)) ? count : static_cast<uint64_t>(guess);
        const auto inside = [&](uint64_t k) { return after ? at(k) > t : at(k) >= t; };
        while (i > 0 && inside(i - 1))
            --i;
        while (i < count && !inside(i))
            ++i;
        return i;
    }
};

// A limit that is linear over samples [first, last): value + slope * (t - origin).
struct Line
{
    uint64_t first;
    uint64_t last;
    double value;
    double slope;
    double origin;
};

// The stretches of the waveform a curve sets a limit for. A stretch ends before the next curve
// sample, so that every sample on a curve sample takes its value exactly; the last stretch of a
// run of valid samples keeps its end.
std::vector<Line> limitLines(const WaveformData &curve, const TimeBase &samples)
{
    std::vector<Line> lines;
    const std::vector<double> &y = *curve.samples;
    if (!(curve.sampleInterval > 0.0) || !std::isfinite(curve.sampleInterval) || !std::isfinite(curve.startTime)
        || y.size() < 2)
        return lines;
    const TimeBase time{curve.sampleInterval, curve.startTime, y.size()};
    lines.reserve(y.size() - 1);
    for (uint64_t k = 0; k + 1 < y.size(); ++k) {
        if (std::isnan(y[k]) || std::isnan(y[k + 1]))
            continue;
        const bool closed = k + 2 == y.size() || std::isnan(y[k + 2]);
        const uint64_t first = samples.firstFrom(time.at(k), false);
        const uint64_t last = samples.firstFrom(time.at(k + 1), closed);
        if (first < last)
            lines.push_back({first, last, y[k], (y[k + 1] - y[k]) / (time.at(k + 1) - time.at(k)), time.at(k)});
    }
    return lines;
}

// The lines of the same curve on the same time base, as a live run asks for them acquisition
// after acquisition. An entry holds a copy of the curve, whose shared samples can then neither
// change nor go: the same storage means the same values.
std::shared_ptr<const std::vector<Line>> cachedLimitLines(const WaveformData &curve, const TimeBase &samples)
{
    struct Entry
    {
        WaveformData curve;
        TimeBase time;
        std::shared_ptr<const std::vector<Line>> lines;
    };
    thread_local std::deque<Entry> cache;
    for (const Entry &e : cache) {
        if (e.curve.samples.sharesStorageWith(curve.samples) && e.curve.sampleInterval == curve.sampleInterval
            && e.curve.startTime == curve.startTime && e.time.interval == samples.interval
            && e.time.start == samples.start && e.time.count == samples.count)
            return e.lines;
    }
    if (cache.size() == 16)
        cache.pop_front();
    cache.push_back({curve, samples, std::make_shared<const std::vector<Line>>(limitLines(curve, samples))});
    return cache.back().lines;
}

// The time span over which a curve sets limits: from the first to the last curve sample that
// starts or ends a stretch between two valid samples. Empty (first > last) when there is none.
std::pair<double, double> limitSpan(const WaveformData &curve)
{
    const std::vector<double> &y = *curve.samples;
    std::pair<double, double> span{INFINITY, -INFINITY};
    if (!(curve.sampleInterval > 0.0) || !std::isfinite(curve.sampleInterval) || !std::isfinite(curve.startTime))
        return span;
    const TimeBase time{curve.sampleInterval, curve.startTime, y.size()};
    uint64_t k = 0;
    while (k + 1 < y.size() && (std::isnan(y[k]) || std::isnan(y[k + 1])))
        ++k;
    if (k + 1 >= y.size())
        return span;
    uint64_t e = y.size() - 1;
    while (std::isnan(y[e]) || std::isnan(y[e - 1]))
        --e;
    return {time.at(k), time.at(e)};
}

// Seconds of the limits' span before the first and after the last sample; a part shorter than
// half a sample interval is rounding, not a capture that starts late or ends early.
std::pair<double, double> uncoveredEnds(const TimeBase &samples, const EnvelopeData &envelope)
{
    const auto [ua, ub] = limitSpan(envelope.upper);
    const auto [la, lb] = limitSpan(envelope.lower);
    const double first = std::min(ua, la), last = std::max(ub, lb);
    if (!(first <= last))
        return {0.0, 0.0};
    const double length = last - first;
    const double slack = samples.interval / 2;
    const double before = std::clamp(samples.at(0) - first, 0.0, length);
    const double after = std::clamp(last - samples.at(samples.count - 1), 0.0, length);
    return {before > slack ? before : 0.0, after > slack ? after : 0.0};
}

double uncoveredSpan(const TimeBase &samples, const EnvelopeData &envelope)
{
    const auto [before, after] = uncoveredEnds(samples, envelope);
    const auto [ua, ub] = limitSpan(envelope.upper);
    const auto [la, lb] = limitSpan(envelope.lower);
    const double length = std::max(ub, lb) - std::min(ua, la);
    return length > 0.0 ? std::min(before + after, length) : before + after;
}

// The stretches where a curve sets a limit: runs of segments between two valid samples.
void definedRuns(const WaveformData &curve, std::vector<std::pair<double, double>> &runs)
{
    const std::vector<double> &y = *curve.samples;
    if (!(curve.sampleInterval > 0.0) || !std::isfinite(curve.sampleInterval) || !std::isfinite(curve.startTime))
        return;
    const TimeBase time{curve.sampleInterval, curve.startTime, y.size()};
    for (uint64_t k = 0; k + 1 < y.size(); ++k) {
        if (std::isnan(y[k]) || std::isnan(y[k + 1]))
            continue;
        uint64_t e = k + 1;
        while (e + 1 < y.size() && !std::isnan(y[e + 1]))
            ++e;
        runs.emplace_back(time.at(k), time.at(e));
        k = e;
    }
}

// The parts of the envelope's span where neither curve sets a limit.
void findGaps(const EnvelopeData &envelope, EnvelopeCheckResult &result)
{
    std::vector<std::pair<double, double>> runs;
    definedRuns(envelope.upper, runs);
    definedRuns(envelope.lower, runs);
    std::sort(runs.begin(), runs.end());
    for (size_t i = 0; i + 1 < runs.size(); ++i) {
        const double reached = runs[i].second;
        if (runs[i + 1].first > reached) {
            result.gaps += runs[i + 1].first - reached;
            result.gapSpans.emplace_back(reached, runs[i + 1].first);
        } else {
            runs[i + 1].second = std::max(runs[i + 1].second, reached);
        }
    }
}

// The interval the envelope was made at: its sources', or, where that is not known, its grid's,
// which only tells when a capture is coarser than the envelope.
void compareRates(const TimeBase &samples, const EnvelopeData &envelope, EnvelopeCheckResult &result)
{
    const bool known = envelope.sourceInterval > 0.0 && std::isfinite(envelope.sourceInterval);
    const double made = known ? envelope.sourceInterval : envelope.upper.sampleInterval;
    if (!(made > 0.0) || !std::isfinite(made))
        return;
    const double ratio = samples.interval / made;
    if (ratio > 1.01 || (known && ratio < 1 / 1.01)) {
        result.captureInterval = samples.interval;
        result.envelopeInterval = made;
    }
}

QString tr(const char *text)
{
    return QCoreApplication::translate("EnvelopeCheck", text);
}

struct Partial
{
    uint64_t checked = 0;
    uint64_t nans = 0;
    uint64_t above = 0;
    uint64_t below = 0;
    uint64_t firstIndex = UINT64_MAX;
    double worstAbove = 0.0;
    double worstBelow = 0.0;
    uint64_t worstAboveIndex = UINT64_MAX;
    uint64_t worstBelowIndex = UINT64_MAX;
    double minMargin = INFINITY;

    void merge(const Partial &o)
    {
        checked += o.checked;
        nans += o.nans;
        above += o.above;
        below += o.below;
        firstIndex = std::min(firstIndex, o.firstIndex);
        // Partials are merged in time order, so a tie keeps the earlier sample.
        if (o.worstAbove > worstAbove) {
            worstAbove = o.worstAbove;
            worstAboveIndex = o.worstAboveIndex;
        }
        if (o.worstBelow > worstBelow) {
            worstBelow = o.worstBelow;
            worstBelowIndex = o.worstBelowIndex;
        }
        minMargin = std::min(minMargin, o.minMargin);
    }
};

// W lanes of doubles: two fit every 64-bit target's vector unit, four an AVX2 one.
template<int W>
struct Lanes;
template<>
struct Lanes<2>
{
    typedef double D __attribute__((vector_size(16)));
    typedef int64_t M __attribute__((vector_size(16)));
};
template<>
struct Lanes<4>
{
    typedef double D __attribute__((vector_size(32)));
    typedef int64_t M __attribute__((vector_size(32)));
};

// The slack of W samples at positions x: their distance inside the nearer limit, with Fraction
// as a part of the band's height. It is negative exactly where a sample lies outside, since
// u - v < 0 holds exactly when v > u. Comparisons are false for NaN, so a NaN sample never wins
// the minimum; the sum shows whether there was one.
template<bool U, bool L, int W, bool Fraction>
[[gnu::always_inline]] inline void slackLanes(const typename Lanes<W>::D &v, const typename Lanes<W>::D &x,
                                              const TimeBase &time, const Line &up, const Line &lo,
                                              typename Lanes<W>::D &minimum, typename Lanes<W>::D &sum)
{
    using D = typename Lanes<W>::D;
    using M = typename Lanes<W>::M;
    const D t = x * time.interval + time.start;
    const D u = up.value + up.slope * (t - up.origin);
    const D l = lo.value + lo.slope * (t - lo.origin);
    const D toUpper = u - v, toLower = v - l;
    D slack = U ? toUpper : toLower;
    if (U && L)
        slack = toUpper < toLower ? toUpper : toLower;
    if (U && L && Fraction) {
        // An inverted band gives a negative slack rather than a positive one.
        slack /= (D)((M)(u - l) & INT64_MAX);
    }
    minimum = slack < minimum ? slack : minimum;
    sum += v;
}

// The smallest slack of samples [c, end), in two independent vectors so that the minima do not
// wait on each other; and whether a NaN (or an infinity) was among them.
template<bool U, bool L, int W, bool Fraction>
[[gnu::always_inline]] inline double chunkSlackOf(const double *s, uint64_t c, uint64_t end, const TimeBase &time,
                                                  const Line &up, const Line &lo, bool &unusual)
{
    using D = typename Lanes<W>::D;
    D x0, x1, minimum0, minimum1, sum0 = {}, sum1 = {};
    for (int k = 0; k < W; ++k) {
        x0[k] = static_cast<double>(c + k);
        x1[k] = static_cast<double>(c + W + k);
        minimum0[k] = minimum1[k] = INFINITY;
    }
    uint64_t i = c;
    for (; i + 2 * W <= end; i += 2 * W, x0 += 2 * W, x1 += 2 * W) {
        D v0, v1;
        std::memcpy(&v0, s + i, sizeof v0);
        std::memcpy(&v1, s + i + W, sizeof v1);
        slackLanes<U, L, W, Fraction>(v0, x0, time, up, lo, minimum0, sum0);
        slackLanes<U, L, W, Fraction>(v1, x1, time, up, lo, minimum1, sum1);
    }
    for (; i < end; ++i) {
        // Every lane on the same sample: a minimum does not mind seeing it twice.
        const D v = D{} + s[i], x = D{} + static_cast<double>(i);
        slackLanes<U, L, W, Fraction>(v, x, time, up, lo, minimum0, sum0);
    }
    double sum = 0.0, minimum = INFINITY;
    for (int k = 0; k < W; ++k) {
        sum += sum0[k] + sum1[k];
        minimum = std::min({minimum, minimum0[k], minimum1[k]});
    }
    unusual = !std::isfinite(sum);
    return minimum;
}

template<bool U, bool L, bool Fraction>
double chunkSlackPlain(const double *s, uint64_t c, uint64_t end, const TimeBase &time, const Line &up, const Line &lo,
                       bool &unusual)
{
    return chunkSlackOf<U, L, 2, Fraction>(s, c, end, time, up, lo, unusual);
}

#if defined(__GNUC__) && defined(__x86_64__)
// The same arithmetic four lanes wide, without FMA so that every result is the same as above.
template<bool U, bool L, bool Fraction>
__attribute__((target("avx2"))) double chunkSlackWide(const double *s, uint64_t c, uint64_t end, const TimeBase &time,
                                                     const Line &up, const Line &lo, bool &unusual)
{
    return chunkSlackOf<U, L, 4, Fraction>(s, c, end, time, up, lo, unusual);
}

const bool HAS_AVX2 = [] {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") != 0;
}();
#endif

template<bool U, bool L, bool Fraction>
double chunkSlack(const double *s, uint64_t c, uint64_t end, const TimeBase &time, const Line &up, const Line &lo,
                  bool &unusual)
{
#if defined(__GNUC__) && defined(__x86_64__)
    if (HAS_AVX2)
        return chunkSlackWide<U, L, Fraction>(s, c, end, time, up, lo, unusual);
#endif
    return chunkSlackPlain<U, L, Fraction>(s, c, end, time, up, lo, unusual);
}

// Whether samples first..last, the nearest of them slack inside the band, could hold a smaller
// margin than best. The band's height is linear in between, so it is largest at an end; a
// division per sample is only spent where the bound comes within rounding of the best.
bool mayLowerMargin(double slack, uint64_t first, uint64_t last, const TimeBase &time, const Line &up,
                    const Line &lo, double best)
{
    const auto height = [&](uint64_t i) {
        const double t = time.at(i);
        return std::fabs((up.value + up.slope * (t - up.origin)) - (lo.value + lo.slope * (t - lo.origin)));
    };
    const double bound = slack / std::max(height(first), height(last));
    return !(bound > best + 1e-9 * std::fabs(best));
}

// Samples [first, last) under an upper limit (U), a lower one (L) or both. Most chunks hold
// neither a violation nor a NaN and need only their smallest slack; the others are walked again
// one sample at a time to count and locate.
template<bool U, bool L>
void judge(const double *s, uint64_t first, uint64_t last, const TimeBase &time, const Line &up,
           const Line &lo, Partial &p, ViolationMask *mask)
{
    for (uint64_t c = first; c < last; c += CHUNK) {
        const uint64_t end = std::min(last, c + CHUNK);
        bool unusual = false;
        const double slack = chunkSlack<U, L, false>(s, c, end, time, up, lo, unusual);
        const bool located = slack < 0.0 || unusual;
        if (U && L && (located || mayLowerMargin(slack, c, end - 1, time, up, lo, p.minMargin)))
            p.minMargin = std::min(p.minMargin, chunkSlack<U, L, true>(s, c, end, time, up, lo, unusual));
        p.checked += end - c;
        if (!located)
            continue;
        for (uint64_t i = c; i < end; ++i) {
            const double v = s[i];
            const double t = static_cast<double>(i) * time.interval + time.start;
            const double excessAbove = U ? v - (up.value + up.slope * (t - up.origin)) : 0.0;
            const double excessBelow = L ? (lo.value + lo.slope * (t - lo.origin)) - v : 0.0;
            if (std::isnan(v)) {
                ++p.nans;
                --p.checked;
            }
            if (!(excessAbove > 0.0) && !(excessBelow > 0.0))
                continue;
            p.above += excessAbove > 0.0;
            p.below += excessBelow > 0.0;
            p.firstIndex = std::min(p.firstIndex, i);
            if (mask)
                mask->set(i);
            if (excessAbove > p.worstAbove) {
                p.worstAbove = excessAbove;
                p.worstAboveIndex = i;
            }
            if (excessBelow > p.worstBelow) {
                p.worstBelow = excessBelow;
                p.worstBelowIndex = i;
            }
        }
    }
}

// The limit lines of both curves met in turn: each stretch is one over which neither changes.
struct LineWalk
{
    const std::vector<Line> &upper;
    const std::vector<Line> &lower;
    size_t a = 0;
    size_t b = 0;

    // The stretch from pos on, ended by to at the latest: its lines (null where a curve sets
    // none) and its end. Positions only grow from call to call.
    uint64_t next(uint64_t pos, uint64_t to, const Line *&up, const Line *&lo)
    {
        seek(pos);
        up = a < upper.size() && upper[a].first <= pos ? &upper[a] : nullptr;
        lo = b < lower.size() && lower[b].first <= pos ? &lower[b] : nullptr;
        uint64_t end = to;
        if (a < upper.size())
            end = std::min(end, up ? upper[a].last : upper[a].first);
        if (b < lower.size())
            end = std::min(end, lo ? lower[b].last : lower[b].first);
        return end;
    }
    // Passes the lines that end at or before pos.
    void seek(uint64_t pos)
    {
        while (a < upper.size() && upper[a].last <= pos)
            ++a;
        while (b < lower.size() && lower[b].last <= pos)
            ++b;
    }
};

void judgeStretches(const double *s, const TimeBase &time, LineWalk &walk, uint64_t from, uint64_t to, Partial &p,
                    ViolationMask *mask)
{
    const Line none{};
    for (uint64_t pos = from, end; pos < to; pos = end) {
        const Line *up, *lo;
        end = walk.next(pos, to, up, lo);
        if (up && lo)
            judge<true, true>(s, pos, end, time, *up, *lo, p, mask);
        else if (up)
            judge<true, false>(s, pos, end, time, *up, none, p, mask);
        else if (lo)
            judge<false, true>(s, pos, end, time, none, *lo, p, mask);
    }
}

// Whether samples [first, last), all within [lowest, highest] and none NaN, lie inside their
// limits with room to spare and cannot lower the margin below best; if so, how many of them
// have a limit. A limit is linear over each stretch, so it comes nearest at one of its ends;
// each sample's limit is rounded on its own, its time too (which a steep limit at a late time
// magnifies), and a 10^-9 of the largest term involved covers that many times over.
bool insideWithRoom(double lowest, double highest, const TimeBase &time, LineWalk walk, uint64_t first,
                    uint64_t last, double best, uint64_t &limited)
{
    double nearest = INFINITY, scale = std::max(std::fabs(lowest), std::fabs(highest)), height = 0.0;
    bool both = false;
    limited = 0;
    const auto at = [&scale](const Line &line, double t) {
        const double d = line.slope * (t - line.origin), value = line.value + d;
        const double timeTerm = std::fabs(line.slope) * (std::fabs(t) + std::fabs(line.origin));
        scale = std::max({scale, std::fabs(line.value), std::fabs(d), std::fabs(value), timeTerm});
        return value;
    };
    for (uint64_t pos = first, end; pos < last; pos = end) {
        const Line *up, *lo;
        end = walk.next(pos, last, up, lo);
        const double ta = time.at(pos), tb = time.at(end - 1);
        double ua = 0.0, ub = 0.0, la = 0.0, lb = 0.0;
        if (up) {
            ua = at(*up, ta);
            ub = at(*up, tb);
            nearest = std::min({nearest, ua - highest, ub - highest});
        }
        if (lo) {
            la = at(*lo, ta);
            lb = at(*lo, tb);
            nearest = std::min({nearest, lowest - la, lowest - lb});
        }
        if (up && lo) {
            both = true;
            height = std::max({height, std::fabs(ua - la), std::fabs(ub - lb)});
        }
        if (up || lo)
            limited += end - pos;
    }
    nearest -= 1e-9 * scale;
    if (!(nearest > 0.0))
        return false;
    // As mayLowerMargin(): the band's height is largest at a stretch's end.
    return !both || nearest / height > best + 1e-9 * std::fabs(best);
}

// Samples [from, to) against the limit lines of both curves. With blocks, whole blocks well
// inside the band are passed on their extremes without reading their samples.
Partial judgeRange(const double *s, const TimeBase &time, const std::vector<Line> &upper,
                   const std::vector<Line> &lower, uint64_t from, uint64_t to, ViolationMask *mask,
                   const SampleBlocks *blocks)
{
    Partial p;
    LineWalk walk{upper, lower};
    if (!blocks) {
        judgeStretches(s, time, walk, from, to, p, mask);
        return p;
    }
    for (uint64_t pos = from, end; pos < to; pos = end) {
        const uint64_t k = pos / blocks->size, blockEnd = std::min(time.count, (k + 1) * blocks->size);
        end = std::min(to, blockEnd);
        uint64_t limited = 0;
        walk.seek(pos);
        if (pos == k * blocks->size && blockEnd <= to && !blocks->nan[k]
            && insideWithRoom(-blocks->negLow[k], blocks->high[k], time, walk, pos, end, p.minMargin, limited)) {
            p.checked += limited;
            continue;
        }
        judgeStretches(s, time, walk, pos, end, p, mask);
    }
    return p;
}

EnvelopeCheckResult checkOver(const WaveformData &waveform, const EnvelopeData &envelope, ViolationMask *violations,
                              const SampleBlocks *blocks);

} // namespace

void ViolationMask::reset(uint64_t sampleCount)
{
    m_count = sampleCount;
    m_bits.assign((sampleCount + 63) / 64, 0);
    m_summary.assign((m_bits.size() + 63) / 64, 0);
}

void ViolationMask::set(uint64_t index)
{
    if (index >= m_count)
        return;
    m_bits[index / 64] |= uint64_t(1) << (index % 64);
    m_summary[index / 4096] |= uint64_t(1) << (index / 64 % 64);
}

bool ViolationMask::isEmpty() const
{
    return std::all_of(m_summary.begin(), m_summary.end(), [](uint64_t w) { return w == 0; });
}

uint64_t ViolationMask::findNext(uint64_t first, uint64_t last) const
{
    last = std::min(last, m_count);
    uint64_t word = first / 64;
    uint64_t bits = first < last ? m_bits[word] & (~uint64_t(0) << (first % 64)) : 0;
    while (!bits) {
        ++word;
        if (word * 64 >= last)
            return last;
        // Skip whole clean words through the summary.
        const uint64_t summary = m_summary[word / 64] & (~uint64_t(0) << (word % 64));
        if (!summary) {
            word = (word / 64 + 1) * 64 - 1;
            continue;
        }
        word = word / 64 * 64 + static_cast<uint64_t>(__builtin_ctzll(summary));
        if (word * 64 >= last)
            return last;
        bits = m_bits[word];
    }
    const uint64_t found = word * 64 + static_cast<uint64_t>(__builtin_ctzll(bits));
    return found < last ? found : last;
}

uint64_t ViolationMask::findPrevious(uint64_t before) const
{
    before = std::min(before, m_count);
    if (before == 0)
        return m_count;
    uint64_t word = (before - 1) / 64;
    uint64_t bits = m_bits[word] & (~uint64_t(0) >> (63 - (before - 1) % 64));
    while (!bits) {
        if (word == 0)
            return m_count;
        --word;
        const uint64_t summary = m_summary[word / 64] & (~uint64_t(0) >> (63 - word % 64));
        if (!summary) {
            word = word / 64 * 64; // the loop steps on to the previous summary word
            continue;
        }
        word = word / 64 * 64 + 63 - static_cast<uint64_t>(__builtin_clzll(summary));
        bits = m_bits[word];
    }
    return word * 64 + 63 - static_cast<uint64_t>(__builtin_clzll(bits));
}

EnvelopeCheckResult checkEnvelope(const WaveformData &waveform, const EnvelopeData &envelope, ViolationMask *violations)
{
    return checkOver(waveform, envelope, violations, nullptr);
}

namespace {

EnvelopeCheckResult checkOver(const WaveformData &waveform, const EnvelopeData &envelope, ViolationMask *violations,
                              const SampleBlocks *blocks)
{
    const std::vector<double> &samples = *waveform.samples;
    const TimeBase time{waveform.sampleInterval, waveform.startTime, samples.size()};
    if (violations)
        violations->reset(samples.size());
    EnvelopeCheckResult result;
    if (!(time.interval > 0.0) || !std::isfinite(time.interval) || !std::isfinite(time.start) || samples.empty())
        return result;
    const auto upperLines = cachedLimitLines(envelope.upper, time);
    const auto lowerLines = cachedLimitLines(envelope.lower, time);
    const std::vector<Line> &upper = *upperLines;
    const std::vector<Line> &lower = *lowerLines;

    Partial total;
    if (samples.size() < SPLIT_ABOVE) {
        total = judgeRange(samples.data(), time, upper, lower, 0, samples.size(), violations, blocks);
    } else {
        // Split on a summary word so that the two threads never write the same mask word.
        const uint64_t middle = samples.size() / 2 / 4096 * 4096;
        Partial second;
        runBeside([&] { total = judgeRange(samples.data(), time, upper, lower, 0, middle, violations, blocks); },
                  [&] { second = judgeRange(samples.data(), time, upper, lower, middle, samples.size(), violations, blocks); });
        total.merge(second);
    }

    result.checked = total.checked;
    result.nanSamples = total.nans;
    result.above = total.above;
    result.below = total.below;
    if (total.firstIndex != UINT64_MAX)
        result.firstViolation = time.at(total.firstIndex);
    if (total.worstAboveIndex != UINT64_MAX)
        result.worstAbove = {time.at(total.worstAboveIndex), total.worstAbove, samples[total.worstAboveIndex]};
    if (total.worstBelowIndex != UINT64_MAX)
        result.worstBelow = {time.at(total.worstBelowIndex), total.worstBelow, samples[total.worstBelowIndex]};
    if (total.minMargin != INFINITY)
        result.minMargin = total.minMargin;
    result.uncovered = uncoveredSpan(time, envelope);
    findGaps(envelope, result);
    compareRates(time, envelope, result);
    return result;
}

} // namespace

EnvelopeCheckResult checkShifted(const WaveformData &waveform, const EnvelopeData &envelope, double shift,
                                 ViolationMask *violations)
{
    return checkShifted(waveform, envelope, shift, violations, nullptr);
}

EnvelopeCheckResult checkShifted(const WaveformData &waveform, const EnvelopeData &envelope, double shift,
                                 ViolationMask *violations, const SampleBlocks *blocks)
{
    const WaveformData moved = shiftedWaveform(waveform, shift);
    // Blocks too short to pass save less than their tests cost.
    if (blocks && (blocks->size < 16 || !blocks->cover(waveform.samples->size())))
        blocks = nullptr;
    EnvelopeCheckResult result = checkOver(moved, envelope, violations, blocks);
    result.shift = shift;
    const uint64_t count = waveform.samples->size();
    if (shift == 0.0 || count == 0 || !(waveform.sampleInterval > 0.0))
        return result;
    // At either end, what the capture leaves uncovered unshifted too fails; the rest the shift explains.
    const auto [before0, after0] = uncoveredEnds({waveform.sampleInterval, waveform.startTime, count}, envelope);
    const auto [before, after] = uncoveredEnds({moved.sampleInterval, moved.startTime, count}, envelope);
    const double failing = std::min(before, before0) + std::min(after, after0);
    result.uncoveredByShift = std::max(0.0, before + after - failing);
    result.uncovered = std::min(result.uncovered, failing);
    return result;
}

QString checkNotes(const EnvelopeCheckResult &result, int maxSpans)
{
    const auto seconds = [](double t) { return ValueFormatter::formatWithUnit(t, QStringLiteral("s")); };
    QStringList notes;
    if (result.uncoveredByShift > 0.0) {
        notes << (result.shift > 0.0 ? tr("%1 at the end not covered after the shift")
                                     : tr("%1 at the start not covered after the shift"))
                     .arg(seconds(result.uncoveredByShift));
    }
    if (result.gaps > 0.0) {
        QStringList spans;
        for (size_t i = 0; i < result.gapSpans.size() && int(i) < maxSpans; ++i)
            spans << tr("%1 to %2").arg(seconds(result.gapSpans[i].first), seconds(result.gapSpans[i].second));
        if (result.gapSpans.size() > size_t(maxSpans))
            spans << QCoreApplication::translate("EnvelopeCheck", "%n more", nullptr, int(result.gapSpans.size()) - maxSpans);
        notes << tr("%1 of the envelope without limits (%2)").arg(seconds(result.gaps), spans.join(QStringLiteral(", ")));
    }
    if (result.captureInterval > 0.0) {
        notes << tr("capture at %1, envelope made at %2")
                     .arg(ValueFormatter::formatWithUnit(1 / result.captureInterval, QStringLiteral("Hz")),
                          ValueFormatter::formatWithUnit(1 / result.envelopeInterval, QStringLiteral("Hz")));
    }
    return notes.join(QStringLiteral("; "));
}
