// What one navigation step costs the user: a wheel notch at the pointer, a pan key or a resize
// of the graph, each with the event loop turn that repaints the chart.

#include "summary.h"

#include "interactivechartview.h"
#include "vorngraph.h"

#include <benchmark/benchmark.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QTest>
#include <QWheelEvent>

#include <algorithm>
#include <cstdlib>

std::vector<double> benchSamples(std::size_t count); // bench_graph.cpp

namespace {

enum class Step { Wheel, Pan, Resize };

class NavigatedGraph
{
public:
    NavigatedGraph(int waveforms, std::size_t samples, QSize size = QSize(1600, 900))
        : m_size(size)
    {
        const std::vector<double> values = benchSamples(samples);
        for (int i = 0; i < waveforms; ++i) {
            WaveformData w;
            w.name = QStringLiteral("w%1").arg(i);
            w.unit = QStringLiteral("V");
            w.samples.writable() = values;
            w.sampleInterval = 1e-6;
            m_graph.addWaveform(w);
        }
        m_graph.resize(m_size);
        m_graph.displayGraph();
        m_graph.show();
        QElapsedTimer waited;
        waited.start();
        while (m_graph.timePerDivision() == 0.0 && waited.elapsed() < 10000)
            QCoreApplication::processEvents();
        m_graph.setStacked(true);
        QCoreApplication::processEvents();
        m_viewport = m_graph.findChild<InteractiveChartView *>()->viewport();
    }

    bool ready() const { return m_graph.timePerDivision() > 0.0; }

    void step(Step kind, int k)
    {
        const bool forth = k % 2 == 0;
        if (kind == Step::Wheel) {
            const QPointF at(m_viewport->width() * 0.3, m_viewport->height() * 0.5);
            QWheelEvent wheel(at, m_viewport->mapToGlobal(at), QPoint(), QPoint(0, forth ? 120 : -120), Qt::NoButton,
                              Qt::NoModifier, Qt::NoScrollPhase, false);
            QCoreApplication::sendEvent(m_viewport, &wheel);
        } else if (kind == Step::Pan) {
            QTest::keyClick(m_viewport->parentWidget(), forth ? Qt::Key_Right : Qt::Key_Left);
        } else {
            m_graph.resize(forth ? m_size - QSize(100, 50) : m_size);
        }
        QCoreApplication::processEvents(); // the repaint the user waits for
    }

private:
    QSize m_size;
    VornGraph m_graph;
    QWidget *m_viewport = nullptr;
};

double millisecondsPerStep(NavigatedGraph &graph, Step kind)
{
    constexpr int STEPS = 40;
    QElapsedTimer timer;
    timer.start();
    for (int k = 0; k < STEPS; ++k)
        graph.step(kind, k);
    return double(timer.nsecsElapsed()) / 1e6 / STEPS;
}

void BM_ViewStep(benchmark::State &state)
{
    // A fourth argument of 1 shows the graph at full-screen size.
    const bool fullScreen = state.range(3) == 1;
    NavigatedGraph graph(int(state.range(0)), std::size_t(state.range(1)), fullScreen ? QSize(1920, 1080) : QSize(1600, 900));
    if (!graph.ready()) {
        state.SkipWithError("the graph was never laid out");
        return;
    }
    int k = 0;
    for (auto _ : state)
        graph.step(Step(state.range(2)), k++);
}
BENCHMARK(BM_ViewStep)
    ->ArgNames({"waveforms", "samples", "step", "full"})
    ->ArgsProduct({{4}, {25'000'000}, {0, 1, 2}, {0}})
    ->ArgsProduct({{8}, {1'000'000}, {0, 1, 2}, {0}})
    ->ArgsProduct({{8}, {10'000'000}, {0, 1, 2}, {1}})
    ->Unit(benchmark::kMillisecond)
    // VORN_BENCH_STEPS=400 gives a profiler (perf record -p) a long enough run of steps.
    ->Iterations(std::getenv("VORN_BENCH_STEPS") ? std::atoi(std::getenv("VORN_BENCH_STEPS")) : 40);

} // namespace

// The slowest kind of step, which is what the user feels.
ViewStepFigure viewStepMilliseconds(int waveforms, std::size_t samples, int width, int height)
{
    NavigatedGraph graph(waveforms, samples, QSize(width, height));
    ViewStepFigure figure;
    if (!graph.ready())
        return figure;
    figure.wheel = millisecondsPerStep(graph, Step::Wheel);
    figure.pan = millisecondsPerStep(graph, Step::Pan);
    figure.resize = millisecondsPerStep(graph, Step::Resize);
    return figure;
}
