#include "vorngraph.h"

#include "envelopeeditoroverlay.h"
#include "interactivechartview.h"
#include "traceitem.h"

#include <QAreaSeries>
#include <QChart>
#include <QLineSeries>
#include <QPen>
#include <QTreeWidget>
#include <QValueAxis>

#include <algorithm>
#include <cmath>
#include <utility>

namespace {

constexpr int OVERLAY_MARGIN = 8;

template<typename Series>
void setAllVisible(const QList<QList<Series *>> &lists, int index, bool visible)
{
    if (index >= lists.size())
        return;
    for (Series *series : lists.at(index))
        series->setVisible(visible);
}

template<typename Series>
void growTo(QList<QList<Series *>> &lists, int size)
{
    while (lists.size() < size)
        lists.append(QList<Series *>());
}

template<typename Series>
QList<Series *> takeEntry(QList<QList<Series *>> &lists, int index)
{
    if (index >= lists.size())
        return {};
    return std::exchange(lists[index], {});
}

} // namespace

void VornGraph::setEnvelope(int index, const EnvelopeData &envelope)
{
    if (index < 0 || index >= m_waveforms.size())
        return;
    if (m_envelopes.size() <= index)
        m_envelopes.resize(index + 1);
    m_envelopes[index] = envelope;
    clearEnvelopeSeries(index);
    createEnvelopeSeries(index);
    checkEnvelopeOf(index);
}

const EnvelopeData &VornGraph::envelope(int index) const
{
    static const EnvelopeData none;
    if (index < 0 || index >= m_envelopes.size())
        return none;
    return m_envelopes.at(index);
}

bool VornGraph::hasEnvelope(int index) const
{
    return index >= 0 && index < m_envelopes.size() && !m_envelopes.at(index).isEmpty();
}

void VornGraph::clearEnvelope(int index)
{
    if (!hasEnvelope(index))
        return;
    clearEnvelopeSeries(index);
    m_envelopes[index] = EnvelopeData();
    checkEnvelopeOf(index);
}

void VornGraph::setEnvelopeVisible(int index, bool visible)
{
    if (index < 0)
        return;
    setAllVisible(m_envelopeUpperSeries, index, visible);
    setAllVisible(m_envelopeLowerSeries, index, visible);
    setAllVisible(m_envelopeAreaSeries, index, visible);
}

void VornGraph::createEnvelopeSeries(int index)
{
    if (index < 0)
        return;
    growTo(m_envelopeUpperSeries, index + 1);
    growTo(m_envelopeLowerSeries, index + 1);
    growTo(m_envelopeAreaSeries, index + 1);
    if (index >= m_envelopes.size() || index >= m_series.size() || index >= m_yAxes.size() || !m_axisX)
        return;
    const EnvelopeData &envelope = m_envelopes.at(index);
    const std::vector<double> &upper = *envelope.upper.samples;
    const std::vector<double> &lower = *envelope.lower.samples;
    if (upper.empty() || lower.empty())
        return;

    if (m_envelopeReduction) {
        createReducedEnvelopeSeries(index);
        return;
    }
    QPen upperPen, lowerPen;
    envelopePens(index, upperPen, lowerPen);
    const size_t n = std::min(upper.size(), lower.size());
    QLineSeries *upperSegment = nullptr;
    QLineSeries *lowerSegment = nullptr;
    for (size_t i = 0; i < n; ++i) {
        if (std::isnan(upper[i]) || std::isnan(lower[i])) {
            closeEnvelopeSegment(index, upperSegment, lowerSegment);
            continue;
        }
        if (!upperSegment) {
            upperSegment = new QLineSeries;
            lowerSegment = new QLineSeries;
            upperSegment->setPen(upperPen);
            lowerSegment->setPen(lowerPen);
            upperSegment->setPointsVisible(true);
            lowerSegment->setPointsVisible(true);
        }
        // Both curves run on the upper curve's time base.
        const double time = double(i) * envelope.upper.sampleInterval + envelope.upper.startTime;
        upperSegment->append(time, upper[i]);
        lowerSegment->append(time, lower[i]);
    }
    closeEnvelopeSegment(index, upperSegment, lowerSegment);
    updateTraces();
}

