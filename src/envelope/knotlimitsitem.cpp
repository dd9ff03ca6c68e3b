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

void KnotLimitsItem::paint(QPainter *painter, const QStyleOptionGraphicsItem *option, QWidget *)
{
    const QRectF exposed = option->exposedRect & m_plot;
    if (exposed.isEmpty() || !(m_yScale > 0.0))
        return;
    // Whole pixel columns on both sides, so that a partial repaint draws what a full one does.
    const auto [first, last] = knotsBetween(exposed.left() - 2.0, exposed.right() + 2.0);
    painter->save();
    painter->setClipRect(m_plot, Qt::IntersectClip);
    QColor fill = m_color;
    fill.setAlpha(FILL_ALPHA);
    const QPen upperPen = limitPen(m_color.lighter(120));
    const QPen lowerPen = limitPen(m_color.darker(120));
    QPolygonF upper, lower;
    const auto drawRun = [&] {
        if (upper.size() >= 2) {
            QPolygonF band = upper;
            for (auto p = lower.crbegin(); p != lower.crend(); ++p)
                band << *p;
            painter->setPen(Qt::NoPen);
            painter->setBrush(fill);
            painter->drawPolygon(clipPolygon(band, m_plot), Qt::WindingFill);
            painter->setBrush(Qt::NoBrush);
            painter->setPen(upperPen);
            painter->drawPolyline(upper);
            painter->setPen(lowerPen);
            painter->drawPolyline(lower);
        }
        upper.clear();
        lower.clear();
    };
    ColumnReducer upperColumns(upper), lowerColumns(lower);
    int runLength = 0;
    for (int i = first; i < last; ++i) {
        const EnvelopePoint &k = m_knots->at(i);
        if (!k.enabled) {
            upperColumns.flush();
            lowerColumns.flush();
            // A single enabled knot has no stretch to draw, as in the point edit.
            if (runLength >= 2)
                drawRun();
            upper.clear();
            lower.clear();
            runLength = 0;
            continue;
        }
        const double x = sceneX(k.time);
        upperColumns.add(x, sceneY(k.upperValue));
        lowerColumns.add(x, sceneY(k.lowerValue));
        ++runLength;
    }
    upperColumns.flush();
    lowerColumns.flush();
    if (runLength >= 2)
        drawRun();
    painter->restore();
}

QPolygonF KnotLimitsItem::clipPolygon(const QPolygonF &polygon, const QRectF &rect)
{
    if (rect.contains(polygon.boundingRect()))
        return polygon;
    QPolygonF result = polygon;
    // Against each border in turn: keep what lies inside, add the crossings.
    const auto clipAgainst = [&result](auto inside, auto cross) {
        QPolygonF input;
        input.swap(result);
        for (int i = 0; i < input.size(); ++i) {
            const QPointF &a = input.at(i);
            const QPointF &b = input.at((i + 1) % input.size());
            if (inside(a)) {
                result << a;
                if (!inside(b))
                    result << cross(a, b);
            } else if (inside(b)) {
                result << cross(a, b);
            }
        }
    };
    const auto atX = [](double x) {
        return [x](const QPointF &a, const QPointF &b) { return QPointF(x, a.y() + (b.y() - a.y()) * (x - a.x()) / (b.x() - a.x())); };
    };
    const auto atY = [](double y) {
        return [y](const QPointF &a, const QPointF &b) { return QPointF(a.x() + (b.x() - a.x()) * (y - a.y()) / (b.y() - a.y()), y); };
    };
    clipAgainst([&](const QPointF &p) { return p.x() >= rect.left(); }, atX(rect.left()));
    clipAgainst([&](const QPointF &p) { return p.x() <= rect.right(); }, atX(rect.right()));
    clipAgainst([&](const QPointF &p) { return p.y() >= rect.top(); }, atY(rect.top()));
    clipAgainst([&](const QPointF &p) { return p.y() <= rect.bottom(); }, atY(rect.bottom()));
    return result;
}
