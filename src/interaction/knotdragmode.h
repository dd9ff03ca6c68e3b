#ifndef KNOTDRAGMODE_H
#define KNOTDRAGMODE_H

#include "chartinteractionmode.h"
#include "vorngraph_export.h"

#include <QObject>
#include <QVector>

class DraggablePointMarker;
class QAbstractSeries;

// Edits an envelope by its knots: a grabbed handle follows the pointer in value and, with Shift
// held, in time as well, on a time grid and never onto or past a neighbouring knot. A
// double-click on empty chart asks for a knot there, one on a handle for its editor; Delete asks
// to remove the selected knot. A press never switches a knot off or on: it grabs the nearest
// handle (or selects a knot that is off), and G asks to switch the selected knot.
class VORNGRAPH_EXPORT KnotDragMode : public QObject, public ChartInteractionMode
{
    Q_OBJECT

public:
    // Switches the selected knot off (a gap in the limits) or back on.
    static constexpr Qt::Key TOGGLE_KEY = Qt::Key_G;

    KnotDragMode(QVector<DraggablePointMarker *> *markers, QAbstractSeries *series, QObject *parent = nullptr);

    // Knot times are start + k * interval for k = 0 ... nodes - 1.
    void setTimeGrid(double start, double interval, quint64 nodes);
    // The grid time nearest to wanted that lies strictly between the neighbours' times (NaN: no
    // neighbour on that side) and on the grid; NaN when the neighbours leave no grid time free.
    static double constrainTime(double wanted, double previous, double next, double start, double interval,
                                quint64 nodes);

    int selectedIndex() const { return m_selectedIndex; }
    void selectKnot(int index);

    void handleMousePress(InteractiveChartView *view, QMouseEvent *event) override;
    void handleMouseMove(InteractiveChartView *view, QMouseEvent *event) override;
    void handleMouseRelease(InteractiveChartView *view, QMouseEvent *event) override;
    bool handleMouseDoubleClick(InteractiveChartView *view, QMouseEvent *event) override;
    bool handleKeyPress(InteractiveChartView *view, QKeyEvent *event) override;

signals:
    void knotSelected(int knotIndex);
    void knotMoved(int knotIndex, double time, double upperValue, double lowerValue);
    // A drag ended after the knot moved: one step for an undo history.
    void knotDragFinished(int knotIndex);
    void knotToggled(int knotIndex);
    void knotInsertRequested(double time);
    void knotRemoveRequested(int knotIndex);
    void knotEditRequested(int knotIndex);

private:
    static constexpr double HIT_TOLERANCE = 10.0;

    // The enabled knot whose upper or lower handle lies nearest to scenePos within the tolerance.
    int handleAt(const QPointF &scenePos, bool *upper) const;
    double markerTime(int index) const;

    QVector<DraggablePointMarker *> *m_markers;
    QAbstractSeries *m_series;
    double m_gridStart = 0.0;
    double m_gridInterval = 0.0;
    quint64 m_gridNodes = 0;
    int m_selectedIndex = -1;
    bool m_draggingUpper = true;
    // Pointer minus the grabbed limit, in scene pixels: a handle drawn beside a narrow band, or
    // grabbed off its centre, does not jump to the pointer.
    double m_grabOffset = 0.0;
    bool m_dragging = false;
    bool m_moved = false;
};

#endif
