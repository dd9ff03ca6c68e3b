#include "alignmentinternal.h"
#include "hugepages.h"
#include "sampleblocks.h"
#include "vornmask.h"

#include <algorithm>
#include <cmath>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace {

constexpr int COARSE_STEPS = 32;        // coarse shifts on each side of zero
constexpr int CANDIDATES = 3;           // coarse optima refined to the sample
constexpr uint64_t SPLIT_ABOVE = 1U << 20; // below this a second thread costs more than it saves
constexpr uint64_t BUDGET = 8'000'000;     // sample slacks worked out per refined window
constexpr long MAX_WINDOW = 1 << 20;       // shifts refined to the sample around one coarse shift
constexpr uint64_t STOP_CHECK = 4096;      // samples between looks at whether a shift can still win
constexpr size_t GROUP = 8;                // shifts worked out together in one pass over the samples
constexpr size_t COARSE_GROUP = 8;         // coarse shifts scored together in one pass over the blocks

// A limit curve read as "how far above a value may go": the upper curve as it is, the lower one
// negated, so that one slack formula serves both. No limit reads as +infinity.
class Limit
{
public:
    Limit(const WaveformData &curve, bool negate)
        : m_start(curve.startTime), m_interval(curve.sampleInterval)
    {
        const std::vector<double> &y = *curve.samples;
        if (!(m_interval > 0.0) || !std::isfinite(m_interval) || !std::isfinite(m_start) || y.size() < 2)
            return;
        m_y.resize(y.size());
        for (size_t i = 0; i < y.size(); ++i)
            m_y[i] = negate ? -y[i] : y[i];
        for (size_t i = 0; i + 1 < m_y.size(); ++i) {
            if (!std::isnan(m_y[i]) && !std::isnan(m_y[i + 1])) {
                m_first = std::min(m_first, i);
                m_last = i + 1;
            }
        }
    }

    bool isEmpty() const { return m_last == 0; }
    // Whether other reads its values at the same positions, so that one position serves both.
    bool sharesGrid(const Limit &other) const
    {
        return m_y.size() >= 2 && m_y.size() == other.m_y.size() && m_start == other.m_start && m_interval == other.m_interval;
    }
    // at() for this limit and other on a shared grid, worked out from one position.
    void bothAt(const Limit &other, double t, double &mine, double &theirs) const
    {
        const double u = (t - m_start) / m_interval;
        if (!(u >= 0.0) || !(u <= static_cast<double>(m_y.size() - 1))) {
            mine = theirs = INFINITY;
            return;
        }
        const size_t i = std::min(static_cast<size_t>(u), m_y.size() - 2);
        const double f = u - static_cast<double>(i);
        const double a = m_y[i], b = m_y[i + 1], c = other.m_y[i], d = other.m_y[i + 1];
        mine = std::isnan(a) || std::isnan(b) ? INFINITY : a + (b - a) * f;
        theirs = std::isnan(c) || std::isnan(d) ? INFINITY : c + (d - c) * f;
    }
    double firstTime() const { return m_start + static_cast<double>(m_first) * m_interval; }
    double lastTime() const { return m_start + static_cast<double>(m_last) * m_interval; }

    double at(double t) const { return valueAt(position(t)); }
    // Where t lies on the curve's nodes, and the limit there.
    double position(double t) const { return (t - m_start) / m_interval; }
    double valueAt(double u) const
    {
        if (m_y.empty() || !(u >= 0.0) || !(u <= static_cast<double>(m_y.size() - 1)))
            return INFINITY;
        const size_t i = std::min(static_cast<size_t>(u), m_y.size() - 2);
        const double a = m_y[i], b = m_y[i + 1];
        return std::isnan(a) || std::isnan(b) ? INFINITY : a + (b - a) * (u - static_cast<double>(i));
    }

    // The smallest and the largest limit over [a, b]; a part without limit makes the largest +infinity.
    void range(double a, double b, double &low, double &high) const
    {
        const double ua = position(a), ub = position(b);
        range(ua, valueAt(ua), ub, valueAt(ub), low, high);
    }
    // The same from the positions of a and b and the limits there.
    void range(double ua, double ea, double ub, double eb, double &low, double &high) const
    {
        low = high = INFINITY;
        if (m_y.empty())
            return;
        const double last = static_cast<double>(m_y.size() - 1);
        if (ub < 0.0 || ua > last)
            return;
        low = std::min(ea, eb);
        high = std::max(ea, eb);
        const long i0 = static_cast<long>(std::floor(std::max(ua, 0.0)));
        const long i1 = static_cast<long>(std::floor(std::min(ub, last)));
        // Whole segments between the two ends, then the inner nodes of the end segments.
        if (i1 - 1 >= i0 + 1)
            query(static_cast<size_t>(i0 + 1), static_cast<size_t>(i1 - 1), low, high);
        const auto node = [&](long k) {
            const bool before = k > 0 && !std::isnan(m_y[k - 1]), after = k + 1 < long(m_y.size()) && !std::isnan(m_y[k + 1]);
            if (!std::isnan(m_y[k]) && (before || after)) {
                low = std::min(low, m_y[k]);
                high = std::max(high, m_y[k]);
            }
        };
        if (i0 + 1 <= i1 && i0 + 1 < long(m_y.size()))
            node(i0 + 1);
        if (i1 > i0 + 1)
            node(i1);
    }

private:
    // The segments first ... last, scanned: range() is asked about neighbouring blocks, so each
    // segment is read about once, and tables over them would cost more in fresh pages than they save.
    // An undefined segment is +infinity in both.
    void query(size_t first, size_t last, double &low, double &high) const
    {
        for (size_t i = first; i <= last; ++i) {
            const bool defined = !std::isnan(m_y[i]) && !std::isnan(m_y[i + 1]);
            low = std::min(low, defined ? std::min(m_y[i], m_y[i + 1]) : INFINITY);
            high = std::max(high, defined ? std::max(m_y[i], m_y[i + 1]) : INFINITY);
        }
    }

