#include "axislabelitem.h"

#include <QCategoryAxis>
#include <QFontMetricsF>
#include <QPainter>

#include <cmath>

namespace {

constexpr double TICK = 5.0;
constexpr double GAP = 3.0;

// The widest label's advance and a line's height.
QSizeF labelExtent(QCategoryAxis *axis)
{
    const QFontMetricsF metrics(axis->labelsFont());
    double width = 0.0;
    const QStringList labels = axis->categoriesLabels();
    for (const QString &label : labels)
        width = std::max(width, metrics.horizontalAdvance(label));
    return QSizeF(width, metrics.height());
}

bool upright(const QCategoryAxis *axis)
{
    return std::abs(axis->labelsAngle()) == 90;
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

void AxisLabelItem::setPlotArea(const QRectF &plot)
{
    if (plot == m_plot)
        return;
    prepareGeometryChange();
    m_plot = plot;
}

QMarginsF AxisLabelItem::room() const
{
    QMarginsF room;
    if (m_value)
        room.setLeft(TICK + GAP + labelExtent(m_value).width());
    if (m_time) {
        const QSizeF extent = labelExtent(m_time);
        room.setBottom(TICK + GAP + (upright(m_time) ? extent.width() : extent.height()));
    }
    return room;
}

QRectF AxisLabelItem::boundingRect() const
{
    if (m_plot.isEmpty())
        return QRectF();
    const QMarginsF r = room();
    // Half a label beyond the plot's corners, where the first and last labels reach.
    const double line = m_time ? QFontMetricsF(m_time->labelsFont()).height() : 0.0;
    return m_plot.marginsAdded(QMarginsF(r.left(), line, r.left() + r.bottom(), r.bottom() + line));
}

void AxisLabelItem::paint(QPainter *painter, const QStyleOptionGraphicsItem *, QWidget *)
{
    if (m_plot.isEmpty())
        return;
    painter->save();
    if (m_time && m_time->max() > m_time->min()) {
        QCategoryAxis &axis = *m_time;
        const double scale = m_plot.width() / (axis.max() - axis.min());
        painter->setPen(axis.linePen());
        painter->drawLine(m_plot.bottomLeft(), m_plot.bottomRight());
        painter->setFont(axis.labelsFont());
        painter->setPen(QPen(axis.labelsBrush(), 0));
        const QFontMetricsF metrics(axis.labelsFont());
        const bool turned = upright(&axis);
        const QStringList labels = axis.categoriesLabels();
        for (const QString &label : labels) {
            const double x = m_plot.left() + (axis.endValue(label) - axis.min()) * scale;
            if (x < m_plot.left() - 0.5 || x > m_plot.right() + 0.5)
                continue;
            const double width = metrics.horizontalAdvance(label);
            if (turned) {
                painter->save();
                painter->translate(x + metrics.ascent() / 2 - metrics.descent() / 2, m_plot.bottom() + GAP);
                painter->rotate(-90);
                painter->drawText(QPointF(-width, 0), label);
                painter->restore();
            } else {
                painter->drawText(QPointF(x - width / 2, m_plot.bottom() + GAP + metrics.ascent()), label);
            }
        }
    }
    if (m_value && m_value->max() > m_value->min()) {
        QCategoryAxis &axis = *m_value;
        const double scale = m_plot.height() / (axis.max() - axis.min());
        const QPen line = axis.linePen();
        painter->setPen(line);
        painter->drawLine(m_plot.topLeft(), m_plot.bottomLeft());
        painter->setFont(axis.labelsFont());
        const QFontMetricsF metrics(axis.labelsFont());
        const QPen text(axis.labelsBrush(), 0);
        const QStringList labels = axis.categoriesLabels();
        for (const QString &label : labels) {
            const double y = m_plot.bottom() - (axis.endValue(label) - axis.min()) * scale;
            if (y < m_plot.top() - 0.5 || y > m_plot.bottom() + 0.5)
                continue;
            painter->setPen(line);
            painter->drawLine(QPointF(m_plot.left() - TICK, y), QPointF(m_plot.left(), y));
            painter->setPen(text);
            const double width = metrics.horizontalAdvance(label);
            painter->drawText(QPointF(m_plot.left() - TICK - GAP - width, y + (metrics.ascent() - metrics.descent()) / 2),
                              label);
        }
    }
    painter->restore();
}
