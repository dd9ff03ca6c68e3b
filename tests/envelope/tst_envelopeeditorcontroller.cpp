// The editor's point rules, on plain data and without a chart view.
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
    void parksOnlyDisabledPointsWithoutValues_data();
    void parksOnlyDisabledPointsWithoutValues();
    void pointCountIsAtLeastTwo();
    void finishingWhileSelectingGivesOneEmptyEnvelope();
};

void TstEnvelopeEditorController::disablesLonelyPoints_data()
{
    QTest::addColumn<QString>("before");
    QTest::addColumn<QString>("after");
    QTest::newRow("lonely at both ends") << "EDEEDE" << "DDEEDD";
    QTest::newRow("lonely in the middle") << "EEDEDEE" << "EEDDDEE";
    QTest::newRow("single point") << "E" << "D";
    QTest::newRow("pair") << "EE" << "EE";
    QTest::newRow("empty") << "" << "";
}

void TstEnvelopeEditorController::disablesLonelyPoints()
{
    QFETCH(QString, before);
    QFETCH(QString, after);
    QVector<EnvelopePoint> points = pointsFromPattern(before);
    EnvelopeEditorController::disableLonelyPoints(points);
    QString pattern;
    for (const EnvelopePoint &point : points)
        pattern += point.enabled ? 'E' : 'D';
    QCOMPARE(pattern, after);
}

// Start, interval and values are checked through the graph's Apply.
void TstEnvelopeEditorController::disabledPointsBecomeGapsInBothCurves()
{
    WaveformData waveform;
    waveform.name = "probe";
    waveform.unit = "A";
    EnvelopeEditData edit;
    edit.points = pointsFromPattern("EEDE");
    const EnvelopeData envelope = EnvelopeEditorController::createEnvelopeData(waveform, edit);
    QCOMPARE(envelope.upper.name, QString("probe [upper]"));
    QCOMPARE(envelope.lower.name, QString("probe [lower]"));
    for (const WaveformData *curve : {&envelope.upper, &envelope.lower}) {
        QCOMPARE(curve->unit, QString("A"));
        QCOMPARE(curve->samples->size(), size_t(4));
        QVERIFY(std::isnan(curve->samples->at(2)) && !std::isnan(curve->samples->at(3)));
    }
}

void TstEnvelopeEditorController::envelopeIntervalIsTheMeanPointSpacing_data()
{
    QTest::addColumn<QVector<double>>("times");
    QTest::addColumn<double>("interval");
    QTest::newRow("one point keeps the waveform's") << QVector<double>{5.0} << 0.001;
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

void TstEnvelopeEditorController::parksOnlyDisabledPointsWithoutValues_data()
{
    QTest::addColumn<EnvelopePoint>("point");
    QTest::addColumn<double>("upper");
    QTest::addColumn<double>("lower");
    // On an axis from -2 to 8: 90 % and 10 % of the way up.
    QTest::newRow("disabled without values") << EnvelopePoint{0, NaN, NaN, false} << 7.0 << -1.0;
    QTest::newRow("disabled with values") << EnvelopePoint{1, 3.0, 2.0, false} << 3.0 << 2.0;
    QTest::newRow("enabled without values") << EnvelopePoint{2, NaN, NaN, true} << NaN << NaN;
}

void TstEnvelopeEditorController::parksOnlyDisabledPointsWithoutValues()
{
    QFETCH(EnvelopePoint, point);
    QFETCH(double, upper);
    QFETCH(double, lower);
    QVector<EnvelopePoint> points = {point};
    EnvelopeEditorController::initializeDisabledPointValues(points, -2.0, 8.0);
    QCOMPARE(points[0].upperValue, upper);
    QCOMPARE(points[0].lowerValue, lower);
}

void TstEnvelopeEditorController::pointCountIsAtLeastTwo()
{
    EnvelopeEditorController controller;
    QSignalSpy counted(&controller, &EnvelopeEditorController::pointCountChanged);
    controller.setPointCount(1);
    QCOMPARE(controller.pointCount(), 2);
    controller.setPointCount(50);
    QCOMPARE(controller.pointCount(), 50);
    QCOMPARE(counted.size(), 0);
}

void TstEnvelopeEditorController::finishingWhileSelectingGivesOneEmptyEnvelope()
{
    EnvelopeEditorController controller;
    controller.startEditing(0, WaveformData(), Qt::darkCyan, nullptr);
    QCOMPARE(controller.state(), EnvelopeEditorController::SelectingRegion);
    QSignalSpy finished(&controller, &EnvelopeEditorController::editingFinished);
    controller.finishEditing();
    controller.finishEditing();
    QCOMPARE(finished.size(), 1);
    QVERIFY(finished.at(0).at(1).value<EnvelopeData>().isEmpty());
}

QTEST_MAIN(TstEnvelopeEditorController)
#include "tst_envelopeeditorcontroller.moc"
