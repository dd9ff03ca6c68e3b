#include "vornmeasure.h"

#include <QRegularExpression>
#include <QTest>

#include <cmath>
#include <random>

namespace {

constexpr double NaN = std::numeric_limits<double>::quiet_NaN();
constexpr double DT = 100e-9; // 10 MHz
const double PI = std::acos(-1.0);

// Signals with known answers, sampled at 10 MHz, with Gaussian noise of sigma volts.
double firstOrderStep(double t) // 0 V to 2 V at 100 us, tau 10 us
{
    return t < 100e-6 ? 0.0 : 2.0 * (1.0 - std::exp(-(t - 100e-6) / 10e-6));
}

double secondOrderStep(double t, double zeta = 0.3) // 0 V to 1 V at 100 us, natural 10 kHz
{
    if (t < 100e-6)
        return 0.0;
    const double wn = 2 * PI * 10e3, s = std::sqrt(1 - zeta * zeta), x = t - 100e-6;
    return 1.0 - std::exp(-zeta * wn * x) / s * std::sin(wn * s * x + std::acos(zeta));
}

// 0.5 V / 3.3 V, period 100 us, 30 us wide at 50 %, linear edges of 5 us (4 us from 10 to 90 %),
// the first rising edge starting at 20 us.
double trapezoid(double t)
{
    const double p = std::fmod(t + 80e-6, 100e-6), ramp = 5e-6;
    double f = 0.0;
    if (p < ramp)
        f = p / ramp;
    else if (p < 30e-6)
        f = 1.0;
    else if (p < 30e-6 + ramp)
        f = 1.0 - (p - 30e-6) / ramp;
    return 0.5 + 2.8 * f;
}

WaveformData make(const QString &signal, double sigma, double duration)
{
    WaveformData w;
    w.name = signal;
    w.unit = signal == "logic" ? QString() : QStringLiteral("V");
    w.sampleInterval = DT;
    std::mt19937 random(7);
    std::normal_distribution<double> noise(0.0, sigma > 0 ? sigma : 1.0);
    std::vector<double> &v = w.samples.writable();
    for (size_t i = 0; i < static_cast<size_t>(std::llround(duration / DT)); ++i) {
        const double t = static_cast<double>(i) * DT;
        double x = signal == "step1" ? firstOrderStep(t)
                   : signal == "step2" ? secondOrderStep(t)
                   : signal == "falling2" ? 1.0 - secondOrderStep(t)
                   : signal == "ringing" ? secondOrderStep(t, 0.15)
                   : signal == "train" ? trapezoid(t)
                   : signal == "inverted" ? 3.8 - trapezoid(t)
                   : signal == "logic" ? double(trapezoid(t) > 1.9)
                   : signal == "flat" ? 1.0
                                       : std::abs(std::fmod(t, 100e-6) / 50e-6 - 1.0); // triangle
        v.push_back(x + (sigma > 0 ? noise(random) : 0.0));
    }
    return w;
}

} // namespace

class TstMeasure : public QObject
{
    Q_OBJECT

private slots:
    void measuresKnownSignals_data();
    void measuresKnownSignals();
    void longSpansFindEveryTransitionOnce_data();
    void longSpansFindEveryTransitionOnce();
    void fallsBackToExtremesWithoutClearMode();
    void parsesLimits_data();
    void parsesLimits();
    void batchStatisticsGiveCpk();
};