    double m_start;
    double m_interval;
    std::vector<double> m_y;
    size_t m_first = SIZE_MAX;
    size_t m_last = 0;
};

} // namespace

SampleBlocks blockExtremes(const std::vector<double> &s, uint64_t size)
{
    SampleBlocks b;
    b.size = size;
    const uint64_t count = (s.size() + size - 1) / size;
    b.high.resize(count);
    b.negLow.resize(count);
    b.nan.resize(count);
    const auto fill = [&](uint64_t from, uint64_t to) {
        for (uint64_t c = from; c < to; ++c) {
            double hi = -INFINITY, lo = INFINITY;
            bool nan = false;
            const uint64_t end = std::min<uint64_t>(s.size(), (c + 1) * size);
            uint64_t i = c * size;
#ifdef __SSE2__
            // Two lanes at a time: maxpd(x, h) is x > h ? x : h, the scalar rule below, NaN included.
            // Two pairs of accumulators, so that the loop waits on memory rather than on maxpd.
            __m128d h = _mm_set1_pd(-INFINITY), l = _mm_set1_pd(INFINITY), h2 = h, l2 = l, n = _mm_setzero_pd();
            for (; i + 4 <= end; i += 4) {
                const __m128d x = _mm_loadu_pd(&s[i]), y = _mm_loadu_pd(&s[i + 2]);
                h = _mm_max_pd(x, h);
                l = _mm_min_pd(x, l);
                h2 = _mm_max_pd(y, h2);
                l2 = _mm_min_pd(y, l2);
                n = _mm_or_pd(n, _mm_cmpunord_pd(x, y));
            }
            for (; i + 2 <= end; i += 2) {
                const __m128d x = _mm_loadu_pd(&s[i]);
                h = _mm_max_pd(x, h);
                l = _mm_min_pd(x, l);
                n = _mm_or_pd(n, _mm_cmpunord_pd(x, x));
            }
            h = _mm_max_pd(h2, h);
            l = _mm_min_pd(l2, l);
            double lanes[2];
            _mm_storeu_pd(lanes, h);
            hi = std::max(lanes[0], lanes[1]);
            _mm_storeu_pd(lanes, l);
            lo = std::min(lanes[0], lanes[1]);
            nan = _mm_movemask_pd(n) != 0;
#endif
            for (; i < end; ++i) {
                // NaN compares false, so it never becomes an extreme.
                hi = s[i] > hi ? s[i] : hi;
                lo = s[i] < lo ? s[i] : lo;
                nan = nan || std::isnan(s[i]);
            }
            b.high[c] = hi;
            b.negLow[c] = -lo;
            b.nan[c] = nan;
        }
    };
    if (s.size() < SPLIT_ABOVE) {
        fill(0, count);
    } else {
        runBeside([&] { fill(0, count / 2); }, [&] { fill(count / 2, count); });
    }
    return b;
}

namespace {

struct Fit
{
    uint64_t violations = 0;
    double slack = INFINITY;
    double spread = 0.0;
};

struct Search
{
    const std::vector<double> &samples;
    double start;
    double interval;
    const Limit &upper;
    const Limit &lower;
    bool shortcuts; // false: every shift worked out in full, in order, on one thread
    SampleBlocks blocks;
    long reach; // envelope blocks precomputed on each side beyond the capture's
    // Per envelope block j (index j + reach): limit extremes over positions [jB, (j + 1)B].
    ScratchVector<double> upLow, upHigh, loLow, loHigh;

    double time(double position) const { return start + position * interval; }

    void prepareEnvelopeBlocks()
    {
        const long count = long(blocks.high.size()) + 2 * reach;
        upLow.resize(count);
        upHigh.resize(count);
        loLow.resize(count);
        loHigh.resize(count);
        const double size = static_cast<double>(blocks.size);
        // A block ends where the next starts: each border's position and limits are worked out once.
        const auto fill = [&](long from, long to) {
            double pu = 0.0, eu = 0.0, pl = 0.0, el = 0.0;
            for (long k = from; k <= to; ++k) {
                const double t = time(static_cast<double>(k - reach) * size);
                const double qu = upper.position(t), fu = upper.valueAt(qu), ql = lower.position(t), fl = lower.valueAt(ql);
                if (k > from) {
                    upper.range(pu, eu, qu, fu, upLow[k - 1], upHigh[k - 1]);
                    lower.range(pl, el, ql, fl, loLow[k - 1], loHigh[k - 1]);
                }
                pu = qu, eu = fu, pl = ql, el = fl;
            }
        };
        if (shortcuts && blocks.high.size() >= 4096)
            runBeside([&] { fill(0, count / 2); }, [&] { fill(count / 2, count); });
        else
            fill(0, count);
    }

