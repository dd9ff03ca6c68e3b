#include "vorngraph.h"

#include "axislabelitem.h"
#include "interactivechartview.h"
#include "scaledspinbox.h"

#include <QCategoryAxis>
#include <QChart>
#include <QLineSeries>
#include <QSignalBlocker>
#include <QTimer>
#include <QValueAxis>

#include <array>
#include <cmath>

namespace {

constexpr double MIN_PLOT_PIXELS = 50.0;
// Far more lines than any screen has room for; only a division too small for the doubles of
// its position gets near it.
constexpr int MAX_GRID_LINES = 1000;

// Qt steps from tick to tick by adding the interval, so an interval lost in the rounding of the
// range's ends would never get past the maximum. Such a range is not applied at all.
bool isDrawableGrid(double min, double max, double interval)
{
    return std::isfinite(min) && std::isfinite(max) && max > min && interval > 0.0
        && min + interval > min && max + interval > max && (max - min) / interval < MAX_GRID_LINES;
}

// A hidden label is still formatted, laid out as rich text and measured on every range change;
// a format without a conversion gives empty labels, which cost nothing.
void hideValueLabels(QValueAxis *axis)
{
    axis->setLabelsVisible(false);
    axis->setLabelFormat(QStringLiteral("-"));
}

// The axis keeps its labels, but our item draws them: hidden, the chart lays none of them out.
void setUpLabelAxis(QCategoryAxis *axis)
{
    axis->setVisible(false);
    axis->setGridLineVisible(false);
    axis->setLabelsPosition(QCategoryAxis::AxisLabelsPositionOnValue);
    axis->setTruncateLabels(false);
}

// One label on every grid line of [min, max], the grid running through anchor at steps of
// division; the last one may lie up to 1 % of a division beyond max. Only lines within
// [from, to] get one when asked, and plain numbers without prefixes, as a unitless level reads.
void fillLabels(QCategoryAxis *axis, double min, double max, double anchor, double division,
                const QString &unit, double from = -INFINITY, double to = INFINITY, bool plain = false,
                int stride = 1)
{
    // The value axis was left as it was in that case, so its labels stay too.
    if (!isDrawableGrid(min, max, division))
        return;
    const QSignalBlocker blocker(axis);
    const auto labels = axis->categoriesLabels();
    for (const QString &label : labels)
        axis->remove(label);
    const double first = division * std::ceil((min - anchor) / division) + anchor;
    axis->setStartValue(first - division);
    for (int k = 0; k <= MAX_GRID_LINES; ++k) {
        const double t = first + k * division;
        if (t > max + division * 0.01)
            break;
        if (t < from - division * 0.01 || t > to + division * 0.01)
            continue;
        // Every stride-th line counted from zero, so the labelled lines stay put while panning.
        if (stride > 1 && std::llround(t / division) % stride != 0)
            continue;
        // A grid line that is zero up to rounding reads as zero, not as 3e-17.
        const double shown = division * 1e-9 > std::fabs(t) ? 0.0 : t;
        axis->append(plain ? formatResolved(shown, division / 100.0, QString()) : ValueFormatter::formatWithUnit(shown, unit), t);
    }
    axis->setRange(min, max);
}

} // namespace

void VornGraph::applyDivisionGrid(QValueAxis *axis, double centre, double halfSpan, double interval)
{
    const double min = centre - halfSpan;
    const double max = centre + halfSpan;
    if (!isDrawableGrid(min, max, interval))
        return;
    // Interval first: dynamic ticks with the default interval of 0 would never end.
    axis->setTickInterval(interval);
    axis->setTickAnchor(centre);
    axis->setRange(min, max);
    axis->setTickType(QValueAxis::TicksDynamic);
}

double VornGraph::calculateDivisionSizeX(double horizontalDivisions) const
{
    return Scale125::nextUp((m_globalXMax - m_globalXMin) / horizontalDivisions);
}

double VornGraph::calculateDivisionSizeY(double minValue, double maxValue) const
{
    return Scale125::nextUp((maxValue - minValue) / Y_DIVISIONS);
}

