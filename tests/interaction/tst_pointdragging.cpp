// The envelope's point markers, their line items and the mode that drags them.
#include "charttestharness.h"
#include "draggablepointmarker.h"
#include "pointdragmode.h"

#include <QGraphicsScene>
#include <QSignalSpy>
#include <QtTest>

// Three markers at 20, 50 and 80 s. Marker 1 is crowded: its handles lie 6 pixels apart, so its
// toggle covers them.
class TstPointDragging : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_harness = std::make_unique<ChartTestHarness>();
        QVERIFY(m_harness->ready());
        const double crowded = 3.0 / (m_harness->chart->plotArea().height() / 4.0);
        const QList<QPointF> limits = {{1.0, -1.0}, {crowded, -crowded}, {1.5, -0.5}};
        for (int i = 0; i < 3; ++i) {
            m_markers << new DraggablePointMarker;
            m_markers[i]->createMarkers(m_harness->chart->scene(), Qt::darkGreen);
            m_markers[i]->setSeries(m_harness->series);
            m_markers[i]->setDataPosition(20.0 + 30.0 * i, limits[i].x(), limits[i].y());
            m_markers[i]->updateScenePosition(m_harness->chart);
        }
        m_mode = new PointDragMode(&m_markers, m_harness->series);
        m_harness->view->setInteractionMode(m_mode);
    }

    void cleanup()
    {
        m_harness->view->clearInteractionMode();
        QGraphicsScene *scene = m_harness->chart->scene();
        const int items = scene->items().size();
        for (DraggablePointMarker *marker : qAsConst(m_markers))
            marker->removeFromScene(scene);
        QCOMPARE(scene->items().size(), items - 6 * 3);
        qDeleteAll(m_markers);
        m_markers.clear();
        m_harness.reset();
    }

    void draggedHandleFollowsTheMouseUntilReleased_data()
    {
        QTest::addColumn<bool>("upper");
        QTest::addColumn<int>("dy");
        QTest::addColumn<Qt::MouseButton>("button");
        QTest::newRow("upper below the lower") << true << 200 << Qt::LeftButton;
        QTest::newRow("lower out of the plot") << false << 400 << Qt::LeftButton;
        QTest::newRow("right button") << true << -40 << Qt::RightButton;
    }

    // The value follows through the waveform's own axis, the time stays, and the marker's items
    // follow the value.
    void draggedHandleFollowsTheMouseUntilReleased()
    {
        QFETCH(bool, upper);
        QFETCH(int, dy);
        QFETCH(Qt::MouseButton, button);
        QSignalSpy selected(m_mode, &PointDragMode::pointSelected);
        QSignalSpy moved(m_mode, &PointDragMode::pointMoved);
        const QPoint start = upper ? upperAt(2) : lowerAt(2);
        const QPoint end = start + QPoint(0, dy);
        m_harness->drag(start, end, button);
        if (button != Qt::LeftButton) {
            QCOMPARE(selected.size() + moved.size(), 0);
            return;
        }
        const double value = m_harness->view->mapToChartValue(end, m_harness->series).y();
        QCOMPARE(selected, QList<QVariantList>({{2}}));
        QCOMPARE(moved.size(), 2);
        QCOMPARE(moved.last(), QVariantList({2, upper ? value : 1.5, upper ? -0.5 : value}));
        QVERIFY(m_markers[2]->time() == 80.0 && (upper ? upperAt(2) : lowerAt(2)) == end);
        const QPointF handle = m_harness->scenePos(80.0, value);
        const QPointF middle = (m_harness->scenePos(80.0, upper ? -0.5 : 1.5) + handle) / 2;
        QCOMPARE(itemsAround(1001, handle).size(), 1);
        QCOMPARE(itemsAround(999, middle).size() + itemsAround(1002, middle).size() + itemsAround(1003, middle).size(), 4);

        m_harness->move(end + QPoint(0, 30));
        QVERIFY(moved.size() == 2 && m_markers[2]->isSelected());
    }

    // A toggle wins over the crowded handles around it; a hidden handle cannot be grabbed, so a
    // press on it only clears the selection.
    void pressesThatGrabNoHandle()
    {
        QSignalSpy toggled(m_mode, &PointDragMode::pointToggled);
        QSignalSpy moved(m_mode, &PointDragMode::pointMoved);
        m_harness->click(upperAt(2));
        m_harness->click(upperAt(1));
        QCOMPARE(toggled, QList<QVariantList>({{1}}));
        QVERIFY(m_markers[2]->isSelected() && !m_markers[1]->isSelected());
        m_markers[0]->setPointEnabled(false);
        m_harness->press(lowerAt(0));
        m_harness->move(lowerAt(0) + QPoint(0, 20));
        QCOMPARE(moved.size(), 0);
        QVERIFY(!m_markers[2]->isSelected() && !m_markers[0]->isSelected());
    }

private:
    QPoint upperAt(int i) const { return m_harness->viewPos(m_markers[i]->time(), m_markers[i]->upperValue()); }
    QPoint lowerAt(int i) const { return m_harness->viewPos(m_markers[i]->time(), m_markers[i]->lowerValue()); }
    // A marker's items by depth: link 999, handles 1001, toggle 1002, the bars of its sign 1003.
    QList<QGraphicsItem *> itemsAround(double z, const QPointF &centre) const
    {
        return itemsAtDepth(m_harness->chart->scene(), z, centre);
    }

    std::unique_ptr<ChartTestHarness> m_harness;
    QVector<DraggablePointMarker *> m_markers;
    PointDragMode *m_mode = nullptr;
};

QTEST_MAIN(TstPointDragging)
#include "tst_pointdragging.moc"