// Hands the open segment to the chart, which owns it from then on, and starts afresh.
void VornGraph::closeEnvelopeSegment(int index, QLineSeries *&upper, QLineSeries *&lower)
{
    if (!upper || !lower)
        return;
    const QColor fill = envelopeFillColor(index);
    auto *area = new QAreaSeries(upper, lower);
    area->setBrush(QBrush(fill, Qt::SolidPattern));
    area->setPen(QPen(Qt::NoPen));
    // The points join once the chart's items have stopped listening, which they would outline
    // in full at every addition.
    const QList<QPointF> upperPoints = upper->points(), lowerPoints = lower->points();
    upper->replace(QList<QPointF>());
    lower->replace(QList<QPointF>());
    const QList<QAbstractSeries *> segment{area, upper, lower};
    for (QAbstractSeries *series : segment) {
        m_chart->addSeries(series);
        series->attachAxis(m_axisX);
        series->attachAxis(m_yAxes.at(index));
        // m_traces draws the envelope from the series (see updateTraces).
        series->setOpacity(0.0);
        connect(series, &QAbstractSeries::visibleChanged, this, [this] { m_traces->update(); });
    }
    QObject::disconnect(upper, &QXYSeries::pointsReplaced, nullptr, nullptr);
    QObject::disconnect(lower, &QXYSeries::pointsReplaced, nullptr, nullptr);
    upper->replace(upperPoints);
    lower->replace(lowerPoints);
    m_envelopeAreaSeries[index].append(area);
    m_envelopeUpperSeries[index].append(upper);
    m_envelopeLowerSeries[index].append(lower);
    upper = nullptr;
    lower = nullptr;
}

void VornGraph::clearEnvelopeSeries(int index)
{
    if (index < 0)
        return;
    const QList<QLineSeries *> upper = takeEntry(m_envelopeUpperSeries, index);
    const QList<QLineSeries *> lower = takeEntry(m_envelopeLowerSeries, index);
    const QList<QAreaSeries *> areas = takeEntry(m_envelopeAreaSeries, index);
    if (!upper.isEmpty())
        updateTraces();
    for (QLineSeries *series : upper + lower) {
        m_envelopePointsAside.remove(series);
        m_chart->removeSeries(series);
    }
    for (QAreaSeries *series : areas)
        m_chart->removeSeries(series);
    // Detached series have no owner left. The fills go first: they point at their lines.
    qDeleteAll(areas);
    qDeleteAll(upper);
    qDeleteAll(lower);
}

void VornGraph::startEnvelopeEditing(int index)
{
    beginEnvelopeEditing(index, false);
}

void VornGraph::startEnvelopeRegionEditing(int index)
{
    beginEnvelopeEditing(index, true);
}

void VornGraph::beginEnvelopeEditing(int index, bool newRegion)
{
    if (index < 0 || index >= m_waveforms.size() || index >= m_series.size())
        return;
    // The waveform being edited is always shown.
    if (index < m_waveformItems.size())
        m_waveformItems[index]->setCheckState(1, Qt::Checked);
    // A new region is drawn beside the stored envelope, which stays in sight.
    if (!newRegion)
        setEnvelopeVisible(index, false);

    // Handles in the limits' own colour stand out from the trace they bound.
    const QColor colour = m_distinctEnvelopeStyle ? ENVELOPE_LIMIT_COLOR : getWaveformColor(index);
    if (hasEnvelope(index) && !newRegion && m_editByKnots) {
        m_envelopeEditor->startEditingKnots(index, m_waveforms.at(index), m_envelopes.at(index), colour,
                                            m_series.at(index));
    } else if (hasEnvelope(index) && !newRegion) {
        m_envelopeEditor->startEditingExisting(index, m_waveforms.at(index), m_envelopes.at(index),
                                               colour, m_series.at(index));
    } else {
        m_envelopeEditor->startEditing(index, m_waveforms.at(index), colour, m_series.at(index));
    }

    if (!m_editorOverlay) {
        m_editorOverlay = new EnvelopeEditorOverlay(m_chartView);
        connectOverlaySignals();
        m_editorOverlay->hide();
        // The controller announced the count of a loaded envelope before the panel existed.
        m_editorOverlay->setPointCount(m_envelopeEditor->pointCount());
    }
    m_editorOverlay->updateState(m_envelopeEditor->state());
    m_editorOverlay->setKnotEditing(m_envelopeEditor->isKnotEditing());
    updateKnotReadout();
    m_editorOverlay->setWaveformName(m_waveforms.at(index).name);
    m_editorOverlay->resetUserPosition();
    positionEditorOverlay();
    m_editorOverlay->show();
    m_editorOverlay->raise();
    // The knot hint's height is known only once the panel is shown with its style.
    if (m_envelopeEditor->isKnotEditing())
        m_editorOverlay->adjustSize();
    emit envelopeEditingStarted(index);
}

void VornGraph::connectOverlaySignals()
{
    connect(m_editorOverlay, &EnvelopeEditorOverlay::applyClicked, this, &VornGraph::finishEnvelopeEditing);
    connect(m_editorOverlay, &EnvelopeEditorOverlay::cancelClicked, this, &VornGraph::cancelEnvelopeEditing);
    connect(m_editorOverlay, &EnvelopeEditorOverlay::pointCountChanged, this,
            &VornGraph::setEnvelopeEditorPointCount);
    connect(m_envelopeEditor, &EnvelopeEditorController::pointCountChanged, m_editorOverlay,
            &EnvelopeEditorOverlay::setPointCount);
    connect(m_envelopeEditor, &EnvelopeEditorController::knotSelected, this, &VornGraph::updateKnotReadout);
    connect(m_envelopeEditor, &EnvelopeEditorController::pointsUpdated, this, &VornGraph::updateKnotReadout);
}

