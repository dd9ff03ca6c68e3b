// The opt-in ways of drawing envelopes: a style apart from the trace, and the reduced drawing
// that keeps dense envelopes cheap on every view change.
#include "vorngraph.h"

#include <QAreaSeries>
#include <QChart>
#include <QLineSeries>
#include <QPen>
#include <QValueAxis>

#include <algorithm>
#include <cmath>

namespace {

constexpr int ENVELOPE_FILL_ALPHA = 25;
constexpr int DISTINCT_FILL_ALPHA = 45;
constexpr double DISTINCT_LIMIT_WIDTH = 1.5;

// Copies of samples [first, last) of a curve, on the curve's own time base.
WaveformData runOf(const WaveformData &curve, size_t first, size_t last)
{
    WaveformData run;
    run.name = curve.name;
    run.unit = curve.unit;
    run.sampleInterval = curve.sampleInterval;
    run.startTime = static_cast<double>(first) * curve.sampleInterval + curve.startTime;
    run.samples.writable().assign(curve.samples->begin() + static_cast<std::ptrdiff_t>(first),
                                  curve.samples->begin() + static_cast<std::ptrdiff_t>(last));
    return run;
}

QVector<QPointF> cornersOf(const WaveformData &curve, size_t maxCorners)
{
    return polylineCorners(*curve.samples, SampleTimeBase{curve.sampleInterval, curve.startTime}, maxCorners);
}

} // namespace

// Lavender: a hue the waveform palette leaves free, far from the violations' red.
const QColor VornGraph::ENVELOPE_LIMIT_COLOR = QColor(176, 132, 255);

void VornGraph::setDistinctEnvelopeStyle(bool distinct)
{
    if (m_distinctEnvelopeStyle == distinct)
        return;
    m_distinctEnvelopeStyle = distinct;
    redrawEnvelopes();
}

void VornGraph::setEnvelopeReduction(bool reduced)
{
    if (m_envelopeReduction == reduced)
        return;
    m_envelopeReduction = reduced;
    redrawEnvelopes();
}

void VornGraph::redrawEnvelopes()
{
    const int editing = m_envelopeEditor ? m_envelopeEditor->waveformIndex() : -1;
    for (int i = 0; i < m_envelopes.size(); ++i) {
        clearEnvelopeSeries(i);
        createEnvelopeSeries(i);
        // The envelope being edited stays hidden behind its handles.
        if (i == editing)
            setEnvelopeVisible(i, false);
    }
}

void VornGraph::envelopePens(int index, QPen &upper, QPen &lower) const
{
    if (m_distinctEnvelopeStyle) {
        upper = QPen(ENVELOPE_LIMIT_COLOR, DISTINCT_LIMIT_WIDTH, Qt::SolidLine);
        lower = QPen(ENVELOPE_LIMIT_COLOR.darker(130), DISTINCT_LIMIT_WIDTH, Qt::SolidLine);
        return;
    }
    const QColor colour = m_series.at(index)->color();
    upper = QPen(colour.lighter(120), 1.0, Qt::DashLine);
    lower = QPen(colour.darker(120), 1.0, Qt::DotLine);
}

QColor VornGraph::envelopeFillColor(int index) const
{
    QColor fill = m_distinctEnvelopeStyle ? ENVELOPE_LIMIT_COLOR : m_series.at(index)->color();
    fill.setAlpha(m_distinctEnvelopeStyle ? DISTINCT_FILL_ALPHA : ENVELOPE_FILL_ALPHA);
    return fill;
}