    // At shifts of k ... k + N - 1 whole blocks: how many blocks surely hold a sample outside, and
    // an upper bound on the smallest slack. The shifts share one pass over the blocks, so that the
    // limit extremes each reads are still in cache for the next.
    template<size_t N>
    void coarseFits(long k, Fit *out) const
    {
        const size_t count = blocks.high.size();
        size_t c = 0;
        for (size_t g = 0; g < N; ++g)
            out[g] = Fit();
#ifdef __SSE2__
        // Two blocks at a time: minpd(x, m) is x < m ? x : m, std::min(m, x), and the smallest
        // slack is the same whichever lane finds it.
        __m128d least[N];
        uint64_t outside[N] = {};
        for (size_t g = 0; g < N; ++g)
            least[g] = _mm_set1_pd(INFINITY);
        for (; c + 2 <= count; c += 2) {
            const __m128d high = _mm_loadu_pd(&blocks.high[c]), negLow = _mm_loadu_pd(&blocks.negLow[c]);
            const size_t j = c + size_t(reach - k);
            for (size_t g = 0; g < N; ++g) {
                const __m128d above = _mm_sub_pd(_mm_loadu_pd(&upHigh[j - g]), high);
                const __m128d below = _mm_sub_pd(_mm_loadu_pd(&loHigh[j - g]), negLow);
                const __m128d slack = _mm_min_pd(below, above);
                const int negative = _mm_movemask_pd(_mm_cmplt_pd(slack, _mm_setzero_pd()));
                outside[g] += uint64_t((negative & 1) + (negative >> 1));
                least[g] = _mm_min_pd(slack, least[g]);
            }
        }
        for (size_t g = 0; g < N; ++g) {
            double lanes[2];
            _mm_storeu_pd(lanes, least[g]);
            out[g].violations = outside[g];
            out[g].slack = std::min(lanes[0], lanes[1]);
        }
#endif
        for (; c < count; ++c) {
            for (size_t g = 0; g < N; ++g) {
                const size_t j = c - (k + long(g)) + reach;
                const double slack = std::min(upHigh[j] - blocks.high[c], loHigh[j] - blocks.negLow[c]);
                out[g].violations += slack < 0.0;
                out[g].slack = std::min(out[g].slack, slack);
            }
        }
    }

    // The fit at one shift over the given samples: violations, the smallest slack and, for
    // centring, the squared distance to the envelope's middle.
    // Counting stops once more than stopAbove samples are outside: such a shift cannot win.
    Fit fitAt(const std::vector<std::pair<uint64_t, uint64_t>> &ranges, double shift, uint64_t stopAbove = UINT64_MAX) const
    {
        return upper.sharesGrid(lower) ? fitOn<true>(ranges, shift, stopAbove) : fitOn<false>(ranges, shift, stopAbove);
    }
    // The limits at every whole-sample offset d = i - shift that the given ranges meet at shifts
    // a ... b: at a whole shift a sample's time depends on d alone, so many shifts share each
    // value. start[r] is where range r's first offset (its first sample at shift b) lies.
    struct LimitTable
    {
        ScratchVector<double> up, low; // the lower limit negated, as Limit reads it
        std::vector<uint64_t> start;
    };
    LimitTable limitsAt(const std::vector<std::pair<uint64_t, uint64_t>> &ranges, long a, long b) const
    {
        LimitTable table;
        std::vector<std::pair<long, long>> spans;
        uint64_t size = 0, base = 0; // base: where the last span starts in the table
        for (const auto &[first, last] : ranges) {
            const long from = long(first) - b, to = long(last) - 1 - a;
            if (spans.empty() || from > spans.back().second + 1) {
                spans.emplace_back(from, from - 1);
                base = size;
            }
            table.start.push_back(base + uint64_t(from - spans.back().first));
            size += uint64_t(to - spans.back().second);
            spans.back().second = to;
        }
        table.up.resize(size);
        table.low.resize(size);
        const bool shared = upper.sharesGrid(lower);
        // Entries first ... last - 1 of the table.
        const auto fill = [&](uint64_t first, uint64_t last) {
            uint64_t k = 0;
            for (const auto &[from, to] : spans) {
                const uint64_t length = uint64_t(to - from + 1);
                for (uint64_t e = std::max(k, first); e < std::min(k + length, last); ++e) {
                    const double t = time(static_cast<double>(from + long(e - k)));
                    if (shared) {
                        upper.bothAt(lower, t, table.up[e], table.low[e]);
                    } else {
                        table.up[e] = upper.at(t);
                        table.low[e] = lower.at(t);
                    }
                }
                k += length;
            }
        };
        if (size >= SPLIT_ABOVE / 4)
            runBeside([&] { fill(0, size / 2); }, [&] { fill(size / 2, size); });
        else
            fill(0, size);
        return table;
    }

