#include "traceitem.h"

#include <QLineSeries>
#include <QPainter>
#include <QValueAxis>

#include <algorithm>
#include <cmath>

namespace {

// Far enough outside the plot that a clamped segment looks the same inside it, near enough that
// the rasteriser's fixed-point coordinates never overflow.
constexpr double FAR_OUTSIDE = 1e5;

} // namespace

TraceItem::TraceItem(QGraphicsItem *parent)
    : QGraphicsItem(parent)
{
}

void TraceItem::setTraces(const QVector<Trace> &traces)
{
    m_traces = traces;
    update();
}

void TraceItem::setPlotArea(const QRectF &plot)
{
    if (plot == m_plot)
        return;
    prepareGeometryChange();
    m_plot = plot;
}

QRectF TraceItem::boundingRect() const
{
    return m_plot;
}

void TraceItem::paint(QPainter *painter, const QStyleOptionGraphicsItem *, QWidget *)
{
    if (m_plot.isEmpty())
        return;
    painter->save();
    painter->setClipRect(m_plot);
    painter->setRenderHint(QPainter::Antialiasing, false);
    for (const Trace &trace : qAsConst(m_traces))
        paintTrace(painter, trace);
    painter->restore();
}

// One pass over the points. Where several fall into one pixel column, as the min/max reduction
// makes them, the column is drawn as one vertical line over their extent, joined to the column
// before; only steps wider than a column are drawn as the segments they are. The picture is that
// of the polyline, with each pixel written about once instead of once per segment over it.
// A NaN point breaks the trace as a gap.
void TraceItem::paintTrace(QPainter *painter, const Trace &trace) const
{
    if (!trace.series || !trace.axisX || !trace.axisY || !trace.series->isVisible())
        return;
    const double xSpan = trace.axisX->max() - trace.axisX->min();
    const double ySpan = trace.axisY->max() - trace.axisY->min();
    if (!(xSpan > 0.0) || !(ySpan > 0.0))
        return;
    const double xScale = m_plot.width() / xSpan, yScale = m_plot.height() / ySpan;
    const double x0 = trace.axisX->min(), y0 = trace.axisY->min();
    const double left = m_plot.left(), bottom = m_plot.bottom();
    const double lowest = m_plot.top() - FAR_OUTSIDE, highest = bottom + FAR_OUTSIDE;
    const double first = left - FAR_OUTSIDE, last = m_plot.right() + FAR_OUTSIDE;

    QPen pen(trace.series->color(), 0.0);
    pen.setCosmetic(true);
    painter->setPen(pen);
    const QList<QPointF> points = trace.series->points();
    m_lines.clear();
    m_lines.reserve(points.size());
    bool open = false;         // a column is being gathered
    double column = 0.0;       // its pixel column
    double low = 0.0, high = 0.0;
    QPointF previous;          // the last point gathered
    const auto closeColumn = [&] {
        if (open)
            m_lines.append(QLineF(column + 0.5, low, column + 0.5, high));
    };
    for (const QPointF &p : points) {
        const double x = left + (p.x() - x0) * xScale;
        const double y = bottom - (p.y() - y0) * yScale;
        if (!std::isfinite(x) || !std::isfinite(y)) {
            closeColumn();
            open = false;
            continue;
        }
        const QPointF at(std::clamp(x, first, last), std::clamp(y, lowest, highest));
        const double c = std::floor(at.x());
        if (open && c == column) {
            low = std::min(low, at.y());
            high = std::max(high, at.y());
        } else {
            closeColumn();
            if (open && c == column + 1.0) {
                // The join to the next column is as good as vertical.
                low = std::min(previous.y(), at.y());
                high = std::max(previous.y(), at.y());
            } else {
                if (open)
                    m_lines.append(QLineF(previous, at));
                low = high = at.y();
            }
            column = c;
            open = true;
        }
        previous = at;
    }
    closeColumn();
    if (!m_lines.isEmpty())
        painter->drawLines(m_lines.constData(), int(m_lines.size()));
}
