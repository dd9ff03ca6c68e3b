#include "waveformwindow.h"

#include "vorngraph.h"
#include "waveform_sigrok.h"

#include <algorithm>
#include <map>
#include <vector>

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

// The envelopes a capture holds, by the name of their waveform, paired as loading pairs them;
// only the curves are read. A curve the reader could not read fails the whole reference, so that
// no waveform goes unjudged for want of its limits.
bool readEnvelopes(const QString &file, std::map<QString, EnvelopeData> &envelopes, QString &error)
{
    const QByteArray path = file.toUtf8();
    const char *unreadable = sigrok_read_unreadable_curves(path.constData());
    if (unreadable && *unreadable) {
        error = QString::fromUtf8(unreadable).section(QLatin1Char('\n'), 0, 0);
        return false;
    }
    int32_t count = 0;
    bool ok = unreadable && sigrok_read_waveform_count(path.constData(), &count) == 0;
    std::vector<SigrokWaveformInfo> infos(static_cast<size_t>(std::max(count, 0)));
    QStringList names;
    for (int32_t i = 0; ok && i < count; ++i) {
        ok = sigrok_read_waveform_info_by_index(path.constData(), i, &infos[static_cast<size_t>(i)]) == 0;
        names << QString::fromUtf8(infos[static_cast<size_t>(i)].name);
    }
    const QVector<EnvelopePairing> pairs = ok ? pairEnvelopeCurves(names) : QVector<EnvelopePairing>();
    for (const EnvelopePairing &pair : pairs) {
        if (!ok || pair.upper < 0)
            continue;
        EnvelopeData &e = envelopes[names[pair.waveform]];
        ok = readCurve(path, pair.upper, infos[static_cast<size_t>(pair.upper)], e.upper)
             && readCurve(path, pair.lower, infos[static_cast<size_t>(pair.lower)], e.lower);
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
            const QString defect = envelopeDefect(it->second, m_graph->waveformData(i));
            if (!defect.isEmpty()) {
                lines << tr("%1: %2").arg(it->first, defect);
                continue;
            }
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
