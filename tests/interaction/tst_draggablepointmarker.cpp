#include "charttestharness.h"
#include "draggablepointmarker.h"

#include <QGraphicsEllipseItem>
#include <QGraphicsLineItem>
#include <QGraphicsScene>
#include <QtTest>

namespace {

const QColor BASE(40, 120, 200);

QList<QGraphicsItem *> itemsAtZ(QGraphicsScene *scene, double z)
{
    QList<QGraphicsItem *> found;
    for (QGraphicsItem *item : scene->items())
        if (item->zValue() == z)
            found << item;
    return found;
}

// The upper handle sits higher on screen, so it has the smaller y.
QPair<QGraphicsEllipseItem *, QGraphicsEllipseItem *> handles(QGraphicsScene *scene)
{
    const QList<QGraphicsItem *> items = itemsAtZ(scene, 1001.0);
    auto *a = qgraphicsitem_cast<QGraphicsEllipseItem *>(items.value(0));
    auto *b = qgraphicsitem_cast<QGraphicsEllipseItem *>(items.value(1));
    if (!a || !b)
        return {nullptr, nullptr};
    return a->pos().y() < b->pos().y() ? qMakePair(a, b) : qMakePair(b, a);
}

} // namespace

class TstDraggablePointMarker : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void hitTestsIncludeTheToleranceBoundary_data();
    void hitTestsIncludeTheToleranceBoundary();
    void hitTestsMissBeforeItemsExist();
    void selectionBrightensBothHandles();
    void disabledPointShowsOnlyAnOutlinedPlus();
    void itemsFollowTheDataThroughTheSeriesAxis();
    void removeFromSceneTakesEveryItem();

private:
    std::unique_ptr<ChartTestHarness> m_harness;
    DraggablePointMarker m_marker;
};

void TstDraggablePointMarker::init()
{
    m_harness = std::make_unique<ChartTestHarness>();
    QVERIFY(m_harness->ready());
    m_marker = DraggablePointMarker();
    m_marker.createMarkers(m_harness->chart->scene(), BASE);
    m_marker.setSeries(m_harness->series);
    m_marker.setDataPosition(50.0, 1.0, -1.0);
    m_marker.updateScenePosition(m_harness->chart);
}

void TstDraggablePointMarker::cleanup()
{
    m_marker.removeFromScene(m_harness->chart->scene());
    m_harness.reset();
}

void TstDraggablePointMarker::hitTestsIncludeTheToleranceBoundary_data()
{
    QTest::addColumn<QString>("target");
    QTest::addColumn<QPointF>("offset");
    QTest::addColumn<bool>("hit");
    for (const QString target : {"upper", "lower", "toggle"}) {
        const QByteArray name = target.toLatin1();
        QTest::newRow(name + "/exactly 10 across") << target << QPointF(10.0, 0.0) << true;
        QTest::newRow(name + "/exactly 10 diagonally") << target << QPointF(-6.0, 8.0) << true;
        QTest::newRow(name + "/10.01 away") << target << QPointF(0.0, -10.01) << false;
    }
}

void TstDraggablePointMarker::hitTestsIncludeTheToleranceBoundary()
{
    QFETCH(QString, target);
    QFETCH(QPointF, offset);
    QFETCH(bool, hit);
    const QPointF upper = m_harness->scenePos(50.0, 1.0);
    const QPointF lower = m_harness->scenePos(50.0, -1.0);
    if (target == "upper")
        QCOMPARE(m_marker.hitTestUpper(upper + offset, 10.0), hit);
    else if (target == "lower")
        QCOMPARE(m_marker.hitTestLower(lower + offset, 10.0), hit);
    else
        QCOMPARE(m_marker.hitTestToggle((upper + lower) / 2 + offset, 10.0), hit);
}

void TstDraggablePointMarker::hitTestsMissBeforeItemsExist()
{
    DraggablePointMarker bare;
    QVERIFY(!bare.hitTestUpper(QPointF(0, 0), 10.0));
    QVERIFY(!bare.hitTestLower(QPointF(0, 0), 10.0));
    QVERIFY(!bare.hitTestToggle(QPointF(0, 0), 10.0));
}