    // fitAt() for N whole shifts within a ... b, read from their table, in one pass: each keeps
    // its own sums in sample order, so its fit is the one fitAt() gives, while the sums of the
    // others fill the time each addition waits for the one before. A shift stops counting once
    // more than stopAbove samples are outside, the pass once all have.
    template<size_t N>
    void groupFrom(const std::vector<std::pair<uint64_t, uint64_t>> &ranges, const LimitTable &table, long b,
                   const long *shifts, uint64_t stopAbove, Fit *out) const
    {
        uint64_t violations[N] = {};
        double slack[N], spread[N] = {};
        for (size_t g = 0; g < N; ++g)
            slack[g] = INFINITY;
#ifdef __SSE2__
        // Pairs of shifts in the two lanes, each lane the scalar rule below: minpd(x, y) is
        // x < y ? x : y, and a sample without both limits adds +0.0 to the spread, which leaves it.
        constexpr size_t PAIRS = N % 2 == 0 ? N / 2 : 0;
        __m128d slacks[PAIRS + 1], spreads[PAIRS + 1];
        for (size_t p = 0; p < PAIRS; ++p) {
            slacks[p] = _mm_set1_pd(INFINITY);
            spreads[p] = _mm_setzero_pd();
        }
#endif
        for (size_t r = 0; r < ranges.size(); ++r) {
            const auto [first, last] = ranges[r];
            // Sample i at shift s reads entry i - first + b - s + start[r].
            const double *up[N], *low[N];
            for (size_t g = 0; g < N; ++g) {
                const uint64_t offset = table.start[r] + uint64_t(b - shifts[g]);
                up[g] = table.up.data() + offset;
                low[g] = table.low.data() + offset;
            }
            for (uint64_t from = first; from < last; from += STOP_CHECK) {
                bool going = false;
                for (size_t g = 0; g < N; ++g)
                    going = going || violations[g] <= stopAbove;
                if (!going)
                    break;
                for (uint64_t i = from, to = std::min(last, from + STOP_CHECK); i < to; ++i) {
                    const double v = samples[i];
                    if (std::isnan(v))
                        continue;
                    const uint64_t k = i - first;
#ifdef __SSE2__
                    if (PAIRS > 0) {
                        const __m128d x = _mm_set1_pd(v), half = _mm_set1_pd(0.5), inf = _mm_set1_pd(INFINITY);
                        for (size_t p = 0; p < PAIRS; ++p) {
                            const __m128d u = _mm_loadh_pd(_mm_load_sd(up[2 * p] + k), up[2 * p + 1] + k);
                            const __m128d l = _mm_loadh_pd(_mm_load_sd(low[2 * p] + k), low[2 * p + 1] + k);
                            const __m128d room = _mm_min_pd(_mm_add_pd(l, x), _mm_sub_pd(u, x));
                            const int negative = _mm_movemask_pd(_mm_cmplt_pd(room, _mm_setzero_pd()));
                            violations[2 * p] += uint64_t(negative & 1);
                            violations[2 * p + 1] += uint64_t(negative >> 1);
                            slacks[p] = _mm_min_pd(room, slacks[p]);
                            const __m128d off = _mm_sub_pd(x, _mm_mul_pd(_mm_sub_pd(u, l), half));
                            const __m128d both = _mm_and_pd(_mm_cmplt_pd(u, inf), _mm_cmplt_pd(l, inf));
                            spreads[p] = _mm_add_pd(spreads[p], _mm_and_pd(both, _mm_mul_pd(off, off)));
                        }
                        continue;
                    }
#endif
                    for (size_t g = 0; g < N; ++g) {
                        const double u = up[g][k], l = low[g][k];
                        const double s = std::min(u - v, l + v);
                        violations[g] += s < 0.0;
                        slack[g] = std::min(slack[g], s);
                        if (u < INFINITY && l < INFINITY) {
                            const double off = v - (u - l) / 2;
                            spread[g] += off * off;
                        }
                    }
                }
            }
        }
#ifdef __SSE2__
        for (size_t p = 0; p < PAIRS; ++p) {
            _mm_storeu_pd(slack + 2 * p, slacks[p]);
            _mm_storeu_pd(spread + 2 * p, spreads[p]);
        }
#endif
        for (size_t g = 0; g < N; ++g)
            out[g] = {violations[g], slack[g], spread[g]};
    }

    template<bool Shared>
    Fit fitOn(const std::vector<std::pair<uint64_t, uint64_t>> &ranges, double shift, uint64_t stopAbove) const
    {
        Fit fit;
        for (const auto &[first, last] : ranges) {
            for (uint64_t from = first; from < last; from += STOP_CHECK) {
                if (fit.violations > stopAbove)
                    return fit;
                for (uint64_t i = from, to = std::min(last, from + STOP_CHECK); i < to; ++i) {
                    const double v = samples[i];
                    if (std::isnan(v))
                        continue;
                    const double t = time(static_cast<double>(i) - shift);
                    double u, l; // l is the lower limit negated
                    if (Shared) {
                        upper.bothAt(lower, t, u, l);
                    } else {
                        u = upper.at(t);
                        l = lower.at(t);
                    }
                    const double slack = std::min(u - v, l + v);
                    fit.violations += slack < 0.0;
                    fit.slack = std::min(fit.slack, slack);
                    if (u < INFINITY && l < INFINITY) {
                        const double off = v - (u - l) / 2;
                        fit.spread += off * off;
                    }
                }
            }
        }
        return fit;
    }

