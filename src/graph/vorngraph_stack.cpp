#include "vorngraph.h"

#include "bandlabelitem.h"
#include "minmaxpyramid.h"

#include <QChart>
#include <QLineSeries>

#include <cmath>

void VornGraph::setStacked(bool stacked)
{
    m_stacked = stacked;
    if (stacked)
        applyStackedLayout();
    else
        applyOverlaidLayout();
    emit stackedChanged(stacked);
}

void VornGraph::applyStackedLayout()
{
    QVector<int> shown;
    QVector<WaveformExtent> extents;
    for (int i = 0; i < m_series.size() && i < m_waveforms.size(); ++i) {
        if (m_series[i]->isVisible()) {
            shown << i;
            extents << extentOf(i);
        }
    }
    const QVector<WaveformScale> scales = stackedScales(extents, Y_DIVISIONS);
    m_bands.clear();
    for (int k = 0; k < shown.size(); ++k)
        m_bands.append(Band{shown[k], scales[k].bandTop, scales[k].bandHeight, extents[k].logic});
    setScales(shown, scales);
    updateBandLabels();
}

// Every waveform over the whole height again, fitted as when it was first shown.
void VornGraph::applyOverlaidLayout()
{
    m_bands.clear();
    updateBandLabels();
    QVector<int> all;
    QVector<WaveformScale> scales;
    for (int i = 0; i < m_series.size() && i < m_waveforms.size(); ++i) {
        const WaveformExtent extent = extentOf(i);
        const bool known = extent.max >= extent.min;
        const double middle = known ? (extent.min + extent.max) * 0.5 : 0.0;
        const double size = known ? calculateDivisionSizeY(extent.min, extent.max) : 0.0;
        all << i;
        if (size > 0.0)
            scales.append({size, std::round(-middle / size) * size});
        else
            scales.append({middle != 0.0 ? Scale125::nextUp(std::fabs(middle) / Y_DIVISIONS) : 1.0, -middle});
    }
    setScales(all, scales);
}

// The shared lines, ranges and labels follow once, after the last scale: with a few hundred
// waveforms, following each one would rebuild every zero line a few hundred times.
void VornGraph::setScales(const QVector<int> &indices, const QVector<WaveformScale> &scales)
{
    m_settingScales = true;
    for (int k = 0; k < indices.size() && k < scales.size(); ++k)
        setWaveformScale(indices[k], scales[k].divisionSize, scales[k].offset);
    m_settingScales = false;
    if (indices.isEmpty())
        return;
    updateCenterLines();
    updateRangeDisplay();
    updateYAxisLabels();
    followPlotChanges();
}

// Logic probes are the unitless waveforms that only hold 0 and 1. The extent comes from the summary
// the min/max index gathered while it was built, so a long capture is not read again.
WaveformExtent VornGraph::extentOf(int index) const
{
    const WaveformData &w = m_waveforms.at(index);
    const SampleSummary summary = summaryOf(w);
    WaveformExtent extent{summary.finiteMin, summary.finiteMax, false};
    extent.logic = w.unit.isEmpty() && extent.min >= 0.0 && extent.max <= 1.0;
    return extent;
}

// Each band reads on its own: its waveform's values at its edges and its units per division,
// which follow every change of the waveform's scale.
void VornGraph::updateBandLabels()
{
    const QRectF plot = m_chart->plotArea();
    QVector<BandLabelItem::Band> labels;
    const double pixelsPerDivision = plot.height() / Y_DIVISIONS;
    const int selected = selectedWaveformIndex();
    for (const Band &band : qAsConst(m_bands)) {
        const int i = band.waveform;
        if (!m_stacked || i >= m_divisionSizes.size() || i >= m_waveforms.size())
            continue;
        BandLabelItem::Band label;
        label.name = m_waveforms.at(i).name;
        label.colour = getWaveformColor(i);
        label.top = plot.top() + (Y_DIVISIONS * 0.5 - band.top) * pixelsPerDivision;
        label.bottom = label.top + band.height * pixelsPerDivision;
        label.selected = i == selected;
        if (!band.logic) {
            const QString &unit = m_waveforms.at(i).unit;
            const double size = m_divisionSizes[i], centre = -m_offsets[i];
            label.scale = tr("%1/div").arg(ValueFormatter::formatWithUnit(size, unit));
            label.topValue = ValueFormatter::formatWithUnit(centre + band.top * size, unit);
            label.bottomValue = ValueFormatter::formatWithUnit(centre + (band.top - band.height) * size, unit);
        }
        labels.append(label);
    }
    m_bandLabels->setBands(labels, plot);
}
