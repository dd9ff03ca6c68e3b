// The controller's scene graphics: markers, connector lines and fill polygons.
#include "envelopeeditorcontroller.h"

#include "boundedlineitem.h"
#include "draggablepointmarker.h"
#include "interactivechartview.h"
#include "knotlimitsitem.h"

#include <QBrush>
#include <QChart>
#include <QGraphicsLineItem>
#include <QGraphicsPolygonItem>
#include <QGraphicsScene>
#include <QPen>

#include <algorithm>

namespace {

constexpr double FILL_Z = 997.0;
constexpr double CONNECTOR_Z = 998.0;
constexpr int FILL_ALPHA = 25;

template<typename Item>
void removeAll(QGraphicsScene *scene, QVector<Item *> &items)
{
    for (Item *item : items) {
        scene->removeItem(item);
        delete item;
    }
    items.clear();
}

QGraphicsLineItem *addConnector(QGraphicsScene *scene, const QPen &pen)
{
    auto *line = new BoundedLineItem;
    line->setPen(pen);
    line->setZValue(CONNECTOR_Z);
    scene->addItem(line);
    return line;
}

QGraphicsPolygonItem *addFill(QGraphicsScene *scene, const QColor &color)
{
    auto *item = new QGraphicsPolygonItem;
    item->setBrush(QBrush(color, Qt::SolidPattern));
    item->setPen(QPen(Qt::NoPen));
    item->setZValue(FILL_Z);
    scene->addItem(item);
    return item;
}

// One polygon per run of two or more enabled markers: along the upper values, back along the lower.
QVector<QPolygonF> fillPolygons(const QVector<DraggablePointMarker *> &markers, QChart *chart,
                                QAbstractSeries *series)
{
    QVector<QPolygonF> polygons;
    const auto at = [&](int k, double value) {
        return chart->mapToPosition(QPointF(markers.at(k)->time(), value), series);
    };
    int runStart = 0;
    for (int i = 0; i <= markers.size(); ++i) {
        if (i < markers.size() && markers.at(i)->isPointEnabled())
            continue;
        if (i - runStart >= 2) {
            QPolygonF polygon;
            polygon.reserve(2 * (i - runStart));
            for (int k = runStart; k < i; ++k)
                polygon << at(k, markers.at(k)->upperValue());
            for (int k = i - 1; k >= runStart; --k)
                polygon << at(k, markers.at(k)->lowerValue());
            polygons.append(polygon);
        }
        runStart = i + 1;
    }
    return polygons;
}

} // namespace

QChart *EnvelopeEditorController::chart() const
{
    return m_chartView ? m_chartView->chart() : nullptr;
}

QGraphicsScene *EnvelopeEditorController::scene() const
{
    QChart *c = chart();
    return c ? c->scene() : nullptr;
}

void EnvelopeEditorController::createPointMarkers()
{
    removePointMarkers();
    if (m_knotEditing) {
        createKnotMarkers();
        return;
    }
    QGraphicsScene *s = scene();
    if (!s)
        return;
    QChart *c = chart();
    m_markers.reserve(m_editData.points.size());
    for (const EnvelopePoint &point : qAsConst(m_editData.points)) {
        auto *marker = new DraggablePointMarker;
        marker->createMarkers(s, m_color);
        marker->setSeries(m_series);
        marker->setDataPosition(point.time, point.upperValue, point.lowerValue);
        marker->setPointEnabled(point.enabled);
        marker->updateScenePosition(c);
        m_markers.append(marker);
    }
    createConnectorLines();
}

void EnvelopeEditorController::removePointMarkers()
{
    removeConnectorLines();
    QGraphicsScene *s = scene();
    if (!s)
        return;
    for (DraggablePointMarker *marker : qAsConst(m_markers)) {
        marker->removeFromScene(s);
        delete marker;
    }
    m_markers.clear();
    if (m_knotLimits) {
        s->removeItem(m_knotLimits);
        delete m_knotLimits;
        m_knotLimits = nullptr;
    }
    m_knotHandles.clear();
    m_knotsWithoutHandles = 0;
}

void EnvelopeEditorController::updatePointMarkers()
{
    removePointMarkers();
    createPointMarkers();
}

