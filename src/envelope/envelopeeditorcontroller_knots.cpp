// The knot edit: an existing envelope edited by the knots where its limits bend.
#include "envelopeeditorcontroller.h"

#include "draggablepointmarker.h"
#include "interactivechartview.h"
#include "knotdragmode.h"
#include "knotlimitsitem.h"
#include "vornmask.h"

#include <QChart>
#include <QGraphicsScene>

#include <algorithm>
#include <cmath>
#include <limits>

void EnvelopeEditorController::startEditingKnots(int waveformIndex, const WaveformData &waveform,
                                                 const EnvelopeData &envelope, const QColor &color,
                                                 QAbstractSeries *series)
{
    beginEdit(waveformIndex, waveform, color, series);
    m_knotEditing = true;
    m_gridStart = envelope.upper.startTime;
    m_gridInterval = envelope.upper.sampleInterval;
    m_gridNodes = std::min(envelope.upper.samples->size(), envelope.lower.samples->size());
    m_editData.startTime = m_gridStart;
    m_editData.endTime = m_gridNodes ? static_cast<double>(m_gridNodes - 1) * m_gridInterval + m_gridStart : m_gridStart;
    m_editData.sampleInterval = m_gridInterval;
    m_editData.points = recoverKnots(envelope);
    initializeDisabledPointValues();
    // Not announced: the panel's count box holds an evenly spaced count, not knots.
    m_pointCount = std::max(static_cast<int>(m_editData.points.size()), 2);
    switchToKnotDragMode();
    emit editingStarted(waveformIndex);
}

void EnvelopeEditorController::switchToKnotDragMode()
{
    createPointMarkers();
    auto *mode = new KnotDragMode(&m_markers, m_series, this);
    mode->setTimeGrid(m_gridStart, m_gridInterval, m_gridNodes);
    m_knotDragMode = mode;
    connect(mode, &KnotDragMode::knotMoved, this, &EnvelopeEditorController::onKnotMoved);
    connect(mode, &KnotDragMode::knotToggled, this, &EnvelopeEditorController::onKnotToggled);
    connect(mode, &KnotDragMode::knotSelected, this, &EnvelopeEditorController::knotSelected);
    connect(mode, &KnotDragMode::knotEditRequested, this, &EnvelopeEditorController::knotEditRequested);
    connect(mode, &KnotDragMode::knotDragFinished, this, [this] { emit knotsEdited(tr("Move Knot")); });
    connect(mode, &KnotDragMode::knotInsertRequested, this, [this](double time) { insertKnot(time); });
    connect(mode, &KnotDragMode::knotRemoveRequested, this, [this](int index) { removeKnot(index); });
    if (m_chartView)
        m_chartView->setInteractionMode(mode);
    m_state = EditingPoints;
    emit stateChanged(EditingPoints);
}

int EnvelopeEditorController::selectedKnot() const
{
    return m_knotEditing && m_knotDragMode ? m_knotDragMode->selectedIndex() : -1;
}

void EnvelopeEditorController::selectKnot(int index)
{
    if (!m_knotEditing || !m_knotDragMode)
        return;
    m_knotDragMode->selectKnot(index);
    // A knot selected from outside may lie among others too close for handles: it gets its own.
    placeKnotHandles();
    emit knotSelected(m_knotDragMode->selectedIndex());
}

void EnvelopeEditorController::onKnotMoved(int knotIndex, double time, double upperValue, double lowerValue)
{
    if (knotIndex < 0 || knotIndex >= m_editData.points.size())
        return;
    EnvelopePoint &knot = m_editData.points[knotIndex];
    knot.time = time;
    knot.upperValue = upperValue;
    knot.lowerValue = lowerValue;
    // Only the stretch between the neighbours changes.
    if (m_knotLimits)
        m_knotLimits->updateAround(knotIndex);
    emit pointsUpdated();
}

void EnvelopeEditorController::onKnotToggled(int knotIndex)
{
    if (knotIndex < 0 || knotIndex >= m_editData.points.size())
        return;
    onPointToggled(knotIndex);
    emit knotsEdited(tr("Toggle Knot"));
}

bool EnvelopeEditorController::toggleKnot(int index)
{
    if (!m_knotEditing || index < 0 || index >= m_editData.points.size())
        return false;
    onKnotToggled(index);
    return true;
}

bool EnvelopeEditorController::insertKnot(double time)
{
    if (!m_knotEditing)
        return false;
    QVector<EnvelopePoint> &knots = m_editData.points;
    for (int i = 0; i + 1 < knots.size(); ++i) {
        const EnvelopePoint &a = knots.at(i);
        const EnvelopePoint &b = knots.at(i + 1);
        if (!(a.time < time && time < b.time))
            continue;
        if (!a.enabled || !b.enabled)
            return false;
        const double t = KnotDragMode::constrainTime(time, a.time, b.time, m_gridStart, m_gridInterval, m_gridNodes);
        if (std::isnan(t))
            return false;
        // On the straight limits between the neighbours: the envelope keeps its shape.
        const double f = (t - a.time) / (b.time - a.time);
        EnvelopePoint knot;
        knot.time = t;
        knot.upperValue = a.upperValue + f * (b.upperValue - a.upperValue);
        knot.lowerValue = a.lowerValue + f * (b.lowerValue - a.lowerValue);
        knots.insert(i + 1, knot);
        rebuildKnotMarkers(i + 1);
        emit knotsEdited(tr("Add Knot"));
        return true;
    }
    return false;
}

