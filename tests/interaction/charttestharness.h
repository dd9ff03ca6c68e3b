#ifndef CHARTTESTHARNESS_H
#define CHARTTESTHARNESS_H

// A chart the way the graph builds one, for driving the editor with real mouse events: a
// reference series on its own value axis comes first, so that mapping through the chart's
// default axes gives different values from mapping through the waveform's own axis.

#include "interactivechartview.h"
#include "vornwaveform.h"

#include <QApplication>
#include <QChart>
#include <QGraphicsItem>
#include <QGraphicsScene>
#include <QLineSeries>
#include <QMouseEvent>
#include <QTest>
#include <QValueAxis>

#include <cmath>
#include <memory>
#include <optional>

// The scene's items at one depth, the editor's way of telling its graphics apart; only those
// centred on at, or only the visible ones, when asked.
inline QList<QGraphicsItem *> itemsAtDepth(QGraphicsScene *scene, double z, std::optional<QPointF> at = {},
                                           bool visibleOnly = false)
{
    QList<QGraphicsItem *> found;
    for (QGraphicsItem *item : scene->items())
        if (item->zValue() == z && (!visibleOnly || item->isVisible())
            && (!at || QLineF(item->sceneBoundingRect().center(), *at).length() < 0.01))
            found << item;
    return found;
}

// Mouse events sent to a viewport as a user makes them. QTest::mouseMove does not carry the held
// button in Qt 6, so every event is sent as such.
struct ViewportMouse
{
    virtual ~ViewportMouse() = default;
    virtual QWidget *viewport() const = 0;
    Qt::KeyboardModifiers modifiers = Qt::NoModifier; // held during every event sent

    void press(const QPoint &pos, Qt::MouseButton b = Qt::LeftButton) { send(QEvent::MouseButtonPress, pos, b, b); }
    void move(const QPoint &pos, Qt::MouseButton held = Qt::LeftButton) { send(QEvent::MouseMove, pos, Qt::NoButton, held); }
    void release(const QPoint &pos, Qt::MouseButton b = Qt::LeftButton) { send(QEvent::MouseButtonRelease, pos, b, {}); }
    void click(const QPoint &pos) { press(pos); release(pos); }
    void drag(const QPoint &from, const QPoint &to, Qt::MouseButton button = Qt::LeftButton)
    {
        press(from, button);
        move((from + to) / 2, button);
        move(to, button);
        release(to, button);
    }
    void send(QEvent::Type type, const QPoint &pos, Qt::MouseButton button, Qt::MouseButtons buttons,
              QWidget *target = nullptr)
    {
        target = target ? target : viewport();
        QMouseEvent event(type, QPointF(pos), QPointF(target->mapToGlobal(pos)), button, buttons, modifiers);
        QApplication::sendEvent(target, &event);
    }
};

struct ChartTestHarness : ViewportMouse
{
    QChart *chart = new QChart;
    QLineSeries *series = new QLineSeries;
    std::unique_ptr<InteractiveChartView> view;
    WaveformData waveform;

    // 101 samples one second apart, a sine between -1 and 1, on axes -10..110 s and -2..2; the
    // reference axis spans -100..100.
    ChartTestHarness()
    {
        waveform.sampleInterval = 1.0;
        for (int i = 0; i <= 100; ++i) {
            waveform.samples.writable().push_back(std::sin(i / 8.0));
            series->append(i, waveform.samples->back());
        }
        auto *reference = new QLineSeries;
        reference->append({{0, 0}, {100, 50}});
        const auto addAxis = [this](Qt::Alignment side, double min, double max) {
            auto *axis = new QValueAxis;
            axis->setRange(min, max);
            chart->addAxis(axis, side);
            return axis;
        };
        chart->addSeries(reference);
        chart->addSeries(series);
        QValueAxis *axisX = addAxis(Qt::AlignBottom, -10, 110);
        reference->attachAxis(axisX);
        reference->attachAxis(addAxis(Qt::AlignLeft, -100, 100));
        series->attachAxis(axisX);
        series->attachAxis(addAxis(Qt::AlignRight, -2, 2));
        view = std::make_unique<InteractiveChartView>(chart);
        view->resize(1000, 600);
        view->show();
    }

    // Waits until the chart has laid out its plot area.
    bool ready()
    {
        return QTest::qWaitForWindowExposed(view.get())
            && QTest::qWaitFor([this] { return chart->plotArea().width() > 50; });
    }

    QWidget *viewport() const override { return view->viewport(); }
    QPointF scenePos(double time, double value) const { return chart->mapToPosition({time, value}, series); }
    QPoint viewPos(double time, double value) const { return view->mapFromChartValue({time, value}, series); }
};

#endif
