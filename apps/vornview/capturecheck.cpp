#include "capturecheck.h"

#include "vornwaveform.h"
#include "waveform_sigrok.h"

#include <QCoreApplication>
#include <QFileInfo>

QString captureOpenProblem(const QString &path)
{
    const QString file = QFileInfo(path).fileName();
    const QByteArray utf8 = path.toUtf8();
    int32_t count = 0;
    if (sigrok_read_waveform_count(utf8.constData(), &count) != 0)
        return QCoreApplication::translate("ViewerWindow", "Could not read %1: %2")
            .arg(file, QString::fromUtf8(sigrok_get_last_error()));
    // The window holds every waveform at once: their sum must fit, not just each one.
    uint64_t total = 0;
    QString largest;
    uint64_t largestCount = 0;
    for (int32_t i = 0; i < count; ++i) {
        SigrokWaveformInfo info;
        if (sigrok_read_waveform_info_by_index(utf8.constData(), i, &info) != 0)
            return QString(); // the window says which one and why
        total = info.sampleCount > UINT64_MAX - total ? UINT64_MAX : total + info.sampleCount;
        if (info.sampleCount >= largestCount) {
            largestCount = info.sampleCount;
            largest = QString::fromUtf8(info.name);
        }
    }
    if (total > availableMemory() / sizeof(double))
        return QCoreApplication::translate("ViewerWindow", "Could not read %1: %2 holds the most samples; all waveforms together: %3")
            .arg(file, largest, sampleMemoryShortfall(total));
    return QString();
}

QString unreadableCurvesOf(const QString &path)
{
    const char *text = sigrok_read_unreadable_curves(path.toUtf8().constData());
    return text ? QString::fromUtf8(text).trimmed() : QString();
}
