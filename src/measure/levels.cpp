#include "measureinternal.h"

#include <algorithm>

namespace vornmeasure {

namespace {

// Half-width of the window in which a mode is looked for and its level taken, in bins: wide
// enough that noise on a flat level lands in one window, narrow beside the range.
constexpr int MODE_HALF_WIDTH = 16;

struct Mode
{
    bool clear = false;
    double level = 0.0;
};

// The densest window of bins [first, last) and the centroid of the samples in it; of equally
// dense windows the one nearest the outer end (towards the extreme) wins. A half whose densest
// window holds less than twice its share of an even spread has no clear mode.
Mode modeOf(const SampleScan &scan, int first, int last, bool upper)
{
    Mode mode;
    if (last <= first)
        return mode;
    const std::vector<uint64_t> &h = scan.histogram;
    std::vector<uint64_t> prefix(static_cast<size_t>(last - first) + 1, 0);
    for (int b = first; b < last; ++b)
        prefix[static_cast<size_t>(b - first) + 1] = prefix[static_cast<size_t>(b - first)] + h[static_cast<size_t>(b)];
    const uint64_t total = prefix.back();
    if (total == 0)
        return mode;
    uint64_t best = 0;
    int bestLo = first, bestHi = first;
    for (int k = first; k < last; ++k) {
        const int c = upper ? last - 1 - (k - first) : k;
        const int lo = std::max(first, c - MODE_HALF_WIDTH), hi = std::min(last, c + MODE_HALF_WIDTH + 1);
        const uint64_t inWindow = prefix[static_cast<size_t>(hi - first)] - prefix[static_cast<size_t>(lo - first)];
        if (inWindow > best) {
            best = inWindow;
            bestLo = lo;
            bestHi = hi;
        }
    }
    const double share = static_cast<double>(total) * (2 * MODE_HALF_WIDTH + 1) / (last - first);
    mode.clear = best >= 2.0 * std::min(share, static_cast<double>(total)) && best > 1;
    if (best == total)
        mode.clear = true; // everything in one window is as clear as a mode gets
    // A handful of samples makes no state, however they happen to bunch.
    if (best < 8 || best < total / 16)
        mode.clear = false;
    // Densest right against the middle is the flank of one level spread over both halves (noise
    // on a flat line), not a state of its own. A state may lie well inside its half: a step that
    // overshoots by 60 % settles a fifth of the half away from the middle.
    const bool atMiddle = upper ? bestLo == first : bestHi == last;
    if (atMiddle && best != total)
        mode.clear = false;
    const double width = (scan.histogramHigh - scan.histogramLow) / HISTOGRAM_BINS;
    double weighted = 0.0;
    for (int b = bestLo; b < bestHi; ++b)
        weighted += static_cast<double>(h[static_cast<size_t>(b)]) * (scan.histogramLow + (b + 0.5) * width);
    mode.level = weighted / static_cast<double>(best);
    return mode;
}

} // namespace

StateLevels stateLevels(const SampleScan &scan)
{
    StateLevels levels;
    if (scan.count == 0)
        return levels;
    if (!(scan.max > scan.min) || !(scan.histogramHigh > scan.histogramLow)) {
        levels.low = levels.high = scan.min;
        return levels;
    }
    const double width = (scan.histogramHigh - scan.histogramLow) / HISTOGRAM_BINS;
    const double middle = (scan.min + scan.max) / 2;
    const int split = std::clamp(static_cast<int>((middle - scan.histogramLow) / width), 1, HISTOGRAM_BINS - 1);
    const Mode low = modeOf(scan, 0, split, false);
    const Mode high = modeOf(scan, split, HISTOGRAM_BINS, true);
    levels.low = low.clear ? std::max(low.level, scan.min) : scan.min;
    levels.high = high.clear ? std::min(high.level, scan.max) : scan.max;
    QStringList notes;
    if (!low.clear)
        notes << QStringLiteral("no clear low level, the minimum is taken");
    if (!high.clear)
        notes << QStringLiteral("no clear high level, the maximum is taken");
    levels.note = notes.join(QStringLiteral("; "));
    levels.distinct = low.clear || high.clear;
    return levels;
}

} // namespace vornmeasure
