#include "interactivechartview.h"
#include "regionselectmode.h"

#include <QApplication>
#include <QChart>
#include <QGraphicsRectItem>
#include <QGraphicsScene>
#include <QLineSeries>
#include <QMouseEvent>
#include <QSignalSpy>
#include <QTest>
#include <QWindow>
#include <QValueAxis>

namespace {

constexpr double AXIS_MAX = 100.0;

class CountingMode : public ChartInteractionMode
{
public:
    explicit CountingMode(int *deletions) : m_deletions(deletions) {}
    ~CountingMode() override { ++*m_deletions; }
    void handleMousePress(InteractiveChartView *, QMouseEvent *) override { ++presses; }
    void handleMouseMove(InteractiveChartView *, QMouseEvent *) override {}
    void handleMouseRelease(InteractiveChartView *, QMouseEvent *) override {}

    int presses = 0;

private:
    int *m_deletions;
};

} // namespace

class TstRegionSelectMode : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void emitsDraggedTimesInAscendingOrder_data();
    void emitsDraggedTimesInAscendingOrder();
    void ignoresOtherButtonsAndStrayEvents();
    void bandSpansPlotHeightWhileDragging();
    void keepsBaseRubberBandOutWhileInstalled();
    void survivesReceiverReplacingTheMode();
    void deletesReplacedClearedAndViewOwnedModes();
    void widgetOverTheViewportLeavesTheMouseToTheMode();

private:
    QPoint pixelAt(double fraction) const;
    QGraphicsRectItem *selectionBand() const;
    void drag(const QPoint &from, const QPoint &to, Qt::MouseButton button = Qt::LeftButton);

    QChart *m_chart = nullptr;
    InteractiveChartView *m_view = nullptr;
    RegionSelectMode *m_mode = nullptr;
};

void TstRegionSelectMode::init()
{
    m_chart = new QChart;
    auto *series = new QLineSeries;
    series->append(0.0, 0.0);
    series->append(AXIS_MAX, 1.0);
    m_chart->addSeries(series);
    m_chart->createDefaultAxes();
    m_chart->axes(Qt::Horizontal).first()->setRange(0.0, AXIS_MAX);
    m_chart->axes(Qt::Vertical).first()->setRange(0.0, 1.0);
    m_view = new InteractiveChartView(m_chart);
    m_view->resize(800, 500);
    m_view->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_view));
    QTRY_VERIFY(m_chart->plotArea().width() > 100);
    m_mode = new RegionSelectMode;
    m_view->setInteractionMode(m_mode);
}

void TstRegionSelectMode::cleanup()
{
    delete m_view;
    m_view = nullptr;
}

QPoint TstRegionSelectMode::pixelAt(double fraction) const
{
    const QRectF plot = m_chart->plotArea();
    const QPointF scene(plot.left() + fraction * plot.width(), plot.center().y());
    return m_view->mapFromScene(scene);
}

QGraphicsRectItem *TstRegionSelectMode::selectionBand() const
{
    const auto items = m_chart->scene()->items();
    for (QGraphicsItem *item : items) {
        if (auto *rect = qgraphicsitem_cast<QGraphicsRectItem *>(item); rect && rect->zValue() == 1000.0)
            return rect;
    }
    return nullptr;
}

void TstRegionSelectMode::drag(const QPoint &from, const QPoint &to, Qt::MouseButton button)
{
    QTest::mousePress(m_view->viewport(), button, {}, from);
    QTest::mouseMove(m_view->viewport(), (from + to) / 2);
    QTest::mouseMove(m_view->viewport(), to);
    QTest::mouseRelease(m_view->viewport(), button, {}, to);
}

void TstRegionSelectMode::emitsDraggedTimesInAscendingOrder_data()
{
    QTest::addColumn<double>("from");
    QTest::addColumn<double>("to");
    QTest::newRow("left to right") << 0.25 << 0.75;
    QTest::newRow("right to left") << 0.8 << 0.1;
    QTest::newRow("click without moving") << 0.5 << 0.5;
}

void TstRegionSelectMode::emitsDraggedTimesInAscendingOrder()
{
    QFETCH(double, from);
    QFETCH(double, to);
    QSignalSpy spy(m_mode, &RegionSelectMode::regionSelected);
    drag(pixelAt(from), pixelAt(to));

    QCOMPARE(spy.count(), 1);
    const double start = spy.at(0).at(0).toDouble();
    const double end = spy.at(0).at(1).toDouble();
    const double pixel = AXIS_MAX / m_chart->plotArea().width();
    QVERIFY(qAbs(start - qMin(from, to) * AXIS_MAX) <= pixel);
    QVERIFY(qAbs(end - qMax(from, to) * AXIS_MAX) <= pixel);
    QVERIFY(start <= end);
    QVERIFY(!selectionBand());
}

