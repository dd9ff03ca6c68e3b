#ifndef KNOTLIMITSITEM_H
#define KNOTLIMITSITEM_H

#include "vornwaveform.h"

#include <QColor>
#include <QGraphicsItem>
#include <QPolygonF>
#include <QVector>

#include <utility>

class QAbstractSeries;
class QChart;

// The limits of a knot edit, both lines and the band between them, as one item over the plot.
// It paints only the knots in the part of the plot being repainted, and at most four points per
// pixel column, so an envelope of tens of thousands of knots costs a drag step what one of a few
// hundred does. Runs of enabled knots are drawn; a knot that is off breaks the limits there.
class KnotLimitsItem : public QGraphicsItem
{
public:
    KnotLimitsItem(const QVector<EnvelopePoint> *knots, const QColor &color);

    // Call when the chart's plot area or axes changed.
    void setChart(QChart *chart, QAbstractSeries *series);
    // Repaints the stretch between the knots before and after knot (the one a drag moves).
    void updateAround(int knot);

    QRectF boundingRect() const override { return m_plot; }
    void paint(QPainter *painter, const QStyleOptionGraphicsItem *option, QWidget *widget) override;

    // The scene x of time, and back, on the chart's time axis as last set.
    double sceneX(double time) const { return m_plot.left() + (time - m_timeMin) * m_xScale; }
    double sceneY(double value) const { return m_plot.bottom() - (value - m_valueMin) * m_yScale; }
    // Knots [first, last) whose scene x lies in [left, right], with one more on each side that
    // exists, so the lines run on to the border.
    std::pair<int, int> knotsBetween(double left, double right) const;

private:
    // The band between the limits of knots [first, last), all enabled, over [left, right].
    void fillRun(QPainter *painter, int first, int last, double left, double right) const;

    const QVector<EnvelopePoint> *m_knots;
    QColor m_color;
    QRectF m_plot;
    double m_timeMin = 0.0, m_xScale = 0.0;
    double m_valueMin = 0.0, m_yScale = 0.0;
};

#endif
