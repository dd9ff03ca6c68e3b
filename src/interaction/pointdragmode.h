#ifndef POINTDRAGMODE_H
#define POINTDRAGMODE_H

#include "chartinteractionmode.h"
#include "vorngraph_export.h"

#include <QObject>
#include <QVector>

class DraggablePointMarker;
class QAbstractSeries;

/// Hits toggles and handles of the envelope markers and drags the grabbed handle vertically.
/// The marker array belongs to the caller and is read afresh on every event, so the caller may
/// rebuild its markers while the mode stays installed.
class VORNGRAPH_EXPORT PointDragMode : public QObject, public ChartInteractionMode
{
    Q_OBJECT

public:
    /// Drags the markers of the array markers points to (not owned), in the units of series' axes.
    PointDragMode(QVector<DraggablePointMarker *> *markers, QAbstractSeries *series,
                  QObject *parent = nullptr);

    /// Left button: a toggle hit emits pointToggled(), a handle of an enabled point is grabbed,
    /// elsewhere deselects all.
    void handleMousePress(InteractiveChartView *view, QMouseEvent *event) override;
    /// Moves the grabbed handle's value to the pointer (its time stays) and emits pointMoved().
    void handleMouseMove(InteractiveChartView *view, QMouseEvent *event) override;
    /// Lets go of the grabbed handle; the point stays selected.
    void handleMouseRelease(InteractiveChartView *view, QMouseEvent *event) override;

signals:
    /// A handle of point pointIndex (index into the marker array) was grabbed.
    void pointSelected(int pointIndex);
    /// Point pointIndex now has these limits, in the waveform's unit.
    void pointMoved(int pointIndex, double newUpperValue, double newLowerValue);
    /// The toggle of point pointIndex was clicked; the receiver enables or disables the point.
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
