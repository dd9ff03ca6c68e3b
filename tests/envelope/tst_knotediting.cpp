// The knot edit of an existing envelope: it opens with the envelope's bends, gives back the same
// curves when nothing changed, and a knot moved in time stays on the grid between its neighbours.
#include "../interaction/charttestharness.h"
#include "envelopeeditorcontroller.h"
#include "vornmask.h"

#include <QSignalSpy>
#include <QtTest>

namespace {

const double NaN = std::nan("");

// Knots on a half-second grid over the harness's 0 ... 100 s, with a gap from 60 to 70 s.
QVector<EnvelopePoint> sampleKnots()
{
    QVector<EnvelopePoint> knots{{0, 1.5, -1.5}, {20, 1.0, -0.5}, {40, 1.8, 0.2}, {60, 1.2, -1.2}};
    knots.append({60.5, NaN, NaN, false});
    knots.append({70, 1.0, -1.0});
    knots.append({100, 1.6, -1.6});
    return knots;
}

EnvelopeData sampleEnvelope()
{
    return resampleKnots(sampleKnots(), 0.0, 0.5, 201);
}

bool sameCurve(const std::vector<double> &a, const std::vector<double> &b)
{
    if (a.size() != b.size())
        return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (!(a[i] == b[i] || (std::isnan(a[i]) && std::isnan(b[i]))))
            return false;
    return true;
}

struct KnotEditor
{
    ChartTestHarness chart;
    EnvelopeEditorController controller;

    KnotEditor() { controller.setChartView(chart.view.get()); }
    void start(const EnvelopeData &envelope)
    {
        controller.startEditingKnots(0, chart.waveform, envelope, Qt::darkCyan, chart.series);
    }
    const EnvelopePoint &knot(int i) const { return controller.points().at(i); }
    QPoint upperHandle(int i) const { return chart.viewPos(knot(i).time, knot(i).upperValue); }
};

} // namespace

class TstKnotEditing : public QObject
{
    Q_OBJECT

private slots:
    // A built envelope of 20,000 samples, and one with a gap: opened by knots and applied
    // untouched, the curves come back bit for bit.
    void untouchedKnotEditGivesTheSameCurves_data()
    {
        QTest::addColumn<EnvelopeData>("envelope");
        QTest::addColumn<int>("maxKnots");
        QTest::newRow("gap") << sampleEnvelope() << 7;
        WaveformData capture;
        capture.sampleInterval = 1e-3 / 200;
        for (int i = 0; i < 20000; ++i)
            capture.samples.writable().push_back(std::tanh((i - 8000) / 40.0) + 0.3 * std::sin(i / 700.0));
        SourceHull hull;
        hull.add(capture);
        QTest::newRow("built 20k") << hull.build({}) << 400;
    }
    void untouchedKnotEditGivesTheSameCurves()
    {
        QFETCH(EnvelopeData, envelope);
        QFETCH(int, maxKnots);
        KnotEditor editor;
        QVERIFY(editor.chart.ready());
        editor.start(envelope);
        QVERIFY(editor.controller.isKnotEditing());
        QVERIFY2(editor.controller.points().size() <= maxKnots, qPrintable(QString::number(editor.controller.points().size())));
        QSignalSpy finished(&editor.controller, &EnvelopeEditorController::editingFinished);
        editor.controller.finishEditing();
        QCOMPARE(finished.size(), 1);
        const EnvelopeData result = finished.at(0).at(1).value<EnvelopeData>();
        QVERIFY(sameCurve(*result.upper.samples, *envelope.upper.samples));
        QVERIFY(sameCurve(*result.lower.samples, *envelope.lower.samples));
        QCOMPARE(result.upper.startTime, envelope.upper.startTime);
        QCOMPARE(result.upper.sampleInterval, envelope.upper.sampleInterval);
    }

