#include "draggablepointmarker.h"

#include "boundedlineitem.h"

#include <QBrush>
#include <QChart>
#include <QGraphicsEllipseItem>
#include <QGraphicsLineItem>
#include <QGraphicsScene>
#include <QPen>

#include <algorithm>

namespace {

constexpr double SIGN_HALF_LENGTH = 4.0;
// Least distance between the centres of a knot's two handles: a handle and a pixel each side.
constexpr double HANDLES_APART = 10.0;

QPen outlinePen(const QColor &color, double width)
{
    return QPen(QBrush(color, Qt::SolidPattern), width, Qt::SolidLine, Qt::SquareCap, Qt::BevelJoin);
}

QGraphicsEllipseItem *addCircle(QGraphicsScene *scene, double diameter, double z)
{
    auto *item = new QGraphicsEllipseItem(-diameter / 2, -diameter / 2, diameter, diameter);
    // Handles and toggles move on every drag step; repainting them from a pixmap is much
    // cheaper than stroking a circle, above all with antialiasing.
    item->setCacheMode(QGraphicsItem::DeviceCoordinateCache);
    item->setZValue(z);
    scene->addItem(item);
    return item;
}

QGraphicsLineItem *addLine(QGraphicsScene *scene, double z)
{
    auto *item = new BoundedLineItem;
    item->setZValue(z);
    scene->addItem(item);
    return item;
}

template<typename Item>
void removeItem(QGraphicsScene *scene, Item *&item)
{
    if (!item)
        return;
    if (scene && item->scene() == scene)
        scene->removeItem(item);
    delete item;
    item = nullptr;
}

bool near(const QGraphicsItem *item, const QPointF &scenePos, double tolerance)
{
    if (!item)
        return false;
    const QPointF d = scenePos - item->pos();
    return d.x() * d.x() + d.y() * d.y() <= tolerance * tolerance;
}

} // namespace

void DraggablePointMarker::createMarkers(QGraphicsScene *scene, const QColor &color)
{
    m_color = color;
    m_linkLine = new BoundedLineItem;
    m_linkLine->setPen(QPen(QBrush(color, Qt::SolidPattern), 1.0, Qt::DashLine, Qt::SquareCap, Qt::BevelJoin));
    m_linkLine->setZValue(999.0);
    scene->addItem(m_linkLine);
    m_upperHandle = addCircle(scene, MARKER_SIZE, 1001.0);
    m_lowerHandle = addCircle(scene, MARKER_SIZE, 1001.0);
    m_toggle = addCircle(scene, TOGGLE_SIZE, 1002.0);
    m_toggleBar = addLine(scene, 1003.0);
    m_toggleCrossBar = addLine(scene, 1003.0);
    updateMarkerColors();
    updateToggleVisuals();
}

void DraggablePointMarker::removeFromScene(QGraphicsScene *scene)
{
    removeItem(scene, m_upperHandle);
    removeItem(scene, m_lowerHandle);
    removeItem(scene, m_linkLine);
    removeItem(scene, m_toggle);
    removeItem(scene, m_toggleBar);
    removeItem(scene, m_toggleCrossBar);
}

void DraggablePointMarker::setDataPosition(double time, double upper, double lower)
{
    m_time = time;
    m_upperValue = upper;
    m_lowerValue = lower;
}

void DraggablePointMarker::setSelected(bool selected)
{
    m_selected = selected;
    updateMarkerColors();
    if (m_knotStyle)
        updateToggleVisuals();
}

void DraggablePointMarker::setPointEnabled(bool enabled)
{
    m_pointEnabled = enabled;
    updateMarkerColors();
    updateToggleVisuals();
}

void DraggablePointMarker::updateScenePosition(QChart *chart)
{
    if (!chart)
        return;
    if (!m_upperHandle && !m_lowerHandle && !m_toggle)
        return;
    QPointF upper = chart->mapToPosition(QPointF(m_time, m_upperValue), m_series);
    QPointF lower = chart->mapToPosition(QPointF(m_time, m_lowerValue), m_series);
    const QPointF middle = (upper + lower) / 2;
    if (m_knotStyle && lower.y() - upper.y() < HANDLES_APART) {
        upper.setY(middle.y() - HANDLES_APART / 2);
        lower.setY(middle.y() + HANDLES_APART / 2);
    }
    if (m_upperHandle)
        m_upperHandle->setPos(upper);
    if (m_lowerHandle)
        m_lowerHandle->setPos(lower);
    if (m_toggle)
        m_toggle->setPos(middle);
    updateToggleVisuals(); // places the link too
}

void DraggablePointMarker::setKnotStyle(bool knotStyle)
{
    m_knotStyle = knotStyle;
    updateToggleVisuals();
}

QPointF DraggablePointMarker::upperHandlePos() const
{
    return m_upperHandle ? m_upperHandle->pos() : QPointF();
}

QPointF DraggablePointMarker::lowerHandlePos() const
{
    return m_lowerHandle ? m_lowerHandle->pos() : QPointF();
}

