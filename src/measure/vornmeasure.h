#ifndef VORNMEASURE_H
#define VORNMEASURE_H

// Pulse measurements over a waveform and a time span, measurement limits and their statistics.

#include "vornwaveform.h"

#include <array>
#include <limits>
#include <vector>

enum class Measure {
    Low, High, Amplitude, Min, Max, PeakToPeak, Mean, Rms,
    RiseTime, FallTime, PulseWidth, Period, Frequency, DutyCycle, Overshoot, Undershoot, SettlingTime
};
constexpr int MEASURE_COUNT = 17;

// "rise_time", "duty_cycle", ...: the names of the command line, the JSON and the limits.
const char *measureKey(Measure measure);
bool measureFromKey(const QString &key, Measure &measure);
// "s", "Hz", "%" or the waveform's own unit.
QString measureUnit(Measure measure, const QString &waveformUnit);
// The value to four significant digits with its prefix and unit ("25 μs", "12.3 %").
QString formatMeasure(Measure measure, double value, const QString &waveformUnit);

// A measurement's value, or why it does not apply (then the value is NaN).
struct MeasureValue
{
    double value = std::numeric_limits<double>::quiet_NaN();
    QString reason;
    bool valid() const { return reason.isEmpty(); }
};

struct MeasureOptions
{
    // Reference levels as fractions of the amplitude above the low state.
    double lowRef = 0.1;
    double midRef = 0.5;
    double highRef = 0.9;
    // Settled means within this fraction of the amplitude around the final state.
    double settleBand = 0.02;
};

// The two state levels by the histogram method: the mode of each half of the range. A half with
// no clear mode falls back to the extreme, and note says so.
struct StateLevels
{
    double low = std::numeric_limits<double>::quiet_NaN();
    double high = std::numeric_limits<double>::quiet_NaN();
    QString note;
    bool distinct = true; // false when neither half has a clear mode: no two states to move between
};

// One transition found between the low and the high reference level. Times are interpolated
// linearly between samples; the indices bound the samples the transition was measured on.
struct Transition
{
    bool rising = true;
    double startTime = 0.0; // last crossing of the reference level it leaves (10 % when rising)
    double midTime = 0.0;   // last crossing of the middle reference level before the far one
    double endTime = 0.0;   // first crossing of the far reference level (90 % when rising)
    double postEnd = 0.0;   // its aberration region runs from endTime until the next transition starts
    double overshoot = 0.0;  // % of the amplitude, the region's furthest run beyond the final state
    double undershoot = 0.0; // % of the amplitude, the furthest swing back past the final state
    MeasureValue settling;  // seconds from midTime until within the band for good
    double duration() const { return endTime - startTime; }
};

struct PulseMeasurements
{
    double from = 0.0, to = 0.0; // the span measured, as sample times
    StateLevels levels;
    double lowRefLevel = 0.0, midRefLevel = 0.0, highRefLevel = 0.0; // absolute, the waveform's unit
    bool logic = false;
    std::vector<Transition> transitions; // in time order
    std::array<MeasureValue, MEASURE_COUNT> values;

    const MeasureValue &operator[](Measure m) const { return values[static_cast<size_t>(m)]; }
    MeasureValue &operator[](Measure m) { return values[static_cast<size_t>(m)]; }
};

// Every measurement of the samples from `from` to `to` (seconds, inclusive); NaN bounds mean the
// waveform's start or end. A waveform of only 0 and 1 without a unit is a logic probe: it gets
// frequency, period, duty cycle and pulse width.
PulseMeasurements measurePulses(const WaveformData &waveform, double from = std::numeric_limits<double>::quiet_NaN(),
                                 double to = std::numeric_limits<double>::quiet_NaN(), const MeasureOptions &options = {});

// A limit on one measurement of one waveform, in the unit measureUnit() names; NaN: no bound.
struct MeasurementLimit
{
    QString waveform;
    Measure measure = Measure::RiseTime;
    double min = std::numeric_limits<double>::quiet_NaN();
    double max = std::numeric_limits<double>::quiet_NaN();
};

// 'rise_time<=25us', 'overshoot<=12%', 'frequency>=990Hz', '1ms<=period<=2ms'; false with a
// reason for anything else. A single bound leaves the other as it was in limit.
bool parseLimitExpression(const QString &text, const QString &waveformUnit, MeasurementLimit &limit, QString *error);
QString describeLimit(const MeasurementLimit &limit, const QString &waveformUnit); // "<= 25 μs"

// The member vorngraph/limits: INI text with one [limit N] section per limit.
QString limitsToIni(const std::vector<MeasurementLimit> &limits);
bool limitsFromIni(const QString &text, std::vector<MeasurementLimit> &limits, QString *error);
// The limits stored in a capture; none when it holds none. False with a reason if unreadable.
bool loadLimits(const QString &path, std::vector<MeasurementLimit> &limits, QString *error);
// Replaces the capture's limits (none removes the member) through the same safe save as the
// envelopes; every other member stays byte-identical.
bool saveLimits(const QString &path, const std::vector<MeasurementLimit> &limits, QString *error);

// One limit applied: the value measured, and why it failed (empty when it passed).
struct LimitOutcome
{
    MeasurementLimit limit;
    MeasureValue measured;
    QString failure;
    bool passed() const { return failure.isEmpty(); }
};

// The measurements and the outcome of every limit of one waveform; what the check of a file and
// the live run both call.
struct LimitVerdict
{
    PulseMeasurements measurements;
    std::vector<LimitOutcome> outcomes;
    bool passed() const;
};
LimitVerdict judgeLimits(const WaveformData &waveform, const std::vector<MeasurementLimit> &limits);

// Min, mean, max, standard deviation and, where both limits are set, Cpk of one measurement of
// one waveform over a batch.
class MeasureStatistics
{
public:
    void add(const QString &waveform, Measure measure, double value, const MeasurementLimit *limit);
    struct Row
    {
        QString waveform;
        Measure measure;
        size_t count = 0;
        double min = 0, mean = 0, max = 0, stddev = 0;
        double cpk = std::numeric_limits<double>::quiet_NaN();
    };
    std::vector<Row> rows() const; // in the order first added

private:
    struct Sum
    {
        QString waveform;
        Measure measure;
        size_t count = 0;
        double mean = 0, m2 = 0, min = 0, max = 0, lsl = 0, usl = 0;
        bool bothLimits = false;
    };
    std::vector<Sum> m_sums;
};

#endif
