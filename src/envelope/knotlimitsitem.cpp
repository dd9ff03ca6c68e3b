#include "knotlimitsitem.h"

#include <QAbstractSeries>
#include <QChart>
#include <QPainter>
#include <QStyleOptionGraphicsItem>

#include <algorithm>
#include <cmath>

namespace {

constexpr double LIMITS_Z = 998.0; // where the point edit's connector lines lie
constexpr int FILL_ALPHA = 25;

// Knots falling into one pixel column become its first, lowest, highest and last point, which
// draws the same column of pixels as every segment through it would.
class ColumnReducer
{
public:
    explicit ColumnReducer(QPolygonF &out)
        : m_out(out)
    {
    }
    void add(double x, double y)
    {
        const double column = std::floor(x);
        if (m_count == 0 || column != m_column) {
            flush();
            m_column = column;
            m_x = m_lastX = x;
            m_first = m_low = m_high = m_last = y;
            m_count = 1;
            return;
        }
        m_low = std::min(m_low, y);
        m_high = std::max(m_high, y);
        m_last = y;
        m_lastX = x;
        ++m_count;
    }
    void flush()
    {
        if (m_count == 0)
            return;
        m_out << QPointF(m_x, m_first);
        if (m_count > 1)
            m_out << QPointF(m_x, m_low) << QPointF(m_x, m_high) << QPointF(m_lastX, m_last);
        m_count = 0;
    }

private:
    QPolygonF &m_out;
    double m_column = 0.0;
    double m_x = 0.0, m_lastX = 0.0;
    double m_first = 0.0, m_low = 0.0, m_high = 0.0, m_last = 0.0;
    int m_count = 0;
};

QPen limitPen(const QColor &color)
{
    QPen pen(QBrush(color, Qt::SolidPattern), 1.0, Qt::SolidLine, Qt::SquareCap, Qt::BevelJoin);
    pen.setCosmetic(true);
    return pen;
}

} // namespace

KnotLimitsItem::KnotLimitsItem(const QVector<EnvelopePoint> *knots, const QColor &color)
    : m_knots(knots)
    , m_color(color)
{
    setZValue(LIMITS_Z);
    setFlag(QGraphicsItem::ItemUsesExtendedStyleOption);
}

void KnotLimitsItem::setChart(QChart *chart, QAbstractSeries *series)
{
    const QRectF plot = chart ? chart->plotArea() : QRectF();
    if (plot.isEmpty())
        return;
    prepareGeometryChange();
    m_plot = plot;
    const QPointF low = chart->mapToValue(plot.bottomLeft(), series);
    const QPointF high = chart->mapToValue(plot.topRight(), series);
    m_timeMin = low.x();
    m_valueMin = low.y();
    m_xScale = high.x() > low.x() ? plot.width() / (high.x() - low.x()) : 0.0;
    m_yScale = high.y() > low.y() ? plot.height() / (high.y() - low.y()) : 0.0;
    update();
}

std::pair<int, int> KnotLimitsItem::knotsBetween(double left, double right) const
{
    if (!(m_xScale > 0.0))
        return {0, 0};
    const double from = m_timeMin + (left - m_plot.left()) / m_xScale;
    const double to = m_timeMin + (right - m_plot.left()) / m_xScale;
    const auto byTime = [](const EnvelopePoint &k, double t) { return k.time < t; };
    const auto first = std::lower_bound(m_knots->begin(), m_knots->end(), from, byTime);
    const auto last = std::lower_bound(first, m_knots->end(), to, byTime);
    const int a = int(first - m_knots->begin());
    const int b = int(last - m_knots->begin());
    return {std::max(a - 1, 0), std::min(b + 1, int(m_knots->size()))};
}

void KnotLimitsItem::updateAround(int knot)
{
    const int n = int(m_knots->size());
    if (knot < 0 || knot >= n)
        return;
    const double left = knot > 0 ? sceneX(m_knots->at(knot - 1).time) : m_plot.left();
    const double right = knot + 1 < n ? sceneX(m_knots->at(knot + 1).time) : m_plot.right();
    update(QRectF(QPointF(left - 2.0, m_plot.top()), QPointF(right + 2.0, m_plot.bottom())) & m_plot);
}

