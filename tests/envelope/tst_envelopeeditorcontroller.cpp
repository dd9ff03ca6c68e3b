// The editor's point rules, on plain data and without a chart view.
#include "envelopeeditorcontroller.h"

#include <QSignalSpy>
#include <QtTest>

#include <cmath>
#include <limits>

const double NaN = std::numeric_limits<double>::quiet_NaN();

class TstEnvelopeEditorController : public QObject
{
    Q_OBJECT

private slots:
    // Lonely at both ends, lonely in the middle, a single point, a pair, none. Point i at time i
    // with limits 1 + i and -1 - i, enabled where the pattern says E.
    void disablesLonelyPoints()
    {
        QStringList after;
        for (const QString before : {"EDEEDE", "EEDEDEE", "E", "EE", ""}) {
            QVector<EnvelopePoint> points;
            for (int i = 0; i < before.size(); ++i)
                points.append({double(i), 1.0 + i, -1.0 - i, before.at(i) == 'E'});
            EnvelopeEditorController::disableLonelyPoints(points);
            after << QString();
            for (const EnvelopePoint &point : points)
                after.last() += point.enabled ? 'E' : 'D';
        }
        QCOMPARE(after, QStringList({"DDEEDD", "EEDDDEE", "D", "EE", ""}));
    }

    // More points take their mean spacing, which the graph's Apply checks with the values and gaps.
    void onePointKeepsTheWaveformsInterval()
    {
        EnvelopeEditData edit;
        edit.sampleInterval = 0.001;
        edit.points.append({5.0, 1.0, 0.0, true});
        EnvelopeEditorController::updateSampleInterval(edit);
        QCOMPARE(edit.sampleInterval, 0.001);
    }

    // Disabled without values, disabled with values, enabled without values; on an axis from -2
    // to 8 the parked limits are 90 % and 10 % of the way up.
    void parksOnlyDisabledPointsWithoutValues()
    {
        QVector<EnvelopePoint> points = {{0, NaN, NaN, false}, {1, 3.0, 2.0, false}, {2, NaN, NaN, true}};
        EnvelopeEditorController::initializeDisabledPointValues(points, -2.0, 8.0);
        QStringList limits;
        for (const EnvelopePoint &p : points)
            limits << QStringLiteral("%1 %2").arg(p.upperValue).arg(p.lowerValue);
        QCOMPARE(limits, QStringList({"7 -1", "3 2", "nan nan"}));
    }

    void pointCountIsAtLeastTwo()
    {
        EnvelopeEditorController controller;
        QSignalSpy counted(&controller, &EnvelopeEditorController::pointCountChanged);
        controller.setPointCount(1);
        const int lowest = controller.pointCount();
        controller.setPointCount(50);
        QCOMPARE(QList<int>({lowest, controller.pointCount(), int(counted.size())}), QList<int>({2, 50, 0}));
    }

    void finishingWhileSelectingGivesOneEmptyEnvelope()
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
};

QTEST_MAIN(TstEnvelopeEditorController)
#include "tst_envelopeeditorcontroller.moc"
