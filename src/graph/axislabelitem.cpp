#include "axislabelitem.h"

#include "wholepixels.h"

#include <QCategoryAxis>
#include <QFontMetricsF>
#include <QPainter>
#include <QValueAxis>

#include <cmath>

namespace {

constexpr double TICK = 5.0;
constexpr double GAP = 3.0;

// The widest label's advance and a line's height.
bool upright(const QCategoryAxis *axis)
{
    return std::abs(axis->labelsAngle()) == 90;
}

// Where Qt Charts puts the dynamic ticks of axis: from its anchor at steps of its interval.
template <typename Line>
void eachTick(const QValueAxis *axis, Line line)
{
    // Dynamic ticks step by adding the interval, as Qt Charts does.
    const double min = axis->min(), max = axis->max(), step = axis->tickInterval();
    if (!(step > 0.0) || !(max > min) || (max - min) / step > 1000.0)
        return;
    const double anchor = axis->tickAnchor();
    for (double t = anchor + std::ceil((min - anchor) / step) * step; t <= max; t += step)
        line((t - min) / (max - min));
}

} // namespace

AxisLabelItem::AxisLabelItem(QGraphicsItem *parent)
    : QGraphicsItem(parent)
{
}

void AxisLabelItem::setAxes(QCategoryAxis *time, QCategoryAxis *value)
{
    m_time = time;
    m_value = value;
    update();
}

void AxisLabelItem::setGridAxes(QValueAxis *time, QValueAxis *value)
{
    m_gridTime = time;
    m_gridValue = value;
    update();
}

QSizeF AxisLabelItem::labelExtent(QCategoryAxis *axis)
{
    const QFont font = axis->labelsFont();
    const QFontMetricsF metrics(font);
    if (font != m_advanceFont || m_advances.size() > 512) {
        m_advances.clear();
        m_advanceFont = font;
    }
    double width = 0.0;
    const QStringList labels = axis->categoriesLabels();
    for (const QString &label : labels) {
        auto it = m_advances.find(label);
        if (it == m_advances.end())
            it = m_advances.insert(label, metrics.horizontalAdvance(label));
        width = std::max(width, *it);
    }
    return QSizeF(width, metrics.height());
}

void AxisLabelItem::labelsChanged()
{
    QMarginsF room;
    if (m_value)
        room.setLeft(TICK + GAP + labelExtent(m_value).width());
    if (m_time) {
        const QSizeF extent = labelExtent(m_time);
        room.setBottom(TICK + GAP + (upright(m_time) ? extent.width() : extent.height()));
    }
    const double line = m_time ? QFontMetricsF(m_time->labelsFont()).height() : 0.0;
    if (room != m_room || line != m_lineHeight)
        prepareGeometryChange();
    m_room = room;
    m_lineHeight = line;
    update();
}

void AxisLabelItem::setPlotArea(const QRectF &plot)
{
    if (plot == m_plot)
        return;
    prepareGeometryChange();
    m_plot = plot;
}

QVector<AxisLabelItem::Placed> AxisLabelItem::placedLabels(Qt::Orientation orientation) const
{
    QVector<Placed> placed;
    const bool across = orientation == Qt::Horizontal;
    QCategoryAxis *axis = across ? m_time.data() : m_value.data();
    if (!axis || !(axis->max() > axis->min()) || m_plot.isEmpty())
        return placed;
    const double length = across ? m_plot.width() : -m_plot.height();
    const double origin = across ? m_plot.left() : m_plot.bottom();
    const double scale = length / (axis->max() - axis->min());
    const QStringList labels = axis->categoriesLabels();
    for (const QString &label : labels) {
        const double at = origin + (axis->endValue(label) - axis->min()) * scale;
        const double from = across ? m_plot.left() : m_plot.top(), to = across ? m_plot.right() : m_plot.bottom();
        if (at >= from - 0.5 && at <= to + 0.5)
            placed.append({label, at});
    }
    return placed;
}

const QStaticText &AxisLabelItem::laidOut(const QString &label)
{
    auto it = m_texts.find(label);
    if (it == m_texts.end()) {
        // A long zoom session meets many labels; the ones of the current scales are few.
        if (m_texts.size() > 512)
            m_texts.clear();
        it = m_texts.insert(label, QStaticText(label));
        it->setTextFormat(Qt::PlainText);
        it->setPerformanceHint(QStaticText::AggressiveCaching);
    }
    return *it;
}

QRectF AxisLabelItem::boundingRect() const
{
    if (m_plot.isEmpty())
        return QRectF();
    const QMarginsF &r = m_room;
    // Half a label beyond the plot's corners, where the first and last labels reach.
    const double line = m_lineHeight;
    return m_plot.marginsAdded(QMarginsF(r.left(), line, r.left() + r.bottom(), r.bottom() + line));
}

