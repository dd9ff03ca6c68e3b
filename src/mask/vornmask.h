#ifndef VORNMASK_H
#define VORNMASK_H

/// \file
/// The mask test: envelopes built from good captures, and captures judged against them.

#include "vornwaveform.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

/// One bit per sample, set where the sample lies outside its envelope, with one summary bit per
/// 64 bits so that searching a long clean stretch costs little.
class ViolationMask
{
public:
    /// sampleCount samples, none marked.
    void reset(uint64_t sampleCount);
    /// Samples the mask covers.
    uint64_t sampleCount() const { return m_count; }
    /// Whether sample index is marked; false beyond sampleCount().
    bool test(uint64_t index) const { return index < m_count && (m_bits[index / 64] >> (index % 64)) & 1U; }
    /// Marks sample index; an index beyond sampleCount() is ignored.
    void set(uint64_t index);
    /// Whether no sample is marked.
    bool isEmpty() const;
    /// The first set bit in [first, last), or last when there is none.
    uint64_t findNext(uint64_t first, uint64_t last) const;
    /// The last set bit below before, or sampleCount() when there is none.
    uint64_t findPrevious(uint64_t before) const;

private:
    uint64_t m_count = 0;
    std::vector<uint64_t> m_bits;
    std::vector<uint64_t> m_summary; // bit w: word w of m_bits is not zero
};

/// How a waveform fares against its envelope. Times in seconds; NaN where there is nothing to say.
struct EnvelopeCheckResult
{
    /// The sample that went furthest beyond a limit.
    struct Excess
    {
        /// Its time in seconds.
        double time = std::numeric_limits<double>::quiet_NaN();
        /// How far beyond the limit, positive, in the waveform's unit.
        double excess = std::numeric_limits<double>::quiet_NaN(); // beyond the limit, positive
        /// The sample's own value in the waveform's unit.
        double value = std::numeric_limits<double>::quiet_NaN();  // the sample's own value
    };

    /// Samples with a limit and a value.
    uint64_t checked = 0;    // samples with a limit and a value
    /// NaN samples where there is a limit; not checked.
    uint64_t nanSamples = 0; // NaN samples where there is a limit, not checked
    /// Samples above the upper limit.
    uint64_t above = 0;
    /// Samples below the lower limit.
    uint64_t below = 0;
    /// Time in seconds of the first sample outside the envelope; NaN when none is.
    double firstViolation = std::numeric_limits<double>::quiet_NaN();
    /// The sample furthest above the upper limit.
    Excess worstAbove;
    /// The sample furthest below the lower limit.
    Excess worstBelow;
    /// The sample closest to leaving the band, as a part of the band's height there: 0.5 in the
    /// middle, 0 on a limit, negative outside. Only where both limits exist; NaN when none did.
    double minMargin = std::numeric_limits<double>::quiet_NaN();

    /// Seconds of the envelope's span with limits but no sample of the waveform under them (it
    /// starts late or ends early); NaN when the envelope has no usable time base.
    double uncovered = 0.0;

    /// Seconds the shift itself moved past the capture's end (shift > 0) or start (shift < 0):
    /// reported, not a failure, since a capture of the golden one's length cannot cover them.
    double uncoveredByShift = 0.0;
    /// Seconds inside the envelope's span where it sets no limit at all, and the first such spans:
    /// nothing is judged there.
    double gaps = 0.0;
    /// The first gaps as (start, end) in seconds.
    std::vector<std::pair<double, double>> gapSpans;
    /// Where the capture's sample interval differs from the one the envelope was made at by more
    /// than 1 %: both intervals; NaN otherwise.
    double captureInterval = std::numeric_limits<double>::quiet_NaN();
    /// The envelope's sample interval in seconds where it differs from the capture's; NaN
    /// otherwise.
    double envelopeInterval = std::numeric_limits<double>::quiet_NaN();

    /// Seconds the capture was moved back before judging: positive when its events come later
    /// than the envelope's. Times above are on the envelope's time base.
    double shift = 0.0;
    /// Why the capture could not be judged at all (no trigger crossing); empty when it was.
    QString failure;

