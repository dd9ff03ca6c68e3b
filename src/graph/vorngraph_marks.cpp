// Where a measurement was taken, drawn over the trace it was taken on.

#include "vorngraph.h"

#include <QChart>
#include <QGraphicsLineItem>
#include <QGraphicsScene>
#include <QLineSeries>
#include <QPen>
#include <QValueAxis>

namespace {

constexpr double MARK_Z = 980.0; // under the cursors, over the traces

} // namespace

QPair<double, double> VornGraph::visibleTimeRange() const
{
    return m_axisX ? qMakePair(m_axisX->min(), m_axisX->max()) : qMakePair(0.0, 0.0);
}

bool VornGraph::isWaveformVisible(int index) const
{
    return index >= 0 && index < m_series.size() && m_series[index]->isVisible();
}

void VornGraph::setMeasurementMarks(int index, const QVector<double> &times, const QVector<double> &levels)
{
    m_markedWaveform = index;
    m_markTimes = times;
    m_markLevels = levels;
    updateMeasurementMarks();
}

void VornGraph::updateMeasurementMarks()
{
    const QRectF plot = m_chart->plotArea();
    QLineSeries *series = m_series.value(m_markedWaveform);
    const int wanted = series && series->isVisible() && m_axisX ? m_markTimes.size() + m_markLevels.size() : 0;
    while (m_markLines.size() > wanted)
        delete m_markLines.takeLast();
    if (wanted == 0)
        return;
    QPen pen(getWaveformColor(m_markedWaveform).darker(150), 1.0, Qt::DashLine);
    pen.setCosmetic(true);
    while (m_markLines.size() < wanted) {
        auto *line = new QGraphicsLineItem;
        line->setPen(pen);
        line->setZValue(MARK_Z);
        // The scene owns the line from here on.
        m_chart->scene()->addItem(line);
        m_markLines.append(line);
    }
    const double span = m_axisX->max() - m_axisX->min();
    for (int k = 0; k < m_markTimes.size(); ++k) {
        const double x = plot.left() + (m_markTimes[k] - m_axisX->min()) / span * plot.width();
        m_markLines[k]->setLine(x, plot.top(), x, plot.bottom());
        m_markLines[k]->setVisible(x >= plot.left() && x <= plot.right());
    }
    for (int k = 0; k < m_markLevels.size(); ++k) {
        const double y = m_chart->mapToPosition(QPointF(m_axisX->min(), m_markLevels[k]), series).y();
        QGraphicsLineItem *line = m_markLines[m_markTimes.size() + k];
        line->setLine(plot.left(), y, plot.right(), y);
        line->setVisible(y >= plot.top() && y <= plot.bottom());
    }
}
