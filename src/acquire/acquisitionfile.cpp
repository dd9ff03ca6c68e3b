#include "srcapturewriter.h"
#include "vornacquire.h"

bool saveAcquisition(const std::string &path, const Acquisition &a,
                     const std::vector<std::pair<QString, EnvelopeData>> &envelopes, std::string *error)
{
    SrCapture capture;
    capture.samplerate = a.samplerate;
    for (size_t k = 0; k < a.analogCount && k < a.waveforms.size(); ++k) {
        capture.analogNames.push_back(a.waveforms[k].name.toStdString());
        const std::vector<double> &samples = *a.waveforms[k].samples;
        capture.analog.emplace_back(samples.begin(), samples.end()); // floats from the device: exact
    }
    const size_t probes = a.waveforms.size() - std::min(a.analogCount, a.waveforms.size());
    capture.unitsize = unsigned((probes + 7) / 8);
    size_t length = 0;
    for (size_t k = a.analogCount; k < a.waveforms.size(); ++k)
        length = std::max(length, a.waveforms[k].samples->size());
    capture.logic.assign(length * capture.unitsize, 0);
    for (size_t p = 0; p < probes; ++p) {
        const WaveformData &probe = a.waveforms[a.analogCount + p];
        capture.logicNames.push_back(probe.name.toStdString());
        const std::vector<double> &bits = *probe.samples;
        for (size_t i = 0; i < bits.size(); ++i) {
            if (bits[i] != 0.0)
                capture.logic[i * capture.unitsize + p / 8] |= uint8_t(1U << (p % 8));
        }
    }
    if (!writeSrCapture(path, capture, error))
        return false;
    for (const auto &[name, envelope] : envelopes) {
        if (!saveEnvelope(QString::fromStdString(path), name, envelope)) {
            if (error)
                *error = lastEnvelopeFileError().toStdString();
            return false;
        }
    }
    return true;
}
