#include "charttestharness.h"
#include "draggablepointmarker.h"
#include "pointdragmode.h"

#include <QGraphicsScene>
#include <QSignalSpy>
#include <QtTest>

// Three markers at 20, 50 and 80 s. Marker 1 is crowded: its handles lie 6 pixels apart, so its
// toggle covers them.
class TstPointDragMode : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void draggedHandleFollowsTheMouseOnTheWaveformAxis_data();
    void draggedHandleFollowsTheMouseOnTheWaveformAxis();
    void toggleWinsOverNearbyHandles();
    void pressOnDisabledHandleOnlyDeselects();
    void rightButtonChangesNothing();
    void releaseEndsTheDragButKeepsTheSelection();

private:
    QPoint upperAt(int i) const { return m_harness->viewPos(m_markers[i]->time(), m_markers[i]->upperValue()); }
    QPoint lowerAt(int i) const { return m_harness->viewPos(m_markers[i]->time(), m_markers[i]->lowerValue()); }

    std::unique_ptr<ChartTestHarness> m_harness;
    QVector<DraggablePointMarker *> m_markers;
    PointDragMode *m_mode = nullptr;
};

void TstPointDragMode::init()
{
    m_harness = std::make_unique<ChartTestHarness>();
    QVERIFY(m_harness->ready());
    const double pixelsPerUnit = m_harness->chart->plotArea().height() / 4.0;
    const double crowded = 3.0 / pixelsPerUnit;
    const QList<QPointF> limits = {{1.0, -1.0}, {crowded, -crowded}, {1.5, -0.5}};
    for (int i = 0; i < 3; ++i) {
        auto *marker = new DraggablePointMarker;
        marker->createMarkers(m_harness->chart->scene(), Qt::darkGreen);
        marker->setSeries(m_harness->series);
        marker->setDataPosition(20.0 + 30.0 * i, limits[i].x(), limits[i].y());
        marker->updateScenePosition(m_harness->chart);
        m_markers << marker;
    }
    m_mode = new PointDragMode(&m_markers, m_harness->series);
    m_harness->view->setInteractionMode(m_mode);
}

void TstPointDragMode::cleanup()
{
    m_harness->view->clearInteractionMode();
    for (DraggablePointMarker *marker : qAsConst(m_markers))
        marker->removeFromScene(m_harness->chart->scene());
    qDeleteAll(m_markers);
    m_markers.clear();
    m_harness.reset();
}

void TstPointDragMode::draggedHandleFollowsTheMouseOnTheWaveformAxis_data()
{
    QTest::addColumn<bool>("upper");
    QTest::addColumn<int>("dy");
    QTest::newRow("upper up") << true << -40;
    QTest::newRow("upper below the lower") << true << 200;
    QTest::newRow("lower down") << false << 30;
    QTest::newRow("lower out of the plot") << false << 400;
}

void TstPointDragMode::draggedHandleFollowsTheMouseOnTheWaveformAxis()
{
    QFETCH(bool, upper);
    QFETCH(int, dy);
    QSignalSpy selected(m_mode, &PointDragMode::pointSelected);
    QSignalSpy moved(m_mode, &PointDragMode::pointMoved);
    const QPoint start = upper ? upperAt(2) : lowerAt(2);
    m_harness->press(start);
    QCOMPARE(selected.value(0).value(0).toInt(), 2);
    QVERIFY(m_markers[2]->isSelected());
    m_harness->move(start + QPoint(0, dy / 2));
    m_harness->move(start + QPoint(0, dy));
    const double value = m_harness->valueAt(start + QPoint(0, dy));
    QCOMPARE(moved.size(), 2);
    QCOMPARE(moved.last(), QVariantList({2, upper ? value : 1.5, upper ? -0.5 : value}));
    QCOMPARE(m_markers[2]->time(), 80.0);
    QCOMPARE(upper ? upperAt(2) : lowerAt(2), start + QPoint(0, dy));
}

void TstPointDragMode::toggleWinsOverNearbyHandles()
{
    QSignalSpy toggled(m_mode, &PointDragMode::pointToggled);
    QSignalSpy selected(m_mode, &PointDragMode::pointSelected);
    m_harness->press(upperAt(1));
    QCOMPARE(toggled.size(), 1);
    QCOMPARE(toggled.at(0).at(0).toInt(), 1);
    QCOMPARE(selected.size(), 0);
    QVERIFY(!m_markers[1]->isSelected());
}

void TstPointDragMode::pressOnDisabledHandleOnlyDeselects()
{
    QSignalSpy selected(m_mode, &PointDragMode::pointSelected);
    QSignalSpy moved(m_mode, &PointDragMode::pointMoved);
    m_harness->click(upperAt(2));
    m_markers[0]->setPointEnabled(false);
    m_harness->press(lowerAt(0));
    m_harness->move(lowerAt(0) + QPoint(0, 20));
    QCOMPARE(selected.size(), 1);
    QCOMPARE(moved.size(), 0);
    QVERIFY(!m_markers[2]->isSelected() && !m_markers[0]->isSelected());
}

void TstPointDragMode::rightButtonChangesNothing()
{
    QSignalSpy toggled(m_mode, &PointDragMode::pointToggled);
    QSignalSpy moved(m_mode, &PointDragMode::pointMoved);
    m_harness->click(upperAt(0));
    m_harness->press(QPoint(5, 5), Qt::RightButton);
    m_harness->press(upperAt(1), Qt::RightButton);
    m_harness->move(upperAt(0) + QPoint(0, 30), Qt::RightButton);
    QVERIFY(m_markers[0]->isSelected());
    QCOMPARE(toggled.size() + moved.size(), 0);
}

void TstPointDragMode::releaseEndsTheDragButKeepsTheSelection()
{
    QSignalSpy moved(m_mode, &PointDragMode::pointMoved);
    const QPoint start = lowerAt(0);
    m_harness->drag(start, start + QPoint(0, 20));
    QCOMPARE(moved.size(), 2);
    m_harness->move(start + QPoint(0, 60));
    QCOMPARE(moved.size(), 2);
    QVERIFY(m_markers[0]->isSelected());
    m_harness->press(QPoint(3, 3));
    QVERIFY(!m_markers[0]->isSelected());
}

QTEST_MAIN(TstPointDragMode)
#include "tst_pointdragmode.moc"