    // The best shift in [a, b] samples, exactly: fewest samples outside, then, where none is, the
    // one nearest the envelope's middle, else the largest smallest slack. Blocks that can hold
    // neither a violation nor the smallest slack at the best shift are left out. Where too many
    // remain (a fit as good everywhere, as on plain noise, or a capture outside everywhere), the
    // shifts are tried at a stride, or the coarse shift stands.
    // With shortcuts, a shift stops counting once it has more samples outside than ceiling (or
    // than a shift already worked out): a window whose best does so cannot win over the window
    // that set the ceiling, and within a window such a shift is never the best. Where the shifts
    // tried depend on which one is best (around the strided ones), that must be certain first.
    Fit refine(long a, long b, double fallback, const Fit &coarse, double &shift, uint64_t ceiling = UINT64_MAX) const
    {
        const long size = long(blocks.size);
        const auto floorDiv = [](long x, long d) { return x >= 0 ? x / d : -((-x + d - 1) / d); };
        // Sample positions of block c land in envelope blocks c + ja ... c + jb, half a sample
        // either side included.
        const long ja = floorDiv(-b, size) - 1, jb = floorDiv(size - 1 - a, size) + 1;
        const size_t count = blocks.high.size();
        ScratchVector<double> bound(count);
        // Block c's lowest slack at any shift of the window, kept, and an upper bound on its highest, returned.
        const auto boundAt = [&](size_t c) {
            double ul = INFINITY, uh = -INFINITY, ll = INFINITY, lh = -INFINITY;
            for (long j = long(c) + ja + reach; j <= long(c) + jb + reach; ++j) {
                const size_t k = size_t(std::clamp(j, 0L, long(upLow.size()) - 1));
                ul = std::min(ul, upLow[k]);
                uh = std::max(uh, upHigh[k]);
                ll = std::min(ll, loLow[k]);
                lh = std::max(lh, loHigh[k]);
            }
            bound[c] = std::min(ul - blocks.high[c], ll - blocks.negLow[c]);
            return std::min(uh - blocks.high[c], lh - blocks.negLow[c]);
        };
        const auto bounds = [&](size_t from, size_t to) {
            double best = INFINITY;
            size_t c = from;
#ifdef __SSE2__
            // Two blocks at a time where no index needs clamping, each lane the scalar rule below
            // (minpd(x, m) is x < m ? x : m, maxpd(x, m) is x > m ? x : m).
            __m128d least = _mm_set1_pd(INFINITY);
            const long last = long(upLow.size()) - 1;
            while (c < to && long(c) + ja + reach < 0)
                ++c;
            const size_t scalarFrom = c;
            for (c = from; c < scalarFrom; ++c)
                best = std::min(best, boundAt(c));
            for (; c + 2 <= to && long(c) + 1 + jb + reach <= last; c += 2) {
                __m128d ul = _mm_set1_pd(INFINITY), uh = _mm_set1_pd(-INFINITY), ll = ul, lh = uh;
                for (long j = long(c) + ja + reach; j <= long(c) + jb + reach; ++j) {
                    ul = _mm_min_pd(_mm_loadu_pd(&upLow[size_t(j)]), ul);
                    uh = _mm_max_pd(_mm_loadu_pd(&upHigh[size_t(j)]), uh);
                    ll = _mm_min_pd(_mm_loadu_pd(&loLow[size_t(j)]), ll);
                    lh = _mm_max_pd(_mm_loadu_pd(&loHigh[size_t(j)]), lh);
                }
                const __m128d high = _mm_loadu_pd(&blocks.high[c]), negLow = _mm_loadu_pd(&blocks.negLow[c]);
                _mm_storeu_pd(&bound[c], _mm_min_pd(_mm_sub_pd(ll, negLow), _mm_sub_pd(ul, high)));
                least = _mm_min_pd(_mm_min_pd(_mm_sub_pd(lh, negLow), _mm_sub_pd(uh, high)), least);
            }
            double lanes[2];
            _mm_storeu_pd(lanes, least);
            best = std::min({best, lanes[0], lanes[1]});
#endif
            for (; c < to; ++c)
                best = std::min(best, boundAt(c));
            return best;
        };
        double best = INFINITY; // an upper bound on the largest smallest slack
        if (shortcuts && count >= 4096) {
            double second = INFINITY;
            runBeside([&] { best = bounds(0, count / 2); }, [&] { second = bounds(count / 2, count); });
            best = std::min(best, second);
        } else {
            best = bounds(0, count);
        }
        shift = fallback;
        if (!std::isfinite(best) || b - a >= MAX_WINDOW)
            return coarse;
        std::vector<std::pair<uint64_t, uint64_t>> active;
        uint64_t activeSamples = 0;
        const double threshold = std::max(best, 0.0) + 1e-9 * (std::fabs(best) + 1.0);
        for (size_t c = 0; c < count; ++c) {
            if (!(bound[c] > threshold)) {
                const uint64_t first = c * blocks.size, last = std::min<uint64_t>(samples.size(), first + blocks.size);
                activeSamples += last - first;
                if (!active.empty() && active.back().second == first)
                    active.back().second = last;
                else
                    active.emplace_back(first, last);
            }
        }
        if (activeSamples * 4 > BUDGET)
            return coarse;
        const long stride = long(std::max<uint64_t>(1, activeSamples * uint64_t(b - a + 1) / BUDGET + 1));
        std::vector<Fit> fits(size_t(b - a + 1));
        std::vector<bool> tried(fits.size(), false);
        const auto better = [](const Fit &x, const Fit &y) {
            if (x.violations != y.violations)
                return x.violations < y.violations;
            return x.violations == 0 ? x.spread < y.spread : x.slack > y.slack;
        };
        size_t top = 0;
        // The shifts not tried yet are worked out, on both cores where there are many, then the
        // best is taken in the order given: the first of equally good shifts stays the best.
        const LimitTable table = shortcuts ? limitsAt(active, a, b) : LimitTable();
        const auto tryShifts = [&](const std::vector<long> &shifts, uint64_t limit) {
            std::vector<long> fresh;
            for (long s : shifts) {
                if (!tried[size_t(s - a)])
                    fresh.push_back(s);
            }
            const uint64_t known = tried[top] ? fits[top].violations : UINT64_MAX;
            const auto work = [&](size_t from, size_t step) {
                uint64_t stop = shortcuts ? std::min(limit, known) : UINT64_MAX;
                if (!shortcuts) {
                    for (size_t n = from; n < fresh.size(); n += step)
                        fits[size_t(fresh[n] - a)] = fitAt(active, static_cast<double>(fresh[n]), stop);
                    return;
                }
                // A few shifts at a time over the same samples.
                for (size_t n = from; n < fresh.size(); n += step * GROUP) {
                    long group[GROUP + 1];
                    Fit found[GROUP];
                    size_t count = 0;
                    for (size_t m = n; m < fresh.size() && count < GROUP; m += step)
                        group[count++] = fresh[m];
                    // Shifts go in pairs: an odd one out is paired with itself.
                    group[count] = group[count - 1];
                    switch (count + count % 2) {
                    case 2: groupFrom<2>(active, table, b, group, stop, found); break;
                    case 4: groupFrom<4>(active, table, b, group, stop, found); break;
                    case 6: groupFrom<6>(active, table, b, group, stop, found); break;
                    default: groupFrom<GROUP>(active, table, b, group, stop, found); break;
                    }
                    for (size_t g = 0; g < count; ++g) {
                        fits[size_t(fresh[n + g * step] - a)] = found[g];
                        stop = std::min(stop, found[g].violations);
                    }
                }
            };
            if (shortcuts && fresh.size() >= 8 && activeSamples * fresh.size() >= SPLIT_ABOVE)
                runBeside([&] { work(0, 2); }, [&] { work(1, 2); });
            else
                work(0, 1);
            for (long s : fresh)
                tried[size_t(s - a)] = true;
            for (long s : shifts) {
                const size_t k = size_t(s - a);
                if (!tried[top] || better(fits[k], fits[top]))
                    top = k;
            }
        };
        std::vector<long> strided;
        for (long s = a; s <= b; s += stride)
            strided.push_back(s);
        tryShifts(strided, ceiling);
        if (stride > 1) {
            if (fits[top].violations > ceiling) {
                // The shifts around the best strided one are tried next, so that one must be
                // known exactly.
                std::fill(tried.begin(), tried.end(), false);
                top = 0;
                tryShifts(strided, UINT64_MAX);
            }
            // Around the best of the strided shifts, every shift in reach of the budget.
            const long around = std::min<long>(stride - 1, long(BUDGET / activeSamples / 2));
            std::vector<long> near;
            for (long s = std::max(a, a + long(top) - around); s <= std::min(b, a + long(top) + around); ++s)
                near.push_back(s);
            tryShifts(near, ceiling);
        }
        Fit result = fits[top];
        shift = static_cast<double>(a + long(top));
        if (stride > 1 || result.violations > ceiling)
            return result;
        if (result.violations == 0) {
            // The spread is smooth in the shift: the vertex of a parabola through it and its neighbours.
            if (top > 0 && top + 1 < fits.size() && fits[top - 1].violations == 0 && fits[top + 1].violations == 0) {
                const double l = fits[top - 1].spread, m = fits[top].spread, r = fits[top + 1].spread;
                const double curve = l - 2 * m + r;
                if (curve > 0.0) {
                    // A vertex within a thousandth of a sample is the sample itself, not noise to report.
                    double offset = std::clamp((l - r) / (2 * curve), -0.5, 0.5);
                    offset = std::fabs(offset) < 1e-3 ? 0.0 : offset;
                    const Fit between = fitAt(active, shift + offset);
                    if (between.violations == 0) {
                        shift += offset;
                        result = between;
                    }
                }
            }
            return result;
        }
        // Outside at every shift: a stretch of equally good shifts gives its middle, a single one is
        // looked at between the neighbouring samples too.
        size_t first = top, last = top;
        const auto same = [&](size_t k) { return fits[k].violations == result.violations && fits[k].slack == result.slack; };
        while (first > 0 && same(first - 1))
            --first;
        while (last + 1 < fits.size() && same(last + 1))
            ++last;
        shift = static_cast<double>(a) + (static_cast<double>(first) + static_cast<double>(last)) / 2;
        if (first != last)
            return result;
        for (double f : {-0.5, -0.25, 0.25, 0.5}) {
            const double s = static_cast<double>(a + long(top)) + f;
            if (s < static_cast<double>(a) || s > static_cast<double>(b))
                continue;
            const Fit there = fitAt(active, s);
            if (better(there, result)) {
                result = there;
                shift = s;
            }
        }
        return result;
    }
};

// Widens [first, last] to the span where the curve sets a limit, as a Limit over it would read it;
// false where it sets none.
bool definedSpan(const WaveformData &curve, double &first, double &last)
{
    const std::vector<double> &y = *curve.samples;
    if (!(curve.sampleInterval > 0.0) || !std::isfinite(curve.sampleInterval) || !std::isfinite(curve.startTime) || y.size() < 2)
        return false;
    size_t a = 0;
    while (a + 1 < y.size() && (std::isnan(y[a]) || std::isnan(y[a + 1])))
        ++a;
    if (a + 1 == y.size())
        return false;
    size_t b = y.size() - 1;
    while (std::isnan(y[b]) || std::isnan(y[b - 1]))
        --b;
    first = std::min(first, curve.startTime + static_cast<double>(a) * curve.sampleInterval);
    last = std::max(last, curve.startTime + static_cast<double>(b) * curve.sampleInterval);
    return true;
}

// The envelope with no limits outside [first, last]: a segment that reaches past either loses
// its limit.
EnvelopeData clippedEnvelope(const EnvelopeData &envelope, double first, double last)
{
    EnvelopeData clipped = envelope;
    for (WaveformData *curve : {&clipped.upper, &clipped.lower}) {
        if (!(curve->sampleInterval > 0.0) || !std::isfinite(curve->sampleInterval))
            continue;
        std::vector<double> &y = curve->samples.writable();
        for (size_t i = 0; i < y.size(); ++i) {
            const double t = curve->startTime + static_cast<double>(i) * curve->sampleInterval;
            if (!(t >= first && t <= last))
                y[i] = std::numeric_limits<double>::quiet_NaN();
        }
    }
    return clipped;
}

double bestShift(const std::vector<double> &samples, double startTime, double dt, const Limit &upper,
                 const Limit &lower, long reachSamples, long lowest, long highest, bool shortcuts,
                 SampleBlocks *blocks);

// blocks, when given, receives the sample blocks the search read, for the check at the shift.
double searchShift(const WaveformData &waveform, const EnvelopeData &envelope, double maxShift, bool shortcuts,
                   SampleBlocks *blocks = nullptr);

} // namespace

