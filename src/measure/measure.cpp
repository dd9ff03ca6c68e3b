#include "measureinternal.h"

#include <algorithm>
#include <cmath>

using namespace vornmeasure;

namespace {

const char *const KEYS[MEASURE_COUNT] = {"low",       "high",        "amplitude",  "min",       "max",       "peak_to_peak",
                                         "mean",      "rms",         "rise_time",  "fall_time", "pulse_width", "period",
                                         "frequency", "duty_cycle",  "overshoot",  "undershoot", "settling_time"};

void setAll(PulseMeasurements &m, const QString &reason)
{
    for (MeasureValue &v : m.values)
        v = {std::numeric_limits<double>::quiet_NaN(), reason};
}

MeasureValue valueOf(double v)
{
    return {v, QString()};
}

MeasureValue absent(const QString &reason)
{
    return {std::numeric_limits<double>::quiet_NaN(), reason};
}

// The mean of what pick gives for the transitions it accepts, or the reason when none is left.
template <class Pick>
MeasureValue meanOver(const std::vector<Transition> &transitions, Pick pick, const QString &none)
{
    double sum = 0.0;
    int count = 0;
    for (const Transition &t : transitions) {
        double v = 0.0;
        if (pick(t, v)) {
            sum += v;
            ++count;
        }
    }
    return count ? valueOf(sum / count) : absent(none);
}

void timing(PulseMeasurements &m)
{
    const std::vector<Transition> &ts = m.transitions;
    const auto edges = [&](bool rising) {
        std::vector<double> times;
        for (const Transition &t : ts) {
            if (t.rising == rising)
                times.push_back(t.midTime);
        }
        return times;
    };
    m[Measure::RiseTime] = meanOver(ts, [](const Transition &t, double &v) { v = t.duration(); return t.rising; },
                                    QStringLiteral("no rising transition in the span"));
    m[Measure::FallTime] = meanOver(ts, [](const Transition &t, double &v) { v = t.duration(); return !t.rising; },
                                    QStringLiteral("no falling transition in the span"));
    double widths = 0.0;
    int pulses = 0;
    for (size_t i = 0; i + 1 < ts.size(); ++i) {
        if (ts[i].rising) {
            widths += ts[i + 1].midTime - ts[i].midTime;
            ++pulses;
        }
    }
    m[Measure::PulseWidth] = pulses ? valueOf(widths / pulses) : absent(QStringLiteral("no positive pulse with both edges in the span"));
    const std::vector<double> rising = edges(true), falling = edges(false);
    const std::vector<double> &same = rising.size() >= 2 ? rising : falling;
    if (same.size() >= 2) {
        const double period = (same.back() - same.front()) / static_cast<double>(same.size() - 1);
        m[Measure::Period] = valueOf(period);
        m[Measure::Frequency] = valueOf(1.0 / period);
    } else {
        const QString why = ts.empty() ? QStringLiteral("no transition in the span")
                                       : QStringLiteral("one edge of each direction at most: a period needs two alike");
        m[Measure::Period] = m[Measure::Frequency] = absent(why);
    }
    if (m[Measure::PulseWidth].valid() && m[Measure::Period].valid())
        m[Measure::DutyCycle] = valueOf(m[Measure::PulseWidth].value / m[Measure::Period].value * 100.0);
    else
        m[Measure::DutyCycle] = m[Measure::PulseWidth].valid() ? m[Measure::Period] : m[Measure::PulseWidth];
}

void aberrations(PulseMeasurements &m)
{
    const QString none = QStringLiteral("no transition in the span");
    m[Measure::Overshoot] = meanOver(m.transitions, [](const Transition &t, double &v) { v = t.overshoot; return true; }, none);
    m[Measure::Undershoot] = meanOver(m.transitions, [](const Transition &t, double &v) { v = t.undershoot; return true; }, none);
    m[Measure::SettlingTime] = meanOver(m.transitions,
                                        [](const Transition &t, double &v) { v = t.settling.value; return t.settling.valid(); },
                                        m.transitions.empty() ? none : m.transitions.front().settling.reason);
}

void amplitudes(PulseMeasurements &m, const SampleScan &scan)
{
    m[Measure::Low] = valueOf(m.levels.low);
    m[Measure::High] = valueOf(m.levels.high);
    m[Measure::Amplitude] = valueOf(m.levels.high - m.levels.low);
    m[Measure::Min] = valueOf(scan.min);
    m[Measure::Max] = valueOf(scan.max);
    m[Measure::PeakToPeak] = valueOf(scan.max - scan.min);
    const double n = static_cast<double>(scan.count);
    if (std::isfinite(scan.sum) && std::isfinite(scan.sumSquares)) {
        m[Measure::Mean] = valueOf(scan.sum / n);
        m[Measure::Rms] = valueOf(std::sqrt(scan.sumSquares / n));
    } else {
        m[Measure::Mean] = m[Measure::Rms] = absent(QStringLiteral("the span holds samples that are not numbers"));
    }
}

} // namespace