// Level or upright lines of a one-pixel solid pen, which the raster engine strokes pixel by
// pixel, as the rectangles of the very pixels it strokes: from the pixel of a line's start to that
// of its end, in the row or column its position falls into. Other pens and painters stroke.
void AxisLabelItem::drawGridLines(QPainter *painter, const QVector<QLineF> &lines, const QPen &pen)
{
    QPoint offset;
    if (!wholePixelOffset(painter, offset) || pen.style() != Qt::SolidLine || pen.widthF() > 1.0 || pen.brush().style() != Qt::SolidPattern
        || painter->testRenderHint(QPainter::Antialiasing)) {
        painter->setPen(pen);
        painter->drawLines(lines);
        return;
    }
    QVector<QRect> rects;
    rects.reserve(lines.size());
    // Rounded where the engine rounds, on the device.
    const double dx = offset.x(), dy = offset.y();
    const auto column = [dx](double x) { return int(std::floor(x + dx) - dx); };
    const auto row = [dy](double y) { return int(std::floor(y + dy) - dy); };
    for (const QLineF &line : lines) {
        const int x1 = column(std::min(line.x1(), line.x2())), x2 = column(std::max(line.x1(), line.x2()));
        const int y1 = row(std::min(line.y1(), line.y2())), y2 = row(std::max(line.y1(), line.y2()));
        if (line.x1() != line.x2() && line.y1() != line.y2()) {
            painter->setPen(pen);
            painter->drawLine(line);
            continue;
        }
        if (line.p1() != line.p2())
            rects.append(QRect(QPoint(x1, y1), QPoint(x2, y2)));
    }
    painter->setPen(Qt::NoPen);
    painter->setBrush(pen.brush());
    painter->drawRects(rects.constData(), int(rects.size()));
    painter->setBrush(Qt::NoBrush);
}

void AxisLabelItem::paint(QPainter *painter, const QStyleOptionGraphicsItem *, QWidget *)
{
    if (m_plot.isEmpty())
        return;
    painter->save();
    QVector<QLineF> lines;
    if (m_gridTime && m_gridTime->isGridLineVisible()) {
        eachTick(m_gridTime, [&](double at) {
            const double x = m_plot.left() + at * m_plot.width();
            lines.append(QLineF(x, m_plot.top(), x, m_plot.bottom()));
        });
        drawGridLines(painter, lines, m_gridTime->gridLinePen());
    }
    if (m_gridValue && m_gridValue->isGridLineVisible()) {
        lines.clear();
        eachTick(m_gridValue, [&](double at) {
            const double y = m_plot.bottom() - at * m_plot.height();
            lines.append(QLineF(m_plot.left(), y, m_plot.right(), y));
        });
        drawGridLines(painter, lines, m_gridValue->gridLinePen());
    }
    if (m_time && m_time->max() > m_time->min()) {
        QCategoryAxis &axis = *m_time;
        painter->setPen(axis.linePen());
        painter->drawLine(m_plot.bottomLeft(), m_plot.bottomRight());
        painter->setFont(axis.labelsFont());
        painter->setPen(QPen(axis.labelsBrush(), 0));
        const QFontMetricsF metrics(axis.labelsFont());
        const bool turned = upright(&axis);
        for (const Placed &placed : placedLabels(Qt::Horizontal)) {
            const double x = placed.at;
            const QStaticText &text = laidOut(placed.text);
            const double width = text.size().width();
            if (turned) {
                painter->save();
                painter->translate(x - metrics.height() / 2, m_plot.bottom() + GAP);
                painter->rotate(-90);
                painter->drawStaticText(QPointF(-width, 0), text);
                painter->restore();
            } else {
                painter->drawStaticText(QPointF(x - width / 2, m_plot.bottom() + GAP), text);
            }
        }
    }
    if (m_value && m_value->max() > m_value->min()) {
        QCategoryAxis &axis = *m_value;
        const QPen line = axis.linePen();
        painter->setPen(line);
        painter->drawLine(m_plot.topLeft(), m_plot.bottomLeft());
        painter->setFont(axis.labelsFont());
        const QFontMetricsF metrics(axis.labelsFont());
        const QPen text(axis.labelsBrush(), 0);
        for (const Placed &placed : placedLabels(Qt::Vertical)) {
            const double y = placed.at;
            const QString &label = placed.text;
            painter->setPen(line);
            painter->drawLine(QPointF(m_plot.left() - TICK, y), QPointF(m_plot.left(), y));
            painter->setPen(text);
            const QStaticText &laid = laidOut(label);
            painter->drawStaticText(QPointF(m_plot.left() - TICK - GAP - laid.size().width(), y - metrics.height() / 2), laid);
        }
    }
    painter->restore();
}
