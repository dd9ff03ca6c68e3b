// Whole edits driven with mouse events on a chart view, the panel wired as the graph wires it.
#include "../interaction/charttestharness.h"
#include "envelopeeditorcontroller.h"
#include "envelopeeditoroverlay.h"

#include <QGraphicsLineItem>
#include <QGraphicsPolygonItem>
#include <QGraphicsScene>
#include <QPushButton>
#include <QSignalSpy>
#include <QSpinBox>
#include <QtTest>

namespace {

const double NaN = std::numeric_limits<double>::quiet_NaN();
constexpr double FILL_Z = 997.0, LINE_Z = 998.0, TOGGLE_Z = 1002.0;

struct Editor
{
    ChartTestHarness chart;
    EnvelopeEditorController controller;
    EnvelopeEditorOverlay *overlay = new EnvelopeEditorOverlay(chart.view.get());
    QStringList events;

    Editor()
    {
        using C = EnvelopeEditorController;
        using O = EnvelopeEditorOverlay;
        controller.setChartView(chart.view.get());
        QObject::connect(overlay, &O::applyClicked, &controller, &C::finishEditing);
        QObject::connect(overlay, &O::cancelClicked, &controller, &C::cancelEditing);
        QObject::connect(overlay, &O::pointCountChanged, &controller, &C::setPointCount);
        QObject::connect(&controller, &C::pointCountChanged, overlay, &O::setPointCount);
        QObject::connect(&controller, &C::stateChanged, overlay, &O::updateState);
        QObject::connect(&controller, &C::pointCountChanged, [this](int n) { events << QString("count %1").arg(n); });
        QObject::connect(&controller, &C::stateChanged, [this](C::State s) { events << QString("state %1").arg(s); });
        QObject::connect(&controller, &C::editingStarted, [this](int i) { events << QString("started %1").arg(i); });
        QObject::connect(&controller, &C::editingFinished, [this](int i) { events << QString("finished %1").arg(i); });
        QObject::connect(&controller, &C::editingCancelled, [this] { events << "cancelled"; });
        overlay->move(600, 8);
        overlay->show();
    }

    QList<QGraphicsItem *> items(double z, bool visibleOnly = false) const
    {
        QList<QGraphicsItem *> found;
        for (QGraphicsItem *item : chart.chart->scene()->items())
            if (item->zValue() == z && (!visibleOnly || item->isVisible()))
                found << item;
        return found;
    }
    int editorItemCount() const
    {
        int n = 0;
        for (double z = FILL_Z; z <= 1003.0; ++z)
            n += items(z).size();
        return n;
    }
    QPushButton *button(const QString &text) const
    {
        for (QPushButton *b : overlay->findChildren<QPushButton *>())
            if (b->text() == text)
                return b;
        return nullptr;
    }
    const EnvelopePoint &point(int i) const { return controller.points().at(i); }
    QPoint upperHandle(int i) const { return chart.viewPos(point(i).time, point(i).upperValue); }
    QPointF toggleScenePos(int i) const
    {
        return (chart.scenePos(point(i).time, point(i).upperValue) + chart.scenePos(point(i).time, point(i).lowerValue)) / 2;
    }
    void clickToggle(int i) { chart.click(chart.view->mapFromScene(toggleScenePos(i))); }
    // Snaps to samples 10 and 37, so the ten points fall on every third sample.
    void selectRegion()
    {
        controller.startEditing(0, chart.waveform, Qt::darkCyan, chart.series);
        chart.drag(chart.viewPos(10.3, 0.0), chart.viewPos(36.8, 0.0));
    }
};

} // namespace

class TstEnvelopeEditing : public QObject
{
    Q_OBJECT

private slots:
    void draggedRegionGivesTenPointsOnTheSampleGrid_data();
    void draggedRegionGivesTenPointsOnTheSampleGrid();
    void draggedHandleMovesPointLinesAndFill();
    void toggleHidesTheLinesOfAPointAndSplitsTheFill();
    void spinBoxRegeneratesPointsOverTheRegion();
    void applyDeliversTheEnvelopeThePointsDescribe();
    void cancelLeavesNothingBehind();
    void finishingWhileSelectingGivesAnEmptyEnvelope();
    void loadsAnExistingEnvelope_data();
    void loadsAnExistingEnvelope();
    void loadedGapCanBeSwitchedOnInsideTheAxisRange();
    void markersFollowAResize();
    void destroyingTheViewMidEditLeavesNothingBehind_data();
    void destroyingTheViewMidEditLeavesNothingBehind();
    void destroyingTheControllerMidEditCleansTheView();
};

void TstEnvelopeEditing::draggedRegionGivesTenPointsOnTheSampleGrid_data()
{
    QTest::addColumn<double>("from");
    QTest::addColumn<double>("to");
    QTest::addColumn<double>("first");
    QTest::addColumn<double>("last");
    QTest::newRow("right to left") << 36.8 << 10.3 << 10.0 << 37.0;
    QTest::newRow("from before the first sample") << -6.0 << 98.7 << 0.0 << 99.0;
}