const char *measureKey(Measure measure)
{
    return KEYS[static_cast<int>(measure)];
}

bool measureFromKey(const QString &key, Measure &measure)
{
    for (int i = 0; i < MEASURE_COUNT; ++i) {
        if (key == QLatin1String(KEYS[i])) {
            measure = static_cast<Measure>(i);
            return true;
        }
    }
    return false;
}

QString measureUnit(Measure measure, const QString &waveformUnit)
{
    switch (measure) {
    case Measure::RiseTime: case Measure::FallTime: case Measure::PulseWidth: case Measure::Period: case Measure::SettlingTime:
        return QStringLiteral("s");
    case Measure::Frequency:
        return QStringLiteral("Hz");
    case Measure::DutyCycle: case Measure::Overshoot: case Measure::Undershoot:
        return QStringLiteral("%");
    default:
        return waveformUnit;
    }
}

namespace {

// Four significant digits, as a reading is taken; a power of ten below one divides, so that the
// result is the double nearest to the decimal shown.
double readable(double value)
{
    if (!std::isfinite(value) || value == 0.0)
        return value;
    const int digits = 3 - static_cast<int>(std::floor(std::log10(std::abs(value))));
    const double scale = std::pow(10.0, std::abs(digits));
    return digits >= 0 ? std::round(value * scale) / scale : std::round(value / scale) * scale;
}

} // namespace

QString formatMeasure(Measure measure, double value, const QString &waveformUnit)
{
    value = readable(value);
    const QString unit = measureUnit(measure, waveformUnit);
    if (unit == QLatin1String("%"))
        return QStringLiteral("%1 %").arg(value, 0, 'g', 4);
    return ValueFormatter::formatWithUnit(value, unit);
}

PulseMeasurements measurePulses(const WaveformData &waveform, double from, double to, const MeasureOptions &options)
{
    PulseMeasurements m;
    const std::vector<double> &samples = *waveform.samples;
    const double dt = waveform.sampleInterval;
    size_t first = 0, last = samples.size(); // [first, last)
    if (dt > 0.0 && std::isfinite(dt)) {
        // A bound a rounding error away from a sample still takes that sample.
        if (!std::isnan(from))
            first = static_cast<size_t>(std::clamp(std::ceil((from - waveform.startTime) / dt - 1e-9), 0.0, double(last)));
        if (!std::isnan(to))
            last = static_cast<size_t>(std::clamp(std::floor((to - waveform.startTime) / dt + 1e-9) + 1, 0.0, double(last)));
    }
    if (!(dt > 0.0) || last < first + 2) {
        setAll(m, QStringLiteral("fewer than two samples in the span"));
        return m;
    }
    const SpanClock clock{waveform.startTime + static_cast<double>(first) * dt, dt};
    m.from = clock.at(0);
    m.to = clock.at(static_cast<double>(last - first - 1));
    const SampleScan scan = scanSamples(samples.data() + first, last - first);
    m.logic = waveform.unit.isEmpty() && scan.min == 0.0 && scan.max == 1.0
              && std::all_of(samples.begin() + first, samples.begin() + last, [](double x) { return x == 0.0 || x == 1.0; });
    m.levels = m.logic ? StateLevels{0.0, 1.0, QString(), true} : stateLevels(scan);
    amplitudes(m, scan);
    const double amplitude = m.levels.high - m.levels.low;
    m.lowRefLevel = m.levels.low + options.lowRef * amplitude;
    m.midRefLevel = m.levels.low + options.midRef * amplitude;
    m.highRefLevel = m.levels.low + options.highRef * amplitude;
    if (!(amplitude > 0.0) || !m.levels.distinct) {
        const QString why = amplitude > 0.0 ? QStringLiteral("no two distinct state levels in the span")
                                            : QStringLiteral("the span holds one level only");
        for (int i = static_cast<int>(Measure::RiseTime); i < MEASURE_COUNT; ++i)
            m.values[static_cast<size_t>(i)] = absent(why);
    } else {
        m.transitions = findTransitions(scan, clock, m.levels.low, m.levels.high, options);
        timing(m);
        aberrations(m);
    }
    if (m.logic) {
        for (Measure x : {Measure::Low, Measure::High, Measure::Amplitude, Measure::Min, Measure::Max, Measure::PeakToPeak,
                          Measure::Mean, Measure::Rms, Measure::RiseTime, Measure::FallTime, Measure::Overshoot,
                          Measure::Undershoot, Measure::SettlingTime})
            m[x] = absent(QStringLiteral("not measured on a logic probe"));
    }
    return m;
}
