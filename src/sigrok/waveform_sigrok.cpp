#include "waveform_sigrok.h"

#include "srarchive.h"
#include "srnames.h"
#include "srreadercache.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <string>

using vornsr::Channel;
using vornsr::SrArchive;

namespace {

thread_local std::string lastError;

int fail(const std::string &reason)
{
    lastError = reason;
    return -1;
}

// Copies text into a fixed field without cutting a UTF-8 sequence in half.
void copyUtf8(char *field, size_t fieldSize, const std::string &text)
{
    size_t n = std::min(text.size(), fieldSize - 1);
    if (n < text.size()) {
        while (n > 0 && (static_cast<unsigned char>(text[n]) & 0xC0) == 0x80)
            --n;
    }
    std::memcpy(field, text.data(), n);
    std::memset(field + n, 0, fieldSize - n);
}

// The offered name of one channel; the names of the archive last asked about are kept, so that
// k info calls cost one naming pass.
std::string offeredName(const std::shared_ptr<const SrArchive> &archive, size_t index)
{
    static std::mutex mutex;
    static std::weak_ptr<const SrArchive> named;
    static std::vector<std::string> names;
    std::lock_guard<std::mutex> lock(mutex);
    if (named.lock() != archive) {
        names = vornsr::offeredNames(archive->channels());
        named = archive;
    }
    return names[index];
}

} // namespace

extern "C" {

int sigrok_read_waveform_count(const char *path, int32_t *count)
{
    if (!path || !count)
        return fail("invalid argument");
    std::string error;
    const auto archive = vornsr::cachedArchive(path, error);
    if (!archive)
        return fail(error);
    if (archive->channels().size() > INT32_MAX)
        return fail("too many waveforms");
    *count = static_cast<int32_t>(archive->channels().size());
    return 0;
}

int sigrok_read_waveform_info_by_index(const char *path, int32_t index, SigrokWaveformInfo *info)
{
    if (!path || !info)
        return fail("invalid argument");
    std::string error;
    const auto archive = vornsr::cachedArchive(path, error);
    if (!archive)
        return fail(error);
    if (index < 0 || static_cast<size_t>(index) >= archive->channels().size())
        return fail("no waveform " + std::to_string(index));
    const Channel &channel = archive->channels()[static_cast<size_t>(index)];
    info->sampleCount = channel.sampleCount;
    info->sampleInterval = channel.sampleInterval;
    info->startTime = channel.startTime;
    copyUtf8(info->name, sizeof info->name, offeredName(archive, static_cast<size_t>(index)));
    copyUtf8(info->unit, sizeof info->unit, channel.unit);
    return 0;
}

int sigrok_read_waveform_data_by_index(const char *path, int32_t index, double *samples,
                                       uint64_t sampleCount)
{
    return sigrok_read_waveform_data_by_index_progress(path, index, samples, sampleCount, nullptr, nullptr);
}

int sigrok_read_waveform_data_by_index_progress(const char *path, int32_t index, double *samples,
                                                uint64_t sampleCount, SigrokReadProgress progress,
                                                void *context)
{
    if (!path)
        return fail("invalid argument");
    std::string error;
    const auto archive = vornsr::cachedArchive(path, error);
    if (!archive)
        return fail(error);
    if (index < 0)
        return fail("no waveform " + std::to_string(index));
    vornsr::ReadProgress told;
    if (progress)
        told.report = [&](uint64_t done, uint64_t total) { return progress(context, done, total) == 0; };
    if (!archive->readSamples(static_cast<size_t>(index), samples, sampleCount, error, progress ? &told : nullptr)) {
        fail(error);
        return told.cancelled ? SIGROK_READ_CANCELLED : -1;
    }
    return 0;
}

const char *sigrok_read_unreadable_curves(const char *path)
{
    static thread_local std::string text;
    if (!path) {
        fail("invalid argument");
        return nullptr;
    }
    std::string error;
    const auto archive = vornsr::cachedArchive(path, error);
    if (!archive) {
        fail(error);
        return nullptr;
    }
    text.clear();
    for (const std::string &line : archive->unreadableCurves())
        text += line + "\n";
    return text.c_str();
}

const char *sigrok_get_last_error(void)
{
    return lastError.c_str();
}

} // extern "C"
