#include "vornmask.h"

#include <QTest>

#include <cmath>

namespace {

const double NaN = std::nan("");

WaveformData curve(const QVector<double> &values, double interval, double start)
{
    WaveformData w;
    w.sampleInterval = interval;
    w.startTime = start;
    w.samples.writable().assign(values.begin(), values.end());
    return w;
}

} // namespace

class TstEnvelopeCheck : public QObject
{
    Q_OBJECT

private slots:
    void judgesEverySampleAgainstTheInterpolatedLimits_data()
    {
        QTest::addColumn<QVector<double>>("samples"); // at 0, 1, 2, ... s
        QTest::addColumn<QVector<double>>("upper");   // at upperStart, + 2 s, ...
        QTest::addColumn<double>("upperStart");
        QTest::addColumn<QVector<double>>("lower");   // at 0, 4, 8, ... s
        // checked, NaN, above, below; first violation, worst above time and excess, worst below time
        // and excess; least margin
        QTest::addColumn<QVector<double>>("expected");
        const QVector<double> wide{-10, -10, -10};
        // Upper 0 -> 4 over 0..2 s and 4 -> 0 over 2..4 s, so 2 at 1 s and 3 s: the ramp 0, 3, 4, 1, 0 is
        // above by 1 at 1 s and touches 4 at 2 s, which passes; lower -10 everywhere.
        QTest::newRow("interpolated, on the limit passes")
            << QVector<double>{0, 3, 4, 1, 0} << QVector<double>{0, 4, 0} << 0.0 << wide
            << QVector<double>{5, 0, 1, 0, 1, 1, 1, NaN, NaN, -1.0 / 12};
        // Upper curve at 1, 3, 5 s with a gap at 3 s: a lonely curve sample sets no limit.
        QTest::newRow("gap leaves no limit")
            << QVector<double>{9, 9, 9, 9, 9} << QVector<double>{0, NaN, 0} << 1.0 << wide
            << QVector<double>{5, 0, 0, 0, NaN, NaN, NaN, NaN, NaN, NaN};
        // Upper 0 -> 10 over 1..3 s only; 11 at 3 s is above by 1 on the curve's closing edge.
        QTest::newRow("curve shorter than the waveform")
            << QVector<double>{9, 9, 9, 11, 9} << QVector<double>{0, 10} << 1.0 << QVector<double>{-8, -8}
            << QVector<double>{5, 0, 3, 0, 1, 1, 9, NaN, NaN, -9.0 / 8};
        QTest::newRow("NaN samples counted apart")
            << QVector<double>{NaN, 1, NaN, -20, 1} << QVector<double>{2, 2, 2} << 0.0 << wide
            << QVector<double>{3, 2, 0, 1, 3, NaN, NaN, 3, 10, -10.0 / 12};
    }

    void judgesEverySampleAgainstTheInterpolatedLimits()
    {
        QFETCH(QVector<double>, samples);
        QFETCH(QVector<double>, upper);
        QFETCH(double, upperStart);
        QFETCH(QVector<double>, lower);
        QFETCH(QVector<double>, expected);
        EnvelopeData envelope{curve(upper, 2.0, upperStart), curve(lower, 4.0, 0.0), {}};
        ViolationMask mask;
        const EnvelopeCheckResult r = checkEnvelope(curve(samples, 1.0, 0.0), envelope, &mask);
        // As text, so that NaN equals NaN.
        const auto text = [](const QVector<double> &v) {
            QStringList t;
            for (double x : v)
                t << QString::number(x, 'g', 17);
            return t;
        };
        QCOMPARE(text({double(r.checked), double(r.nanSamples), double(r.above), double(r.below), r.firstViolation,
                       r.worstAbove.time, r.worstAbove.excess, r.worstBelow.time, r.worstBelow.excess, r.minMargin}),
                 text(expected));
        uint64_t marked = 0;
        for (uint64_t i = mask.findNext(0, samples.size()); i < uint64_t(samples.size()); i = mask.findNext(i + 1, samples.size()))
            marked += i >= r.firstViolation ? 1 : 100;
        QCOMPARE(marked, r.violations());
    }

    // One envelope judges capture after capture: each on its own time base, as a fresh copy of
    // the envelope would.
    void reusedEnvelopeJudgesEachTimeBaseOnItsOwn()
    {
        const auto band = [] { return EnvelopeData{curve({0, 4, 0}, 2.0, 0.0), curve({-10, -10, -10}, 4.0, 0.0), {}}; };
        const EnvelopeData shared = band();
        const auto text = [](const EnvelopeCheckResult &r) {
            return QStringLiteral("%1 %2 %3 %4").arg(r.checked).arg(r.above).arg(r.worstAbove.excess).arg(r.uncovered);
        };
        for (const double start : {0.0, 0.5, 0.0, 1.0}) {
            for (const int count : {5, 3, 5}) {
                for (const double interval : {1.0, 0.5}) {
                    const WaveformData w = curve(QVector<double>{0, 3, 4, 1, 0}.mid(0, count), interval, start);
                    QCOMPARE(text(checkEnvelope(w, shared)), text(checkEnvelope(w, band())));
                }
            }
        }
    }

    // Beyond a million samples the work is split over two threads and judged chunk by chunk.
    void longWaveformsGiveTheSameAnswersAsShortOnes()
    {
        const uint64_t n = 3'000'000;
        WaveformData w = curve({}, 1e-6, 0.0);
        std::vector<double> &s = w.samples.writable();
        s.resize(n);
        for (uint64_t i = 0; i < n; ++i)
            s[i] = std::sin(static_cast<double>(i) * 1e-4);
        const double end = (n - 1) * 1e-6;
        EnvelopeData envelope{curve({1.5, 1.5}, end, 0.0), curve({-1.5, -1.5}, end, 0.0), {}};
        // Without violations the margin comes from chunks that are only bounded, not walked.
        double nearest = INFINITY;
        for (double v : s)
            nearest = std::min({nearest, 1.5 - v, v + 1.5});
        QCOMPARE(checkEnvelope(w, envelope).minMargin, nearest / 3);

        const std::vector<uint64_t> spikes{123, 1'500'000, 1'500'001, 2'999'999};
        for (uint64_t i : spikes)
            s[i] = i == 1'500'001 ? 2.0 : -2.0;

        ViolationMask mask;
        const EnvelopeCheckResult r = checkEnvelope(w, envelope, &mask);
        QCOMPARE(QStringLiteral("%1 %2 %3 %4 %5 %6").arg(r.checked).arg(r.above).arg(r.below).arg(r.firstViolation)
                     .arg(r.worstBelow.time).arg(r.worstAbove.time, 0, 'g', 10), "3000000 1 3 0.000123 0.000123 1.500001");
        std::vector<uint64_t> found;
        for (uint64_t i = mask.findNext(0, n); i < n; i = mask.findNext(i + 1, n))
            found.push_back(i);
        QCOMPARE(found, spikes);
    }

    void masksAreSearchedBothWays()
    {
        ViolationMask mask;
        mask.reset(1'000'000);
        for (uint64_t i : {5, 64, 300'000})
            mask.set(i);
        QCOMPARE(QList<uint64_t>({mask.findNext(6, 1'000'000), mask.findNext(65, 200'000), mask.findPrevious(300'000),
                                  mask.findPrevious(1'000'000), mask.findPrevious(5)}),
                 QList<uint64_t>({64, 200'000, 64, 300'000, 1'000'000}));
    }
};

QTEST_GUILESS_MAIN(TstEnvelopeCheck)
#include "tst_envelopecheck.moc"
