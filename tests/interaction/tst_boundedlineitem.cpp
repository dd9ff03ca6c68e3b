#include "boundedlineitem.h"

#include <QtTest>

class TstBoundedLineItem : public QObject
{
    Q_OBJECT

private slots:
    void boundsCoverTheStrokedLine_data();
    void boundsCoverTheStrokedLine();
};

void TstBoundedLineItem::boundsCoverTheStrokedLine_data()
{
    QTest::addColumn<QLineF>("line");
    QTest::addColumn<QPen>("pen");
    const QPen dashed(QBrush(Qt::red), 1.0, Qt::DashLine, Qt::SquareCap, Qt::BevelJoin);
    const QPen bar(QBrush(Qt::white), 2.0, Qt::SolidLine, Qt::SquareCap, Qt::BevelJoin);
    const QPen dotted(QBrush(Qt::blue), 1.0, Qt::DotLine, Qt::SquareCap, Qt::BevelJoin);
    QTest::newRow("dashed diagonal") << QLineF(10.5, 20.25, 300.0, -40.0) << dashed;
    QTest::newRow("dotted falling") << QLineF(0, 0, 37.3, 80.1) << dotted;
    QTest::newRow("wide horizontal bar") << QLineF(-4, 7, 4, 7) << bar;
    QTest::newRow("wide vertical bar") << QLineF(3, -4, 3, 4) << bar;
    QTest::newRow("wide diagonal") << QLineF(0, 0, 5, 5) << bar;
    QTest::newRow("a point") << QLineF(2, 2, 2, 2) << bar;
}

// Whatever the view repaints of the line must lie inside the bounds it is told about.
void TstBoundedLineItem::boundsCoverTheStrokedLine()
{
    QFETCH(QLineF, line);
    QFETCH(QPen, pen);
    BoundedLineItem item;
    item.setPen(pen);
    item.setLine(line);
    const QRectF stroked = item.shape().controlPointRect();
    const QRectF bounds = item.boundingRect();
    // Compared edge by edge: QRectF::contains() refuses an empty rectangle.
    QVERIFY(bounds.left() <= stroked.left() && bounds.right() >= stroked.right());
    QVERIFY(bounds.top() <= stroked.top() && bounds.bottom() >= stroked.bottom());
}

QTEST_MAIN(TstBoundedLineItem)
#include "tst_boundedlineitem.moc"
