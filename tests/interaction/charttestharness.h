#ifndef CHARTTESTHARNESS_H
#define CHARTTESTHARNESS_H

// A chart the way the graph builds one, for driving the editor with real mouse events: a
// reference series on its own value axis comes first, so that mapping through the chart's
// default axes gives different values from mapping through the waveform's own axis.

#include "interactivechartview.h"
#include "vornwaveform.h"

#include <QApplication>
#include <QChart>
#include <QLineSeries>
#include <QMouseEvent>
#include <QTest>
#include <QValueAxis>

#include <cmath>
#include <memory>

struct ChartTestHarness
{
    QChart *chart = new QChart;
    QLineSeries *reference = new QLineSeries;
    QLineSeries *series = new QLineSeries;
    QValueAxis *axisX = new QValueAxis;
    QValueAxis *referenceAxisY = new QValueAxis;
    QValueAxis *axisY = new QValueAxis;
    std::unique_ptr<InteractiveChartView> view;
    WaveformData waveform;

    // 101 samples one second apart, a sine between -1 and 1, on axes 0..100 s and -2..2.
    ChartTestHarness()
    {
        waveform.name = QStringLiteral("ch1");
        waveform.unit = QStringLiteral("V");
        waveform.sampleInterval = 1.0;
        for (int i = 0; i <= 100; ++i) {
            waveform.samples.writable().push_back(std::sin(i / 8.0));
            series->append(i, waveform.samples->back());
        }
        reference->append(0, 0);
        reference->append(100, 50);
        chart->addSeries(reference);
        chart->addSeries(series);
        chart->addAxis(axisX, Qt::AlignBottom);
        chart->addAxis(referenceAxisY, Qt::AlignLeft);
        chart->addAxis(axisY, Qt::AlignRight);
        axisX->setRange(-10, 110);
        referenceAxisY->setRange(-100, 100);
        axisY->setRange(-2, 2);
        reference->attachAxis(axisX);
        reference->attachAxis(referenceAxisY);
        series->attachAxis(axisX);
        series->attachAxis(axisY);
        view = std::make_unique<InteractiveChartView>(chart);
        view->resize(1000, 600);
        view->show();
    }

    // Waits until the chart has laid out its plot area.
    bool ready()
    {
        if (!QTest::qWaitForWindowExposed(view.get()))
            return false;
        return QTest::qWaitFor([this] { return chart->plotArea().width() > 50; });
    }

    QWidget *viewport() const { return view->viewport(); }
    QPointF scenePos(double time, double value) const { return chart->mapToPosition({time, value}, series); }
    QPoint viewPos(double time, double value) const { return view->mapFromChartValue({time, value}, series); }
    double valueAt(const QPoint &pos) const { return view->mapToChartValue(pos, series).y(); }

    void press(const QPoint &pos, Qt::MouseButton button = Qt::LeftButton)
    {
        send(QEvent::MouseButtonPress, pos, button, button);
    }
    // QTest::mouseMove does not carry the pressed button in Qt 6, so the event is sent as such.
    void move(const QPoint &pos, Qt::MouseButton held = Qt::LeftButton)
    {
        send(QEvent::MouseMove, pos, Qt::NoButton, held);
    }
    void release(const QPoint &pos, Qt::MouseButton button = Qt::LeftButton)
    {
        send(QEvent::MouseButtonRelease, pos, button, Qt::NoButton);
    }
    void click(const QPoint &pos)
    {
        press(pos);
        release(pos);
    }
    void drag(const QPoint &from, const QPoint &to)
    {
        press(from);
        move((from + to) / 2);
        move(to);
        release(to);
    }

    void send(QEvent::Type type, const QPoint &pos, Qt::MouseButton button, Qt::MouseButtons buttons)
    {
        QMouseEvent event(type, QPointF(pos), QPointF(viewport()->mapToGlobal(pos)), button, buttons,
                          Qt::NoModifier);
        QApplication::sendEvent(viewport(), &event);
    }
};

#endif
