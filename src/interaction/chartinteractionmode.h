#ifndef CHARTINTERACTIONMODE_H
#define CHARTINTERACTIONMODE_H

#include "vorngraph_export.h"

class InteractiveChartView;
class QKeyEvent;
class QMouseEvent;

// What the chart view does with the mouse while a mode is installed; the view owns its mode.
class VORNGRAPH_EXPORT ChartInteractionMode
{
public:
    ChartInteractionMode() = default;
    ChartInteractionMode(const ChartInteractionMode &) = default;
    ChartInteractionMode &operator=(const ChartInteractionMode &) = default;
    virtual ~ChartInteractionMode();

    virtual void handleMousePress(InteractiveChartView *view, QMouseEvent *event) = 0;
    virtual void handleMouseMove(InteractiveChartView *view, QMouseEvent *event) = 0;
    virtual void handleMouseRelease(InteractiveChartView *view, QMouseEvent *event) = 0;
    // Modes that want double-clicks or keys take them; the others leave them to the view.
    virtual bool handleMouseDoubleClick(InteractiveChartView *view, QMouseEvent *event);
    virtual bool handleKeyPress(InteractiveChartView *view, QKeyEvent *event);
};

#endif
