#include "vorngraph.h"

#include <QChart>

#include <algorithm>
#include <cmath>

std::vector<ViolationRun> VornGraph::violationRuns(int index) const
{
    if (index < 0 || static_cast<size_t>(index) >= m_violationMasks.size() || !hasEnvelope(index))
        return {};
    return ::violationRuns(m_waveforms.at(index), m_envelopes.at(index), m_violationMasks[static_cast<size_t>(index)]);
}

void VornGraph::setWaveformShift(int index, double shift)
{
    if (index < 0 || index >= m_waveforms.size() || !std::isfinite(shift))
        return;
    m_shifts.resize(m_waveforms.size());
    m_waveforms[index].startTime += m_shifts[index] - shift;
    m_shifts[index] = shift;
    calculateGlobalXRange();
    updateSeriesForViewport();
    if (hasEnvelope(index))
        checkEnvelopeOf(index);
}

double VornGraph::waveformShift(int index) const
{
    return index >= 0 && index < m_shifts.size() ? m_shifts.at(index) : 0.0;
}

WaveformData VornGraph::waveformData(int index) const
{
    if (index < 0 || index >= m_waveforms.size())
        return WaveformData();
    return shiftedWaveform(m_waveforms.at(index), -waveformShift(index));
}

void VornGraph::showTimeSpan(double first, double last)
{
    if (!m_chart || !std::isfinite(first) || !std::isfinite(last))
        return;
    const double width = m_divisionPixels > 0.0 ? m_chart->plotArea().width() / m_divisionPixels : 0.0;
    const double divisions = width > 1.0 ? width : 10.0;
    const double span = 3 * std::max(std::fabs(last - first), 1e-12);
    setTimeBase(fittingDivisionSize(span, divisions), -(first + last) / 2);
}
