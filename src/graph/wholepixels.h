#ifndef WHOLEPIXELS_H
#define WHOLEPIXELS_H

#include <QPaintEngine>
#include <QPainter>
#include <QPoint>
#include <QTransform>

#include <cmath>

// The painter's offset on the device where it paints pixels through the raster engine and only
// moves by whole pixels; false where it scales, turns or moves by a fraction, and for other
// engines (a picture, SVG, OpenGL). Only then do fills reproduce the pixels the raster engine's
// one-pixel stroker would write, and a vector picture keeps its lines.
inline bool wholePixelOffset(QPainter *painter, QPoint &offset)
{
    const QPaintEngine *engine = painter->paintEngine();
    const QTransform device = painter->deviceTransform();
    if (!engine || engine->type() != QPaintEngine::Raster || device.type() > QTransform::TxTranslate
        || device.dx() != std::floor(device.dx()) || device.dy() != std::floor(device.dy()))
        return false;
    offset = QPoint(int(device.dx()), int(device.dy()));
    return true;
}

#endif
