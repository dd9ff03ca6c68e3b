#ifndef CHARTINTERACTIONMODE_H
#define CHARTINTERACTIONMODE_H

#include "vorngraph_export.h"

class InteractiveChartView;
class QKeyEvent;
class QMouseEvent;

/// What the chart view does with the mouse while a mode is installed; the view owns its mode.
class VORNGRAPH_EXPORT ChartInteractionMode
{
public:
    /// A mode that handles nothing until a subclass says how.
    ChartInteractionMode() = default;
    /// Copies the mode; it holds no state of its own.
    ChartInteractionMode(const ChartInteractionMode &) = default;
    /// Copies the mode; it holds no state of its own.
    ChartInteractionMode &operator=(const ChartInteractionMode &) = default;
    /// Called by the view when it replaces or clears the mode, or is deleted itself.
    virtual ~ChartInteractionMode();

    /// A mouse button went down on view's viewport (positions in viewport pixels).
    virtual void handleMousePress(InteractiveChartView *view, QMouseEvent *event) = 0;
    /// The mouse moved over view's viewport, with or without a button held.
    virtual void handleMouseMove(InteractiveChartView *view, QMouseEvent *event) = 0;
    /// A mouse button came up; the mode may replace itself on view from here.
    virtual void handleMouseRelease(InteractiveChartView *view, QMouseEvent *event) = 0;
    /// Modes that want double-clicks or keys take them; the others leave them to the view.
    virtual bool handleMouseDoubleClick(InteractiveChartView *view, QMouseEvent *event);
    /// A key pressed on view: true when the mode took it. The default takes neither double-clicks
    /// nor keys.
    virtual bool handleKeyPress(InteractiveChartView *view, QKeyEvent *event);
};

#endif