void TstMeasure::measuresKnownSignals_data()
{
    QTest::addColumn<QString>("signal");
    QTest::addColumn<double>("sigma");
    QTest::addColumn<double>("to"); // end of the span measured; the signal lasts 1 ms (steps 2 ms)
    QTest::addColumn<QString>("measure");
    QTest::addColumn<double>("expected"); // NaN: absent
    QTest::addColumn<double>("tolerance");

    // Noise moves the last 10 % and the first 90 % crossing towards each other; on the slow end of
    // the first-order step it is kept small for that reason.
    const double tau = 10e-6, zeta = 0.3, s = std::sqrt(1 - zeta * zeta);
    QTest::newRow("first order/rise is tau ln 9") << "step1" << 0.001 << NaN << "rise_time" << tau * std::log(9.0) << 0.02 * tau;
    QTest::newRow("first order/settling to 2 % is tau ln 25") << "step1" << 0.001 << NaN << "settling_time" << tau * std::log(25.0) << 0.05 * tau;
    QTest::newRow("first order/high level") << "step1" << 0.001 << NaN << "high" << 2.0 << 0.01;
    QTest::newRow("first order/one edge has no period") << "step1" << 0.001 << NaN << "period" << NaN << 0.0;
    QTest::newRow("first order/no fall") << "step1" << 0.001 << NaN << "fall_time" << NaN << 0.0;
    QTest::newRow("second order/overshoot") << "step2" << 0.002 << NaN << "overshoot" << 100 * std::exp(-PI * zeta / s) << 0.8;
    QTest::newRow("second order/undershoot is the first dip") << "step2" << 0.002 << NaN << "undershoot" << 100 * std::exp(-2 * PI * zeta / s) << 0.8;
    QTest::newRow("second order falling/overshoot below") << "falling2" << 0.002 << NaN << "overshoot" << 100 * std::exp(-PI * zeta / s) << 0.8;
    QTest::newRow("light damping/high level a fifth of the half above the middle") << "ringing" << 0.002 << NaN << "high" << 1.0 << 0.01;
    QTest::newRow("light damping/overshoot") << "ringing" << 0.002 << NaN << "overshoot" << 100 * std::exp(-PI * 0.15 / std::sqrt(1 - 0.15 * 0.15)) << 0.8;
    QTest::newRow("second order/one transition despite ringing") << "step2" << 0.002 << NaN << "pulse_width" << NaN << 0.0;
    QTest::newRow("train/rise") << "train" << 0.01 << NaN << "rise_time" << 4e-6 << 0.15e-6;
    QTest::newRow("train/fall") << "train" << 0.01 << NaN << "fall_time" << 4e-6 << 0.15e-6;
    QTest::newRow("train/width") << "train" << 0.01 << NaN << "pulse_width" << 30e-6 << 0.1e-6;
    QTest::newRow("train/period") << "train" << 0.01 << NaN << "period" << 100e-6 << 0.05e-6;
    QTest::newRow("train/frequency") << "train" << 0.01 << NaN << "frequency" << 10e3 << 5.0;
    QTest::newRow("train/duty") << "train" << 0.01 << NaN << "duty_cycle" << 30.0 << 0.1;
    QTest::newRow("train/low") << "train" << 0.01 << NaN << "low" << 0.5 << 0.005;
    QTest::newRow("train/amplitude") << "train" << 0.01 << NaN << "amplitude" << 2.8 << 0.01;
    QTest::newRow("train/mean") << "train" << 0.0 << NaN << "mean" << 0.5 + 2.8 * 0.30 << 0.003;
    QTest::newRow("train/heavy noise counts no extra edge") << "train" << 0.1 << NaN << "period" << 100e-6 << 0.3e-6;
    QTest::newRow("train/span of one pulse has no period") << "train" << 0.01 << 90e-6 << "period" << NaN << 0.0;
    QTest::newRow("train/span of one pulse has its width") << "train" << 0.01 << 90e-6 << "pulse_width" << 30e-6 << 0.1e-6;
    QTest::newRow("inverted/width of the positive pulse") << "inverted" << 0.01 << NaN << "pulse_width" << 70e-6 << 0.1e-6;
    QTest::newRow("inverted/duty") << "inverted" << 0.01 << NaN << "duty_cycle" << 70.0 << 0.1;
    QTest::newRow("inverted/period from falling edges") << "inverted" << 0.01 << 140e-6 << "period" << 100e-6 << 0.05e-6;
    QTest::newRow("flat with noise has no edges") << "flat" << 0.01 << NaN << "rise_time" << NaN << 0.0;
    QTest::newRow("flat with noise has no period") << "flat" << 0.01 << NaN << "frequency" << NaN << 0.0;
    QTest::newRow("logic/frequency") << "logic" << 0.0 << NaN << "frequency" << 10e3 << 1.0;
    QTest::newRow("logic/duty") << "logic" << 0.0 << NaN << "duty_cycle" << 30.0 << 0.2;
    QTest::newRow("logic/no rise time") << "logic" << 0.0 << NaN << "rise_time" << NaN << 0.0;
}

void TstMeasure::measuresKnownSignals()
{
    QFETCH(QString, signal);
    QFETCH(double, sigma);
    QFETCH(double, to);
    QFETCH(QString, measure);
    QFETCH(double, expected);
    QFETCH(double, tolerance);
    const WaveformData w = make(signal, sigma, signal.contains(QRegularExpression("[12]$")) ? 2e-3 : 1e-3);
    const PulseMeasurements m = measurePulses(w, NaN, to);
    Measure which;
    QVERIFY(measureFromKey(measure, which));
    const MeasureValue &v = m[which];
    if (std::isnan(expected)) {
        QVERIFY2(!v.valid() && std::isnan(v.value) && !v.reason.isEmpty(), qPrintable(QString::number(v.value)));
        return;
    }
    QVERIFY2(v.valid(), qPrintable(v.reason));
    QVERIFY2(std::abs(v.value - expected) <= tolerance,
             qPrintable(QStringLiteral("%1, expected %2 +- %3").arg(v.value).arg(expected).arg(tolerance)));
}

// A span long enough to be searched from its middle too: the edges on both sides of the middle,
// wherever in a pulse it falls, are each found once and in turn.
void TstMeasure::longSpansFindEveryTransitionOnce_data()
{
    QTest::addColumn<int>("samples");
    QTest::addColumn<int>("transitions");
    QTest::newRow("middle on a rising edge") << 4242432 << 8485;
    QTest::newRow("middle on a falling edge") << 4225024 << 8450;
    QTest::newRow("middle in the low state") << 4224000 << 8448;
}

