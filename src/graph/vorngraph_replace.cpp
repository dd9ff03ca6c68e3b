#include "minmaxpyramid.h"
#include "traceitem.h"
#include "vorngraph.h"

#include <QLineSeries>
#include <QValueAxis>

#include <cmath>

// Live hosts hand in a new acquisition many times a second: only this waveform's index, its one
// reduction and its check are redone; series, axes and tree stay as they are.
bool VornGraph::replaceWaveformSamples(int index, const WaveformData &waveform)
{
    if (index < 0 || index >= m_waveforms.size() || index >= m_series.size() || !m_axisX
        || waveform.name != m_waveforms.at(index).name || !(waveform.sampleInterval >= 1e-12)
        || !std::isfinite(waveform.startTime) || isEnvelopeEditing())
        return false;
    WaveformData &w = m_waveforms[index];
    w = waveform;
    // The waveform keeps the shift it was drawn with.
    w.startTime -= waveformShift(index);
    std::shared_ptr<const MinMaxPyramid> &pyramid = m_pyramids[static_cast<size_t>(index)];
    if (w.samples->size() <= static_cast<size_t>(4 * MAX_DISPLAY_POINTS))
        pyramid.reset();
    else
        pyramid = std::make_shared<const MinMaxPyramid>(*w.samples, false);
    calculateGlobalXRange();
    m_series[index]->replace(viewportPoints(w, m_axisX->min(), m_axisX->max()));
    m_traces->update();
    checkEnvelopeOf(index);
    updateReadouts();
    return true;
}
