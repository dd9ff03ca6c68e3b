#include "vornwaveform.h"

SampleArray::SampleArray()
    : m_data(std::make_shared<std::vector<double>>())
{
}

std::vector<double> &SampleArray::writable()
{
    if (m_data.use_count() > 1)
        m_data = std::make_shared<std::vector<double>>(*m_data);
    return *m_data;
}

bool EnvelopeData::isEmpty() const
{
    return upper.samples->empty() || lower.samples->empty();
}

void EnvelopeEditData::clear()
{
    waveformIndex = -1;
    startTime = endTime = sampleInterval = 0.0;
    points.clear();
}
