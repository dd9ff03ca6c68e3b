#include "vorngraph.h"

#include <QChart>
#include <QDoubleSpinBox>
#include <QGraphicsPathItem>
#include <QLineSeries>
#include <QPainterPath>
#include <QPen>
#include <QValueAxis>

#include <cmath>

namespace {

// A pure red that no waveform has, outlined darker so that neighbouring marks stay apart.
const QColor VIOLATION_COLOR(255, 0, 0);
constexpr double MARK_SIZE = 7.0;
constexpr double MARKS_Z = 996.0; // above the series, below the editor's scene items

// The sample nearest to t, within the waveform.
uint64_t nearestSample(const WaveformData &w, double t)
{
    const double position = std::round((t - w.startTime) / w.sampleInterval);
    const double last = static_cast<double>(w.samples->size() - 1);
    return !(position > 0.0) ? 0 : position >= last ? w.samples->size() - 1 : static_cast<uint64_t>(position);
}

} // namespace

EnvelopeCheckResult VornGraph::envelopeCheckResult(int index) const
{
    return index >= 0 && index < m_checkResults.size() ? m_checkResults.at(index) : EnvelopeCheckResult();
}

bool VornGraph::showNextViolation(int index)
{
    return centreOnViolation(index, true);
}

bool VornGraph::showPreviousViolation(int index)
{
    return centreOnViolation(index, false);
}

void VornGraph::checkEnvelopeOf(int index)
{
    if (index < 0 || index >= m_waveforms.size())
        return;
    if (m_checkResults.size() <= index)
        m_checkResults.resize(index + 1);
    if (m_violationMasks.size() <= static_cast<size_t>(index))
        m_violationMasks.resize(static_cast<size_t>(index) + 1);
    ViolationMask &mask = m_violationMasks[static_cast<size_t>(index)];
    const QString defect = hasEnvelope(index) ? envelopeDefect(m_envelopes.at(index), m_waveforms.at(index)) : QString();
    if (!defect.isEmpty()) {
        // Limits that cannot judge never show a pass.
        m_checkResults[index] = EnvelopeCheckResult();
        m_checkResults[index].failure = defect;
        mask = ViolationMask();
    } else if (hasEnvelope(index)) {
        m_checkResults[index] = checkShifted(waveformData(index), m_envelopes.at(index), waveformShift(index), &mask);
    } else {
        m_checkResults[index] = EnvelopeCheckResult();
        mask = ViolationMask();
    }
    updateViolationMarks();
    emit envelopeChecked(index);
}

// One path for every visible waveform's marks, rebuilt on every view change: it costs a
// summary-bit search per bucket, not a pass over the samples.
void VornGraph::updateViolationMarks()
{
    if (!m_chart)
        return;
    QPainterPath path;
    for (int i = 0; i < m_series.size() && i < m_checkResults.size(); ++i) {
        // Hiding a waveform hides its marks too.
        connect(m_series[i], &QAbstractSeries::visibleChanged, this, &VornGraph::updateViolationMarks,
                Qt::UniqueConnection);
        if (m_series[i]->isVisible() && !m_checkResults.at(i).passed())
            addViolationMarks(i, path);
    }
    if (!m_violationMarks) {
        if (path.isEmpty())
            return;
        m_violationMarks = new QGraphicsPathItem(m_chart);
        m_violationMarks->setZValue(MARKS_Z);
        m_violationMarks->setPen(QPen(VIOLATION_COLOR.darker(160), 1.0));
        m_violationMarks->setBrush(VIOLATION_COLOR);
    }
    m_violationMarks->setPath(path);
}

// The visible samples are cut into the same buckets as the min/max reduction; a bucket holding a
// violation gets a mark on its first and last violating sample, so no zoom loses one. Marks
// beyond the top or bottom of the plot sit on its edge.
void VornGraph::addViolationMarks(int index, QPainterPath &path) const
{
    const WaveformData &w = m_waveforms.at(index);
    const ViolationMask &mask = m_violationMasks[static_cast<size_t>(index)];
    if (!m_axisX || mask.sampleCount() != w.samples->size())
        return;
    const VisibleRange range = ::calculateVisibleIndices(w.samples->size(), SampleTimeBase{w.sampleInterval, w.startTime},
                                                         m_axisX->min(), m_axisX->max());
    if (range.empty)
        return;
    const QRectF plot = m_chart->plotArea();
    const auto mark = [&](uint64_t i) {
        const QPointF at = m_chart->mapToPosition(QPointF(static_cast<double>(i) * w.sampleInterval + w.startTime,
                                                          w.samples->at(i)),
                                                  m_series[index]);
        const QPointF centre(at.x(), std::clamp(at.y(), plot.top(), plot.bottom()));
        path.addRect(QRectF(centre.x() - MARK_SIZE / 2, centre.y() - MARK_SIZE / 2, MARK_SIZE, MARK_SIZE));
    };
    const uint64_t count = range.endIndex - range.startIndex + 1;
    const uint64_t buckets = std::min<uint64_t>(count, MAX_DISPLAY_POINTS / 2);
    const double bucketSize = static_cast<double>(count) / static_cast<double>(buckets);
    for (uint64_t b = 0; b < buckets; ++b) {
        const uint64_t first = range.startIndex + static_cast<uint64_t>(b * bucketSize);
        const uint64_t end = std::min(range.endIndex + 1, range.startIndex + static_cast<uint64_t>((b + 1) * bucketSize));
        const uint64_t hit = mask.findNext(first, end);
        if (hit >= end)
            continue;
        mark(hit);
        const uint64_t last = mask.findPrevious(end);
        if (last != hit)
            mark(last);
    }
}

// Steps from the sample at the centre of the screen to the start of the next (or previous) run of
// violations, so that one key press passes a whole run.
bool VornGraph::centreOnViolation(int index, bool forward)
{
    if (index < 0 || static_cast<size_t>(index) >= m_violationMasks.size() || !m_axisX)
        return false;
    const WaveformData &w = m_waveforms.at(index);
    const ViolationMask &mask = m_violationMasks[static_cast<size_t>(index)];
    const uint64_t count = mask.sampleCount();
    if (count == 0 || count != w.samples->size())
        return false;
    const double centre = -m_timeOffset;
    const uint64_t near = nearestSample(w, centre);
    const double atNear = static_cast<double>(near) * w.sampleInterval + w.startTime;
    uint64_t found = count;
    if (forward) {
        uint64_t i = atNear <= centre ? near + 1 : near; // the first sample after the centre
        while (i > 0 && i < count && mask.test(i) && mask.test(i - 1))
            ++i; // still the run the screen is centred on
        found = mask.findNext(i, count);
    } else {
        found = mask.findPrevious(atNear >= centre ? near : near + 1);
        while (found > 0 && found < count && mask.test(found - 1))
            --found;
    }
    if (found >= count)
        return false;
    m_timeOffset = -(static_cast<double>(found) * w.sampleInterval + w.startTime);
    if (m_timeOffsetSpinBox) {
        const QSignalBlocker blocker(m_timeOffsetSpinBox);
        m_timeOffsetSpinBox->setValue(m_timeOffset);
    }
    updateXAxis(m_timePerDivision);
    return true;
}
