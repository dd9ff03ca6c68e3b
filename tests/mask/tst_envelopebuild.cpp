// Envelopes made from good captures contain them at any knot count, and still fail bad ones.

#include "vornmask.h"

#include <QTest>

#include <cmath>
#include <random>

namespace {

constexpr double DT = 1e-6;
constexpr int PULSE_SAMPLES = 20000;

// An underdamped step of one volt, 0 before t = 0.
double step(double t)
{
    if (t < 0)
        return 0.0;
    const double zeta = 0.3, w = 2 * M_PI * 50e3, wd = w * std::sqrt(1 - zeta * zeta);
    return 1 - std::exp(-zeta * w * t) * (std::cos(wd * t) + zeta / std::sqrt(1 - zeta * zeta) * std::sin(wd * t));
}

struct Pulse
{
    double rise = 5e-3;
    double fall = 15e-3;
    double amplitude = 3.3;
    double glitch = 0.0; // volts added for 5 us at 10 ms
    int samples = PULSE_SAMPLES;
};

// A 3.3 V pulse as a bench records it at 1 MHz: 5 mV of noise, edges a few us apart from capture
// to capture.
WaveformData pulse(unsigned seed, Pulse p = {})
{
    std::mt19937 random(seed);
    std::normal_distribution<double> noise(0.0, 5e-3);
    std::uniform_real_distribution<double> jitter(-3e-6, 3e-6);
    p.rise += jitter(random);
    p.fall += jitter(random);
    WaveformData w;
    w.name = QStringLiteral("A1");
    w.unit = QStringLiteral("V");
    w.sampleInterval = DT;
    std::vector<double> &s = w.samples.writable();
    for (int i = 0; i < p.samples; ++i) {
        const double t = i * DT;
        s.push_back(p.amplitude * (step(t - p.rise) - step(t - p.fall)) + noise(random)
                    + (t >= 10e-3 && t < 10.005e-3 ? p.glitch : 0.0));
    }
    return w;
}

// Shapes that defeat limits joined by straight lines: steps, ringing, many edges, pure noise.
WaveformData shape(const QString &kind, unsigned seed)
{
    std::mt19937 random(seed);
    std::normal_distribution<double> noise(0.0, 0.05);
    WaveformData w;
    w.sampleInterval = 1e-3;
    w.startTime = -0.25;
    std::vector<double> &s = w.samples.writable();
    for (int i = 0; i < 2000; ++i) {
        double v = noise(random);
        if (kind == "step")
            v += i >= 700 + int(seed % 5) ? 2.0 : 0.0;
        else if (kind == "ringing")
            v += 3 * (step((i - 500.0) * 1e-6) - step((i - 1400.0) * 1e-6));
        else if (kind == "square")
            v += (i / 37) % 2 ? 1.0 : -1.0;
        else if (kind == "gap" && i >= 900 && i < 950)
            v = std::nan("");
        s.push_back(v);
    }
    return w;
}

EnvelopeData build(const QVector<WaveformData> &captures, EnvelopeBuildOptions options = {},
                   EnvelopeBuildReport *report = nullptr)
{
    SourceHull hull;
    for (const WaveformData &c : captures)
        hull.add(c);
    return hull.build(options, report);
}

} // namespace

Q_DECLARE_METATYPE(Pulse)

