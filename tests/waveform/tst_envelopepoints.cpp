#include "vornwaveform.h"

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

} // namespace

class TstEnvelopePoints : public QObject
{
    Q_OBJECT

private slots:
    void snapsToTheNearestSample_data();
    void snapsToTheNearestSample();
    void limitsFollowTheSamplesHalfWayToTheNeighbours();
    void regionOutsideTheDataSitsAtNinetyAndTenPercent();
    void gapsBecomeDisabledPoints();
    void fewerPointsInterpolateBetweenSamples();
};

void TstEnvelopePoints::snapsToTheNearestSample_data()
{
    QTest::addColumn<double>("t");
    QTest::addColumn<double>("interval");
    QTest::addColumn<double>("start");
    QTest::addColumn<double>("snapped");
    QTest::newRow("on the grid") << 3e-3 << 1e-3 << 0.0 << 3e-3;
    QTest::newRow("below half") << 3.4e-3 << 1e-3 << 0.0 << 3e-3;
    QTest::newRow("above half") << 3.6e-3 << 1e-3 << 0.0 << 4e-3;
    QTest::newRow("shifted start") << 0.26 << 0.5 << 0.1 << 0.1;
    QTest::newRow("negative times") << -1.3 << 1.0 << -5.0 << -1.0;
}

void TstEnvelopePoints::snapsToTheNearestSample()
{
    QFETCH(double, t);
    QFETCH(double, interval);
    QFETCH(double, start);
    QFETCH(double, snapped);
    QCOMPARE(snapToSampleGrid(t, interval, start), snapped);
}

void TstEnvelopePoints::limitsFollowTheSamplesHalfWayToTheNeighbours()
{
    // Samples 0..100 at 1 s: points at 0, 50, 100 see [0, 25], [25, 75] and [75, 100].
    const WaveformData w = ramp(101, 1.0, 0.0);
    const QVector<EnvelopePoint> points = generateEnvelopePoints(w, 0.0, 100.0, 3, 0.0, 200.0);
    QCOMPARE(points.size(), 3);
    QCOMPARE(points[0].time, 0.0);
    QCOMPARE(points[1].time, 50.0);
    QCOMPARE(points[2].time, 100.0);
    const double margin = 0.05 * 200.0;
    QCOMPARE(points[0].upperValue, 25 + margin);
    QCOMPARE(points[0].lowerValue, 0 - margin);
    QCOMPARE(points[1].upperValue, 75 + margin);
    QCOMPARE(points[1].lowerValue, 25 - margin);
    QCOMPARE(points[2].upperValue, 100 + margin);
    QCOMPARE(points[2].lowerValue, 75 - margin);
}

void TstEnvelopePoints::regionOutsideTheDataSitsAtNinetyAndTenPercent()
{
    const WaveformData w = ramp(10, 1.0, 0.0);
    const QVector<EnvelopePoint> points = generateEnvelopePoints(w, 50.0, 60.0, 4, -1.0, 9.0);
    QCOMPARE(points.size(), 4);
    for (const EnvelopePoint &p : points) {
        QCOMPARE(p.upperValue, 8.0);
        QCOMPARE(p.lowerValue, 0.0);
    }
    QCOMPARE(generateEnvelopePoints(WaveformData(), 0.0, 1.0, 3, 0.0, 10.0).size(), 3);
    QVERIFY(generateEnvelopePoints(w, 0.0, 9.0, 0, 0.0, 10.0).isEmpty());
}

void TstEnvelopePoints::gapsBecomeDisabledPoints()
{
    EnvelopeData e;
    e.upper = ramp(4, 0.5, 1.0);
    e.lower = ramp(4, 0.5, 1.0);
    e.upper.samples.writable()[1] = std::nan("");
    e.lower.samples.writable()[2] = std::nan("");
    const QVector<EnvelopePoint> points = sampleEnvelopeToPoints(e, 4);
    QCOMPARE(points.size(), 4);
    const bool enabled[] = {true, false, false, true};
    for (int i = 0; i < 4; ++i) {
        QCOMPARE(points[i].time, 1.0 + 0.5 * i);
        QCOMPARE(points[i].enabled, enabled[i]);
        QCOMPARE(std::isnan(points[i].upperValue), !enabled[i]);
        QCOMPARE(std::isnan(points[i].lowerValue), !enabled[i]);
    }
    QCOMPARE(points[3].upperValue, 3.0);
}

void TstEnvelopePoints::fewerPointsInterpolateBetweenSamples()
{
    EnvelopeData e;
    e.upper = ramp(5, 1.0, 0.0); // 0 1 2 3 4
    e.lower = ramp(5, 1.0, 0.0);
    const QVector<EnvelopePoint> points = sampleEnvelopeToPoints(e, 3);
    QCOMPARE(points.size(), 3);
    QCOMPARE(points[1].time, 2.0);
    QCOMPARE(points[1].upperValue, 2.0);
    const QVector<EnvelopePoint> denser = sampleEnvelopeToPoints(e, 9);
    QCOMPARE(denser[1].time, 0.5);
    QCOMPARE(denser[1].upperValue, 0.5);
    QCOMPARE(denser[8].upperValue, 4.0);
}

QTEST_APPLESS_MAIN(TstEnvelopePoints)
#include "tst_envelopepoints.moc"
