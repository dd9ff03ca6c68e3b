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