void TstDraggablePointMarker::selectionBrightensBothHandles()
{
    const auto [upper, lower] = handles(m_harness->chart->scene());
    QVERIFY(upper && lower);
    QCOMPARE(upper->brush().color(), BASE.lighter(120));
    QCOMPARE(lower->brush().color(), BASE.darker(120));
    m_marker.setSelected(true);
    QCOMPARE(upper->brush().color(), BASE.lighter(150));
    QCOMPARE(lower->brush().color(), BASE.lighter(130));
    m_marker.setSelected(false);
    QCOMPARE(upper->brush().color(), BASE.lighter(120));
    QCOMPARE(lower->brush().color(), BASE.darker(120));
    QCOMPARE(upper->pen().color(), QColor(Qt::white));
}

void TstDraggablePointMarker::disabledPointShowsOnlyAnOutlinedPlus()
{
    QGraphicsScene *scene = m_harness->chart->scene();
    auto *toggle = qgraphicsitem_cast<QGraphicsEllipseItem *>(itemsAtZ(scene, 1002.0).value(0));
    QVERIFY(toggle);
    const auto countVisible = [scene](double z) {
        int n = 0;
        for (QGraphicsItem *item : itemsAtZ(scene, z))
            n += item->isVisible();
        return n;
    };
    QCOMPARE(toggle->brush().color(), BASE);
    QCOMPARE(countVisible(1003.0), 1); // minus

    m_marker.setPointEnabled(false);
    QCOMPARE(countVisible(1001.0), 0);
    QCOMPARE(countVisible(999.0), 0);
    QCOMPARE(toggle->brush().style(), Qt::NoBrush);
    QCOMPARE(toggle->pen().color(), BASE.darker(150));
    QCOMPARE(countVisible(1003.0), 2); // plus

    m_marker.setPointEnabled(true);
    QCOMPARE(countVisible(1001.0), 2);
    QCOMPARE(countVisible(999.0), 1);
    QCOMPARE(countVisible(1003.0), 1);
}

void TstDraggablePointMarker::itemsFollowTheDataThroughTheSeriesAxis()
{
    m_marker.setUpperValue(1.5);
    m_marker.setLowerValue(0.5);
    QGraphicsScene *scene = m_harness->chart->scene();
    const auto [upperBefore, lowerBefore] = handles(scene);
    const QPointF unmoved = upperBefore->pos();
    QCOMPARE(unmoved, m_harness->scenePos(50.0, 1.0)); // setters store only
    m_marker.updateScenePosition(m_harness->chart);

    const QPointF upper = m_harness->scenePos(50.0, 1.5);
    const QPointF lower = m_harness->scenePos(50.0, 0.5);
    const auto [upperHandle, lowerHandle] = handles(scene);
    QCOMPARE(upperHandle->pos(), upper);
    QCOMPARE(lowerHandle->pos(), lower);
    auto *link = qgraphicsitem_cast<QGraphicsLineItem *>(itemsAtZ(scene, 999.0).value(0));
    QCOMPARE(link->line(), QLineF(upper, lower));
    const QPointF middle = (upper + lower) / 2;
    QCOMPARE(itemsAtZ(scene, 1002.0).value(0)->pos(), middle);
    for (QGraphicsItem *bar : itemsAtZ(scene, 1003.0)) {
        const QLineF line = qgraphicsitem_cast<QGraphicsLineItem *>(bar)->line();
        QCOMPARE(line.center(), middle);
        QCOMPARE(line.length(), 8.0);
    }
}

void TstDraggablePointMarker::removeFromSceneTakesEveryItem()
{
    QGraphicsScene *scene = m_harness->chart->scene();
    const int before = scene->items().size();
    m_marker.removeFromScene(scene);
    QCOMPARE(scene->items().size(), before - 6);
    QVERIFY(!m_marker.hitTestUpper(m_harness->scenePos(50.0, 1.0), 10.0));
}

QTEST_MAIN(TstDraggablePointMarker)
#include "tst_draggablepointmarker.moc"