void TstMeasure::longSpansFindEveryTransitionOnce()
{
    QFETCH(int, samples);
    QFETCH(int, transitions);
    const PulseMeasurements m = measurePulses(make("train", 0.02, samples * DT));
    QCOMPARE(int(m.transitions.size()), transitions);
    for (size_t i = 1; i < m.transitions.size(); ++i) {
        const Transition &t = m.transitions[i];
        QVERIFY(t.rising != m.transitions[i - 1].rising && std::abs(t.midTime - m.transitions[i - 1].midTime - (t.rising ? 70e-6 : 30e-6)) < 1e-6);
    }
}

void TstMeasure::fallsBackToExtremesWithoutClearMode()
{
    const PulseMeasurements triangle = measurePulses(make("triangle", 0.0, 1e-3));
    QCOMPARE(triangle[Measure::Low].value, triangle[Measure::Min].value);
    QCOMPARE(triangle[Measure::High].value, triangle[Measure::Max].value);
    QVERIFY(triangle.levels.note.contains("low") && triangle.levels.note.contains("high"));
    QVERIFY(measurePulses(make("train", 0.01, 1e-3)).levels.note.isEmpty());
}

void TstMeasure::parsesLimits_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("measure"); // empty: refused
    QTest::addColumn<double>("min");
    QTest::addColumn<double>("max");
    QTest::newRow("upper bound with prefix") << "rise_time<=25us" << "rise_time" << NaN << 25e-6;
    QTest::newRow("percent") << "overshoot <= 12%" << "overshoot" << NaN << 12.0;
    QTest::newRow("lower bound") << "frequency>=1kHz" << "frequency" << 1e3 << NaN;
    QTest::newRow("range") << "1ms<=period<=2ms" << "period" << 1e-3 << 2e-3;
    QTest::newRow("level in volts") << "high>=3.1V" << "high" << 3.1 << NaN;
    QTest::newRow("unknown measurement") << "rise<=1us" << "" << NaN << NaN;
    QTest::newRow("no number") << "rise_time<=fast" << "" << NaN << NaN;
    QTest::newRow("empty range") << "2ms<=period<=1ms" << "" << NaN << NaN;
    QTest::newRow("strict comparison") << "rise_time<1us" << "" << NaN << NaN;
}

void TstMeasure::parsesLimits()
{
    QFETCH(QString, text);
    QFETCH(QString, measure);
    QFETCH(double, min);
    QFETCH(double, max);
    MeasurementLimit limit{QStringLiteral("A1")};
    QString error;
    QCOMPARE(parseLimitExpression(text, QStringLiteral("V"), limit, &error), !measure.isEmpty());
    QCOMPARE(error.isEmpty(), !measure.isEmpty());
    if (measure.isEmpty())
        return;
    QCOMPARE(QString(measureKey(limit.measure)), measure);
    QCOMPARE(std::isnan(limit.min) ? -1.0 : limit.min, std::isnan(min) ? -1.0 : min);
    QCOMPARE(std::isnan(limit.max) ? -1.0 : limit.max, std::isnan(max) ? -1.0 : max);
    // Stored and read back as the file keeps them, bit for bit.
    std::vector<MeasurementLimit> back;
    QVERIFY(limitsFromIni(limitsToIni({limit}), back, &error));
    QCOMPARE(back.size(), size_t(1));
    QCOMPARE(back[0].waveform, limit.waveform);
    QCOMPARE(back[0].measure, limit.measure);
    QCOMPARE(std::isnan(back[0].max) ? -1.0 : back[0].max, std::isnan(max) ? -1.0 : max);
}

void TstMeasure::batchStatisticsGiveCpk()
{
    // Values 1, 2, 3: mean 2, sample deviation 1; limits 0 .. 5: Cpk = min(3, 2) / 3.
    MeasureStatistics statistics;
    const MeasurementLimit limit{QStringLiteral("A1"), Measure::Period, 0.0, 5.0};
    for (double v : {1.0, 3.0, 2.0})
        statistics.add(QStringLiteral("A1"), Measure::Period, v, &limit);
    statistics.add(QStringLiteral("A1"), Measure::RiseTime, 7.0, nullptr);
    const auto rows = statistics.rows();
    QCOMPARE(rows.size(), size_t(2));
    QCOMPARE(rows[0].count, size_t(3));
    QCOMPARE(rows[0].min, 1.0);
    QCOMPARE(rows[0].max, 3.0);
    QCOMPARE(rows[0].mean, 2.0);
    QCOMPARE(rows[0].stddev, 1.0);
    QCOMPARE(rows[0].cpk, 2.0 / 3.0);
    QVERIFY(std::isnan(rows[1].cpk));
}

QTEST_GUILESS_MAIN(TstMeasure)
#include "tst_measure.moc"
