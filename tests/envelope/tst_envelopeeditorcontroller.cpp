#include "../interaction/charttestharness.h"
#include "envelopeeditorcontroller.h"
#include "envelopeeditoroverlay.h"

#include <QGraphicsItem>
#include <QGraphicsLineItem>
#include <QGraphicsPolygonItem>
#include <QGraphicsScene>
#include <QPushButton>
#include <QSignalSpy>
#include <QSpinBox>
#include <QtTest>

#include <cmath>
#include <limits>

namespace {

const double NaN = std::numeric_limits<double>::quiet_NaN();
constexpr double FILL_Z = 997.0, LINE_Z = 998.0, TOGGLE_Z = 1002.0;

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

// The chart harness with a controller and its panel wired together as the graph wires them.
struct Editor
{
    ChartTestHarness chart;
    EnvelopeEditorController controller;
    EnvelopeEditorOverlay *overlay = new EnvelopeEditorOverlay(chart.view.get());
    QStringList events;

    Editor()
    {
        controller.setChartView(chart.view.get());
        QObject::connect(overlay, &EnvelopeEditorOverlay::applyClicked, &controller, &EnvelopeEditorController::finishEditing);
        QObject::connect(overlay, &EnvelopeEditorOverlay::cancelClicked, &controller, &EnvelopeEditorController::cancelEditing);
        QObject::connect(overlay, &EnvelopeEditorOverlay::pointCountChanged, &controller, &EnvelopeEditorController::setPointCount);
        QObject::connect(&controller, &EnvelopeEditorController::pointCountChanged, overlay, &EnvelopeEditorOverlay::setPointCount);
        QObject::connect(&controller, &EnvelopeEditorController::stateChanged, overlay, &EnvelopeEditorOverlay::updateState);
        QObject::connect(&controller, &EnvelopeEditorController::pointCountChanged, [this](int n) { events << QString("count %1").arg(n); });
        QObject::connect(&controller, &EnvelopeEditorController::stateChanged, [this](EnvelopeEditorController::State s) { events << QString("state %1").arg(s); });
        QObject::connect(&controller, &EnvelopeEditorController::editingStarted, [this](int i) { events << QString("started %1").arg(i); });
        QObject::connect(&controller, &EnvelopeEditorController::editingFinished, [this](int i) { events << QString("finished %1").arg(i); });
        QObject::connect(&controller, &EnvelopeEditorController::editingCancelled, [this] { events << "cancelled"; });
        overlay->move(600, 8);
        overlay->show();
    }

    QGraphicsScene *scene() const { return chart.chart->scene(); }
    QList<QGraphicsItem *> items(double z, bool visibleOnly = false) const
    {
        QList<QGraphicsItem *> found;
        for (QGraphicsItem *item : scene()->items())
            if (item->zValue() == z && (!visibleOnly || item->isVisible()))
                found << item;
        return found;
    }
    int editorItemCount() const
    {
        int n = 0;
        for (QGraphicsItem *item : scene()->items())
            n += item->zValue() >= FILL_Z;
        return n;
    }
    QPushButton *button(const QString &text) const
    {
        for (QPushButton *b : overlay->findChildren<QPushButton *>())
            if (b->text() == text)
                return b;
        return nullptr;
    }
    QPoint upperHandle(int i) const { return chart.viewPos(point(i).time, point(i).upperValue); }
    QPoint toggle(int i) const
    {
        const QPointF middle = (chart.scenePos(point(i).time, point(i).upperValue) + chart.scenePos(point(i).time, point(i).lowerValue)) / 2;
        return chart.view->mapFromScene(middle);
    }
    const EnvelopePoint &point(int i) const { return controller.points().at(i); }
    void click(const QPoint &pos)
    {
        chart.press(pos);
        chart.release(pos);
    }
    // Snaps to samples 10 and 37, so the ten points fall on every third sample.
    void selectRegion()
    {
        controller.startEditing(0, chart.waveform, Qt::darkCyan, chart.series);
        chart.drag(chart.viewPos(10.3, 0.0), chart.viewPos(36.8, 0.0));
    }
};

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