bool DraggablePointMarker::hitTestUpper(const QPointF &scenePos, double tolerance) const
{
    return near(m_upperHandle, scenePos, tolerance) && insideClip(m_upperHandle);
}

bool DraggablePointMarker::hitTestLower(const QPointF &scenePos, double tolerance) const
{
    return near(m_lowerHandle, scenePos, tolerance) && insideClip(m_lowerHandle);
}

bool DraggablePointMarker::hitTestToggle(const QPointF &scenePos, double tolerance) const
{
    return near(m_toggle, scenePos, tolerance) && insideClip(m_toggle);
}

void DraggablePointMarker::updateMarkerColors()
{
    // A knot far from others on screen has no items; its colours would be work for nothing.
    if (!m_upperHandle && !m_lowerHandle)
        return;
    QColor upper = m_color.lighter(120);
    QColor lower = m_color.darker(120);
    if (m_selected) {
        // Both brighten, the lower one less, so the pair stays tellable apart.
        upper = m_color.lighter(150);
        lower = m_color.lighter(130);
    }
    const QPen pen = outlinePen(Qt::white, 1.0);
    if (m_upperHandle) {
        m_upperHandle->setBrush(QBrush(upper, Qt::SolidPattern));
        m_upperHandle->setPen(pen);
    }
    if (m_lowerHandle) {
        m_lowerHandle->setBrush(QBrush(lower, Qt::SolidPattern));
        m_lowerHandle->setPen(pen);
    }
    applyVisibility();
}

void DraggablePointMarker::updateToggleVisuals()
{
    if (!m_toggle || !m_toggleBar || !m_toggleCrossBar)
        return;
    // The sign's bars are scene items of their own, so they follow the toggle by hand.
    const QPointF centre = m_toggle->pos();
    const double x = centre.x();
    const double y = centre.y();
    QColor signColor = m_pointEnabled ? QColor(Qt::white) : m_color.darker(150);
    // A knot's toggle is its only mark once it is off, so it shows being selected.
    if (m_knotStyle && m_selected && !m_pointEnabled)
        signColor = m_color.lighter(150);
    m_toggle->setBrush(m_pointEnabled ? QBrush(m_color, Qt::SolidPattern) : QBrush(Qt::NoBrush));
    m_toggle->setPen(QPen(QBrush(signColor, Qt::SolidPattern), 1.0, Qt::SolidLine));
    m_toggleBar->setLine(x - SIGN_HALF_LENGTH, y, x + SIGN_HALF_LENGTH, y);
    m_toggleBar->setPen(outlinePen(signColor, 2.0));
    m_toggleCrossBar->setLine(x, y - SIGN_HALF_LENGTH, x, y + SIGN_HALF_LENGTH);
    m_toggleCrossBar->setPen(outlinePen(signColor, 2.0));
    applyVisibility();
}

bool DraggablePointMarker::insideClip(const QGraphicsItem *item) const
{
    return m_plotClip.isNull() || (item && m_plotClip.contains(item->pos()));
}

void DraggablePointMarker::applyVisibility()
{
    if (!m_upperHandle || !m_lowerHandle || !m_linkLine || !m_toggle || !m_toggleBar || !m_toggleCrossBar)
        return;
    m_upperHandle->setVisible(m_pointEnabled && insideClip(m_upperHandle));
    m_lowerHandle->setVisible(m_pointEnabled && insideClip(m_lowerHandle));
    QLineF link(m_upperHandle->pos(), m_lowerHandle->pos());
    const bool linkShown = m_plotClip.isNull() || clipLine(link, m_plotClip);
    m_linkLine->setLine(link);
    m_linkLine->setVisible(m_pointEnabled && linkShown);
    const bool toggleShown = insideClip(m_toggle) && !(m_knotStyle && m_pointEnabled);
    m_toggle->setVisible(toggleShown);
    m_toggleBar->setVisible(toggleShown);
    m_toggleCrossBar->setVisible(!m_pointEnabled && toggleShown);
}

void DraggablePointMarker::setPlotClip(const QRectF &plot)
{
    m_plotClip = plot;
    applyVisibility();
}

bool DraggablePointMarker::clipLine(QLineF &line, const QRectF &rect)
{
    // Liang-Barsky.
    double t0 = 0.0, t1 = 1.0;
    const double dx = line.dx(), dy = line.dy();
    const double p[4] = {-dx, dx, -dy, dy};
    const double q[4] = {line.x1() - rect.left(), rect.right() - line.x1(), line.y1() - rect.top(), rect.bottom() - line.y1()};
    for (int k = 0; k < 4; ++k) {
        if (p[k] == 0.0) {
            if (q[k] < 0.0)
                return false;
            continue;
        }
        const double r = q[k] / p[k];
        if (p[k] < 0.0)
            t0 = std::max(t0, r);
        else
            t1 = std::min(t1, r);
    }
    if (t0 > t1)
        return false;
    line = QLineF(line.pointAt(t0), line.pointAt(t1));
    return true;
}
