// Saves an envelope into arbitrary bytes taken for a capture, then checks what the writer
// promises: a save that succeeds is read back under the offered name, one that fails leaves
// the file as it was; and what the check promises: the waveform pairs with exactly the limits
// saved for it, and limits that forbid every sample it can hold never pass it.

#include "srarchive.h"
#include "srcurvewriter.h"
#include "srnames.h"
#include "vornmask.h"

#include <QStringList>

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

std::string readAll(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// A private folder in memory, removed with everything in it when the fuzzer exits.
struct Folder
{
    std::string path;
    Folder()
    {
        char templ[] = "/dev/shm/vorn-fuzz-writer-XXXXXX";
        path = mkdtemp(templ) ? templ : "";
    }
    ~Folder()
    {
        if (DIR *dir = opendir(path.c_str())) {
            while (const dirent *entry = readdir(dir))
                unlinkat(dirfd(dir), entry->d_name, 0);
            closedir(dir);
        }
        rmdir(path.c_str());
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static Folder folder;
    const std::string path = folder.path + "/capture.sr";
    std::FILE *file = std::fopen(path.c_str(), "wb");
    if (!file)
        return 0;
    std::fwrite(data, 1, size, file);
    std::fclose(file);

    std::string error;
    auto archive = vornsr::SrArchive::open(path, error);
    if (!archive || archive->channels().empty())
        return 0;
    const std::string name = vornsr::offeredNames(archive->channels()).front();
    const vornsr::Channel channel = archive->channels().front();
    archive.reset();
    // Limits below anything a float32 or logic sample can hold: a capture must never pass them.
    const double span = channel.sampleCount > 1 ? static_cast<double>(channel.sampleCount - 1) * channel.sampleInterval : 0.0;
    const double upperSamples[] = {-1e300, -1e300}, lowerSamples[] = {-2e300, -2e300};
    const vornsr::CurveData upper{name + " [upper]", "V", span > 0.0 ? span : 1e-3, channel.startTime, upperSamples, 2};
    const vornsr::CurveData lower{name + " [lower]", "V", upper.sampleInterval, channel.startTime, lowerSamples, 2};
    const std::string before = readAll(path);
    if (!vornsr::replaceCurves(path, {upper.name, lower.name}, {upper, lower}, error)) {
        if (readAll(path) != before)
            std::abort(); // a failed save changed the file
        return 0;
    }
    archive = vornsr::SrArchive::open(path, error);
    if (!archive)
        std::abort(); // a successful save left a file the reader refuses
    const std::vector<std::string> names = vornsr::offeredNames(archive->channels());
    QStringList offered;
    for (const std::string &n : names)
        offered << QString::fromStdString(n);
    const auto read = [&](int index, const double *expected) {
        double back[2] = {};
        return index >= 0 && archive->channels()[static_cast<size_t>(index)].sampleCount == 2
               && archive->readSamples(static_cast<size_t>(index), back, 2, error)
               && std::memcmp(back, expected, sizeof back) == 0;
    };
    const int savedUpper = static_cast<int>(std::find(names.begin(), names.end(), upper.name) - names.begin());
    if (savedUpper == static_cast<int>(names.size()) || !read(savedUpper, upperSamples))
        std::abort(); // the saved curve is not offered under its name
    if (channel.kind == vornsr::Channel::Curve || !(span > 0.0) || !channel.damage.empty())
        return 0;
    // The waveform pairs with exactly the limits saved for it, and they fail it.
    for (const EnvelopePairing &pair : pairEnvelopeCurves(offered)) {
        if (offered[pair.waveform] != QString::fromStdString(name))
            continue;
        if (!read(pair.upper, upperSamples) || !read(pair.lower, lowerSamples))
            std::abort(); // other curves pose as its limits
        WaveformData waveform;
        waveform.sampleInterval = channel.sampleInterval;
        waveform.startTime = channel.startTime;
        std::vector<double> &x = waveform.samples.writable();
        x.resize(channel.sampleCount);
        if (!archive->readSamples(static_cast<size_t>(pair.waveform), x.data(), x.size(), error))
            return 0;
        EnvelopeData limits;
        for (auto [curve, values] : {std::make_pair(&limits.upper, upperSamples), std::make_pair(&limits.lower, lowerSamples)}) {
            curve->sampleInterval = upper.sampleInterval;
            curve->startTime = upper.startTime;
            curve->samples.writable().assign(values, values + 2);
        }
        const EnvelopeCheckResult result = checkEnvelope(waveform, limits);
        if (envelopeDefect(limits, waveform).isEmpty() && result.checked > 0 && result.passed())
            std::abort(); // a capture passed limits that forbid every sample it can hold
        return 0;
    }
    std::abort(); // the waveform saved for is not offered as one
}
