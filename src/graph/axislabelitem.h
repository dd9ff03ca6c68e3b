#ifndef AXISLABELITEM_H
#define AXISLABELITEM_H

#include "vorngraph_export.h"

#include <QFont>
#include <QGraphicsItem>
#include <QHash>
#include <QMarginsF>
#include <QPen>
#include <QPointer>
#include <QStaticText>
#include <QVector>

class QCategoryAxis;
class QValueAxis;

// Draws the grid of the two value axes, and the time labels under the plot and the value labels
// left of it with the axis lines and their ticks, from the categories the two label axes hold.
// All four axes stay hidden from the chart: Qt Charts lays out every label of a shown axis as
// rich text on each range change (even an empty one), which took about a quarter of a pan or
// wheel step.
class VORNGRAPH_EXPORT AxisLabelItem : public QGraphicsItem
{
public:
    explicit AxisLabelItem(QGraphicsItem *parent = nullptr);

    void setAxes(QCategoryAxis *time, QCategoryAxis *value);
    // The axes whose dynamic ticks give the vertical and the horizontal grid lines.
    void setGridAxes(QValueAxis *time, QValueAxis *value);
    // In the parent's coordinates, as QChart::plotArea() gives it.
    void setPlotArea(const QRectF &plot);
    // Measures the labels the axes hold now and repaints; call after refilling them.
    void labelsChanged();
    // Room the labels need left of and under the plot.
    QMarginsF room() const { return m_room; }

    struct Placed
    {
        QString text;
        double at; // x of a time label, y of a value label, in the parent's coordinates
    };
    // The labels drawn along the time (Horizontal) or the value axis, where they are drawn.
    QVector<Placed> placedLabels(Qt::Orientation orientation) const;

    QRectF boundingRect() const override;
    void paint(QPainter *painter, const QStyleOptionGraphicsItem *option, QWidget *widget) override;

private:
    friend class TstVornGraph;
    static void drawGridLines(QPainter *painter, const QVector<QLineF> &lines, const QPen &pen);
    const QStaticText &laidOut(const QString &label);
    QSizeF labelExtent(QCategoryAxis *axis);

    QPointer<QCategoryAxis> m_time;
    QPointer<QCategoryAxis> m_value;
    QPointer<QValueAxis> m_gridTime;
    QPointer<QValueAxis> m_gridValue;
    QRectF m_plot;
    QMarginsF m_room;
    double m_lineHeight = 0.0;
    // Labels come back as the view moves; laying a text out costs more than drawing it.
    QHash<QString, QStaticText> m_texts;
    // The width of each label in m_advanceFont, measured once: the room is measured every step.
    QHash<QString, double> m_advances;
    QFont m_advanceFont;
};

#endif
