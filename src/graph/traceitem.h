#ifndef TRACEITEM_H
#define TRACEITEM_H

#include <QGraphicsItem>
#include <QLineF>
#include <QList>
#include <QPointF>
#include <QVector>

class QLineSeries;
class QValueAxis;

// Draws the reduced points of every visible waveform series in one pass with a one-pixel
// cosmetic pen. The series keep their points, but the chart neither strokes nor paints them:
// for a path of thousands of points Qt Charts builds a hit-test outline on every update, which
// cost more than the whole picture.
class TraceItem : public QGraphicsItem
{
public:
    struct Trace
    {
        QLineSeries *series = nullptr;
        QValueAxis *axisX = nullptr;
        QValueAxis *axisY = nullptr;
    };

    explicit TraceItem(QGraphicsItem *parent = nullptr);

    void setTraces(const QVector<Trace> &traces);
    // In the parent's coordinates, as QChart::plotArea() gives it.
    void setPlotArea(const QRectF &plot);

    QRectF boundingRect() const override;
    void paint(QPainter *painter, const QStyleOptionGraphicsItem *option, QWidget *widget) override;

private:
    void paintTrace(QPainter *painter, const Trace &trace) const;

    QVector<Trace> m_traces;
    QRectF m_plot;
    mutable QVector<QLineF> m_lines; // reused from paint to paint
};

#endif
