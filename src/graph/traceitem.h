#ifndef TRACEITEM_H
#define TRACEITEM_H

#include <QGraphicsItem>
#include <QLineF>
#include <QList>
#include <QPointF>
#include <QRect>
#include <QRectF>
#include <QVector>

#include <vector>

class QAreaSeries;
class QColor;
class QLineSeries;
class QPen;
class QValueAxis;

// Draws the reduced points of every visible waveform series in one pass with a one-pixel
// cosmetic pen, and every envelope over them: its band, then its limits. The series keep their
// points, but the chart neither strokes nor paints them: for a path of thousands of points Qt
// Charts builds a hit-test outline on every update, which cost more than the whole picture.
class TraceItem : public QGraphicsItem
{
public:
    struct Trace
    {
        QLineSeries *series = nullptr;
        QValueAxis *axisX = nullptr;
        QValueAxis *axisY = nullptr;
    };
    // One run of an envelope between gaps, drawn with the pens of its limit series and the
    // brush of its area series, each where that series is visible.
    struct Envelope
    {
        QLineSeries *upper = nullptr;
        QLineSeries *lower = nullptr;
        QAreaSeries *area = nullptr;
        QValueAxis *axisX = nullptr;
        QValueAxis *axisY = nullptr;
    };

    explicit TraceItem(QGraphicsItem *parent = nullptr);

    void setTraces(const QVector<Trace> &traces);
    void setEnvelopes(const QVector<Envelope> &envelopes);
    // In the parent's coordinates, as QChart::plotArea() gives it.
    void setPlotArea(const QRectF &plot);

    QRectF boundingRect() const override;
    void paint(QPainter *painter, const QStyleOptionGraphicsItem *option, QWidget *widget) override;

private:
    // Values to pixels through a pair of axes; invalid where an axis has no extent.
    struct Mapping
    {
        double x0 = 0.0, y0 = 0.0, xScale = 0.0, yScale = 0.0, left = 0.0, bottom = 0.0;
        bool valid = false;
        QPointF map(const QPointF &p) const { return {left + (p.x() - x0) * xScale, bottom - (p.y() - y0) * yScale}; }
    };
    Mapping mapping(const QValueAxis *axisX, const QValueAxis *axisY) const;
    // Calls column(x, low, high) for each pixel column the points pass through, and
    // segment(from, to) for each step wider than a column.
    template <typename Column, typename Segment>
    void forEachColumn(const QList<QPointF> &points, const Mapping &m, Column &&column, Segment &&segment) const;
    void gatherColumns(const QList<QPointF> &points, const Mapping &m) const;
    void paintTrace(QPainter *painter, const Trace &trace) const;
    void paintTraceColumns(QPainter *painter, const QList<QPointF> &points, const Mapping &m, const QColor &colour,
                           int deviceRow) const;
    void addRowRuns(int firstColumn) const;
    void paintBand(QPainter *painter, const Envelope &envelope, const Mapping &m) const;
    void paintLimit(QPainter *painter, const QLineSeries *series, const Mapping &m) const;
    void paintWideColumns(QPainter *painter, const QList<QPointF> &points, const Mapping &m, const QColor &colour,
                          double width) const;
    void paintDashedLimit(QPainter *painter, const QList<QPointF> &points, const QPen &pen, const Mapping &m) const;
    void paintPointMarks(QPainter *painter, const QList<QPointF> &points, const QPen &pen, const Mapping &m) const;
    void addRows(const QRect &rect) const;
    void columnValues(const QList<QPointF> &points, const Mapping &m, int firstColumn, std::vector<double> &values) const;

    QVector<Trace> m_traces;
    QVector<Envelope> m_envelopes;
    QRectF m_plot;
    // Reused from paint to paint.
    mutable QVector<QLineF> m_lines;
    mutable QVector<QRect> m_rects;
    mutable std::vector<double> m_upperValues, m_lowerValues;
    mutable std::vector<int> m_tops, m_bottoms;
};

#endif