    /// Samples outside the envelope.
    uint64_t violations() const { return above + below; }
    /// Whether the capture passes: no sample outside, nothing uncovered, and judged at all.
    /// A capture that leaves part of its envelope uncovered fails as much as one outside it.
    bool passed() const { return violations() == 0 && !(uncovered > 0.0) && failure.isEmpty(); }
    /// The larger of the worst excesses above and below.
    const Excess &worst() const
    {
        return std::isnan(worstAbove.excess) || worstBelow.excess > worstAbove.excess ? worstBelow : worstAbove;
    }
};

/// Checks every sample against the limits at its time: each curve is interpolated linearly
/// between its two samples around t, on its own time base. Outside a curve's span and next to a
/// NaN curve sample that curve sets no limit. A sample on a limit passes. With violations given,
/// it is reset to the waveform's length and marks every sample outside.
EnvelopeCheckResult checkEnvelope(const WaveformData &waveform, const EnvelopeData &envelope,
                                  ViolationMask *violations = nullptr);
/// checkEnvelope() of the waveform moved back by shift seconds. What the shift moves beyond the
/// capture's ends is reported as uncoveredByShift; only what the capture leaves uncovered at
/// either end without the shift, too, fails.
EnvelopeCheckResult checkShifted(const WaveformData &waveform, const EnvelopeData &envelope, double shift,
                                 ViolationMask *violations = nullptr);
/// What a verdict did not judge, for people: the part the shift left uncovered, the envelope's
/// gaps, a sample rate other than the envelope's. Empty when there is nothing to say.
QString checkNotes(const EnvelopeCheckResult &result, int maxSpans = 3);

/// Why limits cannot judge a waveform, or empty when they can: a time base that does not advance,
/// an infinite limit, a limit that sets no bound anywhere, a NaN on one side where the other has a
/// value, an upper limit below the lower one at any time, or a span shorter than one of the
/// waveform's sample intervals. Such limits would pass what they should fail, so they are refused
/// before any check.
QString envelopeDefect(const EnvelopeData &envelope, const WaveformData &waveform);

/// The direction of a trigger crossing.
enum class TriggerEdge { Rising, Falling };

/// How a capture is aligned to its envelope before it is judged: a search for the best shift
/// within +-maxShift, or its first crossing of a level put on the envelope's middle curve's.
struct AlignmentOptions
{
    /// The largest shift searched, in seconds; 0 searches none.
    double maxShift = 0.0; // seconds; 0: no search
    /// Align on the first crossing of level instead of searching.
    bool trigger = false;
    /// The trigger level in the waveform's unit.
    double level = 0.0;
    /// The trigger crossing's direction.
    TriggerEdge edge = TriggerEdge::Rising;
};

/// The waveform moved back by shift seconds: the same samples, an earlier start.
WaveformData shiftedWaveform(const WaveformData &waveform, double shift);

/// The shift within +-maxShift at which the capture leaves the most room to its limits: the
/// largest smallest distance of a sample inside its limits (or the least excess outside), among
/// the shifts that keep the envelope's span covered when there are such. Coarse over block
/// extremes, then to the sample and between samples near the best few coarse shifts. Where
/// several neighbouring shifts fit equally, their middle. Seconds, positive when the capture's
/// events come later than the envelope's.
double searchShift(const WaveformData &waveform, const EnvelopeData &envelope, double maxShift);

/// The time of the first crossing of level, interpolated between the samples around it; NaN when
/// there is none. A crossing goes from strictly one side to reaching the other.
double firstCrossing(const WaveformData &waveform, double level, TriggerEdge edge);

/// (upper + lower) / 2 on the finer of the two curves' grids; NaN where either has no limit.
WaveformData envelopeMiddle(const EnvelopeData &envelope);

/// checkEnvelope() after the alignment asked for; the result carries the shift. A trigger level
/// that the capture (or the envelope's middle) never crosses is a failure with its reason.
EnvelopeCheckResult checkAligned(const WaveformData &waveform, const EnvelopeData &envelope,
                                 const AlignmentOptions &options, ViolationMask *violations = nullptr);