    // Knot 2 sits at 40 s between 20 and 60 s; Shift+drag takes it far past either neighbour.
    void movedKnotNeverPassesItsNeighbour_data()
    {
        QTest::addColumn<int>("knot");
        QTest::addColumn<double>("toTime");
        QTest::addColumn<double>("expected");
        QTest::newRow("past the next") << 2 << 95.0 << 59.5;
        QTest::newRow("past the previous") << 2 << 5.0 << 20.5;
        QTest::newRow("between, snapped") << 2 << 33.6 << 33.5;
        QTest::newRow("first, before the grid") << 0 << -8.0 << 0.0;
        QTest::newRow("last, after the grid") << 6 << 108.0 << 100.0;
    }
    void movedKnotNeverPassesItsNeighbour()
    {
        QFETCH(int, knot);
        QFETCH(double, toTime);
        QFETCH(double, expected);
        KnotEditor editor;
        QVERIFY(editor.chart.ready());
        editor.start(sampleEnvelope());
        QSignalSpy steps(&editor.controller, &EnvelopeEditorController::knotsEdited);
        const QPoint from = editor.upperHandle(knot);
        editor.chart.press(from);
        editor.chart.modifiers = Qt::ShiftModifier;
        editor.chart.move(editor.chart.viewPos(toTime, 1.0));
        editor.chart.release(editor.chart.viewPos(toTime, 1.0));
        QCOMPARE(editor.knot(knot).time, expected);
        QCOMPARE(steps.size(), 1);
        // The value follows the pointer as well, and Apply keeps the knot where it was left.
        const double moved = editor.knot(knot).upperValue;
        QVERIFY(std::fabs(moved - 1.0) < 0.05);
        QSignalSpy finished(&editor.controller, &EnvelopeEditorController::editingFinished);
        editor.controller.finishEditing();
        const EnvelopeData result = finished.at(0).at(1).value<EnvelopeData>();
        QCOMPARE(result.upper.samples->at(size_t(expected / 0.5)), moved);
    }

    // Without Shift only the value moves; the time stays to the bit.
    void plainDragKeepsTheTime()
    {
        KnotEditor editor;
        QVERIFY(editor.chart.ready());
        editor.start(sampleEnvelope());
        editor.chart.drag(editor.upperHandle(2), editor.chart.viewPos(55.0, 0.5));
        QCOMPARE(editor.knot(2).time, 40.0);
        QVERIFY(std::fabs(editor.knot(2).upperValue - 0.5) < 0.05);
    }

    // A double-click on the band adds a knot on the limits there; Delete removes the selected one.
    void doubleClickAddsAndDeleteRemoves()
    {
        KnotEditor editor;
        QVERIFY(editor.chart.ready());
        editor.start(sampleEnvelope());
        const int before = editor.controller.points().size();
        const QPoint at = editor.chart.viewPos(30.0, 0.0);
        editor.chart.send(QEvent::MouseButtonDblClick, at, Qt::LeftButton, Qt::LeftButton);
        QCOMPARE(editor.controller.points().size(), before + 1);
        QCOMPARE(editor.controller.selectedKnot(), 2);
        QVERIFY(std::fabs(editor.knot(2).time - 30.0) <= 0.5);
        QVERIFY(std::fabs(editor.knot(2).upperValue - (1.0 + 0.8 * (editor.knot(2).time - 20) / 20)) < 1e-9);
        editor.chart.view->setFocus();
        QTest::keyClick(editor.chart.view.get(), Qt::Key_Delete);
        QCOMPARE(editor.controller.points().size(), before);
        QCOMPARE(editor.knot(2).time, 40.0);
    }

    // Knot 1 bounds a band of 0.02 (3 px): its handles are drawn 10 px apart around the band's
    // middle. A press anywhere near them drags the nearer limit and never switches the knot off.
    void pressOnNarrowBandMovesTheNearerLimit_data()
    {
        QTest::addColumn<int>("fromMiddle");
        QTest::addColumn<bool>("upperMoves");
        QTest::newRow("upper handle") << -5 << true;
        QTest::newRow("lower handle") << 5 << false;
        QTest::newRow("on the band, above its middle") << -2 << true;
        QTest::newRow("on the band, below its middle") << 2 << false;
    }
    void pressOnNarrowBandMovesTheNearerLimit()
    {
        QFETCH(int, fromMiddle);
        QFETCH(bool, upperMoves);
        KnotEditor editor;
        QVERIFY(editor.chart.ready());
        editor.start(resampleKnots({{0, 1.5, -1.5}, {20, 0.51, 0.49}, {40, 1.8, 0.2}, {100, 1.6, -1.6}}, 0.0, 0.5, 201));
        QSignalSpy steps(&editor.controller, &EnvelopeEditorController::knotsEdited);
        const EnvelopePoint before = editor.knot(1);
        const QPoint at = editor.chart.viewPos(20, 0.5) + QPoint(0, fromMiddle);
        editor.chart.drag(at, at + QPoint(0, upperMoves ? -40 : 40));
        QVERIFY(editor.knot(1).enabled);
        QCOMPARE(steps.size(), 1);
        QCOMPARE(steps.at(0).at(0).toString(), QStringLiteral("Move Knot"));
        const double moved = upperMoves ? editor.knot(1).upperValue - before.upperValue
                                        : before.lowerValue - editor.knot(1).lowerValue;
        // 40 px of the 4-unit axis, without a jump to the pointer on the press.
        const double expected = 40 * 4.0 / editor.chart.chart->plotArea().height();
        QVERIFY2(std::fabs(moved - expected) < 0.01, qPrintable(QString("%1 for %2").arg(moved).arg(expected)));
        QCOMPARE(upperMoves ? editor.knot(1).lowerValue : editor.knot(1).upperValue,
                 upperMoves ? before.lowerValue : before.upperValue);
    }

