// The editor's point rules on plain data; then the controller on a bare chart view: its scene
// graphics, the waveform's own axis, and the view or the controller going away mid-edit.
#include "../interaction/charttestharness.h"
#include "envelopeeditorcontroller.h"

#include <QGraphicsLineItem>
#include <QGraphicsPolygonItem>
#include <QGraphicsScene>
#include <QSignalSpy>
#include <QtTest>

namespace {

constexpr double FILL_Z = 997.0, LINE_Z = 998.0;
const double NaN = std::nan("");

struct Editor
{
    ChartTestHarness chart;
    std::unique_ptr<EnvelopeEditorController> controller = std::make_unique<EnvelopeEditorController>();

    Editor() { controller->setChartView(chart.view.get()); }

    QList<QGraphicsItem *> items(double z, bool visibleOnly = false) const
    {
        return itemsAtDepth(chart.chart->scene(), z, {}, visibleOnly);
    }
    QString drawn() const { return QStringLiteral("%1 lines, %2 fills").arg(items(LINE_Z, true).size()).arg(items(FILL_Z).size()); }
    const EnvelopePoint &point(int i) const { return controller->points().at(i); }
    QPoint upperHandle(int i) const { return chart.viewPos(point(i).time, point(i).upperValue); }
    void clickToggle(int i)
    {
        chart.click(chart.viewPos(point(i).time, (point(i).upperValue + point(i).lowerValue) / 2));
    }
    void start() { controller->startEditing(0, chart.waveform, Qt::darkCyan, chart.series); }
    void selectRegion(double from, double to)
    {
        start();
        chart.drag(chart.viewPos(from, 0.0), chart.viewPos(to, 0.0));
    }
};

} // namespace

class TstEnvelopeEditing : public QObject
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

    void linesAndFillFollowDragsAndToggles()
    {
        Editor editor;
        QVERIFY(editor.chart.ready());
        // From before the first sample: the points start on it.
        editor.selectRegion(-6.0, 98.7);
        QCOMPARE(QList<double>({editor.point(0).time, editor.point(9).time}), QList<double>({0.0, 99.0}));
        QCOMPARE(editor.drawn(), "18 lines, 1 fills");

        editor.chart.drag(editor.upperHandle(3), editor.upperHandle(3) + QPoint(0, -40));
        const QPointF moved = editor.chart.scenePos(editor.point(3).time, editor.point(3).upperValue);
        int lineEnds = 0;
        for (QGraphicsItem *item : editor.items(LINE_Z)) {
            const QLineF line = static_cast<QGraphicsLineItem *>(item)->line();
            lineEnds += (line.p1() == moved) + (line.p2() == moved);
        }
        QCOMPARE(lineEnds, 2);
        QVERIFY(static_cast<QGraphicsPolygonItem *>(editor.items(FILL_Z).value(0))->polygon().contains(moved));

        // A switched-off point takes the four lines it ends and splits the fill in two.
        editor.clickToggle(4);
        QCOMPARE(editor.drawn() + (editor.point(4).enabled ? "" : ", 4 off"), "14 lines, 2 fills, 4 off");
        editor.clickToggle(4);
        QCOMPARE(editor.drawn(), "18 lines, 1 fills");
    }

    void loadedEnvelopeParksItsGapInsideTheWaveformsAxisRange()
    {
        Editor editor;
        QVERIFY(editor.chart.ready());
        EnvelopeData envelope;
        envelope.upper.sampleInterval = 10.0;
        envelope.upper.samples.writable() = {1.0, 1.0, std::nan(""), 1.0};
        envelope.lower.samples.writable() = {-1.0, -1.0, std::nan(""), -1.0};
        editor.controller->startEditingExisting(0, editor.chart.waveform, envelope, Qt::red, editor.chart.series);
        QCOMPARE(QList<double>({double(editor.controller->pointCount()), editor.point(3).time,
                                editor.controller->createEnvelopeData().upper.sampleInterval}), QList<double>({4, 30, 10}));
        // Parked at 90 % and 10 % of the axis, -2..2.
        QVERIFY(!editor.point(2).enabled && editor.point(2).upperValue == 1.6 && editor.point(2).lowerValue == -1.6);
        QCOMPARE(editor.items(LINE_Z, true).size(), 2);
        editor.clickToggle(2);
        QVERIFY(editor.point(2).enabled && editor.items(LINE_Z, true).size() == 6);
    }

    void destroyingEitherSideMidEditLeavesNothingBehind_data()
    {
        QTest::addColumn<bool>("view");
        QTest::addColumn<int>("stage");
        QTest::newRow("view, selecting a region") << true << 0;
        QTest::newRow("view, dragging a handle") << true << 2;
        QTest::newRow("controller, dragging a handle") << false << 2;
    }

    // The address sanitizer build also shows whatever is left or freed twice.
    void destroyingEitherSideMidEditLeavesNothingBehind()
    {
        QFETCH(bool, view);
        QFETCH(int, stage);
        Editor editor;
        QVERIFY(editor.chart.ready());
        const int sceneItems = editor.chart.chart->scene()->items().size();
        if (stage == 0) {
            editor.start();
            editor.chart.press(editor.chart.viewPos(20.0, 0.0));
        } else {
            editor.selectRegion(10.3, 36.8);
        }
        if (stage == 2)
            editor.chart.press(editor.upperHandle(2));
        if (view) {
            QSignalSpy cancelled(editor.controller.get(), &EnvelopeEditorController::editingCancelled);
            editor.chart.view.reset();
            editor.controller->updateMarkerPositions();
            editor.controller->setPointCount(4);
            editor.controller->cancelEditing();
            QCOMPARE(cancelled.size(), 1);
        } else {
            editor.controller.reset();
            QVERIFY(!editor.chart.view->interactionMode());
            QCOMPARE(editor.chart.chart->scene()->items().size(), sceneItems);
        }
    }
};

QTEST_MAIN(TstEnvelopeEditing)
#include "tst_envelopeediting.moc"