/// A stretch of neighbouring samples outside their envelope.
struct ViolationRun
{
    /// The index of its first sample.
    uint64_t first = 0; // the index of its first sample
    /// Its samples.
    uint64_t count = 0;
    /// The time of its first sample in seconds.
    double start = 0.0;  // seconds, the time of its first sample
    /// Seconds from its first sample to just past its last.
    double length = 0.0; // seconds from its first to just past its last sample
    /// The furthest any of its samples lies beyond its limit, in the waveform's unit.
    double worstExcess = 0.0;
};

/// The runs of the samples marked in violations, in time order, each with its worst excess.
std::vector<ViolationRun> violationRuns(const WaveformData &waveform, const EnvelopeData &envelope,
                                        const ViolationMask &violations);

/// A margin (a part of the band's height) as people read it, the same in every line: "0.249 %".
QString marginText(double margin);

/// What a production line reads about one waveform over a batch of captures.
class BatchTally
{
public:
    /// A tally for the waveform named waveform, with nothing tested yet.
    explicit BatchTally(const QString &waveform = QString()) : m_waveform(waveform) {}
    /// Counts file's result; a capture that could not be judged counts as the worst margin.
    void add(const QString &file, const EnvelopeCheckResult &result);

    /// The waveform's name.
    QString name() const { return m_waveform; }
    /// Captures added.
    int tested() const { return m_tested; }
    /// Captures that passed.
    int passed() const { return m_passed; }
    /// Captures that failed.
    int failed() const { return m_tested - m_passed; }
    /// The smallest margin of any capture (a part of the band's height); NaN when none had one.
    double worstMargin() const { return m_worstMargin; }
    /// The file with the worst margin.
    QString worstFile() const { return m_worstFile; }
    /// "A1: 14 tested, 10 passed, 4 failed (28.6 %), worst margin -12.5 % in b.sr"
    QString line() const;

private:
    QString m_waveform;
    int m_tested = 0;
    int m_passed = 0;
    double m_worstMargin = std::numeric_limits<double>::quiet_NaN();
    QString m_worstFile;
};

/// How an envelope is made from good captures. NaN tolerances are chosen from the captures.
struct EnvelopeBuildOptions
{
    /// The time tolerance in seconds; NaN chooses it from the captures.
    double dx = std::numeric_limits<double>::quiet_NaN(); // seconds: the limit at t covers t - dx ... t + dx
    /// The value tolerance in the waveform's unit; NaN chooses it from the captures.
    double dy = std::numeric_limits<double>::quiet_NaN(); // the waveform's unit: both limits move out by dy
    /// Above zero: limits at the per-sample mean plus and minus sigma standard deviations of the
    /// captures instead of their extremes; such an envelope need not contain its captures.
    double sigma = 0.0;
    /// An upper bound on the knots; 0 lets the construction decide.
    int maxKnots = 0; // an upper bound on the knots; 0 lets the construction decide
    /// Start of the region in seconds; NaN: the captures' start.
    double start = std::numeric_limits<double>::quiet_NaN(); // the region; NaN: the captures' span
    /// End of the region in seconds; NaN: the captures' end.
    double end = std::numeric_limits<double>::quiet_NaN();
    /// The most intervals the stored curves may have.
    uint64_t maxIntervals = 65536; // of the stored curves, so that long captures give small envelopes
};

/// What a construction chose, for people to read.
struct EnvelopeBuildReport
{
    /// The time tolerance used, in seconds.
    double dx = 0.0;
    /// The value tolerance used, in the waveform's unit.
    double dy = 0.0;
    /// How far beyond the bound a limit may run, in the waveform's unit.
    double tolerance = 0.0; // how far above the bound a limit may run, so that knots stay few
    /// Knots of the limits.
    int knots = 0;
    /// Intervals of the stored curves.
    uint64_t intervals = 0;
    /// Captures the envelope was made from.
    int captures = 0;
};

