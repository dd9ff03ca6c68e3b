#ifndef AXISLABELITEM_H
#define AXISLABELITEM_H

#include <QGraphicsItem>
#include <QMarginsF>
#include <QPointer>

class QCategoryAxis;

// Draws the time labels under the plot and the value labels left of it, with the axis lines and
// their ticks, from the categories the two label axes hold. Those axes stay hidden from the chart:
// Qt Charts lays out every label of a shown axis as rich text on each range change, which took
// about a quarter of a pan or wheel step.
class AxisLabelItem : public QGraphicsItem
{
public:
    explicit AxisLabelItem(QGraphicsItem *parent = nullptr);

    void setAxes(QCategoryAxis *time, QCategoryAxis *value);
    // In the parent's coordinates, as QChart::plotArea() gives it.
    void setPlotArea(const QRectF &plot);
    // Room the labels need left of and under the plot for what the axes hold now.
    QMarginsF room() const;

    QRectF boundingRect() const override;
    void paint(QPainter *painter, const QStyleOptionGraphicsItem *option, QWidget *widget) override;

private:
    QPointer<QCategoryAxis> m_time;
    QPointer<QCategoryAxis> m_value;
    QRectF m_plot;
};

#endif