void VornGraph::finishEnvelopeEditing()
{
    m_envelopeEditor->finishEditing();
    if (m_editorOverlay)
        m_editorOverlay->hide();
}

void VornGraph::cancelEnvelopeEditing()
{
    const int index = m_envelopeEditor->waveformIndex();
    m_envelopeEditor->cancelEditing();
    if (hasEnvelope(index))
        setEnvelopeVisible(index, index < m_waveformVisible.size() ? m_waveformVisible.at(index) : true);
    if (m_editorOverlay)
        m_editorOverlay->hide();
}

bool VornGraph::isEnvelopeEditing() const
{
    return m_envelopeEditor->isEditing();
}

bool VornGraph::canFinishEnvelopeEditing() const
{
    return m_envelopeEditor->canFinish();
}

EnvelopeEditorController::State VornGraph::envelopeEditorState() const
{
    return m_envelopeEditor->state();
}

void VornGraph::setEnvelopeEditingEnabled(bool enabled)
{
    m_envelopeEditingEnabled = enabled;
}

void VornGraph::setEnvelopeEditingByKnots(bool byKnots)
{
    m_editByKnots = byKnots;
}

// The selected knot's time and limits, in the waveform's units.
void VornGraph::updateKnotReadout()
{
    if (!m_editorOverlay || !m_envelopeEditor->isKnotEditing())
        return;
    const int k = m_envelopeEditor->selectedKnot();
    const QVector<EnvelopePoint> &knots = m_envelopeEditor->points();
    // Knots closer on screen than a handle have none until the view is zoomed in on them.
    const int withoutHandles = m_envelopeEditor->knotsWithoutHandles();
    const QString zoomHint = withoutHandles > 0
        ? QLatin1Char('\n') + tr("%n without handles here:\nzoom in to reach them", nullptr, withoutHandles)
        : QString();
    if (k < 0 || k >= knots.size()) {
        m_editorOverlay->setKnotReadout(tr("%n knot(s)", nullptr, int(knots.size())) + zoomHint);
        return;
    }
    const QString unit = m_waveforms.value(m_envelopeEditor->waveformIndex()).unit;
    const EnvelopePoint &knot = knots.at(k);
    m_editorOverlay->setKnotReadout(tr("Knot %1 of %2: %3\nupper %4, lower %5")
                                        .arg(k + 1)
                                        .arg(knots.size())
                                        .arg(ValueFormatter::formatWithUnit(knot.time, QStringLiteral("s")),
                                             ValueFormatter::formatWithUnit(knot.upperValue, unit),
                                             ValueFormatter::formatWithUnit(knot.lowerValue, unit))
                                    + zoomHint);
}

void VornGraph::setEnvelopeEditorPointCount(int count)
{
    m_envelopeEditor->setPointCount(count);
}

void VornGraph::onEnvelopeEditingFinished(int waveformIndex, const EnvelopeData &envelope)
{
    // An edit reshapes the limits, not what they were made from.
    EnvelopeData edited = envelope;
    if (edited.reference.samples->empty() && hasEnvelope(waveformIndex)) {
        edited.reference = m_envelopes.at(waveformIndex).reference;
        edited.sourceInterval = m_envelopes.at(waveformIndex).sourceInterval;
    }
    setEnvelope(waveformIndex, edited);
    emit envelopeEditingFinished(waveformIndex, edited);
}

void VornGraph::onEnvelopeEditingCancelled()
{
    emit envelopeEditingCancelled();
}

void VornGraph::onEditorStateChanged()
{
    if (m_editorOverlay)
        m_editorOverlay->updateState(m_envelopeEditor->state());
    // While an edit runs, its waveform may not be hidden nor a second edit asked for.
    if (m_infoTree)
        m_infoTree->setEnabled(!m_envelopeEditor->isEditing());
}

void VornGraph::positionEditorOverlay()
{
    if (!m_editorOverlay || !m_chart)
        return;
    if (m_editorOverlay->hasUserPosition()) {
        m_editorOverlay->clampToParent();
        return;
    }
    const QRectF plot = m_chart->plotArea();
    if (plot.isEmpty())
        return;
    m_editorOverlay->move(m_chartView->mapFromScene(plot.topLeft()) + QPoint(OVERLAY_MARGIN, OVERLAY_MARGIN));
}

void VornGraph::followPlotChanges()
{
    m_traces->setPlotArea(m_chart->plotArea());
    m_traces->update();
    updateBandLabels();
    if (m_envelopeEditor) {
        m_envelopeEditor->updateMarkerPositions();
        updateKnotReadout();
    }
    positionEditorOverlay();
    updateViolationMarks();
    updateMeasurementMarks();
    updateCursorLines();
    updateReadouts();
}