void VornGraph::setupAxisX()
{
    m_laidOut = {};
    m_axisX = new QValueAxis;
    m_axisX->setTickCount(11);
    m_axisX->setGridLineVisible(true);
    m_axisX->setLineVisible(false);
    hideValueLabels(m_axisX);
    // Our label item draws its grid.
    m_axisX->setVisible(false);
    m_chart->legend()->setVisible(false);
    m_chart->addAxis(m_axisX, Qt::AlignBottom);

    m_axisXLabels = new QCategoryAxis;
    setUpLabelAxis(m_axisXLabels);
    m_chart->addAxis(m_axisXLabels, Qt::AlignBottom);

    m_axisYLabels = new QCategoryAxis;
    setUpLabelAxis(m_axisYLabels);
    m_chart->addAxis(m_axisYLabels, Qt::AlignLeft);
    m_axisLabels->setAxes(m_axisXLabels, m_axisYLabels);
}

void VornGraph::updateSquareDivisions()
{
    if (!m_axisX || m_yAxes.isEmpty())
        return;
    const QRectF plot = m_chart->plotArea();
    if (plot.isEmpty() || plot.width() < MIN_PLOT_PIXELS || plot.height() < MIN_PLOT_PIXELS) {
        // A hidden graph is laid out when it is shown; retrying meanwhile would only spin.
        if (isVisible())
            scheduleSquareDivisions();
        return;
    }
    m_divisionPixels = plot.height() / Y_DIVISIONS;
    const double divisions = plot.width() / m_divisionPixels;
    if (m_timePerDivision == 0.0)
        chooseTimePerDivision(divisions);
    // A resize reaches here twice, through the widget and through the plot area; each pass
    // redraws every series, which is most of what a step costs.
    const std::array<double, 6> layout{plot.left(), plot.top(), plot.width(), plot.height(), m_timePerDivision,
                                       m_timeOffset};
    if (layout == m_laidOut)
        return;
    m_laidOut = layout;

    const QSignalBlocker blocker(m_chart);
    emptyWaveformSeries();
    applyDivisionGrid(m_axisX, -m_timeOffset, divisions * m_timePerDivision * 0.5, m_timePerDivision);
    updateXAxisLabels();
    updateSeriesForViewport();
    updateCenterLines();
    updateRangeDisplay();
    followPlotChanges();
}

// The chart strokes every series again when its range or size changes; empty ones cost nothing,
// and the new points follow from updateSeriesForViewport.
void VornGraph::emptyWaveformSeries()
{
    for (QLineSeries *series : qAsConst(m_series))
        series->replace(QList<QPointF>());
    setEnvelopePointsAside();
}

void VornGraph::scheduleSquareDivisions()
{
    if (m_squareDivisionsPending)
        return;
    m_squareDivisionsPending = true;
    QTimer::singleShot(0, this, [this] {
        m_squareDivisionsPending = false;
        updateSquareDivisions();
    });
}

void VornGraph::chooseTimePerDivision(double horizontalDivisions)
{
    m_timePerDivision = calculateDivisionSizeX(horizontalDivisions);
    if (m_timePerDivision > 0.0) {
        m_timeOffset = std::round(m_timeOffset / m_timePerDivision) * m_timePerDivision;
    } else {
        // A single instant has no span to divide; any time base shows it.
        m_timePerDivision = 1.0;
    }
    if (m_timeDivisionSpinBox) {
        const QSignalBlocker blocker(m_timeDivisionSpinBox);
        m_timeDivisionSpinBox->setValue(m_timePerDivision);
        m_timeDivisionSpinBox->setProperty("lastValue", m_timePerDivision);
    }
    if (auto *offsetBox = qobject_cast<LinearSpinBox *>(m_timeOffsetSpinBox)) {
        offsetBox->setStep(m_timePerDivision);
        const QSignalBlocker blocker(offsetBox);
        offsetBox->setValue(m_timeOffset);
    }
}

void VornGraph::updateXAxis(double timePerDivision)
{
    if (!m_axisX)
        return;
    const double aspect = double(m_chartView->width()) / double(m_chartView->height());
    // Its range follows the view's aspect, not the plot's: the next layout must not be skipped.
    m_laidOut = {};
    emptyWaveformSeries();
    applyDivisionGrid(m_axisX, -m_timeOffset, aspect * Y_DIVISIONS * timePerDivision * 0.5, timePerDivision);
    updateXAxisLabels();
    updateSeriesForViewport();
    updateCenterLines();
    updateRangeDisplay();
    followPlotChanges();
}

