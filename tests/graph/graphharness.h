#ifndef GRAPHHARNESS_H
#define GRAPHHARNESS_H

// A VornGraph shown at 1600 x 900 and laid out, with mouse events sent to its chart view's viewport.

#include "../interaction/charttestharness.h"
#include "vorngraph.h"

#include <QChart>

#include <cmath>

inline WaveformData makeWaveform(const QString &name, std::vector<double> samples, double interval = 1e-3,
                                 double start = 0.0)
{
    WaveformData w;
    w.name = name;
    w.unit = QStringLiteral("V");
    w.samples.writable() = std::move(samples);
    w.sampleInterval = interval;
    w.startTime = start;
    return w;
}

// 101 samples 1 ms apart of a sine with the given amplitude.
inline WaveformData sineWave(const QString &name, double amplitude)
{
    std::vector<double> v(101);
    for (std::size_t i = 0; i < v.size(); ++i)
        v[i] = amplitude * std::sin(double(i) / 8.0);
    return makeWaveform(name, std::move(v));
}

struct GraphHarness : ViewportMouse
{
    std::unique_ptr<VornGraph> graph = std::make_unique<VornGraph>();

    // False when the graph never got a usable plot area.
    bool show(const QVector<WaveformData> &waveforms)
    {
        for (const WaveformData &w : waveforms)
            graph->addWaveform(w);
        graph->resize(1600, 900);
        graph->displayGraph();
        graph->show();
        if (!QTest::qWaitForWindowExposed(graph.get()))
            return false;
        QChart *chart = view()->chart();
        return QTest::qWaitFor([chart] { return chart->plotArea().width() > 500; });
    }

    InteractiveChartView *view() const { return graph->findChild<InteractiveChartView *>(); }
    QWidget *viewport() const override { return view()->viewport(); }
    QPoint viewPos(int waveform, double time, double value) const
    {
        return view()->mapFromChartValue({time, value}, view()->chart()->series().at(waveform));
    }
};

#endif
