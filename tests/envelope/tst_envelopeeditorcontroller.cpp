// The editor's point rules, on plain data: no chart, no scene.
#include "envelopeeditorcontroller.h"

#include <QSignalSpy>
#include <QtTest>

#include <cmath>
#include <limits>

namespace {

const double NaN = std::numeric_limits<double>::quiet_NaN();

// "EDE": point i at time i with limits 1 + i and -1 - i, enabled where the pattern says E.
QVector<EnvelopePoint> pointsFromPattern(const QString &pattern)
{
    QVector<EnvelopePoint> points;
    for (int i = 0; i < pattern.size(); ++i)
        points.append({double(i), 1.0 + i, -1.0 - i, pattern.at(i) == 'E'});
    return points;
}

QString patternOf(const QVector<EnvelopePoint> &points)
{
    QString pattern;
    for (const EnvelopePoint &point : points)
        pattern += point.enabled ? 'E' : 'D';
    return pattern;
}

} // namespace

class TstEnvelopeEditorController : public QObject
{
    Q_OBJECT

private slots:
    void disablesLonelyPoints_data();
    void disablesLonelyPoints();
    void disabledPointsBecomeGapsInBothCurves();
    void envelopeIntervalIsTheMeanPointSpacing_data();
    void envelopeIntervalIsTheMeanPointSpacing();
    void parksOnlyDisabledPointsWithoutValues();
    void pointCountIsAtLeastTwo_data();
    void pointCountIsAtLeastTwo();
};

void TstEnvelopeEditorController::disablesLonelyPoints_data()
{
    QTest::addColumn<QString>("before");
    QTest::addColumn<QString>("after");
    QTest::newRow("lonely at both ends") << "EDEEDE" << "DDEEDD";
    QTest::newRow("lonely in the middle") << "EEDEDEE" << "EEDDDEE";
    QTest::newRow("all enabled") << "EEEE" << "EEEE";
    QTest::newRow("single point") << "E" << "D";
    QTest::newRow("pair") << "EE" << "EE";
    QTest::newRow("all disabled") << "DDD" << "DDD";
    QTest::newRow("empty") << "" << "";
}

void TstEnvelopeEditorController::disablesLonelyPoints()
{
    QFETCH(QString, before);
    QFETCH(QString, after);
    QVector<EnvelopePoint> points = pointsFromPattern(before);
    EnvelopeEditorController::disableLonelyPoints(points);
    QCOMPARE(patternOf(points), after);
}

void TstEnvelopeEditorController::disabledPointsBecomeGapsInBothCurves()
{
    WaveformData waveform;
    waveform.name = "probe";
    waveform.unit = "A";
    EnvelopeEditData edit;
    edit.startTime = 0.25;
    edit.sampleInterval = 0.5;
    edit.points = pointsFromPattern("EEDE");
    const EnvelopeData envelope = EnvelopeEditorController::createEnvelopeData(waveform, edit);
    QCOMPARE(envelope.upper.name, QString("probe [upper]"));
    QCOMPARE(envelope.lower.name, QString("probe [lower]"));
    for (const WaveformData *curve : {&envelope.upper, &envelope.lower}) {
        QCOMPARE(curve->unit, QString("A"));
        QCOMPARE(curve->startTime, 0.25);
        QCOMPARE(curve->sampleInterval, 0.5);
        QCOMPARE(curve->samples->size(), size_t(4));
        QVERIFY(std::isnan(curve->samples->at(2)));
    }
    const std::vector<double> &upper = *envelope.upper.samples;
    const std::vector<double> &lower = *envelope.lower.samples;
    QCOMPARE(QVector<double>({upper[0], upper[1], upper[3]}), QVector<double>({1.0, 2.0, 4.0}));
    QCOMPARE(QVector<double>({lower[0], lower[1], lower[3]}), QVector<double>({-1.0, -2.0, -4.0}));

    edit.points.clear();
    QVERIFY(EnvelopeEditorController::createEnvelopeData(waveform, edit).isEmpty());
}

void TstEnvelopeEditorController::envelopeIntervalIsTheMeanPointSpacing_data()
{
    QTest::addColumn<QVector<double>>("times");
    QTest::addColumn<double>("interval");
    QTest::newRow("no points keep the waveform's") << QVector<double>{} << 0.001;
    QTest::newRow("one point keeps the waveform's") << QVector<double>{5.0} << 0.001;
    QTest::newRow("two points") << QVector<double>{1.0, 4.0} << 3.0;
    QTest::newRow("uneven points") << QVector<double>{0.0, 1.0, 5.0} << 2.5;
}

void TstEnvelopeEditorController::envelopeIntervalIsTheMeanPointSpacing()
{
    QFETCH(QVector<double>, times);
    QFETCH(double, interval);
    EnvelopeEditData edit;
    edit.sampleInterval = 0.001;
    for (double t : times)
        edit.points.append({t, 1.0, 0.0, true});
    EnvelopeEditorController::updateSampleInterval(edit);
    QCOMPARE(edit.sampleInterval, interval);
}

void TstEnvelopeEditorController::parksOnlyDisabledPointsWithoutValues()
{
    QVector<EnvelopePoint> points = {{0, NaN, NaN, false}, {1, 3.0, 2.0, false}, {2, NaN, NaN, true}};
    EnvelopeEditorController::initializeDisabledPointValues(points, -2.0, 8.0);
    QCOMPARE(points[0].upperValue, 7.0);
    QCOMPARE(points[0].lowerValue, -1.0);
    QCOMPARE(points[1].upperValue, 3.0);
    QCOMPARE(points[1].lowerValue, 2.0);
    QVERIFY(std::isnan(points[2].upperValue));
}

void TstEnvelopeEditorController::pointCountIsAtLeastTwo_data()
{
    QTest::addColumn<int>("requested");
    QTest::addColumn<int>("stored");
    QTest::newRow("one") << 1 << 2;
    QTest::newRow("negative") << -5 << 2;
    QTest::newRow("fifty") << 50 << 50;
}

void TstEnvelopeEditorController::pointCountIsAtLeastTwo()
{
    QFETCH(int, requested);
    QFETCH(int, stored);
    EnvelopeEditorController controller;
    QSignalSpy counted(&controller, &EnvelopeEditorController::pointCountChanged);
    controller.setPointCount(requested);
    QCOMPARE(controller.pointCount(), stored);
    QCOMPARE(counted.size(), 0);
}

QTEST_MAIN(TstEnvelopeEditorController)
#include "tst_envelopeeditorcontroller.moc"
