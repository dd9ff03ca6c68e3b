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

// One polyline per run of finite points; a NaN point breaks the trace as a gap.
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
    m_pixels.clear();
    m_pixels.reserve(points.size());
    const auto flush = [&] {
        if (m_pixels.size() > 1)
            painter->drawPolyline(m_pixels.constData(), int(m_pixels.size()));
        m_pixels.clear();
    };
    for (const QPointF &p : points) {
        const double x = left + (p.x() - x0) * xScale;
        const double y = bottom - (p.y() - y0) * yScale;
        if (!std::isfinite(x) || !std::isfinite(y)) {
            flush();
            continue;
        }
        m_pixels.append(QPointF(std::clamp(x, first, last), std::clamp(y, lowest, highest)));
    }
    flush();
}
