// Captures drawn faintly behind a waveform, where the overlap of many reads as a persistence
// image: denser where more of them pass.
#include "vorngraph.h"

#include <QChart>
#include <QLineSeries>
#include <QPen>
#include <QValueAxis>

#include <algorithm>

namespace {

// Kept per capture: at most this many points, the min/max of as many buckets, whatever its length.
constexpr int KEPT_POINTS = 131072;
constexpr int BACKGROUND_ALPHA = 40;

// The points over [xMin, xMax] (and one beyond on each side), at most about 2 per column: each
// column's first minimum and maximum in time order.
QList<QPointF> visiblePoints(const QVector<QPointF> &points, double xMin, double xMax, int columns)
{
    const auto before = [](const QPointF &p, double x) { return p.x() < x; };
    auto first = std::lower_bound(points.begin(), points.end(), xMin, before);
    auto last = std::lower_bound(first, points.end(), xMax, before);
    first = first == points.begin() ? first : first - 1;
    last = last == points.end() ? last : last + 1;
    const qsizetype count = last - first;
    if (count <= 2 * columns)
        return QList<QPointF>(first, last);
    QList<QPointF> out;
    out.reserve(2 * columns);
    const double width = (xMax - xMin) / columns;
    for (auto it = first; it != last;) {
        const double end = xMin + (std::floor((it->x() - xMin) / width) + 1) * width;
        auto low = it, high = it;
        for (; it != last && it->x() < end; ++it) {
            low = it->y() < low->y() ? it : low;
            high = it->y() > high->y() ? it : high;
        }
        if (low == high) {
            out.append(*low);
        } else {
            out.append(low->x() <= high->x() ? *low : *high);
            out.append(low->x() <= high->x() ? *high : *low);
        }
    }
    return out;
}

} // namespace

void VornGraph::clearBackgroundCaptures(int index)
{
    if (index < 0 || index >= m_backgroundSeries.size())
        return;
    for (QLineSeries *series : qAsConst(m_backgroundSeries[index])) {
        m_chart->removeSeries(series);
        delete series;
    }
    m_backgroundSeries[index].clear();
    m_backgroundPoints[index].clear();
}

void VornGraph::addBackgroundCapture(int index, const WaveformData &capture)
{
    if (capture.samples->empty())
        return;
    const SampleTimeBase time{capture.sampleInterval, capture.startTime};
    addBackgroundPoints(index, ::downsampleVisibleRange(*capture.samples, time, 0, capture.samples->size() - 1, KEPT_POINTS));
    updateBackgroundForViewport();
}

QList<QVector<QPointF>> VornGraph::backgroundCaptures(int index) const
{
    return index >= 0 && index < m_backgroundPoints.size() ? m_backgroundPoints.at(index) : QList<QVector<QPointF>>();
}

void VornGraph::setBackgroundCaptures(int index, const QList<QVector<QPointF>> &captures)
{
    clearBackgroundCaptures(index);
    for (const QVector<QPointF> &points : captures)
        addBackgroundPoints(index, points);
    updateBackgroundForViewport();
}

void VornGraph::addBackgroundPoints(int index, const QVector<QPointF> &points)
{
    if (index < 0 || index >= m_waveforms.size() || index >= m_yAxes.size() || !m_axisX || points.isEmpty())
        return;
    if (m_backgroundSeries.size() <= index) {
        m_backgroundSeries.resize(index + 1);
        m_backgroundPoints.resize(index + 1);
    }
    m_backgroundPoints[index].append(points);
    auto *series = new QLineSeries;
    QColor colour = m_series.at(index)->color();
    colour.setAlpha(BACKGROUND_ALPHA);
    series->setPen(QPen(colour, 1.0));
    m_chart->addSeries(series);
    series->attachAxis(m_axisX);
    series->attachAxis(m_yAxes.at(index));
    m_backgroundSeries[index].append(series);
    // Series are painted in the order they were added: the envelope goes back on top.
    if (hasEnvelope(index)) {
        const bool editing = m_envelopeEditor->waveformIndex() == index;
        clearEnvelopeSeries(index);
        createEnvelopeSeries(index);
        if (editing)
            setEnvelopeVisible(index, false);
    }
}

int VornGraph::backgroundCaptureCount(int index) const
{
    return index >= 0 && index < m_backgroundSeries.size() ? int(m_backgroundSeries.at(index).size()) : 0;
}

void VornGraph::updateBackgroundForViewport()
{
    if (!m_axisX || !m_chart)
        return;
    const int columns = std::max(100, int(m_chart->plotArea().width()));
    for (int index = 0; index < m_backgroundSeries.size(); ++index) {
        for (int k = 0; k < m_backgroundSeries.at(index).size(); ++k)
            m_backgroundSeries[index][k]->replace(
                visiblePoints(m_backgroundPoints.at(index).at(k), m_axisX->min(), m_axisX->max(), columns));
    }
}