bool EnvelopeEditorController::removeKnot(int index)
{
    // Two knots are the least that still bound a stretch.
    if (!m_knotEditing || index < 0 || index >= m_editData.points.size() || m_editData.points.size() <= 2)
        return false;
    m_editData.points.remove(index);
    rebuildKnotMarkers(-1);
    emit knotsEdited(tr("Delete Knot"));
    return true;
}

bool EnvelopeEditorController::setKnot(int index, double time, double upperValue, double lowerValue)
{
    if (!m_knotEditing || index < 0 || index >= m_editData.points.size() || !std::isfinite(upperValue)
        || !std::isfinite(lowerValue))
        return false;
    const auto timeOf = [this](int i) {
        return i >= 0 && i < m_editData.points.size() ? m_editData.points.at(i).time
                                                      : std::numeric_limits<double>::quiet_NaN();
    };
    const double t = KnotDragMode::constrainTime(time, timeOf(index - 1), timeOf(index + 1), m_gridStart,
                                                 m_gridInterval, m_gridNodes);
    // A time off its allowed range is refused, not moved to the nearest allowed one.
    if (std::isnan(t) || std::fabs(t - time) > m_gridInterval / 2)
        return false;
    EnvelopePoint &knot = m_editData.points[index];
    knot.time = t;
    knot.upperValue = upperValue;
    knot.lowerValue = lowerValue;
    if (index < m_markers.size()) {
        m_markers.at(index)->setDataPosition(t, upperValue, lowerValue);
        m_markers.at(index)->updateScenePosition(chart());
    }
    updateConnectorLines();
    emit pointsUpdated();
    emit knotsEdited(tr("Set Knot"));
    return true;
}

void EnvelopeEditorController::setKnots(const QVector<EnvelopePoint> &knots)
{
    if (!m_knotEditing)
        return;
    m_editData.points = knots;
    rebuildKnotMarkers(-1);
}

void EnvelopeEditorController::rebuildKnotMarkers(int selected)
{
    updatePointMarkers();
    emit pointsUpdated();
    selectKnot(selected);
}

EnvelopeData EnvelopeEditorController::createKnotEnvelopeData() const
{
    if (m_editData.points.isEmpty())
        return EnvelopeData();
    EnvelopeData envelope = resampleKnots(m_editData.points, m_gridStart, m_gridInterval, m_gridNodes);
    envelope.upper.name = m_waveform.name + QStringLiteral(" [upper]");
    envelope.lower.name = m_waveform.name + QStringLiteral(" [lower]");
    envelope.upper.unit = envelope.lower.unit = m_waveform.unit;
    return envelope;
}

void EnvelopeEditorController::createKnotMarkers()
{
    QGraphicsScene *s = scene();
    if (!s)
        return;
    m_markers.reserve(m_editData.points.size());
    for (const EnvelopePoint &point : qAsConst(m_editData.points)) {
        auto *marker = new DraggablePointMarker;
        marker->setSeries(m_series);
        marker->setDataPosition(point.time, point.upperValue, point.lowerValue);
        marker->setPointEnabled(point.enabled);
        m_markers.append(marker);
    }
    m_knotLimits = new KnotLimitsItem(&m_editData.points, m_color);
    s->addItem(m_knotLimits);
    placeKnotHandles();
}

void EnvelopeEditorController::placeKnotHandles()
{
    QChart *c = chart();
    QGraphicsScene *s = scene();
    if (!m_knotEditing || !c || !s || !m_knotLimits || m_markers.size() != m_editData.points.size())
        return;
    m_knotLimits->setChart(c, m_series);
    // A handle and a pixel each side: closer knots would hide each other's handles.
    constexpr double HANDLE_SPACING = 10.0;
    const QRectF plot = c->plotArea().adjusted(-0.5, -0.5, 0.5, 0.5);
    const QVector<EnvelopePoint> &knots = m_editData.points;
    const auto [first, last] = m_knotLimits->knotsBetween(plot.left(), plot.right());
    const int selected = selectedKnot();
    const double far = std::numeric_limits<double>::infinity();
    QVector<int> shown;
    int inView = 0;
    for (int i = first; i < last; ++i) {
        const double x = m_knotLimits->sceneX(knots.at(i).time);
        if (x < plot.left() || x > plot.right())
            continue;
        ++inView;
        const double before = i > 0 ? x - m_knotLimits->sceneX(knots.at(i - 1).time) : far;
        const double after = i + 1 < knots.size() ? m_knotLimits->sceneX(knots.at(i + 1).time) - x : far;
        if (std::min(before, after) >= HANDLE_SPACING || i == selected)
            shown.append(i);
    }
    m_knotsWithoutHandles = inView - int(shown.size());
    // Both lists ascend: drop the items of knots that lost their handles.
    auto keep = shown.cbegin();
    for (int i : qAsConst(m_knotHandles)) {
        keep = std::lower_bound(keep, shown.cend(), i);
        if (keep == shown.cend() || *keep != i)
            m_markers.at(i)->removeFromScene(s);
    }
    for (int i : qAsConst(shown)) {
        DraggablePointMarker *marker = m_markers.at(i);
        if (!marker->hasSceneItems()) {
            marker->createMarkers(s, m_color);
            marker->setKnotStyle(true);
            marker->setPointEnabled(marker->isPointEnabled());
            marker->setSelected(i == selected);
        }
        marker->updateScenePosition(c);
        // Each handle on its own: a knot with one limit beyond the plot keeps the other in view.
        marker->setPlotClip(plot);
    }
    m_knotHandles = shown;
}
