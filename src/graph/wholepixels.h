#ifndef WHOLEPIXELS_H
#define WHOLEPIXELS_H

#include <QPainter>
#include <QPoint>
#include <QTransform>

#include <cmath>

// The painter's offset on the device where it only moves by whole pixels; false where it scales,
// turns or moves by a fraction. Only then do fills reproduce the pixels the one-pixel stroker
// would write.
inline bool wholePixelOffset(const QPainter *painter, QPoint &offset)
{
    const QTransform device = painter->deviceTransform();
    if (device.type() > QTransform::TxTranslate || device.dx() != std::floor(device.dx())
        || device.dy() != std::floor(device.dy()))
        return false;
    offset = QPoint(int(device.dx()), int(device.dy()));
    return true;
}

#endif
