#include "vorngraph.h"

#include "chartbatch.h"

#include <QChart>
#include <QLineSeries>
#include <QPen>
#include <QTreeWidgetItem>
#include <QValueAxis>

#include <algorithm>
#include <cmath>

namespace {

QPen linePen(const QColor &colour, Qt::PenStyle style)
{
    return QPen(QBrush(colour, Qt::SolidPattern), 1.0, style, Qt::SquareCap, Qt::BevelJoin);
}

void setTwoPoints(QLineSeries *series, QPointF from, QPointF to)
{
    series->replace(QList<QPointF>{from, to});
}

} // namespace

void VornGraph::updateCenterLines()
{
    if (!m_axisX || m_yAxes.isEmpty())
        return;
    const double xMin = m_axisX->min();
    const double xMax = m_axisX->max();
    const double yMin = m_yAxes[0]->min();
    const double yMax = m_yAxes[0]->max();
    const double xc = (xMin + xMax) * 0.5;
    const double yc = (yMin + yMax) * 0.5;

    if (!m_centerLineV)
        m_centerLineV = createReferenceLine(Qt::DashLine, m_yAxes[0]);
    setTwoPoints(m_centerLineV, {xc, yMin}, {xc, yMax});
    if (!m_centerLineH)
        m_centerLineH = createReferenceLine(Qt::DashLine, m_yAxes[0]);
    setTwoPoints(m_centerLineH, {xMin, yc}, {xMax, yc});

    if (xMin <= 0.0 && 0.0 <= xMax) {
        if (!m_timeZeroLine)
            m_timeZeroLine = createReferenceLine(Qt::SolidLine, m_yAxes[0]);
        setTwoPoints(m_timeZeroLine, {0.0, yMin}, {0.0, yMax});
        m_timeZeroLine->setVisible(true);
    } else if (m_timeZeroLine) {
        m_timeZeroLine->setVisible(false);
    }
    updateZeroLines();
}

QLineSeries *VornGraph::createReferenceLine(Qt::PenStyle style, QValueAxis *axisY)
{
    auto *line = new QLineSeries;
    line->setPen(linePen(Qt::white, style));
    // Added after the waveforms, so drawn above them; the chart owns it.
    m_chart->addSeries(line);
    line->attachAxis(m_axisX);
    line->attachAxis(axisY);
    return line;
}

// A zero line stays while its waveform keeps one: a series added to the chart costs a chart item,
// its theme and a layout, far more than moving two points. Only the lines of waveforms that
// gained or lost 0 come and go, so that scaling thousands of waveforms does not rebuild them all.
void VornGraph::updateZeroLines()
{
    QVector<int> wanted;
    if (m_chart && m_axisX) {
        for (int i = 0; i < m_series.size() && i < m_yAxes.size(); ++i) {
            const QValueAxis *axis = m_yAxes[i];
            if (m_series[i]->isVisible() && axis->min() <= 0.0 && axis->max() >= 0.0)
                wanted.append(i);
        }
    }
    if (wanted != m_zeroLineOwners) {
        QList<QLineSeries *> kept, leaving;
        QVector<int> added;
        kept.reserve(wanted.size());
        qsizetype k = 0;
        for (int i : qAsConst(wanted)) {
            for (; k < m_zeroLineOwners.size() && m_zeroLineOwners[k] < i; ++k)
                leaving.append(m_zeroLines[k]);
            const bool has = k < m_zeroLineOwners.size() && m_zeroLineOwners[k] == i;
            kept.append(has ? m_zeroLines[k++] : nullptr);
            if (!has)
                added.append(i);
        }
        for (; k < m_zeroLines.size(); ++k)
            leaving.append(m_zeroLines[k]);
        for (QLineSeries *line : qAsConst(leaving)) {
            m_chart->removeSeries(line);
            delete line;
        }
        QList<QAbstractSeries *> made;
        for (int i : qAsConst(added))
            made.append(createZeroLine(i));
        addSeriesTogether(m_chart, made);
        for (qsizetype j = 0, n = 0; j < kept.size(); ++j) {
            if (!kept[j]) {
                kept[j] = static_cast<QLineSeries *>(made[n++]);
                kept[j]->attachAxis(m_axisX);
                kept[j]->attachAxis(m_yAxes[wanted[j]]);
            }
        }
        m_zeroLines = kept;
        m_zeroLineOwners = wanted;
    }
    for (QLineSeries *line : qAsConst(m_zeroLines))
        setTwoPoints(line, {m_axisX->min(), 0.0}, {m_axisX->max(), 0.0});
}

QLineSeries *VornGraph::createZeroLine(int waveformIndex)
{
    QColor colour = m_series[waveformIndex]->pen().color();
    colour.setAlpha(64);
    // The chart owns the line once it is added.
    auto *line = new QLineSeries(this);
    line->setPen(linePen(colour, Qt::SolidLine));
    return line;
}

void VornGraph::updateRangeDisplay()
{
    // A drag's pan shows its time in the tree once it rests (showTimeInTree).
    if (m_panning)
        return;
    const QString seconds = QStringLiteral("s");
    if (m_axisX && m_timeRangePlusItem && m_timeRangeMinusItem) {
        m_timeRangePlusItem->setText(1, ValueFormatter::formatWithUnit(m_axisX->max(), seconds));
        m_timeRangeMinusItem->setText(1, ValueFormatter::formatWithUnit(m_axisX->min(), seconds));
    }
    // A time step changes no waveform's range: with thousands of waveforms, writing them all
    // again would cost more than the step.
    const qsizetype rows = std::min({m_yAxes.size(), m_rangePlusItems.size(), m_rangeMinusItems.size()});
    if (m_shownRanges.size() != rows)
        m_shownRanges.fill({NAN, NAN}, rows);
    for (int i = 0; i < m_shownRanges.size(); ++i) {
        const QPair<double, double> range(m_yAxes[i]->min(), m_yAxes[i]->max());
        if (range == m_shownRanges[i])
            continue;
        m_shownRanges[i] = range;
        const QString &unit = m_waveforms.at(i).unit;
        m_rangePlusItems[i]->setText(1, ValueFormatter::formatWithUnit(range.second, unit));
        m_rangeMinusItems[i]->setText(1, ValueFormatter::formatWithUnit(range.first, unit));
    }
}