void TstEnvelopeEditing::draggedRegionGivesTenPointsOnTheSampleGrid()
{
    QFETCH(double, from);
    QFETCH(double, to);
    QFETCH(double, first);
    QFETCH(double, last);
    Editor editor;
    QVERIFY(editor.chart.ready());
    editor.controller.startEditing(3, editor.chart.waveform, Qt::darkCyan, editor.chart.series);
    QCOMPARE(editor.events, QStringList({"count 10", "state 1", "started 3"}));
    QVERIFY(!editor.controller.canFinish());

    editor.chart.drag(editor.chart.viewPos(from, 0.5), editor.chart.viewPos(to, -0.5));
    QCOMPARE(editor.controller.state(), EnvelopeEditorController::EditingPoints);
    QVERIFY(editor.controller.canFinish());
    QCOMPARE(editor.controller.points().size(), 10);
    QCOMPARE(editor.point(0).time, first);
    QCOMPARE(editor.point(9).time, last);
    for (const EnvelopePoint &point : editor.controller.points())
        QCOMPARE(point.time, std::round(point.time));
    QCOMPARE(editor.items(TOGGLE_Z).size(), 10);
    QCOMPARE(editor.items(LINE_Z, true).size(), 18);
    QCOMPARE(editor.items(FILL_Z).size(), 1);
}