WaveformData shiftedWaveform(const WaveformData &waveform, double shift)
{
    WaveformData moved = waveform;
    moved.startTime -= shift;
    return moved;
}

double searchShift(const WaveformData &waveform, const EnvelopeData &envelope, double maxShift)
{
    return searchShift(waveform, envelope, maxShift, true);
}

double searchShiftTryingEveryShift(const WaveformData &waveform, const EnvelopeData &envelope, double maxShift)
{
    return searchShift(waveform, envelope, maxShift, false);
}

namespace {

double searchShift(const WaveformData &waveform, const EnvelopeData &envelope, double maxShift, bool shortcuts,
                   SampleBlocks *blocks)
{
    const std::vector<double> &samples = *waveform.samples;
    const double dt = waveform.sampleInterval;
    double spanFirst = INFINITY, spanLast = -INFINITY;
    const bool limited = definedSpan(envelope.upper, spanFirst, spanLast) | definedSpan(envelope.lower, spanFirst, spanLast);
    if (!(dt > 0.0) || !std::isfinite(dt) || !std::isfinite(waveform.startTime) || samples.empty() || !limited
        || !(maxShift >= 0.0))
        return 0.0;
    // Beyond the capture's length and the envelope's span no sample meets a limit any more.
    const double useful = static_cast<double>(samples.size()) + (spanLast - spanFirst) / dt + 1.0;
    const long reachSamples = static_cast<long>(std::min({std::floor(maxShift / dt + 1e-9), useful, 1e12}));
    const long lowest = -reachSamples, highest = reachSamples;
    // Every shift is compared on the part of the envelope that all of them keep under the
    // capture, so that none wins by moving a fault past the capture's ends; where no such part
    // is left, on the whole envelope.
    const double reach = static_cast<double>(reachSamples) * dt;
    const double end = waveform.startTime + static_cast<double>(samples.size() - 1) * dt;
    const EnvelopeData common = clippedEnvelope(envelope, waveform.startTime + reach, end - reach);
    double commonFirst = INFINITY, commonLast = -INFINITY;
    const bool clipped = definedSpan(common.upper, commonFirst, commonLast) | definedSpan(common.lower, commonFirst, commonLast);
    // Only the curves searched get their range tables: on a long envelope building them is most of the set-up.
    const EnvelopeData &searched = clipped ? common : envelope;
    const Limit upper(searched.upper, false), lower(searched.lower, true);
    return bestShift(samples, waveform.startTime, dt, upper, lower, reachSamples, lowest, highest, shortcuts, blocks);
}

double bestShift(const std::vector<double> &samples, double startTime, double dt, const Limit &upper,
                 const Limit &lower, long reachSamples, long lowest, long highest, bool shortcuts,
                 SampleBlocks *blocks)
{
    const uint64_t size = std::max<uint64_t>(1, uint64_t(reachSamples) / COARSE_STEPS);
    Search search{samples, startTime, dt, upper, lower, shortcuts, blockExtremes(samples, size), 0, {}, {}, {}, {}};
    search.reach = reachSamples / long(size) + 3;
    search.prepareEnvelopeBlocks();

    // Coarse: whole blocks, scored by what their extremes allow; the best few are refined.
    const long ssize = long(size);
    const auto floorDiv = [](long x, long d) { return x >= 0 ? x / d : -((-x + d - 1) / d); };
    std::vector<std::pair<Fit, long>> coarse;
    for (long k = floorDiv(lowest, ssize); k <= -floorDiv(-highest, ssize); ++k)
        coarse.emplace_back(Fit(), k);
    // Neighbouring shifts a group at a time: coarse holds them in order.
    const auto score = [&](size_t from, size_t to) {
        size_t n = from;
        for (Fit fits[COARSE_GROUP]; n + COARSE_GROUP <= to; n += COARSE_GROUP) {
            search.coarseFits<COARSE_GROUP>(coarse[n].second, fits);
            for (size_t g = 0; g < COARSE_GROUP; ++g)
                coarse[n + g].first = fits[g];
        }
        for (; n < to; ++n)
            search.coarseFits<1>(coarse[n].second, &coarse[n].first);
    };
    if (shortcuts && coarse.size() >= 2 && samples.size() >= SPLIT_ABOVE)
        runBeside([&] { score(0, coarse.size() / 2); }, [&] { score(coarse.size() / 2, coarse.size()); });
    else
        score(0, coarse.size());
    std::sort(coarse.begin(), coarse.end(), [](const auto &x, const auto &y) {
        if (x.first.violations != y.first.violations)
            return x.first.violations < y.first.violations;
        return x.first.slack > y.first.slack || (x.first.slack == y.first.slack && std::abs(x.second) < std::abs(y.second));
    });
    std::vector<std::pair<Fit, long>> chosen;
    for (const auto &[fit, k] : coarse) {
        if (int(chosen.size()) == CANDIDATES)
            break;
        if (std::none_of(chosen.begin(), chosen.end(), [k = k](const auto &c) { return std::abs(c.second - k) < 2; }))
            chosen.emplace_back(fit, k);
    }
    // Windows compare by their violations, then by their smallest slack.
    Fit bestFit;
    bestFit.violations = UINT64_MAX;
    double best = 0.0;
    for (const auto &[fit, k] : chosen) {
        const long a = std::max(lowest, (k - 1) * ssize), b = std::min(highest, (k + 1) * ssize);
        if (a > b)
            continue;
        double shift = 0.0;
        const double fallback = static_cast<double>(std::clamp(k * ssize, a, b));
        const Fit found = search.refine(a, b, fallback, fit, shift, shortcuts ? bestFit.violations : UINT64_MAX);
        if (found.violations < bestFit.violations
            || (found.violations == bestFit.violations && found.slack > bestFit.slack)) {
            bestFit = found;
            best = shift;
        }
    }
    if (blocks)
        *blocks = std::move(search.blocks);
    return best * dt;
}

} // namespace