class TstEnvelopeBuild : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        for (unsigned seed = 1; seed <= 10; ++seed)
            m_sources.append(pulse(seed));
        m_default = build(m_sources, {}, &m_report);
    }

    void containsItsCapturesAtAnyKnotCount_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<int>("captures");
        QTest::addColumn<bool>("region");
        QTest::addColumn<int>("maxIntervals");
        for (const char *kind : {"step", "ringing", "square", "noise", "gap"}) {
            for (int captures : {1, 4}) {
                for (bool region : {false, true}) {
                    for (int cap : {65536, 97}) {
                        QTest::addRow("%s/%d/%s/%d", kind, captures, region ? "region" : "whole", cap)
                            << QString(kind) << captures << region << cap;
                    }
                }
            }
        }
    }
    void containsItsCapturesAtAnyKnotCount()
    {
        QFETCH(QString, kind);
        QFETCH(int, captures);
        QFETCH(bool, region);
        QFETCH(int, maxIntervals);
        QVector<WaveformData> sources;
        for (int c = 0; c < captures; ++c)
            sources.append(shape(kind, static_cast<unsigned>(c + 1)));
        for (int knots : {0, 2, 3, 7, 20, 100}) {
            for (double tolerance : {0.0, double(NAN), 0.02}) {
                EnvelopeBuildOptions options;
                options.maxKnots = knots;
                options.dx = options.dy = tolerance;
                options.maxIntervals = static_cast<uint64_t>(maxIntervals);
                if (region) {
                    options.start = 0.2305; // between samples, off the grid of any cap
                    options.end = 1.4712;
                }
                EnvelopeBuildReport report;
                const EnvelopeData envelope = build(sources, options, &report);
                // Each side of a gap that the tolerances leave open needs two knots of its own.
                if (envelope.isEmpty()) {
                    QVERIFY(kind == "gap" && knots > 0 && knots < 4);
                    continue;
                }
                QVERIFY(knots == 0 || report.knots <= knots);
                for (const WaveformData &source : sources) {
                    const EnvelopeCheckResult r = checkEnvelope(source, envelope);
                    QVERIFY2(r.passed() && r.checked > 0,
                             qPrintable(QStringLiteral("%1 knots, tolerance %2: %3 outside, first at %4")
                                            .arg(knots).arg(tolerance).arg(r.violations()).arg(r.firstViolation)));
                }
            }
        }
    }

    void defaultsJudgeFreshAndFaultyCaptures_data()
    {
        QTest::addColumn<Pulse>("capture");
        QTest::addColumn<double>("dx"); // NaN: the construction's choice
        QTest::addColumn<double>("dy");
        QTest::addColumn<bool>("passes");
        const Pulse good;
        Pulse late, early, glitch, low, truncated;
        late.rise += 40e-6;
        early.fall -= 40e-6;
        glitch.glitch = 0.3;
        low.amplitude *= 0.91;
        truncated.samples = 19000;
        for (unsigned seed = 0; seed < 5; ++seed)
            QTest::addRow("fresh %u", seed) << good << double(NAN) << double(NAN) << true;
        QTest::newRow("rise 40 us late") << late << double(NAN) << double(NAN) << false;
        QTest::newRow("fall 40 us early") << early << double(NAN) << double(NAN) << false;
        QTest::newRow("300 mV glitch of 5 us") << glitch << double(NAN) << double(NAN) << false;
        QTest::newRow("9 % low") << low << double(NAN) << double(NAN) << false;
        QTest::newRow("ends 1 ms early") << truncated << double(NAN) << double(NAN) << false;
        QTest::newRow("late rise inside dx 50 us") << late << 50e-6 << double(NAN) << true;
        QTest::newRow("late rise outside dx 20 us") << late << 20e-6 << double(NAN) << false;
        QTest::newRow("glitch inside dy 0.4") << glitch << double(NAN) << 0.4 << true;
        QTest::newRow("glitch outside dy 0.1") << glitch << double(NAN) << 0.1 << false;
    }
    void defaultsJudgeFreshAndFaultyCaptures()
    {
        QFETCH(Pulse, capture);
        QFETCH(double, dx);
        QFETCH(double, dy);
        QFETCH(bool, passes);
        EnvelopeData envelope = m_default;
        if (!std::isnan(dx) || !std::isnan(dy)) {
            EnvelopeBuildOptions options;
            options.dx = dx;
            options.dy = dy;
            envelope = build(m_sources, options);
        }
        const EnvelopeCheckResult r = checkEnvelope(pulse(1000 + qHash(QByteArray(QTest::currentDataTag())), capture), envelope);
        QVERIFY2(r.passed() == passes, qPrintable(QStringLiteral("%1 outside, first at %2, uncovered %3")
                                                      .arg(r.violations()).arg(r.firstViolation).arg(r.uncovered)));
        QCOMPARE(r.uncovered > 0, capture.samples < PULSE_SAMPLES);
    }

    void sourcesPassTheirDefaultEnvelopeWithFewKnots()
    {
        for (const WaveformData &source : m_sources)
            QVERIFY(checkEnvelope(source, m_default).passed());
        // Dense on the edges and their ringing, sparse on the flat parts.
        QVERIFY2(m_report.knots < 400, qPrintable(QString::number(m_report.knots)));
        QCOMPARE(m_default.upper.samples->size(), size_t(PULSE_SAMPLES));
    }

    void knotsRoundTripThroughStoredCurves()
    {
        const QVector<EnvelopePoint> knots = recoverKnots(m_default);
        QCOMPARE(knots.size(), m_report.knots);
        const EnvelopeData again = resampleKnots(knots, m_default.upper.startTime, m_default.upper.sampleInterval,
                                                 m_default.upper.samples->size());
        QCOMPARE(*again.upper.samples, *m_default.upper.samples);
        QCOMPARE(*again.lower.samples, *m_default.lower.samples);
    }

    void widenedLimitsCoverTheirNeighbours()
    {
        const auto curve = [](std::vector<double> v) {
            WaveformData w;
            w.sampleInterval = 1.0;
            w.samples.writable() = std::move(v);
            return w;
        };
        const EnvelopeData e = widenEnvelope({curve({1, 5, 2}), curve({0, -3, 1})}, 1.0, 0.5);
        QCOMPARE(*e.upper.samples, (std::vector<double>{5.5, 5.5, 5.5}));
        QCOMPARE(*e.lower.samples, (std::vector<double>{-3.5, -3.5, -3.5}));
        // By half of each limit's own value: a limit at zero stays.
        const EnvelopeData half = widenEnvelope({curve({1, 5, 2}), curve({0, -3, 1})}, 0.0, 0.0, 0.5);
        QCOMPARE(*half.upper.samples, (std::vector<double>{1.5, 7.5, 3.0}));
        QCOMPARE(*half.lower.samples, (std::vector<double>{0.0, -4.5, 0.5}));
    }

    // Widened by dx, the envelope of the sources holds a source moved by up to dx either way, and
    // still not one moved well beyond it.
    void widenedByDxHoldsTheShiftedCapture_data()
    {
        QTest::addColumn<double>("shift");
        QTest::addColumn<bool>("passes");
        QTest::newRow("late by dx") << 40e-6 << true;
        QTest::newRow("early by dx") << -40e-6 << true;
        QTest::newRow("late by half dx") << 20e-6 << true;
        QTest::newRow("late by 3 dx") << 120e-6 << false;
    }
    void widenedByDxHoldsTheShiftedCapture()
    {
        QFETCH(double, shift);
        QFETCH(bool, passes);
        const EnvelopeData wide = widenEnvelope(m_default, 40e-6, 0.0);
        Pulse moved;
        moved.rise += shift;
        moved.fall += shift;
        QCOMPARE(checkEnvelope(pulse(1, moved), wide).passed(), passes);
    }

    // A second region replaces the envelope over its own span only, and what lies between the two
    // stays without limits. Base knots every 20 s on a 1 s grid; "-" is where the base has none.
    void addedRegionKeepsTheRestAndItsGaps_data()
    {
        QTest::addColumn<double>("baseEnd");
        QTest::addColumn<double>("baseGapFrom");
        QTest::addColumn<double>("regionFrom");
        QTest::addColumn<double>("regionTo");
        QTest::newRow("in the base's gap") << 100.0 << 40.0 << 60.0 << 80.0;
        QTest::newRow("beyond the base's end") << 40.0 << 1e9 << 60.0 << 80.0;
        QTest::newRow("inside a stretch") << 100.0 << 1e9 << 40.0 << 60.0;
        QTest::newRow("before the base") << 100.0 << 1e9 << -30.0 << -10.0;
    }
    void addedRegionKeepsTheRestAndItsGaps()
    {
        QFETCH(double, baseEnd);
        QFETCH(double, baseGapFrom);
        QFETCH(double, regionFrom);
        QFETCH(double, regionTo);
        const auto knots = [](double from, double to, double level) {
            QVector<EnvelopePoint> k;
            for (double t = from; t <= to; t += 20)
                k.append({t, level + std::fabs(std::fmod(t, 40)) / 10, -level - std::fabs(std::fmod(t, 30)) / 10});
            return k;
        };
        QVector<EnvelopePoint> baseKnots = knots(0, std::min(baseEnd, baseGapFrom), 1.0);
        if (baseGapFrom < baseEnd)
            baseKnots.append({baseGapFrom + 1, NAN, NAN, false});
        const EnvelopeData base = resampleKnots(baseKnots, 0.0, 1.0, uint64_t(baseEnd) + 1);
        const EnvelopeData region = resampleKnots(knots(regionFrom, regionTo, 5.0), regionFrom, 1.0,
                                                  uint64_t(regionTo - regionFrom) + 1);
        QVERIFY(!std::isnan(region.upper.samples->back()));
        const EnvelopeData merged = addEnvelopeRegion(base, region);
        const double start = merged.upper.startTime;
        QCOMPARE(merged.upper.sampleInterval, 1.0);
        for (size_t k = 0; k < merged.upper.samples->size(); ++k) {
            const double t = start + double(k);
            const double got = merged.upper.samples->at(k);
            double want = NAN;
            if (t >= regionFrom && t <= regionTo)
                want = region.upper.samples->at(size_t(t - regionFrom));
            else if (t >= 0 && t <= baseEnd && std::fabs(t - regionFrom) > 1 && std::fabs(t - regionTo) > 1)
                want = base.upper.samples->at(size_t(t));
            else if (t >= 0 && t <= baseEnd)
                continue; // the edge node next to the region, on the base's line
            // Cut short at the region, a base stretch ends on a knot of its own line: rounding only.
            QVERIFY2(std::fabs(got - want) <= 1e-12 || (std::isnan(got) && std::isnan(want)),
                     qPrintable(QStringLiteral("t = %1: %2, not %3").arg(t).arg(got).arg(want)));
        }
    }

private:
    QVector<WaveformData> m_sources;
    EnvelopeData m_default;
    EnvelopeBuildReport m_report;
};

QTEST_GUILESS_MAIN(TstEnvelopeBuild)
#include "tst_envelopebuild.moc"
