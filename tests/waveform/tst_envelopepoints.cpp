#include "vornmask.h"

#include <QTest>

#include <cmath>

namespace {

WaveformData ramp(int count, double interval, double start)
{
    WaveformData w;
    w.sampleInterval = interval;
    w.startTime = start;
    for (int i = 0; i < count; ++i)
        w.samples.writable().push_back(i);
    return w;
}

// "time upper lower" for each point, "off" appended to a disabled one.
QStringList described(const QVector<EnvelopePoint> &points)
{
    QStringList out;
    for (const EnvelopePoint &p : points)
        out << QStringLiteral("%1 %2 %3%4").arg(p.time).arg(p.upperValue).arg(p.lowerValue).arg(p.enabled ? "" : " off");
    return out;
}

} // namespace

class TstEnvelopePoints : public QObject
{
    Q_OBJECT

private slots:
    // A copy of a long capture must not cost its samples again.
    void waveformCopiesShareSamplesUntilWritten()
    {
        WaveformData source;
        source.samples.writable().assign({1.0, 2.0, 3.0});
        const WaveformData copy = source;
        QVERIFY(copy.samples.sharesStorageWith(source.samples));
        // A shared array is copied before the write; a sole owner writes in place.
        source.samples.writable()[0] = 99.0;
        QVERIFY(!copy.samples.sharesStorageWith(source.samples));
        QCOMPARE(*copy.samples, (std::vector<double>{1.0, 2.0, 3.0}));
        const double *own = source.samples->data();
        QCOMPARE(source.samples.writable().data(), own);
    }

    // On the grid, below and above half a step, a shifted start, negative times.
    void snapsToTheNearestSample()
    {
        QStringList snapped;
        for (const auto &[t, interval, start] : {std::tuple{3e-3, 1e-3, 0.0}, {3.4e-3, 1e-3, 0.0}, {3.6e-3, 1e-3, 0.0},
                                                 {0.26, 0.5, 0.1}, {-1.3, 1.0, -5.0}})
            snapped << QString::number(snapToSampleGrid(t, interval, start));
        QCOMPARE(snapped, QStringList({"0.003", "0.003", "0.004", "0.1", "-1"}));
    }

    // The y range is 0..200 or -1..9: a margin of 10 or 0.5, the empty limits at 90 % and 10 %.
    // Limits over the samples up to both neighbours, a region after the data, no samples, no points.
    void generatesPointsFromTheSamples()
    {
        const auto points = [](const WaveformData &w, double start, double end, int count, double yMax) {
            return described(generateEnvelopePoints(w, start, end, count, yMax == 200.0 ? 0.0 : -1.0, yMax)).join(", ");
        };
        QCOMPARE(QStringList({points(ramp(101, 1.0, 0.0), 0.0, 100.0, 3, 200.0), points(ramp(10, 1.0, 0.0), 50.0, 60.0, 3, 9.0),
                              points(WaveformData(), 0.0, 1.0, 2, 9.0), points(ramp(10, 1.0, 0.0), 0.0, 9.0, 0, 9.0)}),
                 QStringList({"0 60 -10, 50 110 -10, 100 110 40", "50 8 0, 55 8 0, 60 8 0", "0 8 0, 1 8 0", ""}));
    }

    // The editor joins the points by straight limits, as the checker reads them: whatever the
    // region and the count, every sample under them lies inside.
    void generatedLimitsContainTheSamples_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<double>("start");
        QTest::addColumn<double>("end");
        for (const char *kind : {"step", "square", "noise"}) {
            QTest::addRow("%s/whole", kind) << QString(kind) << 0.0 << 0.999;
            QTest::addRow("%s/part", kind) << QString(kind) << 0.137 << 0.613;
        }
    }
    void generatedLimitsContainTheSamples()
    {
        QFETCH(QString, kind);
        QFETCH(double, start);
        QFETCH(double, end);
        WaveformData w = ramp(1000, 1e-3, 0.0);
        uint32_t state = 12345;
        for (double &v : w.samples.writable()) {
            const int i = static_cast<int>(&v - w.samples->data());
            state = state * 1664525u + 1013904223u;
            const double noise = (state >> 8) / double(1 << 24) - 0.5;
            v = kind == "step" ? (i >= 400) * 5.0 : kind == "square" ? ((i / 23) % 2) * 3.0 + 0.01 * noise : noise;
        }
        for (int count : {2, 3, 7, 20, 48, 100}) {
            const QVector<EnvelopePoint> points = generateEnvelopePoints(w, start, end, count, -10.0, 10.0);
            EnvelopeData e;
            for (WaveformData *curve : {&e.upper, &e.lower}) {
                curve->startTime = points.first().time;
                curve->sampleInterval = (points.last().time - points.first().time) / (count - 1);
            }
            for (const EnvelopePoint &p : points) {
                e.upper.samples.writable().push_back(p.upperValue);
                e.lower.samples.writable().push_back(p.lowerValue);
            }
            const EnvelopeCheckResult r = checkEnvelope(w, e);
            QVERIFY2(r.violations() == 0 && r.checked > 0, qPrintable(QStringLiteral("%1 points: %2 outside at %3")
                                                                          .arg(count).arg(r.violations()).arg(r.firstViolation)));
        }
    }

    void samplesAnEnvelopeIntoPoints_data()
    {
        QTest::addColumn<int>("count");
        QTest::addColumn<QStringList>("points");
        // Samples 0 1 2 3 4 at 1 s from t = 1, with gaps in the upper curve at 3 s, the lower at 4 s.
        QTest::newRow("one point a sample") << 5
            << QStringList{"1 0 0", "2 1 1", "3 nan nan off", "4 nan nan off", "5 4 4"};
        QTest::newRow("fewer points") << 3 << QStringList{"1 0 0", "3 nan nan off", "5 4 4"};
        QTest::newRow("more points, next to a gap") << 9
            << QStringList{"1 0 0", "1.5 0.5 0.5", "2 1 1", "2.5 nan nan off", "3 nan nan off", "3.5 nan nan off",
                           "4 nan nan off", "4.5 nan nan off", "5 4 4"};
    }
    void samplesAnEnvelopeIntoPoints()
    {
        QFETCH(int, count);
        QFETCH(QStringList, points);
        EnvelopeData e;
        e.upper = e.lower = ramp(5, 1.0, 1.0);
        e.upper.samples.writable()[2] = std::nan("");
        e.lower.samples.writable()[3] = std::nan("");
        QCOMPARE(described(sampleEnvelopeToPoints(e, count)), points);
    }
};

QTEST_APPLESS_MAIN(TstEnvelopePoints)
#include "tst_envelopepoints.moc"
