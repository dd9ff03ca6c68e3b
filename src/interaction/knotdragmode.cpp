#include "knotdragmode.h"

#include "draggablepointmarker.h"
#include "interactivechartview.h"

#include <QChart>
#include <QKeyEvent>
#include <QMouseEvent>

#include <algorithm>
#include <cmath>
#include <limits>

KnotDragMode::KnotDragMode(QVector<DraggablePointMarker *> *markers, QAbstractSeries *series, QObject *parent)
    : QObject(parent)
    , m_markers(markers)
    , m_series(series)
{
}

void KnotDragMode::setTimeGrid(double start, double interval, quint64 nodes)
{
    m_gridStart = start;
    m_gridInterval = interval;
    m_gridNodes = nodes;
}

double KnotDragMode::constrainTime(double wanted, double previous, double next, double start, double interval,
                                   quint64 nodes)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    if (!(interval > 0.0) || nodes == 0 || std::isnan(wanted))
        return nan;
    const auto nodeOf = [&](double t) { return std::round((t - start) / interval); };
    double low = 0.0, high = static_cast<double>(nodes - 1);
    if (!std::isnan(previous))
        low = std::max(low, nodeOf(previous) + 1.0);
    if (!std::isnan(next))
        high = std::min(high, nodeOf(next) - 1.0);
    if (low > high)
        return nan;
    // Times are formed as node * interval + start, the way the envelope's grid forms them, so a
    // knot put back on its node has its old time to the bit.
    return std::clamp(nodeOf(wanted), low, high) * interval + start;
}

void KnotDragMode::selectKnot(int index)
{
    for (int i = 0; i < m_markers->size(); ++i)
        m_markers->at(i)->setSelected(i == index);
    m_selectedIndex = index >= 0 && index < m_markers->size() ? index : -1;
    m_dragging = false;
}

double KnotDragMode::markerTime(int index) const
{
    if (index < 0 || index >= m_markers->size())
        return std::numeric_limits<double>::quiet_NaN();
    return m_markers->at(index)->time();
}

int KnotDragMode::handleAt(const QPointF &scenePos, bool *upper) const
{
    int nearest = -1;
    double best = std::numeric_limits<double>::infinity();
    const auto consider = [&](int i, bool isUpper, bool hit, const QPointF &at) {
        const QPointF d = at - scenePos;
        const double distance = d.x() * d.x() + d.y() * d.y();
        if (hit && distance < best) {
            best = distance;
            nearest = i;
            *upper = isUpper;
        }
    };
    for (int i = 0; i < m_markers->size(); ++i) {
        const DraggablePointMarker *marker = m_markers->at(i);
        // A handle hidden beyond the plot takes no clicks meant for the axes (see its hit tests).
        if (!marker->isPointEnabled() || !marker->hasSceneItems())
            continue;
        consider(i, true, marker->hitTestUpper(scenePos, HIT_TOLERANCE), marker->upperHandlePos());
        consider(i, false, marker->hitTestLower(scenePos, HIT_TOLERANCE), marker->lowerHandlePos());
    }
    return nearest;
}

void KnotDragMode::handleMousePress(InteractiveChartView *view, QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return;
    const QPointF scenePos = view->mapToScene(event->pos());
    bool upper = true;
    int hit = handleAt(scenePos, &upper);
    if (hit < 0) {
        // A knot that is off shows only its toggle: a press there selects it, for the key.
        for (int i = 0; i < m_markers->size() && hit < 0; ++i) {
            const DraggablePointMarker *marker = m_markers->at(i);
            if (!marker->isPointEnabled() && marker->hitTestToggle(scenePos, HIT_TOLERANCE))
                hit = i;
        }
        selectKnot(hit);
        if (hit >= 0)
            emit knotSelected(hit);
        return;
    }
    selectKnot(hit);
    const DraggablePointMarker *marker = m_markers->at(hit);
    const QPointF limit = view->chart()->mapToPosition(
        QPointF(marker->time(), upper ? marker->upperValue() : marker->lowerValue()), m_series);
    m_grabOffset = std::isfinite(limit.y()) ? scenePos.y() - limit.y() : 0.0;
    m_draggingUpper = upper;
    m_dragging = true;
    m_moved = false;
    emit knotSelected(hit);
}

void KnotDragMode::handleMouseMove(InteractiveChartView *view, QMouseEvent *event)
{
    if (!m_dragging || m_selectedIndex < 0 || m_selectedIndex >= m_markers->size())
        return;
    DraggablePointMarker *marker = m_markers->at(m_selectedIndex);
    const QPointF value = view->chart()->mapToValue(view->mapToScene(event->pos()) - QPointF(0.0, m_grabOffset), m_series);
    double time = marker->time();
    if (event->modifiers() & Qt::ShiftModifier) {
        const double moved = constrainTime(value.x(), markerTime(m_selectedIndex - 1),
                                           markerTime(m_selectedIndex + 1), m_gridStart, m_gridInterval, m_gridNodes);
        if (!std::isnan(moved))
            time = moved;
    }
    const double upper = m_draggingUpper ? value.y() : marker->upperValue();
    const double lower = m_draggingUpper ? marker->lowerValue() : value.y();
    marker->setDataPosition(time, upper, lower);
    marker->updateScenePosition(view->chart());
    m_moved = true;
    emit knotMoved(m_selectedIndex, time, upper, lower);
}

void KnotDragMode::handleMouseRelease(InteractiveChartView *, QMouseEvent *)
{
    if (m_dragging && m_moved)
        emit knotDragFinished(m_selectedIndex);
    m_dragging = false;
    m_moved = false;
}

bool KnotDragMode::handleMouseDoubleClick(InteractiveChartView *view, QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return false;
    bool upper = true;
    const int hit = handleAt(view->mapToScene(event->pos()), &upper);
    if (hit >= 0)
        emit knotEditRequested(hit);
    else
        emit knotInsertRequested(view->mapToChartValue(event->pos(), m_series).x());
    return true;
}

bool KnotDragMode::handleKeyPress(InteractiveChartView *, QKeyEvent *event)
{
    if (m_selectedIndex < 0)
        return false;
    if (event->key() == Qt::Key_Delete || event->key() == Qt::Key_Backspace) {
        emit knotRemoveRequested(m_selectedIndex);
        return true;
    }
    if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
        emit knotEditRequested(m_selectedIndex);
        return true;
    }
    if (event->key() == TOGGLE_KEY && !(event->modifiers() & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier))) {
        emit knotToggled(m_selectedIndex);
        return true;
    }
    return false;
}