/// The per-sample extremes of several captures of one waveform, gathered one capture at a time so
/// that only one capture and the hull need to be in memory. The first capture sets the time base;
/// the others must share it.
class SourceHull
{
public:
    /// With sigma > 0 it also gathers the per-sample mean and spread that build() then uses.
    explicit SourceHull(double sigma = 0.0);

    /// Folds capture in; false, with the reason in error, for fewer than two samples or another
    /// time base.
    bool add(const WaveformData &capture, QString *error = nullptr);
    /// Captures added.
    int captureCount() const { return m_captures; }

    /// Limits that contain every non-NaN sample of every capture added (unless sigma is set),
    /// widened by dx and dy, as a piecewise-linear bound whose knots sit where it bends,
    /// resampled onto a uniform grid that holds each knot. Empty, with the reason, on failure.
    EnvelopeData build(const EnvelopeBuildOptions &options, EnvelopeBuildReport *report = nullptr,
                       QString *error = nullptr) const;
    /// The tolerances build() takes when none are given: dy from the captures' noise (their spread
    /// at each sample, or one capture's second differences) and at least 1 % of the value span,
    /// dx from the spread of their edge times and at least two samples.
    double defaultDy() const;
    /// The time tolerance in seconds build() takes when none is given.
    double defaultDx() const;

private:
    void attachReference(EnvelopeData &envelope, double start, double interval, uint64_t cells) const;
    // Folds samples [first, last) of a capture into the hull, or into the sums with sigma.
    void fold(const std::vector<double> &x, uint64_t first, uint64_t last);

    double m_sigma;
    int m_captures = 0;
    WaveformData m_model; // name, unit and time base; no samples
    uint64_t m_count = 0;
    std::vector<double> m_high; // or the sum with sigma
    std::vector<double> m_low;  // or the sum of squares with sigma
    std::vector<double> m_sum;  // without sigma, for the sources' mean
    double m_span = 0.0;        // of the first capture's values
    double m_noise = 0.0;       // the noisiest capture's standard deviation, from second differences, where defaultDy() reads it
    double m_level = 0.0;       // the level and hysteresis at which edge times are taken
    double m_hysteresis = 0.0;
    std::vector<std::vector<double>> m_edges; // each capture's edge times
};

/// Knots of a piecewise-linear upper limit at least upperBound[j] and at most tolerance above it,
/// and of a lower limit at most lowerBound[j] and at least tolerance below it, at integer node
/// positions (time = start + node * interval); few knots where the bounds run straight, many where
/// they bend. Nodes where either bound is NaN are gaps: a disabled knot marks each gap's first
/// node.
QVector<EnvelopePoint> fitKnots(const std::vector<double> &upperBound, const std::vector<double> &lowerBound,
                                double tolerance, double start, double interval);

/// The curves of knots whose times lie on the grid start + k * interval, k = 0 ... nodes - 1:
/// each knot exactly on its node, straight in between; NaN from a disabled knot to the next one.
EnvelopeData resampleKnots(const QVector<EnvelopePoint> &knots, double start, double interval, uint64_t nodes);

/// The knots of stored curves: their first and last samples, the edges of gaps and every sample
/// where either limit bends. Resampling them gives the curves back.
QVector<EnvelopePoint> recoverKnots(const EnvelopeData &envelope);

/// The envelope with a second region added: the region's knots, put on the envelope's grid
/// (extended over both, and coarsened only where it would exceed maxIntervals), replace whatever
/// the envelope had over the region's span; a gap between the two stays a gap.
EnvelopeData addEnvelopeRegion(const EnvelopeData &envelope, const EnvelopeData &region,
                               uint64_t maxIntervals = 65536);

/// Widens both limits: the limit at t covers t - dx ... t + dx, then moves out by dy.
EnvelopeData widenEnvelope(const EnvelopeData &envelope, double dx, double dy);
/// The same, each limit then moved out further by fraction of its own size (0.05: 5 % of the
/// value).
EnvelopeData widenEnvelope(const EnvelopeData &envelope, double dx, double dy, double fraction);

#endif