void KnotLimitsItem::fillRun(QPainter *painter, int first, int last, double left, double right) const
{
    const QVector<EnvelopePoint> &knots = *m_knots;
    const double from = std::max(sceneX(knots.at(first).time), left);
    const double to = std::min(sceneX(knots.at(last - 1).time), right);
    // Where knots lie two pixels apart or more, one quadrilateral per segment; where they crowd,
    // one rectangle per pixel column from the highest to the lowest limit in it.
    constexpr double SPARSE = 2.0;
    for (int k = first; k + 1 < last; ++k) {
        const EnvelopePoint &a = knots.at(k);
        const EnvelopePoint &b = knots.at(k + 1);
        const double xa = sceneX(a.time), xb = sceneX(b.time);
        if (xb - xa < SPARSE || xb < from || xa > to)
            continue;
        // Cut to the repainted stretch: a segment of a deeply zoomed view reaches far beyond it.
        const auto at = [&](double x, double lowValue, double highValue) {
            return sceneY(lowValue + (x - xa) / (xb - xa) * (highValue - lowValue));
        };
        const double x0 = std::max(xa, from), x1 = std::min(xb, to);
        const QPointF quad[4] = {{x0, at(x0, a.upperValue, b.upperValue)}, {x1, at(x1, a.upperValue, b.upperValue)},
                                 {x1, at(x1, a.lowerValue, b.lowerValue)}, {x0, at(x0, a.lowerValue, b.lowerValue)}};
        painter->drawPolygon(quad, 4, Qt::WindingFill);
    }
    QVector<QRectF> columns;
    int segment = first; // the knots segment, segment + 1 hold the column's middle between them
    int inside = first;  // the first knot not left of the column
    for (double c = std::floor(from); c < to; c += 1.0) {
        const double middle = std::clamp(c + 0.5, from, to);
        while (segment + 2 < last && sceneX(knots.at(segment + 1).time) < middle)
            ++segment;
        const EnvelopePoint &a = knots.at(segment);
        const EnvelopePoint &b = knots.at(segment + 1);
        const double xa = sceneX(a.time), xb = sceneX(b.time);
        if (xb - xa >= SPARSE)
            continue;
        const double f = xb > xa ? std::clamp((middle - xa) / (xb - xa), 0.0, 1.0) : 0.0;
        double top = sceneY(a.upperValue + f * (b.upperValue - a.upperValue));
        double bottom = sceneY(a.lowerValue + f * (b.lowerValue - a.lowerValue));
        if (top > bottom)
            std::swap(top, bottom);
        while (inside < last && sceneX(knots.at(inside).time) < c)
            ++inside;
        for (int k = inside; k < last && sceneX(knots.at(k).time) < c + 1.0; ++k) {
            const double upper = sceneY(knots.at(k).upperValue), lower = sceneY(knots.at(k).lowerValue);
            top = std::min({top, upper, lower});
            bottom = std::max({bottom, upper, lower});
        }
        top = std::max(top, m_plot.top() - 1.0);
        bottom = std::min(bottom, m_plot.bottom() + 1.0);
        if (bottom > top)
            columns.append(QRectF(c, top, 1.0, bottom - top));
    }
    painter->drawRects(columns);
}

void KnotLimitsItem::paint(QPainter *painter, const QStyleOptionGraphicsItem *option, QWidget *)
{
    const QRectF exposed = option->exposedRect & m_plot;
    if (exposed.isEmpty() || !(m_yScale > 0.0))
        return;
    // Whole pixel columns on both sides, so that a partial repaint draws what a full one does.
    const double left = exposed.left() - 2.0, right = exposed.right() + 2.0;
    const auto [first, last] = knotsBetween(left, right);
    painter->save();
    painter->setClipRect(m_plot, Qt::IntersectClip);
    QColor fill = m_color;
    fill.setAlpha(FILL_ALPHA);
    const QPen upperPen = limitPen(m_color.lighter(120));
    const QPen lowerPen = limitPen(m_color.darker(120));
    QPolygonF upper, lower;
    ColumnReducer upperColumns(upper), lowerColumns(lower);
    int runStart = first;
    // A run of two or more enabled knots is drawn; a knot that is off ends it.
    const auto drawRun = [&](int runEnd) {
        upperColumns.flush();
        lowerColumns.flush();
        if (runEnd - runStart >= 2) {
            // Column by column: a polygon through thousands of zigzagging knots takes the raster
            // engine a second to fill.
            painter->setPen(Qt::NoPen);
            painter->setBrush(fill);
            fillRun(painter, runStart, runEnd, left, right);
            painter->setBrush(Qt::NoBrush);
            painter->setPen(upperPen);
            painter->drawPolyline(upper);
            painter->setPen(lowerPen);
            painter->drawPolyline(lower);
        }
        upper.clear();
        lower.clear();
    };
    for (int i = first; i < last; ++i) {
        const EnvelopePoint &k = m_knots->at(i);
        if (!k.enabled) {
            drawRun(i);
            runStart = i + 1;
            continue;
        }
        const double x = sceneX(k.time);
        upperColumns.add(x, sceneY(k.upperValue));
        lowerColumns.add(x, sceneY(k.lowerValue));
    }
    drawRun(last);
    painter->restore();
}