double firstCrossing(const WaveformData &waveform, double level, TriggerEdge edge)
{
    const std::vector<double> &s = *waveform.samples;
    const bool rising = edge == TriggerEdge::Rising;
    for (size_t i = 1; i < s.size(); ++i) {
        const double a = s[i - 1], b = s[i];
        if (rising ? (a < level && b >= level) : (a > level && b <= level))
            return waveform.startTime + (static_cast<double>(i - 1) + (level - a) / (b - a)) * waveform.sampleInterval;
    }
    return std::numeric_limits<double>::quiet_NaN();
}

WaveformData envelopeMiddle(const EnvelopeData &envelope)
{
    // On the finer of the two grids, so that where both share one the middle is exact.
    const bool upperFiner = envelope.upper.sampleInterval <= envelope.lower.sampleInterval;
    const WaveformData &grid = upperFiner ? envelope.upper : envelope.lower;
    const Limit upper(envelope.upper, false), lower(envelope.lower, false);
    WaveformData middle = grid;
    std::vector<double> &m = middle.samples.writable();
    for (size_t i = 0; i < m.size(); ++i) {
        const double t = grid.startTime + static_cast<double>(i) * grid.sampleInterval;
        const double u = upperFiner ? (*envelope.upper.samples)[i] : upper.at(t);
        const double l = upperFiner ? lower.at(t) : (*envelope.lower.samples)[i];
        m[i] = std::isfinite(u) && std::isfinite(l) ? (u + l) / 2 : std::numeric_limits<double>::quiet_NaN();
    }
    return middle;
}

