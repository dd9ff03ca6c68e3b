// What editing a dense envelope costs: entering the knot edit of a 20,000-sample envelope, one
// drag step of a knot among 500, and a wheel step with such an envelope shown against one
// without it, each with the repaint the user waits for.

#include "summary.h"

#include "interactivechartview.h"
#include "vorngraph.h"
#include "vornmask.h"

#include <benchmark/benchmark.h>

#include <QApplication>
#include <QChart>
#include <QElapsedTimer>
#include <QMouseEvent>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>
#include <vector>

namespace {

constexpr int SAMPLES = 20000;
constexpr double DT = 1e-6;

WaveformData stepResponse()
{
    std::mt19937 random(7);
    std::normal_distribution<double> noise(0.0, 0.005);
    WaveformData w;
    w.name = QStringLiteral("CH1");
    w.unit = QStringLiteral("V");
    w.sampleInterval = DT;
    for (int i = 0; i < SAMPLES; ++i) {
        const double t = (i - 2000) * DT;
        const double v = t < 0 ? 0.0 : 3.3 * (1 - std::exp(-4.7e3 * t) * std::cos(3.0e4 * t));
        w.samples.writable().push_back(v + noise(random));
    }
    return w;
}

// A sine of 25 samples a period, as sigrok's demo source makes one: its envelope bends at nearly
// every sample.
WaveformData periodic()
{
    std::mt19937 random(11);
    std::normal_distribution<double> noise(0.0, 0.01);
    WaveformData w = stepResponse();
    std::vector<double> &v = w.samples.writable();
    for (int i = 0; i < SAMPLES; ++i)
        v[size_t(i)] = std::sin(2 * M_PI * i / 25.0) + noise(random);
    return w;
}

// Knots with values of their own at every one, so that none collapses when they are read back.
EnvelopeData manyKnots(int count)
{
    std::mt19937 random(3);
    std::uniform_real_distribution<double> wobble(0.0, 0.3);
    QVector<EnvelopePoint> knots;
    for (int k = 0; k < count; ++k)
        knots.append({double(k * ((SAMPLES - 1) / (count - 1))) * DT, 3.6 + wobble(random), -0.2 - wobble(random)});
    return resampleKnots(knots, 0.0, DT, SAMPLES);
}

struct ShownGraph
{
    VornGraph graph;
    InteractiveChartView *view = nullptr;

    explicit ShownGraph(const EnvelopeData &envelope, const WaveformData &waveform = stepResponse())
    {
        graph.setUseOpenGL(false);
        graph.addWaveform(waveform);
        graph.resize(1600, 900);
        graph.setEnvelopeEditingByKnots(true);
        graph.setDistinctEnvelopeStyle(true);
        graph.setEnvelopeReduction(true);
        graph.displayGraph();
        if (!envelope.isEmpty())
            graph.setEnvelope(0, envelope);
        graph.show();
        QElapsedTimer waited;
        waited.start();
        while (graph.timePerDivision() == 0.0 && waited.elapsed() < 10000)
            QCoreApplication::processEvents();
        QCoreApplication::processEvents();
        view = graph.findChild<InteractiveChartView *>();
    }

    void send(QEvent::Type type, const QPoint &pos, Qt::MouseButtons held)
    {
        QWidget *viewport = view->viewport();
        QMouseEvent event(type, QPointF(pos), QPointF(viewport->mapToGlobal(pos)),
                          type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton, held, Qt::ShiftModifier);
        QCoreApplication::sendEvent(viewport, &event);
    }

