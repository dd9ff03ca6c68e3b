#include "vornwaveform.h"

#include "srarchive.h"
#include "srcurvewriter.h"
#include "srreadercache.h"

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

// The envelope's curves, and its reference where it has one: a stored reference that the new
// envelope lacks goes with the old envelope, so that it never describes limits it was not made for.
bool replace(const QString &path, const QString &waveformName, const std::vector<vornsr::CurveData> &curves,
             const std::vector<vornsr::CurveData> &references = {})
{
    std::string error;
    vornsr::CurveChange change;
    change.removeCurves = {utf8(waveformName + UPPER), utf8(waveformName + LOWER)};
    change.removeReferences = {utf8(waveformName)};
    change.curves = curves;
    change.references = references;
    if (vornsr::replaceCurves(utf8(path), change, error))
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
    std::vector<vornsr::CurveData> references;
    const WaveformData &reference = envelope.reference;
    if (!reference.samples->empty() && reference.sampleInterval > 0.0 && std::isfinite(reference.sampleInterval)
        && envelope.sourceInterval > 0.0 && std::isfinite(envelope.sourceInterval)) {
        references.push_back(curveOf(reference, waveformName));
        references.back().sourceInterval = envelope.sourceInterval;
    }
    return replace(path, waveformName,
                   {curveOf(envelope.upper, waveformName + UPPER), curveOf(envelope.lower, waveformName + LOWER)},
                   references);
}

bool loadEnvelopeReference(const QString &path, const QString &waveformName, EnvelopeData &envelope)
{
    std::string error;
    const std::shared_ptr<const vornsr::SrArchive> archive = vornsr::cachedArchive(utf8(path), error);
    if (!archive)
        return false;
    const std::vector<vornsr::Channel> &references = archive->references();
    for (size_t i = 0; i < references.size(); ++i) {
        const vornsr::Channel &r = references[i];
        if (r.name != utf8(waveformName) || !r.damage.empty() || r.sampleCount < 2 || !(r.sampleInterval > 0.0))
            continue;
        WaveformData reference;
        reference.name = waveformName;
        reference.unit = QString::fromStdString(r.unit);
        reference.sampleInterval = r.sampleInterval;
        reference.startTime = r.startTime;
        std::vector<double> &samples = reference.samples.writable();
        if (!allocateSamples(samples, r.sampleCount) || !archive->readReference(i, samples.data(), error))
            return false;
        envelope.reference = reference;
        envelope.sourceInterval = r.sourceInterval;
        return true;
    }
    return false;
}

bool removeEnvelope(const QString &path, const QString &waveformName)
{
    return replace(path, waveformName, {});
}

QString lastEnvelopeFileError()
{
    return lastError;
}
