#include "envelopeeditorcontroller.h"

#include "draggablepointmarker.h"
#include "interactivechartview.h"
#include "knotdragmode.h"
#include "pointdragmode.h"
#include "regionselectmode.h"

#include <QChart>
#include <QValueAxis>

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

constexpr int DEFAULT_POINT_COUNT = 10;
constexpr int MIN_POINT_COUNT = 2;
constexpr double PARKED_UPPER = 0.9; // of the y range, for points that have no values
constexpr double PARKED_LOWER = 0.1;

} // namespace

EnvelopeEditorController::EnvelopeEditorController(QObject *parent)
    : QObject(parent)
{
    qRegisterMetaType<EnvelopeEditorController::State>("EnvelopeEditorController::State");
}

EnvelopeEditorController::~EnvelopeEditorController()
{
    // Our installed mode is also our QObject child: let the view delete it now, or the view
    // would delete it a second time after QObject has.
    releaseInteractionMode();
    removePointMarkers();
    forgetSceneItems();
}

void EnvelopeEditorController::setChartView(InteractiveChartView *view)
{
    if (m_chartView)
        disconnect(m_chartView, nullptr, this, nullptr);
    m_chartView = view;
    if (view)
        connect(view, &QObject::destroyed, this, &EnvelopeEditorController::onChartViewDestroyed);
}

void EnvelopeEditorController::beginEdit(int waveformIndex, const WaveformData &waveform,
                                         const QColor &color, QAbstractSeries *series)
{
    // A restart without finishing must not leave the previous edit's items in the scene.
    removePointMarkers();
    m_knotEditing = false;
    m_waveformIndex = waveformIndex;
    m_waveform = waveform;
    m_series = series;
    m_color = color;
    m_editData.clear();
    m_editData.waveformIndex = waveformIndex;
    m_editData.sampleInterval = waveform.sampleInterval;
}

void EnvelopeEditorController::startEditing(int waveformIndex, const WaveformData &waveform,
                                            const QColor &color, QAbstractSeries *series)
{
    beginEdit(waveformIndex, waveform, color, series);
    m_pointCount = DEFAULT_POINT_COUNT;
    emit pointCountChanged(m_pointCount);
    switchToRegionSelectMode();
    emit editingStarted(waveformIndex);
}

void EnvelopeEditorController::startEditingExisting(int waveformIndex, const WaveformData &waveform,
                                                    const EnvelopeData &envelope,
                                                    const QColor &color, QAbstractSeries *series)
{
    beginEdit(waveformIndex, waveform, color, series);
    loadExistingEnvelope(envelope);
    switchToPointDragMode();
    emit editingStarted(waveformIndex);
}

void EnvelopeEditorController::finishEditing()
{
    if (m_state == Idle)
        return;
    // A lone knot is a one-sample stretch of the stored curves, kept as it was read.
    if (!m_knotEditing)
        disableLonelyPoints();
    const EnvelopeData data = createEnvelopeData();
    const int index = m_waveformIndex;
    endEdit();
    emit editingFinished(index, data);
}

void EnvelopeEditorController::cancelEditing()
{
    if (m_state == Idle)
        return;
    endEdit();
    emit editingCancelled();
}

void EnvelopeEditorController::endEdit()
{
    removePointMarkers();
    if (m_chartView)
        m_chartView->clearInteractionMode();
    m_state = Idle;
    m_waveformIndex = -1;
    m_editData.clear();
    m_knotEditing = false;
    emit stateChanged(Idle);
}

void EnvelopeEditorController::setPointCount(int count)
{
    m_pointCount = std::max(count, MIN_POINT_COUNT);
    // Knots are not counted out evenly: the count has nothing to regenerate there.
    if (m_state != EditingPoints || m_knotEditing)
        return;
    // Regenerating over the same region discards the user's drags and toggles on purpose.
    generateInitialPoints();
    updatePointMarkers();
    emit pointsUpdated();
}

bool EnvelopeEditorController::canFinish() const
{
    return m_state == EditingPoints && !m_editData.points.isEmpty();
}

EnvelopeData EnvelopeEditorController::createEnvelopeData() const
{
    if (m_knotEditing)
        return createKnotEnvelopeData();
    return createEnvelopeData(m_waveform, m_editData);
}

void EnvelopeEditorController::onRegionSelected(double startTime, double endTime)
{
    const double start = snapToSampleGrid(startTime, m_waveform.sampleInterval, m_waveform.startTime);
    m_editData.startTime = std::max(start, m_waveform.startTime);
    // The end may lie past the last sample: limits may be drawn ahead of the capture.
    m_editData.endTime = snapToSampleGrid(endTime, m_waveform.sampleInterval, m_waveform.startTime);
    generateInitialPoints();
    switchToPointDragMode();
}

void EnvelopeEditorController::onPointMoved(int pointIndex, double newUpperValue, double newLowerValue)
{
    if (pointIndex < 0 || pointIndex >= m_editData.points.size())
        return;
    EnvelopePoint &point = m_editData.points[pointIndex];
    point.upperValue = newUpperValue;
    point.lowerValue = newLowerValue;
    updateConnectorLines();
    emit pointsUpdated();
}

void EnvelopeEditorController::onPointToggled(int pointIndex)
{
    if (pointIndex < 0 || pointIndex >= m_editData.points.size() || pointIndex >= m_markers.size())
        return;
    EnvelopePoint &point = m_editData.points[pointIndex];
    DraggablePointMarker *marker = m_markers.at(pointIndex);
    point.enabled = !point.enabled;
    if (point.enabled && std::isnan(point.upperValue)) {
        const auto [yMin, yMax] = getAxisYRange();
        point.lowerValue = yMin + PARKED_LOWER * (yMax - yMin);
        point.upperValue = yMin + PARKED_UPPER * (yMax - yMin);
        marker->setDataPosition(point.time, point.upperValue, point.lowerValue);
    }
    marker->setPointEnabled(point.enabled);
    marker->updateScenePosition(chart());
    updateConnectorLines();
    emit pointsUpdated();
}

