#ifndef POINTDRAGMODE_H
#define POINTDRAGMODE_H

#include "chartinteractionmode.h"
#include "vorngraph_export.h"

#include <QObject>
#include <QVector>

class DraggablePointMarker;
class QAbstractSeries;

// Hits toggles and handles of the envelope markers and drags the grabbed handle vertically.
// The marker array belongs to the caller and is read afresh on every event, so the caller may
// rebuild its markers while the mode stays installed.
class VORNGRAPH_EXPORT PointDragMode : public QObject, public ChartInteractionMode
{
    Q_OBJECT

public:
    PointDragMode(QVector<DraggablePointMarker *> *markers, QAbstractSeries *series,
                  QObject *parent = nullptr);

    void handleMousePress(InteractiveChartView *view, QMouseEvent *event) override;
    void handleMouseMove(InteractiveChartView *view, QMouseEvent *event) override;
    void handleMouseRelease(InteractiveChartView *view, QMouseEvent *event) override;

signals:
    void pointSelected(int pointIndex);
    void pointMoved(int pointIndex, double newUpperValue, double newLowerValue);
    void pointToggled(int pointIndex);

private:
    static constexpr double HIT_TOLERANCE = 10.0;

    void deselectAllMarkers();
    bool grabHandleAt(const QPointF &scenePos);

    QVector<DraggablePointMarker *> *m_markers;
    QAbstractSeries *m_series;
    int m_selectedIndex = -1;
    bool m_draggingUpper = true;
    bool m_dragging = false;
};

#endif
