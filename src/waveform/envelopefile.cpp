#include "vornwaveform.h"

#include "srcurvewriter.h"

#include <cmath>

namespace {

thread_local QString lastError;

const QString UPPER = QStringLiteral(" [upper]");
const QString LOWER = QStringLiteral(" [lower]");

std::string utf8(const QString &text)
{
    return text.toUtf8().toStdString();
}

vornsr::CurveData curveOf(const WaveformData &curve, const QString &name)
{
    vornsr::CurveData data;
    data.name = utf8(name);
    data.unit = utf8(curve.unit);
    data.sampleInterval = curve.sampleInterval;
    data.startTime = curve.startTime;
    data.samples = curve.samples->data();
    data.sampleCount = curve.samples->size();
    return data;
}

bool replace(const QString &path, const QString &waveformName, const std::vector<vornsr::CurveData> &curves)
{
    std::string error;
    const std::vector<std::string> names{utf8(waveformName + UPPER), utf8(waveformName + LOWER)};
    if (vornsr::replaceCurves(utf8(path), names, curves, error))
        return true;
    lastError = QString::fromStdString(error);
    return false;
}

} // namespace

bool saveEnvelope(const QString &path, const QString &waveformName, const EnvelopeData &envelope)
{
    if (envelope.isEmpty())
        return removeEnvelope(path, waveformName);
    // Such a curve spans no time or runs backwards: no sample would ever be checked against it.
    for (const WaveformData *curve : {&envelope.upper, &envelope.lower}) {
        if (!(curve->sampleInterval > 0.0) || !std::isfinite(curve->sampleInterval)) {
            lastError = QStringLiteral("the envelope of '%1' has a sample interval of %2 s; it must be positive")
                            .arg(waveformName)
                            .arg(curve->sampleInterval);
            return false;
        }
    }
    return replace(path, waveformName,
                   {curveOf(envelope.upper, waveformName + UPPER), curveOf(envelope.lower, waveformName + LOWER)});
}

bool removeEnvelope(const QString &path, const QString &waveformName)
{
    return replace(path, waveformName, {});
}

QString lastEnvelopeFileError()
{
    return lastError;
}