void TstEnvelopeEditing::draggedHandleMovesPointLinesAndFill()
{
    Editor editor;
    QVERIFY(editor.chart.ready());
    editor.selectRegion();
    QSignalSpy updated(&editor.controller, &EnvelopeEditorController::pointsUpdated);
    const QPoint end = editor.upperHandle(3) + QPoint(0, -40);
    editor.chart.drag(editor.upperHandle(3), end);
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

void TstEnvelopeEditing::toggleHidesTheLinesOfAPointAndSplitsTheFill()
{
    Editor editor;
    QVERIFY(editor.chart.ready());
    editor.selectRegion();
    editor.clickToggle(4);
    QVERIFY(!editor.point(4).enabled);
    QCOMPARE(editor.items(LINE_Z, true).size(), 14);
    QCOMPARE(editor.items(FILL_Z).size(), 2);
    editor.clickToggle(4);
    QVERIFY(editor.point(4).enabled);
    QCOMPARE(editor.items(LINE_Z, true).size(), 18);
    QCOMPARE(editor.items(FILL_Z).size(), 1);
}

void TstEnvelopeEditing::spinBoxRegeneratesPointsOverTheRegion()
{
    Editor editor;
    QVERIFY(editor.chart.ready());
    editor.selectRegion();
    editor.clickToggle(4);
    QSignalSpy updated(&editor.controller, &EnvelopeEditorController::pointsUpdated);
    auto *spinBox = editor.overlay->findChild<QSpinBox *>();
    spinBox->selectAll();
    QTest::keyClicks(spinBox, "5");
    QCOMPARE(updated.size(), 1);
    const QVector<EnvelopePoint> expected = generateEnvelopePoints(editor.chart.waveform, 10.0, 37.0, 5, -2.0, 2.0);
    QCOMPARE(editor.controller.points().size(), 5);
    for (int i = 0; i < 5; ++i) {
        QCOMPARE(editor.point(i).time, expected[i].time);
        QCOMPARE(editor.point(i).upperValue, expected[i].upperValue);
        QVERIFY(editor.point(i).enabled);
    }
    QCOMPARE(editor.items(TOGGLE_Z).size(), 5);
    QCOMPARE(editor.items(LINE_Z).size(), 8);
}

void TstEnvelopeEditing::applyDeliversTheEnvelopeThePointsDescribe()
{
    Editor editor;
    QVERIFY(editor.chart.ready());
    editor.selectRegion();
    editor.chart.drag(editor.upperHandle(3), editor.upperHandle(3) + QPoint(0, -30));
    editor.clickToggle(1);
    editor.clickToggle(4);
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

void TstEnvelopeEditing::cancelLeavesNothingBehind()
{
    Editor editor;
    QVERIFY(editor.chart.ready());
    editor.selectRegion();
    QCOMPARE(editor.editorItemCount(), 10 * 6 + 18 + 1);
    editor.events.clear();
    QTest::mouseClick(editor.button("Cancel"), Qt::LeftButton);
    QCOMPARE(editor.events, QStringList({"state 0", "cancelled"}));
    QCOMPARE(editor.editorItemCount(), 0);
    QVERIFY(!editor.chart.view->interactionMode());
    QVERIFY(!editor.controller.isEditing());
}

void TstEnvelopeEditing::finishingWhileSelectingGivesAnEmptyEnvelope()
{
    Editor editor;
    QVERIFY(editor.chart.ready());
    editor.controller.startEditing(0, editor.chart.waveform, Qt::darkCyan, editor.chart.series);
    QSignalSpy finished(&editor.controller, &EnvelopeEditorController::editingFinished);
    editor.controller.finishEditing();
    editor.controller.finishEditing();
    QCOMPARE(finished.size(), 1);
    QVERIFY(finished.at(0).at(1).value<EnvelopeData>().isEmpty());
}

void TstEnvelopeEditing::loadsAnExistingEnvelope_data()
{
    QTest::addColumn<int>("samples");
    QTest::newRow("25 samples") << 25;
    QTest::newRow("one sample, not raised to two") << 1;
}

void TstEnvelopeEditing::loadsAnExistingEnvelope()
{
    QFETCH(int, samples);
    EnvelopeData envelope;
    envelope.upper.startTime = 5.0;
    envelope.upper.sampleInterval = 2.0;
    envelope.upper.samples.writable().assign(size_t(samples), 1.0);
    envelope.lower.samples.writable().assign(size_t(samples), -1.0);
    Editor editor;
    QVERIFY(editor.chart.ready());
    // The panel's spin box cannot show one point and would answer with two.
    QObject::disconnect(editor.overlay, nullptr, &editor.controller, nullptr);
    editor.controller.startEditingExisting(1, editor.chart.waveform, envelope, Qt::red, editor.chart.series);
    QCOMPARE(editor.events, QStringList({QString("count %1").arg(samples), "state 2", "started 1"}));
    QCOMPARE(editor.controller.pointCount(), samples);
    QCOMPARE(editor.controller.points().size(), samples);
    QCOMPARE(editor.controller.points().last().time, 5.0 + 2.0 * (samples - 1));
    QCOMPARE(editor.items(TOGGLE_Z).size(), samples);
    const double interval = samples > 1 ? 2.0 : editor.chart.waveform.sampleInterval;
    QCOMPARE(editor.controller.createEnvelopeData().upper.sampleInterval, interval);
}

void TstEnvelopeEditing::loadedGapCanBeSwitchedOnInsideTheAxisRange()
{
    Editor editor;
    QVERIFY(editor.chart.ready());
    EnvelopeData envelope;
    envelope.upper.sampleInterval = 10.0;
    envelope.upper.samples.writable() = {1.0, 1.0, NaN, 1.0};
    envelope.lower.samples.writable() = {-1.0, -1.0, NaN, -1.0};
    editor.controller.startEditingExisting(0, editor.chart.waveform, envelope, Qt::red, editor.chart.series);
    QVERIFY(!editor.point(2).enabled);
    QCOMPARE(editor.point(2).upperValue, 1.6); // 90 % and 10 % of the axis, -2..2
    QCOMPARE(editor.point(2).lowerValue, -1.6);
    QCOMPARE(editor.items(LINE_Z, true).size(), 2);
    editor.clickToggle(2);
    QVERIFY(editor.point(2).enabled);
    QCOMPARE(editor.items(LINE_Z, true).size(), 6);
}

void TstEnvelopeEditing::markersFollowAResize()
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
    for (int i = 0; i < 10; ++i)
        QVERIFY2(toggles.contains(editor.toggleScenePos(i)), qPrintable(QString::number(i)));
    const QPolygonF fill = static_cast<QGraphicsPolygonItem *>(editor.items(FILL_Z).value(0))->polygon();
    QCOMPARE(fill.first(), editor.chart.scenePos(10.0, editor.point(0).upperValue));
}

void TstEnvelopeEditing::destroyingTheViewMidEditLeavesNothingBehind_data()
{
    QTest::addColumn<int>("stage");
    QTest::newRow("selecting a region") << 0;
    QTest::newRow("editing points") << 1;
    QTest::newRow("dragging a handle") << 2;
}

// Nothing to see afterwards: the address sanitizer build shows what would be left.
void TstEnvelopeEditing::destroyingTheViewMidEditLeavesNothingBehind()
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
    editor.reset();
}

void TstEnvelopeEditing::destroyingTheControllerMidEditCleansTheView()
{
    ChartTestHarness chart;
    QVERIFY(chart.ready());
    const int sceneItems = chart.chart->scene()->items().size();
    auto controller = std::make_unique<EnvelopeEditorController>();
    controller->setChartView(chart.view.get());
    controller->startEditing(0, chart.waveform, Qt::darkCyan, chart.series);
    chart.drag(chart.viewPos(10.3, 0.0), chart.viewPos(36.8, 0.0));
    controller.reset();
    QVERIFY(!chart.view->interactionMode());
    QCOMPARE(chart.chart->scene()->items().size(), sceneItems);
}

QTEST_MAIN(TstEnvelopeEditing)
#include "tst_envelopeediting.moc"
