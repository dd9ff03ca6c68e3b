#ifndef VORNWAVEFORM_H
#define VORNWAVEFORM_H

#include <QString>
#include <QVector>

#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

// Owning handle to a waveform's sample array. Copies share one array, so the loader, the graph
// and the editor hold one long capture at the cost of one. Reading never copies; writable()
// first gives this handle its own array if another one shares it.
class SampleArray
{
public:
    SampleArray();

    const std::vector<double> &operator*() const { return *m_data; }
    const std::vector<double> *operator->() const { return m_data.get(); }
    std::vector<double> &writable();

    bool sharesStorageWith(const SampleArray &other) const { return m_data == other.m_data; }

private:
    std::shared_ptr<std::vector<double>> m_data;
};

struct WaveformData
{
    QString name;
    QString unit;
    SampleArray samples;
    double sampleInterval = 0.0; // seconds
    double startTime = 0.0;      // seconds, time of sample 0
};

// Upper and lower limit curves, read sample by sample in step; NaN in either is a gap.
struct EnvelopeData
{
    WaveformData upper;
    WaveformData lower;

    // An envelope needs both limits: without samples in either curve there is none.
    bool isEmpty() const;
};

struct EnvelopePoint
{
    double time = 0.0;
    double upperValue = 0.0;
    double lowerValue = 0.0;
    bool enabled = true;
};

struct EnvelopeEditData
{
    int waveformIndex = -1;
    double startTime = 0.0;
    double endTime = 0.0;
    double sampleInterval = 0.0;
    QVector<EnvelopePoint> points;

    void clear();
};

// Steps through 1, 2, 5, 10, 20, 50, ... Every result is the double nearest to its decimal value,
// so stepping up and back down returns exactly to where it started.
class Scale125
{
public:
    // The smallest series value above value; 0 for a value that is not positive.
    static double nextUp(double value);
    // The largest series value below value; 0 for a value that is not positive.
    static double nextDown(double value);
};

class ValueFormatter
{
public:
    // "2 ms", "500 mV", "1.5 kV", "-20 μA": an engineering prefix and as few digits as the value
    // needs (at most six significant), in a text that parseScaledValue() reads back exactly.
    static QString formatWithUnit(double value, const QString &unit);
};

// Reads "2 ms", "2ms", "5 k" or "0.25" with an optional SI prefix and the unit; NaN when the text
// is no number. "." is the decimal point whatever the locale.
double parseScaledValue(const QString &text, const QString &unit);

// The time of the sample nearest to t.
double snapToSampleGrid(double t, double sampleInterval, double startTime);

// count points evenly spaced from start to end. Each point's limits are the largest and smallest
// sample half-way to its neighbours, widened by 5 % of the y range; where no sample lies, the
// limits sit at 90 % and 10 % of the y range.
QVector<EnvelopePoint> generateEnvelopePoints(const WaveformData &waveform, double start, double end,
                                              int count, double yMin, double yMax);

// count points over the envelope's time span, interpolated between its samples; a point that
// touches a gap is disabled and holds NaN limits.
QVector<EnvelopePoint> sampleEnvelopeToPoints(const EnvelopeData &envelope, int count);

// Stores the envelope's curves as "<name> [upper]" and "<name> [lower]" in the capture at path,
// replacing curves of those names; an empty envelope removes them. False if the file was left
// unchanged because it could not be written.
bool saveEnvelope(const QString &path, const QString &waveformName, const EnvelopeData &envelope);
bool removeEnvelope(const QString &path, const QString &waveformName);
// Why the last saveEnvelope() or removeEnvelope() of this thread failed.
QString lastEnvelopeFileError();

// One bit per sample, set where the sample lies outside its envelope, with one summary bit per
// 64 bits so that searching a long clean stretch costs little.
class ViolationMask
{
public:
    void reset(uint64_t sampleCount);
    uint64_t sampleCount() const { return m_count; }
    bool test(uint64_t index) const { return index < m_count && (m_bits[index / 64] >> (index % 64)) & 1U; }
    void set(uint64_t index);
    bool isEmpty() const;
    // The first set bit in [first, last), or last when there is none.
    uint64_t findNext(uint64_t first, uint64_t last) const;
    // The last set bit below before, or sampleCount() when there is none.
    uint64_t findPrevious(uint64_t before) const;

private:
    uint64_t m_count = 0;
    std::vector<uint64_t> m_bits;
    std::vector<uint64_t> m_summary; // bit w: word w of m_bits is not zero
};

// How a waveform fares against its envelope. Times in seconds; NaN where there is nothing to say.
struct EnvelopeCheckResult
{
    struct Excess
    {
        double time = std::numeric_limits<double>::quiet_NaN();
        double excess = std::numeric_limits<double>::quiet_NaN(); // beyond the limit, positive
    };

    uint64_t checked = 0;    // samples with a limit and a value
    uint64_t nanSamples = 0; // NaN samples where there is a limit, not checked
    uint64_t above = 0;
    uint64_t below = 0;
    double firstViolation = std::numeric_limits<double>::quiet_NaN();
    Excess worstAbove;
    Excess worstBelow;
    // The sample closest to leaving the band, as a part of the band's height there: 0.5 in the
    // middle, 0 on a limit, negative outside. Only where both limits exist; NaN when none did.
    double minMargin = std::numeric_limits<double>::quiet_NaN();

    uint64_t violations() const { return above + below; }
    bool passed() const { return violations() == 0; }
};

// Resizes samples to count zeros when the system has the memory for them (false otherwise, or
// when the allocation fails), faulting a long array's pages in on two cores.
bool allocateSamples(std::vector<double> &samples, uint64_t count);

// Checks every sample against the limits at its time: each curve is interpolated linearly
// between its two samples around t, on its own time base. Outside a curve's span and next to a
// NaN curve sample that curve sets no limit. A sample on a limit passes. With violations given,
// it is reset to the waveform's length and marks every sample outside.
EnvelopeCheckResult checkEnvelope(const WaveformData &waveform, const EnvelopeData &envelope,
                                  ViolationMask *violations = nullptr);

// An envelope over the span of several captures of one waveform, all of the same length, sample
// interval and start: points limits, each the largest and smallest sample half-way to the
// neighbouring points over all captures, or with sigma > 0 the mean of the captures' extremes
// plus and minus sigma standard deviations. An empty envelope and the reason in error when the
// captures do not agree.
EnvelopeData envelopeFromCaptures(const QVector<WaveformData> &captures, int points, double sigma,
                                  QString *error);

// Widens both limits: the limit at t covers t - dx ... t + dx, then moves out by dy.
EnvelopeData widenEnvelope(const EnvelopeData &envelope, double dx, double dy);

#endif
