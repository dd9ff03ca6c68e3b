#include "waveformwindow.h"

#include "vorngraph.h"
#include "waveform_sigrok.h"

#include <QMessageBox>

namespace {
const QString UPPER_SUFFIX = QStringLiteral(" [upper]");
const QString LOWER_SUFFIX = QStringLiteral(" [lower]");
}

void WaveformWindow::loadWaveforms(const QString &filePath)
{
    int32_t count = 0;
    if (sigrok_read_waveform_count(filePath.toUtf8().constData(), &count) != 0) {
        showError(tr("Could not read from waveform file: %1").arg(QString::fromUtf8(sigrok_get_last_error())));
        return;
    }
    // Waveforms reach the graph only once all were read, so a failure leaves it empty.
    QVector<WaveformData> waveforms;
    for (int32_t i = 0; i < count; ++i) {
        SigrokWaveformInfo info;
        if (sigrok_read_waveform_info_by_index(filePath.toUtf8().constData(), i, &info) != 0) {
            const QString reason = QString::fromUtf8(sigrok_get_last_error());
            QMessageBox::critical(this, tr("Reading waveform file failed"),
                                  tr("Could not read info of waveform %1/%2: %3").arg(i + 1).arg(count).arg(reason),
                                  QMessageBox::Ok);
            return;
        }
        WaveformData w;
        w.name = QString::fromUtf8(info.name);
        w.unit = QString::fromUtf8(info.unit);
        w.sampleInterval = info.sampleInterval;
        w.startTime = info.startTime;
        std::vector<double> &samples = w.samples.writable();
        samples.resize(info.sampleCount);
        if (sigrok_read_waveform_data_by_index(filePath.toUtf8().constData(), i, samples.data(), info.sampleCount) != 0) {
            showError(tr("Could not read data of waveform %1/%2: %3")
                          .arg(i + 1)
                          .arg(count)
                          .arg(QString::fromUtf8(sigrok_get_last_error())));
            return;
        }
        waveforms.append(w);
    }
    processWaveformsAndEnvelopes(waveforms);
    storeOriginalEnvelopes();
}

void WaveformWindow::processWaveformsAndEnvelopes(QVector<WaveformData> &waveforms)
{
    for (const WaveformData &w : qAsConst(waveforms)) {
        if (w.name.endsWith(UPPER_SUFFIX) || w.name.endsWith(LOWER_SUFFIX))
            continue;
        const int graphIndex = m_graph->addWaveform(w);
        const QString upperName = w.name + UPPER_SUFFIX;
        const QString lowerName = w.name + LOWER_SUFFIX;
        const WaveformData *upper = nullptr;
        const WaveformData *lower = nullptr;
        for (const WaveformData &candidate : qAsConst(waveforms)) {
            if (candidate.name == upperName)
                upper = &candidate;
            if (candidate.name == lowerName)
                lower = &candidate;
        }
        if (upper && lower) {
            EnvelopeData envelope;
            envelope.upper = *upper;
            envelope.lower = *lower;
            m_graph->setEnvelope(graphIndex, envelope);
        }
    }
}
