// Cost of one mouse move while an envelope handle is dragged: the event through the chart
// view, the drag mode, the marker and the controller's connector lines and fill.

#include "charttestharness.h"
#include "envelopeeditorcontroller.h"

#include <benchmark/benchmark.h>

#include <QApplication>
#include <QElapsedTimer>

#include <algorithm>
#include <vector>

namespace {

// Other benchmarks in the same executable may have made the application object already.
bool ensureApplication()
{
    if (QCoreApplication::instance())
        return qobject_cast<QApplication *>(QCoreApplication::instance()) != nullptr;
    static int argc = 1;
    static char name[] = "vorn_bench";
    static char *argv[] = {name, nullptr};
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    static QApplication app(argc, argv);
    return true;
}

enum class Measure { Move, MoveAndRepaint, RepaintOnly };

void dragHandle(benchmark::State &state, Measure measure)
{
    if (!ensureApplication()) {
        state.SkipWithError("needs a QApplication, and a non-GUI one exists");
        return;
    }
    ChartTestHarness chart;
    if (!chart.ready()) {
        state.SkipWithError("the chart did not lay out");
        return;
    }
    EnvelopeEditorController controller;
    controller.setChartView(chart.view.get());
    controller.startEditing(0, chart.waveform, Qt::darkCyan, chart.series);
    chart.drag(chart.viewPos(0.0, 0.0), chart.viewPos(100.0, 0.0));
    controller.setPointCount(static_cast<int>(state.range(0)));
    int moves = 0;
    QObject::connect(&controller, &EnvelopeEditorController::pointsUpdated, [&moves] { ++moves; });

    const EnvelopePoint &middle = controller.points().at(controller.points().size() / 2);
    const QPoint start = chart.viewPos(middle.time, middle.upperValue);
    chart.press(start);
    int step = 0;
    const QRect plotArea = chart.view->mapFromScene(chart.chart->plotArea()).boundingRect();
    for (auto _ : state) {
        if (measure == Measure::RepaintOnly)
            chart.viewport()->update(plotArea);
        else
            chart.move(start + QPoint(0, -10 - (step++ % 40)));
        if (measure != Measure::Move)
            QCoreApplication::processEvents();
    }
    chart.release(start);
    if (moves != step)
        state.SkipWithError("the press did not grab a handle");
    state.counters["points"] = static_cast<double>(controller.points().size());
    controller.cancelEditing();
}

// The editor's own work per move: the event through the view, the mode, the marker, the lines
// and the fill.
void BM_DragMove(benchmark::State &state) { dragHandle(state, Measure::Move); }
// What the user waits for: the same plus the event loop turn that repaints the viewport.
void BM_DragMoveAndRepaint(benchmark::State &state) { dragHandle(state, Measure::MoveAndRepaint); }
// The floor under the previous one: repainting the plot area with nothing changed.
void BM_RepaintPlotArea(benchmark::State &state) { dragHandle(state, Measure::RepaintOnly); }

} // namespace

// -1 when the press grabbed no handle: then the moves would only have panned.
double dragMillisecondsPerMove(int points)
{
    if (!ensureApplication())
        return -1;
    ChartTestHarness chart;
    if (!chart.ready())
        return -1;
    EnvelopeEditorController controller;
    controller.setChartView(chart.view.get());
    controller.startEditing(0, chart.waveform, Qt::darkCyan, chart.series);
    chart.drag(chart.viewPos(0.0, 0.0), chart.viewPos(100.0, 0.0));
    controller.setPointCount(points);
    int moves = 0;
    QObject::connect(&controller, &EnvelopeEditorController::pointsUpdated, [&moves] { ++moves; });
    const EnvelopePoint &middle = controller.points().at(controller.points().size() / 2);
    const QPoint start = chart.viewPos(middle.time, middle.upperValue);
    chart.press(start);
    constexpr int MOVES = 200, RUNS = 5;
    std::vector<double> runs;
    for (int run = 0; run < RUNS; ++run) {
        QElapsedTimer timer;
        timer.start();
        for (int step = 0; step < MOVES; ++step) {
            chart.move(start + QPoint(0, -10 - (run * MOVES + step) % 40));
            QCoreApplication::processEvents(); // the repaint the user waits for
        }
        runs.push_back(static_cast<double>(timer.nsecsElapsed()) / 1e6 / MOVES);
    }
    chart.release(start);
    controller.cancelEditing();
    std::sort(runs.begin(), runs.end());
    return moves == RUNS * MOVES ? runs[RUNS / 2] : -1;
}

BENCHMARK(BM_DragMove)->Arg(10)->Arg(100)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_DragMoveAndRepaint)->Arg(10)->Arg(100)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_RepaintPlotArea)->Arg(10)->Arg(100)->Unit(benchmark::kMicrosecond);
