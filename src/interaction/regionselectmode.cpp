#include "regionselectmode.h"

#include "interactivechartview.h"

#include <QBrush>
#include <QGraphicsRectItem>
#include <QGraphicsScene>
#include <QMouseEvent>
#include <QPen>

#include <algorithm>

RegionSelectMode::RegionSelectMode(QObject *parent)
    : QObject(parent)
{
}

void RegionSelectMode::handleMousePress(InteractiveChartView *view, QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return;
    m_selecting = true;
    m_startPos = m_currentPos = view->mapToChartValue(event->pos());
    updateSelectionRect(view);
}

void RegionSelectMode::handleMouseMove(InteractiveChartView *view, QMouseEvent *event)
{
    if (!m_selecting)
        return;
    m_currentPos = view->mapToChartValue(event->pos());
    updateSelectionRect(view);
}

void RegionSelectMode::handleMouseRelease(InteractiveChartView *view, QMouseEvent *event)
{
    if (!m_selecting)
        return;
    m_selecting = false;
    m_currentPos = view->mapToChartValue(event->pos());
    const double startTime = std::min(m_startPos.x(), m_currentPos.x());
    const double endTime = std::max(m_startPos.x(), m_currentPos.x());
    removeSelectionRect(view);
    // The receiver replaces the view's mode from inside this emission, which deletes this
    // object: nothing may follow it.
    emit regionSelected(startTime, endTime);
}

void RegionSelectMode::updateSelectionRect(InteractiveChartView *view)
{
    QGraphicsScene *scene = view->chart()->scene();
    if (!scene)
        return;
    if (!m_selectionRect) {
        m_selectionRect = new QGraphicsRectItem;
        m_selectionRect->setBrush(QBrush(QColor(100, 100, 255, 50), Qt::SolidPattern));
        m_selectionRect->setPen(QPen(QBrush(QColor(100, 100, 255, 150)), 1.0, Qt::SolidLine,
                                     Qt::SquareCap, Qt::BevelJoin));
        m_selectionRect->setZValue(1000.0);
        scene->addItem(m_selectionRect);
    }
    const QPointF start = view->chart()->mapToPosition(m_startPos);
    const QPointF current = view->chart()->mapToPosition(m_currentPos);
    const QRectF plot = view->chart()->plotArea();
    const double left = std::min(start.x(), current.x());
    m_selectionRect->setRect(left, plot.top(), std::max(start.x(), current.x()) - left, plot.height());
}

void RegionSelectMode::removeSelectionRect(InteractiveChartView *view)
{
    if (!m_selectionRect)
        return;
    if (QGraphicsScene *scene = view->chart()->scene())
        scene->removeItem(m_selectionRect);
    delete m_selectionRect;
    m_selectionRect = nullptr;
}
