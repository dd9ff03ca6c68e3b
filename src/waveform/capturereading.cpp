// A whole capture read in one go, for hosts that read off the GUI thread and may stop halfway.

#include "vornwaveform.h"
#include "waveform_sigrok.h"

#include <QFile>

#include <sys/stat.h>

#include <algorithm>

namespace {

struct Told
{
    const std::function<bool(uint64_t, uint64_t)> *progress;
    uint64_t before; // samples of the waveforms read already
    uint64_t total;
};

int tell(void *context, uint64_t done, uint64_t)
{
    const auto *told = static_cast<const Told *>(context);
    return (*told->progress)(told->before + done, told->total) ? 0 : SIGROK_READ_CANCELLED;
}

CaptureContents failed(CaptureContents contents, int index, const QString &reason)
{
    contents.waveforms.clear();
    contents.failedWaveform = index;
    contents.error = reason;
    return contents;
}

} // namespace

// The change time is one no program can set: a file changed in place or replaced by another one
// has a different identity.
QByteArray captureFileIdentity(const QString &path)
{
    struct stat st;
    if (::stat(QFile::encodeName(path).constData(), &st) != 0)
        return QByteArray();
    const long long fields[] = {static_cast<long long>(st.st_dev), static_cast<long long>(st.st_ino),
                                static_cast<long long>(st.st_size), static_cast<long long>(st.st_mtim.tv_sec),
                                static_cast<long long>(st.st_mtim.tv_nsec), static_cast<long long>(st.st_ctim.tv_sec),
                                static_cast<long long>(st.st_ctim.tv_nsec)};
    return QByteArray(reinterpret_cast<const char *>(fields), sizeof fields);
}

CaptureContents readCapture(const QString &path, const std::function<bool(uint64_t, uint64_t)> &progress)
{
    CaptureContents contents;
    contents.path = path;
    // Taken before reading, so that a change while reading counts as one.
    contents.identity = captureFileIdentity(path);
    const QByteArray file = path.toUtf8();
    int32_t count = 0;
    if (sigrok_read_waveform_count(file.constData(), &count) != 0)
        return failed(contents, -1, QString::fromUtf8(sigrok_get_last_error()));
    contents.waveformCount = count;
    std::vector<SigrokWaveformInfo> infos(static_cast<size_t>(std::max(count, 0)));
    uint64_t total = 0;
    for (int32_t i = 0; i < count; ++i) {
        if (sigrok_read_waveform_info_by_index(file.constData(), i, &infos[size_t(i)]) != 0)
            return failed(contents, i, QString::fromUtf8(sigrok_get_last_error()));
        total += infos[size_t(i)].sampleCount;
    }
    const auto cancel = [&] {
        contents.waveforms.clear();
        contents.cancelled = true;
        return contents;
    };
    Told told{&progress, 0, total};
    for (int32_t i = 0; i < count; ++i) {
        const SigrokWaveformInfo &info = infos[size_t(i)];
        if (progress && !progress(told.before, total))
            return cancel();
        WaveformData w;
        w.name = QString::fromUtf8(info.name);
        w.unit = QString::fromUtf8(info.unit);
        w.sampleInterval = info.sampleInterval;
        w.startTime = info.startTime;
        std::vector<double> &samples = w.samples.writable();
        if (!allocateSamples(samples, info.sampleCount))
            return failed(contents, i, QStringLiteral("%1: %2").arg(w.name, sampleMemoryShortfall(info.sampleCount)));
        const int status = sigrok_read_waveform_data_by_index_progress(file.constData(), i, samples.data(), samples.size(),
                                                                       progress ? tell : nullptr, &told);
        if (status == SIGROK_READ_CANCELLED)
            return cancel();
        if (status != 0)
            return failed(contents, i, QString::fromUtf8(sigrok_get_last_error()));
        told.before += info.sampleCount;
        contents.waveforms.append(w);
    }
    // Asked once more at the end, so that a stop that came after the last chunk still counts.
    if (progress && !progress(total, total))
        return cancel();
    return contents;
}
