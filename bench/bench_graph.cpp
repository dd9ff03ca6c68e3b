#include "downsampling.h"
#include "vorngraph.h"

#include <QChart>
#include <QCoreApplication>
#include <QDoubleSpinBox>
#include <QElapsedTimer>
#include <QValueAxis>

#include <benchmark/benchmark.h>

#include <cmath>
#include <map>
#include <memory>
#include <random>

namespace {

constexpr int MAX_POINTS = 5000;

// A noisy sine, so that minima and maxima fall anywhere in a bucket.
std::vector<double> makeSamples(std::size_t count, unsigned seed)
{
    std::vector<double> v(count);
    std::mt19937_64 random(seed);
    std::uniform_real_distribution<double> noise(-0.1, 0.1);
    for (std::size_t i = 0; i < count; ++i)
        v[i] = std::sin(double(i) * 1e-5) + noise(random);
    return v;
}

const std::vector<double> &samplesOf(std::size_t count)
{
    static std::map<std::size_t, std::vector<double>> cache;
    auto it = cache.find(count);
    if (it == cache.end())
        it = cache.emplace(count, makeSamples(count, 1)).first;
    return it->second;
}

void BM_DownsampleVisibleRange(benchmark::State &state)
{
    const std::vector<double> &samples = samplesOf(std::size_t(state.range(0)));
    for (auto _ : state) {
        QVector<QPointF> points = downsampleVisibleRange(samples, SampleTimeBase{1e-6, 0.0}, 0,
                                                         samples.size() - 1, MAX_POINTS);
        benchmark::DoNotOptimize(points.data());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.counters["samples"] = double(samples.size());
}
BENCHMARK(BM_DownsampleVisibleRange)->Arg(10'000)->Arg(1'000'000)->Arg(100'000'000)->Unit(benchmark::kMillisecond);

} // namespace

std::vector<double> benchSamples(std::size_t count)
{
    return makeSamples(count, 1);
}

// Reaches the graph's view update directly, the way a spin box or a resize does.
class VornGraphBench
{
public:
    explicit VornGraphBench(int waveforms, std::size_t samples)
    {
        for (int i = 0; i < waveforms; ++i) {
            WaveformData w;
            w.name = QStringLiteral("w%1").arg(i);
            w.unit = QStringLiteral("V");
            w.samples.writable() = makeSamples(samples, unsigned(i) + 2);
            w.sampleInterval = 1e-6;
            m_graph.addWaveform(w);
        }
        m_graph.resize(1600, 900);
        m_graph.displayGraph();
        m_graph.show();
        QElapsedTimer waited;
        waited.start();
        while (m_graph.m_divisionPixels == 0.0 && waited.elapsed() < 10000)
            QCoreApplication::processEvents();
    }

    bool laidOut() const { return m_graph.m_divisionPixels > 0.0; }
    // One step of the time-per-division box, up or down, and the repaint it causes.
    void stepTimeDivision(bool up)
    {
        QDoubleSpinBox *box = m_graph.m_timeDivisionSpinBox;
        box->stepBy(up ? 1 : -1);
        QCoreApplication::processEvents();
    }
    void resizeTo(int width, int height)
    {
        m_graph.resize(width, height);
        QCoreApplication::processEvents();
    }
    void updateSeriesForViewport() { m_graph.updateSeriesForViewport(); }
    // Shows all the data, as after loading, so that every sample is visible.
    void showEverything()
    {
        m_graph.m_axisX->setRange(m_graph.m_globalXMin, m_graph.m_globalXMax);
    }

private:
    VornGraph m_graph;
};

namespace {

void BM_ViewChange(benchmark::State &state)
{
    const int waveforms = int(state.range(0));
    VornGraphBench graph(waveforms, std::size_t(state.range(1)));
    if (!graph.laidOut()) {
        state.SkipWithError("the graph was never laid out");
        return;
    }
    graph.showEverything();
    for (auto _ : state)
        graph.updateSeriesForViewport();
    state.SetItemsProcessed(state.iterations() * waveforms * state.range(1));
}
// What a user of the viewer waits for on a long capture: a time/div step or a resize, repaint
// included.
void BM_ViewerResponse(benchmark::State &state)
{
    VornGraphBench graph(4, std::size_t(state.range(1)));
    if (!graph.laidOut()) {
        state.SkipWithError("the graph was never laid out");
        return;
    }
    bool flip = false;
    for (auto _ : state) {
        flip = !flip;
        if (state.range(0) == 0)
            graph.stepTimeDivision(flip);
        else
            graph.resizeTo(flip ? 1500 : 1600, flip ? 850 : 900);
    }
}
// The short capture tells what the chart's own repaint costs whatever the length.
BENCHMARK(BM_ViewerResponse)
    ->ArgNames({"resize", "samples"})
    ->Args({0, 25'000'000})
    ->Args({1, 25'000'000})
    ->Args({0, 10'000})
    ->Args({1, 10'000})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(20);

BENCHMARK(BM_ViewChange)
    ->ArgNames({"waveforms", "samples"})
    ->Args({4, 10'000'000})
    ->Args({4, 25'000'000})
    ->Args({1, 100'000'000})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(10);

} // namespace
