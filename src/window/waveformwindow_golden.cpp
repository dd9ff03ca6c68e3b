#include "waveformwindow.h"

#include "vorngraph.h"
#include "waveform_sigrok.h"

#include <map>

namespace {

bool readCurve(const QByteArray &path, int32_t index, const SigrokWaveformInfo &info, WaveformData &curve)
{
    curve.name = QString::fromUtf8(info.name);
    curve.unit = QString::fromUtf8(info.unit);
    curve.sampleInterval = info.sampleInterval;
    curve.startTime = info.startTime;
    std::vector<double> &samples = curve.samples.writable();
    return allocateSamples(samples, info.sampleCount)
        && sigrok_read_waveform_data_by_index(path.constData(), index, samples.data(), samples.size()) == 0;
}

// The envelopes a capture holds, by the name of their waveform; only the curves are read.
bool readEnvelopes(const QString &file, std::map<QString, EnvelopeData> &envelopes, QString &error)
{
    const QByteArray path = file.toUtf8();
    int32_t count = 0;
    bool ok = sigrok_read_waveform_count(path.constData(), &count) == 0;
    for (int32_t i = 0; ok && i < count; ++i) {
        SigrokWaveformInfo info;
        ok = sigrok_read_waveform_info_by_index(path.constData(), i, &info) == 0;
        const QString name = ok ? QString::fromUtf8(info.name) : QString();
        for (const bool upper : {true, false}) {
            const QString suffix = upper ? QStringLiteral(" [upper]") : QStringLiteral(" [lower]");
            if (ok && name.endsWith(suffix)) {
                EnvelopeData &e = envelopes[name.chopped(suffix.size())];
                ok = readCurve(path, i, info, upper ? e.upper : e.lower);
            }
        }
    }
    if (!ok)
        error = QString::fromUtf8(sigrok_get_last_error());
    for (auto &[name, envelope] : envelopes)
        loadEnvelopeReference(file, name, envelope);
    return ok;
}

} // namespace

QStringList WaveformWindow::checkAgainst(const QString &goldenPath, const AlignmentOptions &options, QString *error)
{
    std::map<QString, EnvelopeData> golden;
    QString reason;
    QStringList lines;
    if (readEnvelopes(goldenPath, golden, reason)) {
        for (int i = 0; i < m_graph->waveformCount(); ++i) {
            const auto it = golden.find(m_graph->waveformName(i));
            if (it == golden.end() || it->second.isEmpty())
                continue;
            const EnvelopeCheckResult r = checkAligned(m_graph->waveformData(i), it->second, options);
            m_graph->setWaveformShift(i, r.shift);
            m_graph->setEnvelope(i, it->second);
            lines << (r.failure.isEmpty()
                          ? tr("%1: shift %2").arg(it->first, ValueFormatter::formatWithUnit(r.shift, QStringLiteral("s")))
                          : tr("%1: %2").arg(it->first, r.failure));
        }
        if (lines.isEmpty())
            reason = tr("no waveform has an envelope of its name in %1").arg(goldenPath);
    }
    updateModification();
    if (error)
        *error = lines.isEmpty() ? reason : QString();
    return lines;
}