void TstRegionSelectMode::ignoresOtherButtonsAndStrayEvents()
{
    QSignalSpy spy(m_mode, &RegionSelectMode::regionSelected);
    drag(pixelAt(0.2), pixelAt(0.6), Qt::RightButton);
    QTest::mouseMove(m_view->viewport(), pixelAt(0.7));
    QTest::mouseRelease(m_view->viewport(), Qt::LeftButton, {}, pixelAt(0.7));
    QCOMPARE(spy.count(), 0);
    QVERIFY(!selectionBand());
}

void TstRegionSelectMode::bandSpansPlotHeightWhileDragging()
{
    const QRectF plot = m_chart->plotArea();
    QTest::mousePress(m_view->viewport(), Qt::LeftButton, {}, pixelAt(0.2));
    // Far below the plot area: the band still covers exactly its height.
    const QPoint below = m_view->mapFromScene(QPointF(plot.left() + 0.6 * plot.width(), plot.bottom() + 40));
    QTest::mouseMove(m_view->viewport(), below);

    QGraphicsRectItem *band = selectionBand();
    QVERIFY(band);
    QCOMPARE(band->rect().top(), plot.top());
    QCOMPARE(band->rect().height(), plot.height());
    QVERIFY(qAbs(band->rect().left() - (plot.left() + 0.2 * plot.width())) <= 1.0);
    QVERIFY(qAbs(band->rect().right() - (plot.left() + 0.6 * plot.width())) <= 1.0);
    QTest::mouseRelease(m_view->viewport(), Qt::LeftButton, {}, below);
}

void TstRegionSelectMode::keepsBaseRubberBandOutWhileInstalled()
{
    m_view->setRubberBand(QChartView::HorizontalRubberBand);
    auto *axis = qobject_cast<QValueAxis *>(m_chart->axes(Qt::Horizontal).first());
    drag(pixelAt(0.3), pixelAt(0.6));
    QCOMPARE(axis->min(), 0.0);
    QCOMPARE(axis->max(), AXIS_MAX);

    // The same drag without a mode zooms, so the check above can fail.
    m_view->clearInteractionMode();
    drag(pixelAt(0.3), pixelAt(0.6));
    QVERIFY(axis->min() > 1.0);
}

void TstRegionSelectMode::survivesReceiverReplacingTheMode()
{
    int deletions = 0;
    connect(m_mode, &RegionSelectMode::regionSelected, m_view,
            [&] { m_view->setInteractionMode(new CountingMode(&deletions)); });
    drag(pixelAt(0.3), pixelAt(0.4));
    auto *next = dynamic_cast<CountingMode *>(m_view->interactionMode());
    QVERIFY(next);
    QTest::mousePress(m_view->viewport(), Qt::LeftButton, {}, pixelAt(0.5));
    QCOMPARE(next->presses, 1);
    QCOMPARE(deletions, 0);
}

void TstRegionSelectMode::deletesReplacedClearedAndViewOwnedModes()
{
    int deletions = 0;
    m_view->setInteractionMode(new CountingMode(&deletions));
    m_view->setInteractionMode(new CountingMode(&deletions));
    QCOMPARE(deletions, 1);
    m_view->clearInteractionMode();
    QCOMPARE(deletions, 2);
    QVERIFY(!m_view->interactionMode());
    m_view->setInteractionMode(new CountingMode(&deletions));
    delete m_view;
    m_view = nullptr;
    QCOMPARE(deletions, 3);
}

void TstRegionSelectMode::widgetOverTheViewportLeavesTheMouseToTheMode()
{
    // OpenGL series paint in a widget of their own that covers the viewport and keeps the
    // mouse events it gets.
    auto *cover = new QWidget(m_view->viewport());
    cover->setAttribute(Qt::WA_NoMousePropagation);
    cover->setGeometry(m_view->viewport()->rect());
    cover->show();
    QSignalSpy selected(m_mode, &RegionSelectMode::regionSelected);
    // Through the window, so that Qt picks the widget under the mouse.
    QWindow *window = m_view->windowHandle();
    const QPoint from = m_view->viewport()->mapTo(m_view, pixelAt(0.2));
    const QPoint to = m_view->viewport()->mapTo(m_view, pixelAt(0.6));
    QTest::mousePress(window, Qt::LeftButton, {}, from);
    QTest::mouseRelease(window, Qt::LeftButton, {}, to);
    QCOMPARE(selected.count(), 1);
}

QTEST_MAIN(TstRegionSelectMode)
#include "tst_regionselectmode.moc"
