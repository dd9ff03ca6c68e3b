#ifndef BOUNDEDLINEITEM_H
#define BOUNDEDLINEITEM_H

#include <QGraphicsLineItem>
#include <QPen>

#include <algorithm>

// A line item that bounds itself by its end points widened by the pen, instead of stroking its
// shape as QGraphicsLineItem does on every boundingRect() call. For a dashed pen that stroke
// costs more than drawing the line, and the view asks for the bounds of every item it repaints,
// so a drag over a hundred points spent most of its time here. The picture is unchanged.
class BoundedLineItem : public QGraphicsLineItem
{
public:
    QRectF boundingRect() const override
    {
        // A square cap reaches half the width past each end, diagonally at most w/2 * sqrt(2).
        const double margin = std::max(pen().widthF(), 1.0);
        return QRectF(line().p1(), line().p2()).normalized().adjusted(-margin, -margin, margin, margin);
    }
};

#endif
