#ifndef REGIONSELECTMODE_H
#define REGIONSELECTMODE_H

#include "chartinteractionmode.h"
#include "vorngraph_export.h"

#include <QObject>
#include <QPointF>

class QGraphicsRectItem;

/// Lets the user drag out a time region; the band always spans the plot area's full height.
class VORNGRAPH_EXPORT RegionSelectMode : public QObject, public ChartInteractionMode
{
    Q_OBJECT

public:
    /// A mode that waits for a left-button press to start the region.
    explicit RegionSelectMode(QObject *parent = nullptr);

    /// The left button starts the region at the pointer's time; other buttons are ignored.
    void handleMousePress(InteractiveChartView *view, QMouseEvent *event) override;
    /// Stretches the shown band to the pointer's time.
    void handleMouseMove(InteractiveChartView *view, QMouseEvent *event) override;
    /// Removes the band and emits regionSelected(); the receiver may delete the mode.
    void handleMouseRelease(InteractiveChartView *view, QMouseEvent *event) override;

signals:
    /// The dragged region in seconds on the chart's time axis, startTime <= endTime (equal for a
    /// plain click).
    void regionSelected(double startTime, double endTime);

private:
    void updateSelectionRect(InteractiveChartView *view);
    void removeSelectionRect(InteractiveChartView *view);

    bool m_selecting = false;
    QPointF m_startPos;
    QPointF m_currentPos;
    QGraphicsRectItem *m_selectionRect = nullptr;
};

#endif