void EnvelopeEditorController::generateInitialPoints()
{
    const auto [yMin, yMax] = getAxisYRange();
    m_editData.points = generateEnvelopePoints(m_waveform, m_editData.startTime, m_editData.endTime,
                                               m_pointCount, yMin, yMax);
    updateSampleInterval();
}

std::pair<double, double> EnvelopeEditorController::getAxisYRange() const
{
    if (QChart *c = chart()) {
        const QList<QAbstractAxis *> axes = c->axes(Qt::Vertical, m_series);
        if (auto *axis = axes.isEmpty() ? nullptr : qobject_cast<QValueAxis *>(axes.first()))
            return {axis->min(), axis->max()};
    }
    return {0.0, 1.0};
}

void EnvelopeEditorController::loadExistingEnvelope(const EnvelopeData &envelope)
{
    const WaveformData &upper = envelope.upper;
    const size_t n = upper.samples->size();
    m_editData.startTime = upper.startTime;
    m_editData.endTime = static_cast<double>(n - 1) * upper.sampleInterval + upper.startTime;
    m_pointCount = static_cast<int>(n);
    emit pointCountChanged(m_pointCount);
    m_editData.points = sampleEnvelopeToPoints(envelope, m_pointCount);
    initializeDisabledPointValues();
    updateSampleInterval();
}

void EnvelopeEditorController::disableLonelyPoints()
{
    disableLonelyPoints(m_editData.points);
}

void EnvelopeEditorController::initializeDisabledPointValues()
{
    const auto [yMin, yMax] = getAxisYRange();
    initializeDisabledPointValues(m_editData.points, yMin, yMax);
}

void EnvelopeEditorController::updateSampleInterval()
{
    updateSampleInterval(m_editData);
}

void EnvelopeEditorController::switchToRegionSelectMode()
{
    auto *mode = new RegionSelectMode(this);
    m_regionSelectMode = mode;
    connect(mode, &RegionSelectMode::regionSelected, this, &EnvelopeEditorController::onRegionSelected);
    if (m_chartView)
        m_chartView->setInteractionMode(mode);
    m_state = SelectingRegion;
    emit stateChanged(SelectingRegion);
}

void EnvelopeEditorController::switchToPointDragMode()
{
    createPointMarkers();
    auto *mode = new PointDragMode(&m_markers, m_series, this);
    m_pointDragMode = mode;
    connect(mode, &PointDragMode::pointMoved, this, &EnvelopeEditorController::onPointMoved);
    connect(mode, &PointDragMode::pointToggled, this, &EnvelopeEditorController::onPointToggled);
    if (m_chartView)
        m_chartView->setInteractionMode(mode);
    m_state = EditingPoints;
    emit stateChanged(EditingPoints);
}

void EnvelopeEditorController::releaseInteractionMode()
{
    if (!m_chartView)
        return;
    const ChartInteractionMode *installed = m_chartView->interactionMode();
    if (installed && (installed == m_regionSelectMode.data() || installed == m_pointDragMode.data()
                      || installed == m_knotDragMode.data()))
        m_chartView->clearInteractionMode();
}

void EnvelopeEditorController::onChartViewDestroyed()
{
    // The view's scene has deleted our items with itself; only our bookkeeping is left.
    forgetSceneItems();
}

void EnvelopeEditorController::disableLonelyPoints(QVector<EnvelopePoint> &points)
{
    int runStart = 0;
    for (int i = 0; i <= points.size(); ++i) {
        if (i < points.size() && points.at(i).enabled)
            continue;
        if (i - runStart == 1)
            points[runStart].enabled = false;
        runStart = i + 1;
    }
}

EnvelopeData EnvelopeEditorController::createEnvelopeData(const WaveformData &waveform,
                                                          const EnvelopeEditData &editData)
{
    EnvelopeData envelope;
    if (editData.points.isEmpty())
        return envelope;
    envelope.upper.name = waveform.name + QStringLiteral(" [upper]");
    envelope.lower.name = waveform.name + QStringLiteral(" [lower]");
    for (WaveformData *curve : {&envelope.upper, &envelope.lower}) {
        curve->unit = waveform.unit;
        curve->sampleInterval = editData.sampleInterval;
        curve->startTime = editData.startTime;
        curve->samples.writable().reserve(static_cast<size_t>(editData.points.size()));
    }
    const double gap = std::numeric_limits<double>::quiet_NaN();
    for (const EnvelopePoint &point : editData.points) {
        envelope.upper.samples.writable().push_back(point.enabled ? point.upperValue : gap);
        envelope.lower.samples.writable().push_back(point.enabled ? point.lowerValue : gap);
    }
    return envelope;
}

void EnvelopeEditorController::updateSampleInterval(EnvelopeEditData &editData)
{
    const QVector<EnvelopePoint> &points = editData.points;
    if (points.size() < 2)
        return;
    editData.sampleInterval = (points.last().time - points.first().time) / (points.size() - 1);
}

void EnvelopeEditorController::initializeDisabledPointValues(QVector<EnvelopePoint> &points,
                                                             double yMin, double yMax)
{
    const double range = yMax - yMin;
    for (EnvelopePoint &point : points) {
        if (point.enabled || !std::isnan(point.upperValue))
            continue;
        point.upperValue = yMin + PARKED_UPPER * range;
        point.lowerValue = yMin + PARKED_LOWER * range;
    }
}