    // G switches the selected knot off and on. Off, its toggle is its only mark: a press there
    // selects it and changes nothing.
    void knotSwitchesOffOnlyByTheKey()
    {
        KnotEditor editor;
        QVERIFY(editor.chart.ready());
        editor.start(sampleEnvelope());
        QSignalSpy steps(&editor.controller, &EnvelopeEditorController::knotsEdited);
        editor.chart.click(editor.upperHandle(2));
        editor.chart.view->setFocus();
        QTest::keyClick(editor.chart.view.get(), Qt::Key_G);
        QVERIFY(!editor.knot(2).enabled);
        editor.controller.selectKnot(-1);
        editor.chart.click(editor.chart.viewPos(40, (editor.knot(2).upperValue + editor.knot(2).lowerValue) / 2));
        QCOMPARE(editor.controller.selectedKnot(), 2);
        QVERIFY(!editor.knot(2).enabled);
        QTest::keyClick(editor.chart.view.get(), Qt::Key_G);
        QVERIFY(editor.knot(2).enabled);
        QCOMPARE(steps.size(), 2);
    }

    // Knots 3.75 px apart on 0 ... 50 s get no handles, those 75 px apart on 50 ... 100 s do;
    // zoomed in on the dense ones, every knot in view has its handles.
    void handlesOnlyWhereKnotsLieAHandleApart()
    {
        QVector<EnvelopePoint> knots;
        for (int k = 0; k < 100; ++k)
            knots.append({k * 0.5, 1.0 + 0.2 * (k % 2), -1.0});
        for (int k = 5; k <= 10; ++k)
            knots.append({k * 10.0, 1.0 + 0.3 * (k % 2), -1.0});
        KnotEditor editor;
        QVERIFY(editor.chart.ready());
        editor.start(resampleKnots(knots, 0.0, 0.5, 201));
        QCOMPARE(editor.controller.points().size(), knots.size());
        const auto handles = [&] { return itemsAtDepth(editor.chart.chart->scene(), 1001.0, {}, true).size(); };
        // The knot at 50 s lies 0.5 s after a dense one.
        QCOMPARE(handles(), 2 * 5);
        QCOMPARE(editor.controller.knotsWithoutHandles(), 101);
        editor.chart.chart->axes(Qt::Horizontal).first()->setRange(10.0, 15.0);
        editor.controller.updateMarkerPositions();
        QCOMPARE(editor.controller.knotsWithoutHandles(), 0);
        QCOMPARE(handles(), 2 * 11);
    }

    // Typed values: a time off the grid range between the neighbours is refused, not clamped.
    void typedKnotOutsideItsNeighboursIsRefused()
    {
        KnotEditor editor;
        QVERIFY(editor.chart.ready());
        editor.start(sampleEnvelope());
        QVERIFY(!editor.controller.setKnot(2, 60.0, 1.0, 0.0));
        QCOMPARE(editor.knot(2).time, 40.0);
        QVERIFY(editor.controller.setKnot(2, 45.0, 1.1, 0.1));
        QCOMPARE(editor.knot(2).time, 45.0);
        QCOMPARE(editor.knot(2).lowerValue, 0.1);
    }
};

QTEST_MAIN(TstKnotEditing)
#include "tst_knotediting.moc"
