#ifndef GRAPHHARNESS_H
#define GRAPHHARNESS_H

// A VornGraph shown at 1600 x 900 and laid out, with mouse events sent to its chart view's
// viewport as a user would make them.

#include "interactivechartview.h"
#include "vorngraph.h"

#include <QApplication>
#include <QChart>
#include <QLineSeries>
#include <QMouseEvent>
#include <QTest>

#include <cmath>
#include <memory>

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

struct GraphHarness
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
    QWidget *viewport() const { return view()->viewport(); }
    QPoint viewPos(int waveform, double time, double value) const
    {
        return view()->mapFromChartValue({time, value}, view()->chart()->series().at(waveform));
    }

    void press(const QPoint &pos) { send(QEvent::MouseButtonPress, pos, Qt::LeftButton, Qt::LeftButton); }
    // QTest::mouseMove does not carry the held button in Qt 6, so the event is sent as such.
    void move(const QPoint &pos) { send(QEvent::MouseMove, pos, Qt::NoButton, Qt::LeftButton); }
    void release(const QPoint &pos) { send(QEvent::MouseButtonRelease, pos, Qt::LeftButton, Qt::NoButton); }
    void drag(const QPoint &from, const QPoint &to)
    {
        press(from);
        move((from + to) / 2);
        move(to);
        release(to);
    }

    void send(QEvent::Type type, const QPoint &pos, Qt::MouseButton button, Qt::MouseButtons buttons,
              QWidget *target = nullptr)
    {
        target = target ? target : viewport();
        QMouseEvent event(type, QPointF(pos), QPointF(target->mapToGlobal(pos)), button, buttons, Qt::NoModifier);
        QApplication::sendEvent(target, &event);
    }
};

#endif