// One segment per run of samples without gaps, as in the plain drawing, but each segment holds
// only what the visible time range needs, refreshed on every view change.
void VornGraph::createReducedEnvelopeSeries(int index)
{
    if (m_envelopeRuns.size() <= index)
        m_envelopeRuns.resize(index + 1);
    QVector<EnvelopeRun> &runs = m_envelopeRuns[index];
    runs.clear();
    const EnvelopeData &envelope = m_envelopes.at(index);
    const std::vector<double> &upper = *envelope.upper.samples;
    const std::vector<double> &lower = *envelope.lower.samples;
    const size_t n = std::min(upper.size(), lower.size());
    // Both curves run on the upper curve's time base.
    WaveformData lowerOnUpperBase = envelope.lower;
    lowerOnUpperBase.sampleInterval = envelope.upper.sampleInterval;
    lowerOnUpperBase.startTime = envelope.upper.startTime;
    for (size_t i = 0; i < n;) {
        if (std::isnan(upper[i]) || std::isnan(lower[i])) {
            ++i;
            continue;
        }
        size_t last = i;
        while (last < n && !std::isnan(upper[last]) && !std::isnan(lower[last]))
            ++last;
        EnvelopeRun run;
        run.curves.upper = runOf(envelope.upper, i, last);
        run.curves.lower = runOf(lowerOnUpperBase, i, last);
        // A curve with more corners than this gains little from them, and a long one would hold
        // a large list for nothing (a quarter of a byte a sample at most).
        const size_t maxCorners = (last - i) / 64;
        run.upperCorners = cornersOf(run.curves.upper, maxCorners);
        run.lowerCorners = cornersOf(run.curves.lower, maxCorners);
        runs.append(run);
        i = last;
    }
    QPen upperPen, lowerPen;
    envelopePens(index, upperPen, lowerPen);
    for (int k = 0; k < runs.size(); ++k) {
        auto *upperSegment = new QLineSeries;
        auto *lowerSegment = new QLineSeries;
        upperSegment->setPen(upperPen);
        lowerSegment->setPen(lowerPen);
        closeEnvelopeSegment(index, upperSegment, lowerSegment);
    }
    updateTraces();
    updateEnvelopeSeriesForViewport();
}

// Whenever an axis changes, the chart outlines every series on it anew. The envelope series are
// emptied around such a change and take their points back after it: m_traces draws them.
void VornGraph::setEnvelopePointsAside(int index)
{
    for (int i = index < 0 ? 0 : index; i < m_envelopeUpperSeries.size() && (index < 0 || i == index); ++i) {
        for (QLineSeries *series : m_envelopeUpperSeries.at(i) + m_envelopeLowerSeries.value(i)) {
            if (series->count() == 0)
                continue;
            m_envelopePointsAside.insert(series, series->points());
            series->replace(QList<QPointF>());
        }
    }
}

void VornGraph::restoreEnvelopePoints()
{
    for (auto it = m_envelopePointsAside.cbegin(); it != m_envelopePointsAside.cend(); ++it)
        it.key()->replace(it.value());
    m_envelopePointsAside.clear();
}

void VornGraph::updateEnvelopeSeriesForViewport()
{
    if (!m_envelopeReduction || !m_axisX)
        return;
    const double xMin = m_axisX->min();
    const double xMax = m_axisX->max();
    // A limit line needs no more than its extremes per pixel column; the band's fill costs
    // in proportion to its vertices.
    const int columns = std::max(100, int(m_chart->plotArea().width()));
    const auto reduced = [&](const WaveformData &curve, const QVector<QPointF> &corners) {
        const VisibleRange range = calculateVisibleIndices(curve, xMin, xMax);
        if (range.empty)
            return viewportPoints(curve, xMin, xMax);
        // Where the samples would be reduced, a curve of few corners is drawn through the ones
        // in view and one on either side: exact, and fewer points than the reduction's.
        if (range.endIndex - range.startIndex >= std::uint64_t(columns) && !corners.isEmpty()) {
            const auto before = [](const QPointF &p, double x) { return p.x() < x; };
            auto first = std::lower_bound(corners.cbegin(), corners.cend(), xMin, before);
            auto last = std::lower_bound(first, corners.cend(), xMax, before);
            first -= first != corners.cbegin();
            last += last != corners.cend();
            if (last - first <= columns)
                return QList<QPointF>(first, last);
        }
        return QList<QPointF>(downsampleVisibleRange(curve, range.startIndex, range.endIndex, columns));
    };
    for (int index = 0; index < m_envelopeRuns.size(); ++index) {
        const QVector<EnvelopeRun> &runs = m_envelopeRuns.at(index);
        if (index >= m_envelopeUpperSeries.size() || m_envelopeUpperSeries.at(index).size() != runs.size())
            continue;
        for (int k = 0; k < runs.size(); ++k) {
            const EnvelopeRun &run = runs.at(k);
            m_envelopeUpperSeries.at(index).at(k)->replace(reduced(run.curves.upper, run.upperCorners));
            m_envelopeLowerSeries.at(index).at(k)->replace(reduced(run.curves.lower, run.lowerCorners));
        }
    }
}