    double wheelMilliseconds()
    {
        constexpr int STEPS = 40;
        QWidget *viewport = view->viewport();
        QElapsedTimer timer;
        timer.start();
        for (int k = 0; k < STEPS; ++k) {
            const QPointF at(viewport->width() * 0.3, viewport->height() * 0.5);
            QWheelEvent wheel(at, viewport->mapToGlobal(at), QPoint(), QPoint(0, k % 2 ? -120 : 120), Qt::NoButton,
                              Qt::NoModifier, Qt::NoScrollPhase, false);
            QCoreApplication::sendEvent(viewport, &wheel);
            QCoreApplication::processEvents();
        }
        return double(timer.nsecsElapsed()) / 1e6 / STEPS;
    }
};

double startMilliseconds(const EnvelopeData &envelope, const WaveformData &waveform = stepResponse())
{
    ShownGraph shown(envelope, waveform);
    QElapsedTimer timer;
    timer.start();
    shown.graph.startEnvelopeEditing(0);
    QCoreApplication::processEvents();
    const double ms = double(timer.nsecsElapsed()) / 1e6;
    shown.graph.cancelEnvelopeEditing();
    return ms;
}

// A knot in the middle, dragged in time and value; -1 when the press grabbed none. A dense
// envelope is zoomed in first until the knot has handles.
double dragMilliseconds(const EnvelopeData &envelope, const WaveformData &waveform = stepResponse())
{
    ShownGraph shown(envelope, waveform);
    shown.graph.startEnvelopeEditing(0);
    QCoreApplication::processEvents();
    EnvelopeEditorController *editor = shown.graph.envelopeEditor();
    const EnvelopePoint knot = editor->points().at(editor->points().size() / 2);
    for (int k = 0; k < 20 && editor->knotsWithoutHandles() > 0; ++k) {
        shown.graph.zoomTime(-1, knot.time);
        QCoreApplication::processEvents();
    }
    QAbstractSeries *series = shown.view->chart()->series().first();
    const QPoint at = shown.view->mapFromChartValue({knot.time, knot.upperValue}, series);
    int moves = 0;
    QObject::connect(editor, &EnvelopeEditorController::pointsUpdated, [&moves] { ++moves; });
    shown.send(QEvent::MouseButtonPress, at, Qt::LeftButton);
    constexpr int MOVES = 100;
    QElapsedTimer timer;
    timer.start();
    for (int k = 0; k < MOVES; ++k) {
        shown.send(QEvent::MouseMove, at + QPoint(k % 2 ? -1 : 1, -5 - k % 20), Qt::LeftButton);
        QCoreApplication::processEvents();
    }
    const double ms = double(timer.nsecsElapsed()) / 1e6 / MOVES;
    shown.send(QEvent::MouseButtonRelease, at, Qt::NoButton);
    shown.graph.cancelEnvelopeEditing();
    return moves == MOVES ? ms : -1;
}

} // namespace

namespace {

constexpr int RUNS = 5;

// The median of RUNS runs; -1 as soon as one fails.
double median(const std::function<double()> &run)
{
    std::vector<double> runs;
    for (int i = 0; i < RUNS; ++i) {
        runs.push_back(run());
        if (runs.back() < 0)
            return -1;
    }
    std::sort(runs.begin(), runs.end());
    return runs[RUNS / 2];
}

} // namespace

// Each figure the median of five runs.
EditEnvelopeFigure editEnvelopeFigures()
{
    EditEnvelopeFigure figure;
    SourceHull hull;
    hull.add(stepResponse());
    const EnvelopeData built = hull.build({});
    figure.startMs = median([&] { return startMilliseconds(built); });
    const EnvelopeData knots500 = manyKnots(500);
    figure.dragMs = median([&] { return dragMilliseconds(knots500); });
    SourceHull periodicHull;
    periodicHull.add(periodic());
    // Tight tolerances, as `vorn envelope --dx 1us --dy 10mV` gives them on sigrok's demo.
    EnvelopeBuildOptions tight;
    tight.dx = DT;
    tight.dy = 0.01;
    const EnvelopeData dense = periodicHull.build(tight);
    figure.denseKnots = int(recoverKnots(dense).size());
    figure.denseStartMs = median([&] { return startMilliseconds(dense, periodic()); });
    figure.denseDragMs = median([&] { return dragMilliseconds(dense, periodic()); });
    ShownGraph with(built), without(EnvelopeData{});
    // Both once before measuring, so that neither pays for first-use work; then taking turns.
    with.wheelMilliseconds();
    without.wheelMilliseconds();
    std::vector<double> withMs, withoutMs;
    for (int i = 0; i < RUNS; ++i) {
        withMs.push_back(with.wheelMilliseconds());
        withoutMs.push_back(without.wheelMilliseconds());
    }
    std::sort(withMs.begin(), withMs.end());
    std::sort(withoutMs.begin(), withoutMs.end());
    figure.viewStepRatio = withMs[RUNS / 2] / withoutMs[RUNS / 2];
    return figure;
}

namespace {

// The summary's figures on their own: vorn_bench --benchmark_filter=EditEnvelope
void BM_EditEnvelope(benchmark::State &state)
{
    EditEnvelopeFigure figure;
    for (auto _ : state)
        figure = editEnvelopeFigures();
    state.counters["start_ms"] = figure.startMs;
    state.counters["drag_ms"] = figure.dragMs;
    state.counters["view_step_ratio"] = figure.viewStepRatio;
    state.counters["dense_knots"] = figure.denseKnots;
    state.counters["dense_start_ms"] = figure.denseStartMs;
    state.counters["dense_drag_ms"] = figure.denseDragMs;
}
BENCHMARK(BM_EditEnvelope)->Iterations(1)->Unit(benchmark::kMillisecond);

} // namespace
