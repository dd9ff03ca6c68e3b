#include "chartinteractionmode.h"

// Out of line so that the vtable lives in the library.
ChartInteractionMode::~ChartInteractionMode() = default;