// The golden crossing: where the envelope's sources crossed, or, for an envelope without them,
// its middle curve. Where that leaves samples outside, the best fit within a few samples, which
// the coarse grid of a long capture's reference and the sources' jitter leave open, if it fits
// better.
static double triggerShift(const WaveformData &waveform, const EnvelopeData &envelope, const AlignmentOptions &options,
                           QString &failure)
{
    const QString edge = options.edge == TriggerEdge::Rising ? QStringLiteral("rising") : QStringLiteral("falling");
    const QString level = ValueFormatter::formatWithUnit(options.level, waveform.unit);
    const double own = firstCrossing(waveform, options.level, options.edge);
    const bool sources = envelope.reference.samples->size() >= 2;
    double golden = sources ? firstCrossing(envelope.reference, options.level, options.edge) : NAN;
    const WaveformData &grid = sources ? envelope.reference : envelope.upper;
    if (std::isnan(golden))
        golden = firstCrossing(envelopeMiddle(envelope), options.level, options.edge);
    if (std::isnan(own))
        failure = QStringLiteral("no %1 crossing of %2").arg(edge, level);
    else if (std::isnan(golden))
        failure = QStringLiteral("the envelope's middle has no %1 crossing of %2").arg(edge, level);
    if (!failure.isEmpty())
        return 0.0;
    const double shift = own - golden;
    const EnvelopeCheckResult there = checkEnvelope(shiftedWaveform(waveform, shift), envelope);
    if (there.violations() == 0)
        return shift;
    const double step = grid.sampleInterval > 0.0 && std::isfinite(grid.sampleInterval) ? grid.sampleInterval : 0.0;
    const double window = 4 * waveform.sampleInterval + step;
    const double refined = shift + searchShift(shiftedWaveform(waveform, shift), envelope, window);
    return checkEnvelope(shiftedWaveform(waveform, refined), envelope).violations() < there.violations() ? refined : shift;
}

EnvelopeCheckResult checkAligned(const WaveformData &waveform, const EnvelopeData &envelope,
                                 const AlignmentOptions &options, ViolationMask *violations)
{
    double shift = 0.0;
    SampleBlocks blocks;
    if (options.trigger) {
        EnvelopeCheckResult failed;
        shift = triggerShift(waveform, envelope, options, failed.failure);
        if (!failed.failure.isEmpty()) {
            if (violations)
                violations->reset(waveform.samples->size());
            return failed;
        }
    } else if (options.maxShift > 0.0) {
        shift = searchShift(waveform, envelope, options.maxShift, true, &blocks);
    }
    return checkShifted(waveform, envelope, shift, violations, &blocks);
}

std::vector<ViolationRun> violationRuns(const WaveformData &waveform, const EnvelopeData &envelope,
                                        const ViolationMask &violations)
{
    std::vector<ViolationRun> runs;
    const std::vector<double> &s = *waveform.samples;
    if (violations.sampleCount() != s.size())
        return runs;
    const Limit upper(envelope.upper, false), lower(envelope.lower, true);
    for (uint64_t i = violations.findNext(0, s.size()); i < s.size(); i = violations.findNext(i, s.size())) {
        ViolationRun run;
        run.first = i;
        run.start = waveform.startTime + static_cast<double>(i) * waveform.sampleInterval;
        for (; i < s.size() && violations.test(i); ++i) {
            const double t = waveform.startTime + static_cast<double>(i) * waveform.sampleInterval;
            run.worstExcess = std::max({run.worstExcess, s[i] - upper.at(t), -lower.at(t) - s[i]});
        }
        run.count = i - run.first;
        run.length = static_cast<double>(run.count) * waveform.sampleInterval;
        runs.push_back(run);
    }
    return runs;
}
