#include "pointdragmode.h"

#include "draggablepointmarker.h"
#include "interactivechartview.h"

#include <QMouseEvent>

PointDragMode::PointDragMode(QVector<DraggablePointMarker *> *markers, QAbstractSeries *series,
                             QObject *parent)
    : QObject(parent)
    , m_markers(markers)
    , m_series(series)
{
}

void PointDragMode::handleMousePress(InteractiveChartView *view, QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return;
    const QPointF scenePos = view->mapToScene(event->pos());
    // A toggle wins over every handle: it sits between the handles, where they may crowd it.
    for (int i = 0; i < m_markers->size(); ++i) {
        if (m_markers->at(i)->hitTestToggle(scenePos, HIT_TOLERANCE)) {
            emit pointToggled(i);
            return;
        }
    }
    if (grabHandleAt(scenePos))
        return;
    deselectAllMarkers();
    m_selectedIndex = -1;
    m_dragging = false;
}

bool PointDragMode::grabHandleAt(const QPointF &scenePos)
{
    for (int i = 0; i < m_markers->size(); ++i) {
        DraggablePointMarker *marker = m_markers->at(i);
        if (!marker->isPointEnabled())
            continue;
        const bool upper = marker->hitTestUpper(scenePos, HIT_TOLERANCE);
        if (!upper && !marker->hitTestLower(scenePos, HIT_TOLERANCE))
            continue;
        deselectAllMarkers();
        marker->setSelected(true);
        m_selectedIndex = i;
        m_draggingUpper = upper;
        m_dragging = true;
        emit pointSelected(i);
        return true;
    }
    return false;
}

void PointDragMode::handleMouseMove(InteractiveChartView *view, QMouseEvent *event)
{
    // The owner may have rebuilt a shorter marker array since the press.
    if (!m_dragging || m_selectedIndex < 0 || m_selectedIndex >= m_markers->size())
        return;
    // Only the value follows the mouse: a point keeps its time.
    const double value = view->mapToChartValue(event->pos(), m_series).y();
    DraggablePointMarker *marker = m_markers->at(m_selectedIndex);
    if (m_draggingUpper)
        marker->setUpperValue(value);
    else
        marker->setLowerValue(value);
    marker->updateScenePosition(view->chart());
    emit pointMoved(m_selectedIndex, marker->upperValue(), marker->lowerValue());
}

void PointDragMode::handleMouseRelease(InteractiveChartView *, QMouseEvent *)
{
    m_dragging = false;
}

void PointDragMode::deselectAllMarkers()
{
    for (DraggablePointMarker *marker : *m_markers)
        marker->setSelected(false);
}
