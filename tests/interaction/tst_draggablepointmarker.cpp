#include "charttestharness.h"
#include "draggablepointmarker.h"

#include <QGraphicsEllipseItem>
#include <QGraphicsLineItem>
#include <QGraphicsScene>
#include <QtTest>

namespace {

const QColor BASE(40, 120, 200);

QList<QGraphicsItem *> itemsAtZ(QGraphicsScene *scene, double z, bool visibleOnly = false)
{
    QList<QGraphicsItem *> found;
    for (QGraphicsItem *item : scene->items())
        if (item->zValue() == z && (!visibleOnly || item->isVisible()))
            found << item;
    return found;
}

QGraphicsEllipseItem *handleAt(QGraphicsScene *scene, const QPointF &pos)
{
    for (QGraphicsItem *item : itemsAtZ(scene, 1001.0))
        if (item->pos() == pos)
            return qgraphicsitem_cast<QGraphicsEllipseItem *>(item);
    return nullptr;
}

} // namespace

// One marker at 50 s between 1 and -1 on the waveform's axis.
class TstDraggablePointMarker : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void hitTestsIncludeTheToleranceBoundary_data();
    void hitTestsIncludeTheToleranceBoundary();
    void selectionAndEnablingRestyleTheItems();
    void itemsFollowTheDataThroughTheSeriesAxis();

private:
    QGraphicsScene *scene() const { return m_harness->chart->scene(); }

    std::unique_ptr<ChartTestHarness> m_harness;
    DraggablePointMarker m_marker;
};

void TstDraggablePointMarker::init()
{
    m_harness = std::make_unique<ChartTestHarness>();
    QVERIFY(m_harness->ready());
    m_marker = DraggablePointMarker();
    m_marker.createMarkers(scene(), BASE);
    m_marker.setSeries(m_harness->series);
    m_marker.setDataPosition(50.0, 1.0, -1.0);
    m_marker.updateScenePosition(m_harness->chart);
}

void TstDraggablePointMarker::cleanup()
{
    const int items = scene()->items().size();
    m_marker.removeFromScene(scene());
    QCOMPARE(scene()->items().size(), items - 6);
    m_harness.reset();
}

void TstDraggablePointMarker::hitTestsIncludeTheToleranceBoundary_data()
{
    QTest::addColumn<QString>("target");
    QTest::addColumn<QPointF>("offset");
    QTest::addColumn<bool>("hit");
    for (const QString &target : QStringList{"upper", "lower", "toggle"}) {
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

void TstDraggablePointMarker::selectionAndEnablingRestyleTheItems()
{
    QGraphicsEllipseItem *upper = handleAt(scene(), m_harness->scenePos(50.0, 1.0));
    QGraphicsEllipseItem *lower = handleAt(scene(), m_harness->scenePos(50.0, -1.0));
    auto *toggle = qgraphicsitem_cast<QGraphicsEllipseItem *>(itemsAtZ(scene(), 1002.0).value(0));
    QVERIFY(upper && lower && toggle);
    QCOMPARE(upper->pen().color(), QColor(Qt::white));
    const auto brushes = [&] { return qMakePair(upper->brush().color(), lower->brush().color()); };
    QCOMPARE(brushes(), qMakePair(BASE.lighter(120), BASE.darker(120)));
    m_marker.setSelected(true);
    QCOMPARE(brushes(), qMakePair(BASE.lighter(150), BASE.lighter(130)));
    m_marker.setSelected(false);
    QCOMPARE(brushes(), qMakePair(BASE.lighter(120), BASE.darker(120)));

    QCOMPARE(toggle->brush().color(), BASE);
    QCOMPARE(itemsAtZ(scene(), 1003.0, true).size(), 1); // a minus
    m_marker.setPointEnabled(false);
    QCOMPARE(itemsAtZ(scene(), 1001.0, true).size() + itemsAtZ(scene(), 999.0, true).size(), 0);
    QCOMPARE(toggle->brush().style(), Qt::NoBrush);
    QCOMPARE(toggle->pen().color(), BASE.darker(150));
    QCOMPARE(itemsAtZ(scene(), 1003.0, true).size(), 2); // a plus
    m_marker.setPointEnabled(true);
    QCOMPARE(itemsAtZ(scene(), 1001.0, true).size() + itemsAtZ(scene(), 999.0, true).size(), 3);
}

void TstDraggablePointMarker::itemsFollowTheDataThroughTheSeriesAxis()
{
    m_marker.setUpperValue(1.5);
    m_marker.setLowerValue(0.5);
    QVERIFY(handleAt(scene(), m_harness->scenePos(50.0, 1.0))); // setters only store
    m_marker.updateScenePosition(m_harness->chart);

    const QPointF upper = m_harness->scenePos(50.0, 1.5);
    const QPointF lower = m_harness->scenePos(50.0, 0.5);
    QVERIFY(handleAt(scene(), upper) && handleAt(scene(), lower));
    const auto *link = qgraphicsitem_cast<QGraphicsLineItem *>(itemsAtZ(scene(), 999.0).value(0));
    QCOMPARE(link->line(), QLineF(upper, lower));
    const QPointF middle = (upper + lower) / 2;
    QCOMPARE(itemsAtZ(scene(), 1002.0).value(0)->pos(), middle);
    for (QGraphicsItem *bar : itemsAtZ(scene(), 1003.0)) {
        const QLineF line = qgraphicsitem_cast<QGraphicsLineItem *>(bar)->line();
        QCOMPARE(line.center(), middle);
        QCOMPARE(line.length(), 8.0);
    }
}

QTEST_MAIN(TstDraggablePointMarker)
#include "tst_draggablepointmarker.moc"
