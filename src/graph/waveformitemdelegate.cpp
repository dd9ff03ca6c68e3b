#include "waveformitemdelegate.h"

#include <QBrush>
#include <QPainter>
#include <QPen>
#include <QPolygonF>

namespace {

constexpr double MARKER_INSET = 4.0;
constexpr double MARKER_WIDTH = 8.0;
constexpr double MARKER_HALF_HEIGHT = 4.0;
// Room for the marker and a gap before the text.
constexpr int MARKER_SPACE = 16;

} // namespace

WaveformItemDelegate::WaveformItemDelegate(QObject *parent)
    : QStyledItemDelegate(parent)
{
}

WaveformItemDelegate::~WaveformItemDelegate() = default;

void WaveformItemDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option,
                                 const QModelIndex &index) const
{
    const QVariant colourData = index.data(COLOR_ROLE);
    if (!colourData.isValid()) {
        QStyledItemDelegate::paint(painter, option, index);
        return;
    }
    const QColor colour = colourData.value<QColor>();

    painter->save();
    const double x = option.rect.left() + MARKER_INSET;
    const double y = option.rect.center().y();
    const QPolygonF triangle({QPointF(x + MARKER_WIDTH, y), QPointF(x, y - MARKER_HALF_HEIGHT),
                              QPointF(x, y + MARKER_HALF_HEIGHT)});
    painter->setRenderHint(QPainter::Antialiasing);
    painter->setBrush(QBrush(colour, Qt::SolidPattern));
    painter->setPen(QPen(colour));
    painter->drawPolygon(triangle, Qt::OddEvenFill);
    painter->restore();

    QStyleOptionViewItem shifted(option);
    shifted.rect.setLeft(option.rect.left() + MARKER_SPACE);
    QStyledItemDelegate::paint(painter, shifted, index);
}

QSize WaveformItemDelegate::sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    QSize size = QStyledItemDelegate::sizeHint(option, index);
    if (index.data(COLOR_ROLE).isValid())
        size.rwidth() += MARKER_SPACE;
    return size;
}