    void draggedRegionGivesTenPointsOnTheSampleGrid();
    void regionStartIsRaisedToTheFirstSample();
    void draggedHandleMovesPointLinesAndFill();
    void toggleHidesTheLinesOfAPointAndSplitsTheFill();
    void spinBoxRegeneratesPointsOverTheRegion();
    void applyDeliversTheEnvelopeThePointsDescribe();
    void finishingWhileSelectingGivesAnEmptyEnvelope();
    void cancelLeavesNothingBehind();
    void loadsAnExistingEnvelope_data();
    void loadsAnExistingEnvelope();
    void loadedGapCanBeSwitchedOnInsideTheAxisRange();
    void markersFollowAResize();
    void destroyingTheViewMidEditLeavesNothingBehind_data();
    void destroyingTheViewMidEditLeavesNothingBehind();
    void destroyingTheControllerMidEditCleansTheView();
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

void TstEnvelopeEditorController::draggedRegionGivesTenPointsOnTheSampleGrid()
{
    Editor editor;
    QVERIFY(editor.chart.ready());
    editor.controller.startEditing(3, editor.chart.waveform, Qt::darkCyan, editor.chart.series);
    QCOMPARE(editor.events, QStringList({"count 10", "state 1", "started 3"}));
    QCOMPARE(editor.controller.state(), EnvelopeEditorController::SelectingRegion);
    QVERIFY(!editor.controller.canFinish());

    editor.chart.drag(editor.chart.viewPos(36.8, 0.5), editor.chart.viewPos(10.3, -0.5));
    QCOMPARE(editor.controller.state(), EnvelopeEditorController::EditingPoints);
    QVERIFY(editor.controller.canFinish());
    QCOMPARE(editor.controller.points().size(), 10);
    QCOMPARE(editor.point(0).time, 10.0);
    QCOMPARE(editor.point(9).time, 37.0);
    for (const EnvelopePoint &point : editor.controller.points())
        QCOMPARE(point.time, std::round(point.time));
    QCOMPARE(editor.items(TOGGLE_Z).size(), 10);
    QCOMPARE(editor.items(LINE_Z, true).size(), 18);
    QCOMPARE(editor.items(FILL_Z).size(), 1);
}

void TstEnvelopeEditorController::regionStartIsRaisedToTheFirstSample()
{
    Editor editor;
    QVERIFY(editor.chart.ready());
    editor.controller.startEditing(0, editor.chart.waveform, Qt::darkCyan, editor.chart.series);
    editor.chart.drag(editor.chart.viewPos(-6.0, 0.0), editor.chart.viewPos(104.2, 0.0));
    QCOMPARE(editor.point(0).time, 0.0);
    QCOMPARE(editor.point(9).time, 104.0);
}

void TstEnvelopeEditorController::draggedHandleMovesPointLinesAndFill()
{
    Editor editor;
    QVERIFY(editor.chart.ready());
    editor.selectRegion();
    QSignalSpy updated(&editor.controller, &EnvelopeEditorController::pointsUpdated);
    const QPoint start = editor.upperHandle(3);
    const QPoint end = start + QPoint(0, -40);
    editor.chart.press(start);
    editor.chart.move(start + QPoint(0, -20));
    editor.chart.move(end);
    editor.chart.release(end);
    QCOMPARE(updated.size(), 2);
    QCOMPARE(editor.point(3).upperValue, editor.chart.valueAt(end));

    const QPointF moved = editor.chart.scenePos(editor.point(3).time, editor.point(3).upperValue);
    int lineEnds = 0;
    for (QGraphicsItem *item : editor.items(LINE_Z)) {
        const QLineF line = static_cast<QGraphicsLineItem *>(item)->line();
        lineEnds += (line.p1() == moved) + (line.p2() == moved);
    }
    QCOMPARE(lineEnds, 2);
    const QList<QGraphicsItem *> fills = editor.items(FILL_Z);
    QCOMPARE(fills.size(), 1);
    QVERIFY(static_cast<QGraphicsPolygonItem *>(fills.first())->polygon().contains(moved));
}

void TstEnvelopeEditorController::toggleHidesTheLinesOfAPointAndSplitsTheFill()
{
    Editor editor;
    QVERIFY(editor.chart.ready());
    editor.selectRegion();
    editor.click(editor.toggle(4));
    QVERIFY(!editor.point(4).enabled);
    QCOMPARE(editor.items(LINE_Z, true).size(), 14);
    QCOMPARE(editor.items(FILL_Z).size(), 2);
    editor.click(editor.toggle(4));
    QVERIFY(editor.point(4).enabled);
    QCOMPARE(editor.items(LINE_Z, true).size(), 18);
    QCOMPARE(editor.items(FILL_Z).size(), 1);
}

void TstEnvelopeEditorController::spinBoxRegeneratesPointsOverTheRegion()
{
    Editor editor;
    QVERIFY(editor.chart.ready());
    editor.selectRegion();
    editor.click(editor.toggle(4));
    QSignalSpy updated(&editor.controller, &EnvelopeEditorController::pointsUpdated);
    auto *spinBox = editor.overlay->findChild<QSpinBox *>();
    QVERIFY(spinBox->isEnabled());
    spinBox->selectAll();
    QTest::keyClicks(spinBox, "5");
    QCOMPARE(editor.controller.pointCount(), 5);
    QCOMPARE(updated.size(), 1);
    const QVector<EnvelopePoint> expected =
        generateEnvelopePoints(editor.chart.waveform, 10.0, 37.0, 5, -2.0, 2.0);
    QCOMPARE(editor.controller.points().size(), 5);
    for (int i = 0; i < 5; ++i) {
        QCOMPARE(editor.point(i).time, expected[i].time);
        QCOMPARE(editor.point(i).upperValue, expected[i].upperValue);
        QVERIFY(editor.point(i).enabled);
    }
    QCOMPARE(editor.items(TOGGLE_Z).size(), 5);
    QCOMPARE(editor.items(LINE_Z).size(), 8);
}

void TstEnvelopeEditorController::applyDeliversTheEnvelopeThePointsDescribe()
{
    Editor editor;
    QVERIFY(editor.chart.ready());
    editor.selectRegion();
    editor.chart.drag(editor.upperHandle(3), editor.upperHandle(3) + QPoint(0, -30));
    editor.click(editor.toggle(1));
    editor.click(editor.toggle(4));
    const QVector<EnvelopePoint> points = editor.controller.points();
    QSignalSpy finished(&editor.controller, &EnvelopeEditorController::editingFinished);
    editor.events.clear();

    QTest::mouseClick(editor.button("Apply"), Qt::LeftButton);
    QCOMPARE(editor.events, QStringList({"state 0", "finished 0"}));
    const EnvelopeData envelope = finished.at(0).at(1).value<EnvelopeData>();
    QCOMPARE(envelope.upper.startTime, 10.0);
    QCOMPARE(envelope.upper.sampleInterval, 3.0);
    QCOMPARE(envelope.lower.sampleInterval, 3.0);
    QCOMPARE(envelope.upper.samples->size(), size_t(10));
    const QString gaps = "DDEEDEEEEE"; // point 0 was left alone by the toggle of point 1
    for (int i = 0; i < 10; ++i) {
        const double upper = envelope.upper.samples->at(size_t(i));
        const double lower = envelope.lower.samples->at(size_t(i));
        if (gaps.at(i) == 'D') {
            QVERIFY2(std::isnan(upper) && std::isnan(lower), qPrintable(QString::number(i)));
        } else {
            QCOMPARE(upper, points[i].upperValue);
            QCOMPARE(lower, points[i].lowerValue);
        }
    }
    QCOMPARE(editor.editorItemCount(), 0);
    QVERIFY(!editor.chart.view->interactionMode());
    QCOMPARE(editor.controller.waveformIndex(), -1);
}

void TstEnvelopeEditorController::finishingWhileSelectingGivesAnEmptyEnvelope()
{
    Editor editor;
    QVERIFY(editor.chart.ready());
    editor.controller.startEditing(0, editor.chart.waveform, Qt::darkCyan, editor.chart.series);
    QSignalSpy finished(&editor.controller, &EnvelopeEditorController::editingFinished);
    editor.controller.finishEditing();
    QCOMPARE(finished.size(), 1);
    QVERIFY(finished.at(0).at(1).value<EnvelopeData>().isEmpty());
    editor.controller.finishEditing();
    QCOMPARE(finished.size(), 1);
}

void TstEnvelopeEditorController::cancelLeavesNothingBehind()
{
    Editor editor;
    QVERIFY(editor.chart.ready());
    editor.selectRegion();
    QVERIFY(editor.editorItemCount() > 0);
    editor.events.clear();
    QTest::mouseClick(editor.button("Cancel"), Qt::LeftButton);
    QCOMPARE(editor.events, QStringList({"state 0", "cancelled"}));
    QCOMPARE(editor.editorItemCount(), 0);
    QVERIFY(!editor.chart.view->interactionMode());
    QVERIFY(!editor.controller.isEditing());
}

void TstEnvelopeEditorController::loadsAnExistingEnvelope_data()
{
    QTest::addColumn<int>("samples");
    QTest::newRow("25 samples") << 25;
    QTest::newRow("one sample") << 1;
}

void TstEnvelopeEditorController::loadsAnExistingEnvelope()
{
    QFETCH(int, samples);
    EnvelopeData envelope;
    envelope.upper.startTime = envelope.lower.startTime = 5.0;
    envelope.upper.sampleInterval = envelope.lower.sampleInterval = 2.0;
    envelope.upper.samples->assign(size_t(samples), 1.0);
    envelope.lower.samples->assign(size_t(samples), -1.0);
    ChartTestHarness chart;
    QVERIFY(chart.ready());
    EnvelopeEditorController controller;
    controller.setChartView(chart.view.get());
    QSignalSpy counted(&controller, &EnvelopeEditorController::pointCountChanged);
    controller.startEditingExisting(1, chart.waveform, envelope, Qt::red, chart.series);
    QCOMPARE(counted.size(), 1);
    QCOMPARE(counted.at(0).at(0).toInt(), samples);
    QCOMPARE(controller.pointCount(), samples);
    QCOMPARE(controller.state(), EnvelopeEditorController::EditingPoints);
    QCOMPARE(controller.points().size(), samples);
    QCOMPARE(controller.points().last().time, 5.0 + 2.0 * (samples - 1));
    QCOMPARE(controller.createEnvelopeData().upper.sampleInterval, samples > 1 ? 2.0 : chart.waveform.sampleInterval);
}

void TstEnvelopeEditorController::loadedGapCanBeSwitchedOnInsideTheAxisRange()
{
    Editor editor;
    QVERIFY(editor.chart.ready());
    EnvelopeData envelope;
    envelope.upper.sampleInterval = envelope.lower.sampleInterval = 10.0;
    *envelope.upper.samples = {1.0, 1.0, NaN, 1.0};
    *envelope.lower.samples = {-1.0, -1.0, NaN, -1.0};
    editor.controller.startEditingExisting(0, editor.chart.waveform, envelope, Qt::red, editor.chart.series);
    QVERIFY(!editor.point(2).enabled);
    QCOMPARE(editor.point(2).upperValue, 1.6); // 90 % of -2..2
    QCOMPARE(editor.point(2).lowerValue, -1.6);
    editor.click(editor.toggle(2));
    QVERIFY(editor.point(2).enabled);
    QCOMPARE(editor.items(LINE_Z, true).size(), 6);
    editor.controller.finishEditing();
}

void TstEnvelopeEditorController::markersFollowAResize()
{
    Editor editor;
    QVERIFY(editor.chart.ready());
    editor.selectRegion();
    const QRectF before = editor.chart.chart->plotArea();
    editor.chart.view->resize(700, 400);
    QVERIFY(QTest::qWaitFor([&] { return editor.chart.chart->plotArea() != before; }));
    editor.controller.updateMarkerPositions();
    QList<QPointF> toggles;
    for (QGraphicsItem *item : editor.items(TOGGLE_Z))
        toggles << item->pos();
    for (int i = 0; i < 10; ++i) {
        const QPointF expected = (editor.chart.scenePos(editor.point(i).time, editor.point(i).upperValue)
                                  + editor.chart.scenePos(editor.point(i).time, editor.point(i).lowerValue)) / 2;
        QVERIFY2(toggles.contains(expected), qPrintable(QString::number(i)));
    }
    const QPointF firstUpper = editor.chart.scenePos(10.0, editor.point(0).upperValue);
    const auto lineStartsAt = [&](const QPointF &p) {
        for (QGraphicsItem *item : editor.items(LINE_Z))
            if (static_cast<QGraphicsLineItem *>(item)->line().p1() == p)
                return true;
        return false;
    };
    QVERIFY(lineStartsAt(firstUpper));
}

void TstEnvelopeEditorController::destroyingTheViewMidEditLeavesNothingBehind_data()
{
    QTest::addColumn<int>("stage");
    QTest::newRow("selecting a region") << 0;
    QTest::newRow("editing points") << 1;
    QTest::newRow("dragging a handle") << 2;
}

void TstEnvelopeEditorController::destroyingTheViewMidEditLeavesNothingBehind()
{
    QFETCH(int, stage);
    auto editor = std::make_unique<Editor>();
    QVERIFY(editor->chart.ready());
    editor->controller.startEditing(0, editor->chart.waveform, Qt::darkCyan, editor->chart.series);
    if (stage == 0)
        editor->chart.press(editor->chart.viewPos(20.0, 0.0));
    else
        editor->chart.drag(editor->chart.viewPos(10.3, 0.0), editor->chart.viewPos(36.8, 0.0));
    if (stage == 2)
        editor->chart.press(editor->upperHandle(2));
    QSignalSpy cancelled(&editor->controller, &EnvelopeEditorController::editingCancelled);
    editor->chart.view.reset();
    editor->controller.updateMarkerPositions();
    editor->controller.setPointCount(4);
    editor->controller.cancelEditing();
    QCOMPARE(cancelled.size(), 1);
    QVERIFY(!editor->controller.isEditing());
    editor.reset();
}

void TstEnvelopeEditorController::destroyingTheControllerMidEditCleansTheView()
{
    ChartTestHarness chart;
    QVERIFY(chart.ready());
    auto controller = std::make_unique<EnvelopeEditorController>();
    controller->setChartView(chart.view.get());
    controller->startEditing(0, chart.waveform, Qt::darkCyan, chart.series);
    chart.drag(chart.viewPos(10.3, 0.0), chart.viewPos(36.8, 0.0));
    QVERIFY(chart.view->interactionMode());
    const int sceneItems = chart.chart->scene()->items().size();
    controller.reset();
    QVERIFY(!chart.view->interactionMode());
    QCOMPARE(chart.chart->scene()->items().size(), sceneItems - 10 * 6 - 18 - 1);
}

QTEST_MAIN(TstEnvelopeEditorController)
#include "tst_envelopeeditorcontroller.moc"
