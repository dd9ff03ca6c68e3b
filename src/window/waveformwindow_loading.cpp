#include "waveformwindow.h"

#include "vorngraph.h"
#include "waveform_sigrok.h"

#include <QEventLoop>
#include <QMessageBox>
#include <QProgressDialog>

#include <cstdio>
#include <memory>
#include <new>
#include <system_error>
#include <thread>

namespace {

// Shorter reads are over before a progress dialog could be seen.
constexpr uint64_t BACKGROUND_SAMPLES = 4'000'000;


// Reads the samples of waveform index. A long read runs on a worker thread while the progress
// dialog is kept painted; the reader's error text belongs to the thread that failed, so it is
// taken there.
bool readSamples(const QByteArray &path, int32_t index, std::vector<double> &samples, QString &error,
                 bool inBackground)
{
    const auto read = [&] {
        const bool ok = sigrok_read_waveform_data_by_index(path.constData(), index, samples.data(), samples.size()) == 0;
        if (!ok)
            error = QString::fromUtf8(sigrok_get_last_error());
        return ok;
    };
    if (!inBackground)
        return read();
    bool ok = false;
    QEventLoop loop;
    // The worker ends the loop as soon as it is done; a quit posted before the loop runs waits
    // for it.
    std::thread worker;
    try {
        worker = std::thread([&] {
            ok = read();
            QMetaObject::invokeMethod(&loop, &QEventLoop::quit, Qt::QueuedConnection);
        });
    } catch (const std::system_error &) {
        return read(); // no thread to be had: read here, with the dialog still
    }
    loop.exec(QEventLoop::ExcludeUserInputEvents);
    worker.join();
    return ok;
}

} // namespace

void WaveformWindow::loadWaveforms(const QString &filePath)
{
    // Taken before reading, so that a change while reading counts as one.
    m_fileIdentity = captureIdentity(filePath);
    int32_t count = 0;
    if (sigrok_read_waveform_count(filePath.toUtf8().constData(), &count) != 0) {
        showError(tr("Could not read from waveform file: %1").arg(QString::fromUtf8(sigrok_get_last_error())));
        return;
    }
    // Waveforms reach the graph only once all were read, so a failure leaves it empty.
    QVector<WaveformData> waveforms;
    std::unique_ptr<QProgressDialog> progress;
    for (int32_t i = 0; i < count; ++i) {
        SigrokWaveformInfo info;
        if (sigrok_read_waveform_info_by_index(filePath.toUtf8().constData(), i, &info) != 0) {
            const QString reason = QString::fromUtf8(sigrok_get_last_error());
            progress.reset();
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
        if (!allocateSamples(samples, info.sampleCount)) {
            progress.reset();
            const QString reason = tr("%1: %2").arg(w.name, sampleMemoryShortfall(info.sampleCount));
            showError(tr("Could not read data of waveform %1/%2: %3").arg(i + 1).arg(count).arg(reason));
            return;
        }
        const bool longRead = info.sampleCount >= BACKGROUND_SAMPLES;
        if (longRead && !progress) {
            // No steps inside one read to count: a busy bar shows that work goes on.
            progress = std::make_unique<QProgressDialog>(QString(), QString(), 0, 0, this);
            progress->setWindowModality(Qt::ApplicationModal);
            progress->show(); // the read is known to take long: no need to wait for an estimate
        }
        if (progress) {
            progress->setLabelText(tr("Reading %1 (%2 of %3)").arg(w.name).arg(i + 1).arg(count));
            progress->setValue(0);
        }
        QString error;
        if (!readSamples(filePath.toUtf8(), i, samples, error, longRead)) {
            progress.reset();
            showError(tr("Could not read data of waveform %1/%2: %3").arg(i + 1).arg(count).arg(error));
            return;
        }
        waveforms.append(w);
    }
    processWaveformsAndEnvelopes(waveforms);
    storeOriginalEnvelopes();
}

void WaveformWindow::processWaveformsAndEnvelopes(QVector<WaveformData> &waveforms)
{
    QStringList names;
    names.reserve(waveforms.size());
    for (const WaveformData &w : qAsConst(waveforms))
        names << w.name;
    for (const EnvelopePairing &pair : pairEnvelopeCurves(names)) {
        const int graphIndex = m_graph->addWaveform(waveforms.at(pair.waveform));
        if (pair.upper >= 0) {
            EnvelopeData envelope;
            envelope.upper = waveforms.at(pair.upper);
            envelope.lower = waveforms.at(pair.lower);
            // Kept with the envelope so that saving it again does not drop it.
            loadEnvelopeReference(m_filePath, waveforms.at(pair.waveform).name, envelope);
            m_graph->setEnvelope(graphIndex, envelope);
        }
    }
}
