#include "chartinteractionmode.h"

// Out of line so that the vtable lives in the library.
ChartInteractionMode::~ChartInteractionMode() = default;

bool ChartInteractionMode::handleMouseDoubleClick(InteractiveChartView *, QMouseEvent *)
{
    return false;
}

bool ChartInteractionMode::handleKeyPress(InteractiveChartView *, QKeyEvent *)
{
    return false;
}
