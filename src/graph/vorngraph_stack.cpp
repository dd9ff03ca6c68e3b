#include "vorngraph.h"

#include "minmaxpyramid.h"

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
    setScales(shown, stackedScales(extents, Y_DIVISIONS));
}

// Every waveform over the whole height again, fitted as when it was first shown.
void VornGraph::applyOverlaidLayout()
{
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
