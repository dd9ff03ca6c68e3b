#ifndef DRAGGABLEPOINTMARKER_H
#define DRAGGABLEPOINTMARKER_H

#include "vorngraph_export.h"

#include <QColor>
#include <QPointF>
#include <QRectF>

class QAbstractSeries;
class QChart;
class QGraphicsEllipseItem;
class QGraphicsItem;
class QGraphicsLineItem;
class QGraphicsScene;
class QLineF;

/// One envelope point in the chart's scene: an upper and a lower handle joined by a dashed link,
/// and a toggle half-way between them showing minus (enabled) or plus (disabled).
/// The marker owns its scene items from createMarkers() on; removeFromScene() is the only place
/// that deletes them, so the owner calls it before deleting the marker.
class VORNGRAPH_EXPORT DraggablePointMarker
{
public:
    /// Adds the handles, link and toggle to scene in color; the marker owns them from here on.
    void createMarkers(QGraphicsScene *scene, const QColor &color);
    /// Takes the marker's items out of scene and deletes them; call it before deleting the marker.
    void removeFromScene(QGraphicsScene *scene);

    /// The series whose axes map the point's time and values into the scene.
    void setSeries(QAbstractSeries *series) { m_series = series; }
    /// The point's time in seconds and its limits in the waveform's unit.
    void setDataPosition(double time, double upper, double lower);
    /// The upper limit in the waveform's unit; updateScenePosition() moves the handle.
    void setUpperValue(double value) { m_upperValue = value; }
    /// The lower limit in the waveform's unit; updateScenePosition() moves the handle.
    void setLowerValue(double value) { m_lowerValue = value; }

    /// The point's time in seconds.
    double time() const { return m_time; }
    /// The upper limit in the waveform's unit.
    double upperValue() const { return m_upperValue; }
    /// The lower limit in the waveform's unit.
    double lowerValue() const { return m_lowerValue; }
    /// Whether the point is drawn as selected.
    bool isSelected() const { return m_selected; }
    /// Whether the point takes part in the envelope (its toggle shows minus).
    bool isPointEnabled() const { return m_pointEnabled; }

    /// Draws the point as selected or not.
    void setSelected(bool selected);
    /// Enables or disables the point; a disabled point hides its handles and link, keeping its
    /// toggle.
    void setPointEnabled(bool enabled);
    /// Moves the items to the point's time and values on chart's current axes.
    void updateScenePosition(QChart *chart);
    /// Keeps the marker's items inside plot (scene coordinates): a handle or the toggle whose
    /// centre
    /// lies beyond it is hidden and takes no clicks, the link is cut at its border. Positions,
    /// values and the enabled state stay as they are. A null rectangle shows everything.
    void setPlotClip(const QRectF &plot);
    /// The part of line inside rect; false, line untouched, when none of it is.
    static bool clipLine(QLineF &line, const QRectF &rect);
    /// The knot edit's look: handles never cover each other (where the band is narrower than a
    /// handle they sit beside it, the upper above, the lower below) and an enabled knot shows no
    /// toggle, which would cover both; a disabled one shows it as the knot's only mark.
    void setKnotStyle(bool knotStyle);
    /// Whether createMarkers() made the scene items.
    bool hasSceneItems() const { return m_upperHandle != nullptr; }
    /// Scene centre of the upper handle; a null point before createMarkers().
    QPointF upperHandlePos() const;
    /// Scene centre of the lower handle; a null point before createMarkers().
    QPointF lowerHandlePos() const;

    /// Whether scenePos lies within tolerance scene pixels of the upper handle, inside the plot
    /// clip.
    bool hitTestUpper(const QPointF &scenePos, double tolerance) const;
    /// Whether scenePos lies within tolerance scene pixels of the lower handle, inside the plot
    /// clip.
    bool hitTestLower(const QPointF &scenePos, double tolerance) const;
    /// Whether scenePos lies within tolerance scene pixels of the toggle, inside the plot clip.
    bool hitTestToggle(const QPointF &scenePos, double tolerance) const;

private:
    static constexpr double MARKER_SIZE = 8.0;
    static constexpr double TOGGLE_SIZE = 16.0;

    void updateMarkerColors();
    void updateToggleVisuals();
    bool insideClip(const QGraphicsItem *item) const;
    void applyVisibility();

    QGraphicsEllipseItem *m_upperHandle = nullptr;
    QGraphicsEllipseItem *m_lowerHandle = nullptr;
    QGraphicsLineItem *m_linkLine = nullptr;
    QGraphicsEllipseItem *m_toggle = nullptr;
    QGraphicsLineItem *m_toggleBar = nullptr;
    QGraphicsLineItem *m_toggleCrossBar = nullptr;
    QAbstractSeries *m_series = nullptr;
    QColor m_color;
    double m_time = 0.0;
    double m_upperValue = 0.0;
    double m_lowerValue = 0.0;
    bool m_selected = false;
    bool m_pointEnabled = true;
    bool m_knotStyle = false;
    QRectF m_plotClip;
};

#endif