void EnvelopeEditorController::createConnectorLines()
{
    removeConnectorLines();
    removeFillArea();
    updateFillArea();
    QGraphicsScene *s = scene();
    if (!s || m_markers.size() < 2)
        return;
    const QPen upperPen(QBrush(m_color.lighter(120), Qt::SolidPattern), 1.0, Qt::DashLine, Qt::SquareCap, Qt::BevelJoin);
    const QPen lowerPen(QBrush(m_color.darker(120), Qt::SolidPattern), 1.0, Qt::DotLine, Qt::SquareCap, Qt::BevelJoin);
    for (int i = 0; i + 1 < m_markers.size(); ++i) {
        m_upperLines.append(addConnector(s, upperPen));
        m_lowerLines.append(addConnector(s, lowerPen));
    }
    updateConnectorLines();
}

void EnvelopeEditorController::updateConnectorLines()
{
    // A knot edit draws its limits as one item (see placeKnotHandles).
    if (m_knotLimits)
        m_knotLimits->update();
    if (!chart() || m_knotEditing)
        return;
    placeConnectorLines();
    updateFillArea();
}

// Hidden lines are moved too, so that a re-enabled point finds them in place.
void EnvelopeEditorController::placeConnectorLines(int first, int last)
{
    QChart *c = chart();
    last = last < 0 ? int(m_upperLines.size()) : std::min(last, int(m_upperLines.size()));
    for (int i = std::max(first, 0); i < last; ++i) {
        const DraggablePointMarker *a = m_markers.at(i);
        const DraggablePointMarker *b = m_markers.at(i + 1);
        const bool visible = a->isPointEnabled() && b->isPointEnabled();
        m_upperLines.at(i)->setVisible(visible);
        m_lowerLines.at(i)->setVisible(visible);
        m_upperLines.at(i)->setLine(QLineF(c->mapToPosition(QPointF(a->time(), a->upperValue()), m_series),
                                           c->mapToPosition(QPointF(b->time(), b->upperValue()), m_series)));
        m_lowerLines.at(i)->setLine(QLineF(c->mapToPosition(QPointF(a->time(), a->lowerValue()), m_series),
                                           c->mapToPosition(QPointF(b->time(), b->lowerValue()), m_series)));
    }
}

void EnvelopeEditorController::removeConnectorLines()
{
    removeFillArea();
    QGraphicsScene *s = scene();
    if (!s)
        return;
    removeAll(s, m_upperLines);
    removeAll(s, m_lowerLines);
}

void EnvelopeEditorController::createFillArea()
{
    removeFillArea();
    updateFillArea();
}

void EnvelopeEditorController::updateFillArea()
{
    QGraphicsScene *s = scene();
    if (!s)
        return;
    QVector<QPolygonF> polygons = fillPolygons(m_markers, chart(), m_series);
    // Panned or zoomed, a run reaches past the plot; its fill must not cover the axes' labels.
    const QRectF plot = chart()->plotArea();
    for (QPolygonF &polygon : polygons) {
        if (!plot.contains(polygon.boundingRect()))
            polygon = polygon.intersected(QPolygonF(plot));
    }
    // A drag leaves the runs as they are; reshaping their polygons draws the same as rebuilding
    // them and spares the scene an item removal and insertion per mouse move.
    if (polygons.size() != m_fillAreas.size()) {
        removeFillArea();
        QColor fill = m_color;
        fill.setAlpha(FILL_ALPHA);
        for (int i = 0; i < polygons.size(); ++i)
            m_fillAreas.append(addFill(s, fill));
    }
    for (int i = 0; i < polygons.size(); ++i)
        m_fillAreas.at(i)->setPolygon(polygons.at(i));
}

void EnvelopeEditorController::removeFillArea()
{
    QGraphicsScene *s = scene();
    if (!s)
        return;
    removeAll(s, m_fillAreas);
}

void EnvelopeEditorController::updateMarkerPositions()
{
    if (m_state != EditingPoints || !m_chartView)
        return;
    if (m_knotEditing) {
        placeKnotHandles();
        return;
    }
    QChart *c = chart();
    for (DraggablePointMarker *marker : qAsConst(m_markers))
        marker->updateScenePosition(c);
    if (!c)
        return;
    placeConnectorLines();
    updateFillArea();
}

void EnvelopeEditorController::forgetSceneItems()
{
    // Bookkeeping only, items untouched: they died with their scene or were removed already.
    qDeleteAll(m_markers);
    m_markers.clear();
    m_upperLines.clear();
    m_lowerLines.clear();
    m_fillAreas.clear();
    m_knotLimits = nullptr;
    m_knotHandles.clear();
}