void VornGraph::updateXAxisLabels()
{
    if (!m_axisX || !m_axisXLabels)
        return;
    const bool narrow = m_divisionPixels < MIN_HORIZONTAL_LABEL_PIXEL;
    // Kept horizontal on request: every other line, or fewer where even that would crowd them.
    const int stride = narrow && m_horizontalTimeLabels && m_divisionPixels > 0.0
        ? int(std::ceil(MIN_HORIZONTAL_LABEL_PIXEL / m_divisionPixels))
        : 1;
    fillLabels(m_axisXLabels, m_axisX->min(), m_axisX->max(), -m_timeOffset, m_timePerDivision,
               QStringLiteral("s"), -INFINITY, INFINITY, false, stride);
    m_axisXLabels->setLabelsAngle(narrow && stride == 1 ? -90 : 0);
    followLabelRoom();
}

// The chart leaves the labels room beside the plot as it did while it drew them: a change moves
// the plot area, and the layout follows from there.
void VornGraph::followLabelRoom()
{
    m_axisLabels->labelsChanged();
    const QMarginsF room = m_axisLabels->room();
    const QMargins margins = m_chartMargins.toMargins()
        + QMargins(int(std::ceil(room.left())), 0, 0, int(std::ceil(room.bottom())));
    if (m_chart->margins() != margins)
        m_chart->setMargins(margins);
}

void VornGraph::setHorizontalTimeLabels(bool horizontal)
{
    m_horizontalTimeLabels = horizontal;
    updateXAxisLabels();
}

void VornGraph::updateYAxisForWaveform(int waveformIndex, double divisionSize)
{
    if (waveformIndex < 0 || waveformIndex >= m_yAxes.size())
        return;
    const double offset = waveformIndex < m_offsets.size() ? m_offsets[waveformIndex] : 0.0;
    // An axis change makes the chart stroke the outline of every series on it; an empty one
    // costs nothing.
    QLineSeries *series = m_series.value(waveformIndex);
    const QList<QPointF> points = series ? series->points() : QList<QPointF>();
    if (series)
        series->replace(QList<QPointF>());
    setEnvelopePointsAside(waveformIndex);
    applyDivisionGrid(m_yAxes[waveformIndex], -offset, divisionSize * Y_DIVISIONS * 0.5, divisionSize);
    if (series)
        series->replace(points);
    restoreEnvelopePoints();
    if (m_settingScales)
        return;
    updateCenterLines();
    updateRangeDisplay();
    if (waveformIndex == selectedWaveformIndex())
        updateYAxisLabels();
    followPlotChanges();
}

void VornGraph::updateYAxisLabels()
{
    const int i = selectedWaveformIndex();
    if (i < 0 || m_yAxes.isEmpty() || i >= m_yAxes.size())
        return;
    m_axisYLabels->setLabelsColor(getWaveformColor(i));
    const QValueAxis *axis = m_yAxes[i];
    if (!m_stacked) {
        fillLabels(m_axisYLabels, axis->min(), axis->max(), -m_offsets[i], m_divisionSizes[i],
                   m_waveforms.at(i).unit);
        followLabelRoom();
        return;
    }
    // Stacked, the left edge reads the selected waveform beside its own band only: anywhere else
    // its values would stand beside another waveform's trace.
    const double size = m_divisionSizes[i], centre = -m_offsets[i];
    double from = INFINITY, to = -INFINITY;
    bool logic = false;
    for (const Band &band : qAsConst(m_bands)) {
        if (band.waveform == i) {
            from = centre + (band.top - band.height) * size;
            to = centre + band.top * size;
            logic = band.logic;
        }
    }
    const QString &unit = m_waveforms.at(i).unit;
    fillLabels(m_axisYLabels, axis->min(), axis->max(), centre, size, unit, from, to, logic || unit.isEmpty());
    followLabelRoom();
}
