#include "bandlabelitem.h"

#include <QFontMetrics>
#include <QPainter>

#include <algorithm>
#include <limits>

namespace {

constexpr int PADDING = 3;
constexpr double MARK_WIDTH = 4.0;
// Dark enough to read coloured text over a trace, light enough to leave the trace visible.
const QColor TEXT_BACKGROUND(20, 20, 28, 170);

void drawBoxedText(QPainter *painter, const QRectF &box, const QString &text, Qt::Alignment alignment)
{
    const QRectF used = painter->boundingRect(box, int(alignment), text).adjusted(-PADDING, 0, PADDING, 0);
    painter->fillRect(used, TEXT_BACKGROUND);
    painter->drawText(box, int(alignment), text);
}

// A lane lower than a line centres its name on the trace.
double titleTop(const BandLabelItem::Band &band, int lineHeight)
{
    const double height = band.bottom - band.top;
    return height < lineHeight ? band.top + (height - lineHeight) / 2 : band.top;
}

} // namespace

BandLabelItem::BandLabelItem(QGraphicsItem *parent)
    : QGraphicsItem(parent)
{
}

void BandLabelItem::setBands(const QVector<Band> &bands, const QRectF &plot)
{
    if (plot != m_plot)
        prepareGeometryChange();
    m_plot = plot;
    m_bands = bands;
    update();
}

QRectF BandLabelItem::boundingRect() const
{
    return m_plot;
}

void BandLabelItem::paint(QPainter *painter, const QStyleOptionGraphicsItem *, QWidget *)
{
    if (m_bands.isEmpty() || m_plot.isEmpty())
        return;
    painter->save();
    painter->setClipRect(m_plot);
    painter->setFont(m_font);
    const int lineHeight = QFontMetrics(m_font).height();
    // From the top down; a lane too thin for its name leaves it out rather than overwrite the
    // name above it, so that sixty-four probes still read.
    QVector<const Band *> ordered;
    for (const Band &band : qAsConst(m_bands))
        ordered.append(&band);
    std::sort(ordered.begin(), ordered.end(), [](const Band *a, const Band *b) { return a->top < b->top; });
    double free = -std::numeric_limits<double>::infinity();
    for (const Band *band : qAsConst(ordered)) {
        if (titleTop(*band, lineHeight) < free - 0.5) {
            if (band->selected)
                painter->fillRect(QRectF(m_plot.left(), band->top, MARK_WIDTH, band->bottom - band->top), band->colour);
            continue;
        }
        paintBand(painter, *band, lineHeight);
        free = titleTop(*band, lineHeight) + lineHeight;
    }
    painter->restore();
}

// The name and scale always; the edge values only where the band has room for both lines.
void BandLabelItem::paintBand(QPainter *painter, const Band &band, int lineHeight) const
{
    const double height = band.bottom - band.top;
    const double left = m_plot.left() + MARK_WIDTH + PADDING * 2;
    const double width = m_plot.width() - MARK_WIDTH - PADDING * 4;
    if (band.selected)
        painter->fillRect(QRectF(m_plot.left(), band.top, MARK_WIDTH, height), band.colour);
    painter->setPen(band.colour);
    const QString title = band.scale.isEmpty() ? band.name : band.name + QStringLiteral("   ") + band.scale;
    drawBoxedText(painter, QRectF(left, titleTop(band, lineHeight), width, lineHeight), title,
                  Qt::AlignLeft | Qt::AlignVCenter);
    if (height < 2 * lineHeight || band.topValue.isEmpty())
        return;
    drawBoxedText(painter, QRectF(left, band.top, width, lineHeight), band.topValue, Qt::AlignRight | Qt::AlignTop);
    drawBoxedText(painter, QRectF(left, band.bottom - lineHeight, width, lineHeight), band.bottomValue,
                  Qt::AlignRight | Qt::AlignBottom);
}
