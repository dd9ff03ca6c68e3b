#include "charttestharness.h"
#include "regionselectmode.h"

#include <QGraphicsRectItem>
#include <QGraphicsScene>
#include <QSignalSpy>
#include <QWindow>
#include <QtTest>

class TstRegionSelectMode : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { m_harness.reset(); }

    void init()
    {
        m_harness = std::make_unique<ChartTestHarness>();
        QVERIFY(m_harness->ready());
        m_view = m_harness->view.get();
        m_mode = new RegionSelectMode;
        m_view->setInteractionMode(m_mode);
        // The view's own zoom by dragging, which the mode must keep out while it is installed.
        m_view->setRubberBand(QChartView::HorizontalRubberBand);
    }

    void emitsDraggedTimesInAscendingOrder_data()
    {
        QTest::addColumn<double>("from");
        QTest::addColumn<double>("to");
        QTest::addColumn<Qt::MouseButton>("button");
        QTest::newRow("left to right") << 0.25 << 0.75 << Qt::LeftButton;
        QTest::newRow("right to left") << 0.8 << 0.1 << Qt::LeftButton;
        QTest::newRow("right button selects nothing") << 0.2 << 0.6 << Qt::RightButton;
    }

    // The drag ends far below the plot: only the times count, and the axes stay.
    void emitsDraggedTimesInAscendingOrder()
    {
        QFETCH(double, from);
        QFETCH(double, to);
        QFETCH(Qt::MouseButton, button);
        QSignalSpy spy(m_mode, &RegionSelectMode::regionSelected);
        const QRectF plot = m_harness->chart->plotArea();
        const QPoint end = pixelAt(to) + QPoint(0, int(plot.height()));
        m_harness->press(pixelAt(from), button);
        m_harness->move(end, button);
        QCOMPARE(selectionBand() != nullptr, button == Qt::LeftButton);
        m_harness->release(end, button);
        QVERIFY(!selectionBand());
        const auto *axis = qobject_cast<QValueAxis *>(m_harness->chart->axes(Qt::Horizontal).first());
        QVERIFY(axis->min() == -10.0 && axis->max() == 110.0);
        QCOMPARE(spy.size(), button == Qt::LeftButton ? 1 : 0);
        if (spy.isEmpty())
            return;
        const double pixel = 120.0 / plot.width();
        QVERIFY(qAbs(spy.at(0).at(0).toDouble() - 100.0 * qMin(from, to)) <= pixel
                && qAbs(spy.at(0).at(1).toDouble() - 100.0 * qMax(from, to)) <= pixel);
    }

    // The first replacement happens inside the signal of the mode being replaced.
    void replacedClearedAndViewOwnedModesAreDeleted()
    {
        int deletions = 0;
        const auto newMode = [&deletions] {
            auto *mode = new RegionSelectMode;
            QObject::connect(mode, &QObject::destroyed, [&deletions] { ++deletions; });
            return mode;
        };
        connect(m_mode, &RegionSelectMode::regionSelected, m_view, [&] { m_view->setInteractionMode(newMode()); });
        m_harness->drag(pixelAt(0.3), pixelAt(0.4));
        auto *next = dynamic_cast<RegionSelectMode *>(m_view->interactionMode());
        QVERIFY(next);
        QSignalSpy selected(next, &RegionSelectMode::regionSelected);
        m_harness->drag(pixelAt(0.5), pixelAt(0.6));
        QList<int> counted{int(selected.size()), deletions};
        m_view->setInteractionMode(newMode());
        counted << deletions;
        m_view->clearInteractionMode();
        counted << deletions << (m_view->interactionMode() != nullptr);
        m_view->setInteractionMode(newMode());
        m_harness->view.reset();
        QCOMPARE(counted << deletions, QList<int>({1, 0, 1, 2, 0, 3})); // selections, then deletions
    }

    void widgetOverTheViewportLeavesTheMouseToTheMode()
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
        QTest::mousePress(window, Qt::LeftButton, {}, m_view->viewport()->mapTo(m_view, pixelAt(0.2)));
        QTest::mouseRelease(window, Qt::LeftButton, {}, m_view->viewport()->mapTo(m_view, pixelAt(0.6)));
        QCOMPARE(selected.count(), 1);
    }

private:
    // A fraction of the samples' 0..100 s, half way up the plot.
    QPoint pixelAt(double fraction) const { return m_harness->viewPos(100.0 * fraction, 0.0); }
    QGraphicsRectItem *selectionBand() const
    {
        return qgraphicsitem_cast<QGraphicsRectItem *>(itemsAtDepth(m_harness->chart->scene(), 1000.0).value(0));
    }

    std::unique_ptr<ChartTestHarness> m_harness;
    InteractiveChartView *m_view = nullptr;
    RegionSelectMode *m_mode = nullptr;
};

QTEST_MAIN(TstRegionSelectMode)
#include "tst_regionselectmode.moc"
