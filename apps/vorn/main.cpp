// vorn: lists, dumps and makes envelopes of the waveforms in a sigrok session file.

#include "vornwaveform.h"
#include "waveform_sigrok.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

namespace {

const char USAGE[] =
    "usage: vorn list FILE.sr\n"
    "       vorn dump FILE.sr NAME [--count N]\n"
    "       vorn envelope FILE.sr NAME [--points N]\n"
    "       vorn envelope FILE.sr NAME --remove\n";

constexpr int EXIT_USAGE = 1;
constexpr int EXIT_FAILED = 2;
constexpr int DEFAULT_POINTS = 20;
constexpr int DIVISIONS = 10;

struct UsageError {};
struct Failure { std::string reason; };

[[noreturn]] void failWithReaderError()
{
    throw Failure{sigrok_get_last_error()};
}

std::vector<SigrokWaveformInfo> readInfos(const std::string &path)
{
    int32_t count = 0;
    if (sigrok_read_waveform_count(path.c_str(), &count) != 0)
        failWithReaderError();
    std::vector<SigrokWaveformInfo> infos(static_cast<size_t>(std::max(count, 0)));
    for (int32_t i = 0; i < count; ++i) {
        if (sigrok_read_waveform_info_by_index(path.c_str(), i, &infos[static_cast<size_t>(i)]) != 0)
            failWithReaderError();
    }
    return infos;
}

int32_t findWaveform(const std::vector<SigrokWaveformInfo> &infos, const std::string &name)
{
    for (size_t i = 0; i < infos.size(); ++i) {
        if (name == infos[i].name)
            return static_cast<int32_t>(i);
    }
    throw Failure{"no waveform named '" + name + "'"};
}

uint64_t parseCount(const char *text, uint64_t min, uint64_t max)
{
    char *end = nullptr;
    const unsigned long long n = std::strtoull(text, &end, 10);
    if (!*text || *end || text[0] == '-' || n < min || n > max)
        throw UsageError{};
    return n;
}

// The shortest text that reads back as the same double: 1e-06, not 9.9999999999999995e-07.
std::string shortest(double value)
{
    char text[32];
    const auto result = std::to_chars(text, text + sizeof text, value);
    return std::string(text, result.ptr);
}

int list(const std::string &path)
{
    const auto infos = readInfos(path);
    std::printf("index\tname\tsamples\tinterval\tstart\tunit\n");
    for (size_t i = 0; i < infos.size(); ++i) {
        std::printf("%zu\t%s\t%llu\t%s\t%s\t%s\n", i, infos[i].name,
                    static_cast<unsigned long long>(infos[i].sampleCount), shortest(infos[i].sampleInterval).c_str(),
                    shortest(infos[i].startTime).c_str(), infos[i].unit);
    }
    return 0;
}

WaveformData loadWaveform(const std::string &path, const std::string &name, uint64_t limit)
{
    const auto infos = readInfos(path);
    const int32_t index = findWaveform(infos, name);
    const SigrokWaveformInfo &info = infos[static_cast<size_t>(index)];
    WaveformData waveform;
    waveform.name = QString::fromUtf8(info.name);
    waveform.unit = QString::fromUtf8(info.unit);
    waveform.sampleInterval = info.sampleInterval;
    waveform.startTime = info.startTime;
    const uint64_t count = std::min(limit, info.sampleCount);
    waveform.samples.writable().resize(count);
    if (sigrok_read_waveform_data_by_index(path.c_str(), index, waveform.samples.writable().data(), count) != 0)
        failWithReaderError();
    return waveform;
}

int dump(const std::string &path, const std::string &name, uint64_t count)
{
    const WaveformData waveform = loadWaveform(path, name, count);
    for (double v : *waveform.samples)
        std::printf("%s\n", shortest(v).c_str());
    return 0;
}

// The y range the graph first shows: ten 1-2-5 divisions around the rounded mid-range.
void initialRange(const std::vector<double> &samples, double &yMin, double &yMax)
{
    double lo = std::numeric_limits<double>::infinity(), hi = -lo;
    for (double v : samples) {
        if (!std::isnan(v)) {
            lo = std::min(lo, v);
            hi = std::max(hi, v);
        }
    }
    if (!(lo <= hi))
        lo = hi = 0.0;
    double division = Scale125::nextUp((hi - lo) / DIVISIONS);
    if (!(division > 0.0) || !std::isfinite(division))
        division = 1.0; // a flat trace still gets limits around it
    const double centre = std::round((hi + lo) / 2 / division) * division;
    yMin = centre - division * DIVISIONS / 2;
    yMax = centre + division * DIVISIONS / 2;
}

int makeEnvelope(const std::string &path, const std::string &name, int pointCount)
{
    const WaveformData waveform = loadWaveform(path, name, std::numeric_limits<uint64_t>::max());
    const std::vector<double> &samples = *waveform.samples;
    if (samples.size() < 2)
        throw Failure{"waveform '" + name + "' has fewer than two samples"};
    double yMin = 0.0, yMax = 0.0;
    initialRange(samples, yMin, yMax);
    const double start = waveform.startTime;
    const double end = static_cast<double>(samples.size() - 1) * waveform.sampleInterval + start;
    const QVector<EnvelopePoint> points = generateEnvelopePoints(waveform, start, end, pointCount, yMin, yMax);

    EnvelopeData envelope;
    for (WaveformData *curve : {&envelope.upper, &envelope.lower}) {
        curve->unit = waveform.unit;
        curve->startTime = start;
        curve->sampleInterval = (end - start) / (pointCount - 1);
    }
    envelope.upper.name = waveform.name + QStringLiteral(" [upper]");
    envelope.lower.name = waveform.name + QStringLiteral(" [lower]");
    for (const EnvelopePoint &p : points) {
        const double nan = std::numeric_limits<double>::quiet_NaN();
        envelope.upper.samples.writable().push_back(p.enabled ? p.upperValue : nan);
        envelope.lower.samples.writable().push_back(p.enabled ? p.lowerValue : nan);
    }
    if (!saveEnvelope(QString::fromStdString(path), waveform.name, envelope))
        throw Failure{lastEnvelopeFileError().toStdString()};
    return 0;
}

int removeEnvelopeOf(const std::string &path, const std::string &name)
{
    const auto infos = readInfos(path);
    findWaveform(infos, name);
    if (!removeEnvelope(QString::fromStdString(path), QString::fromStdString(name)))
        throw Failure{lastEnvelopeFileError().toStdString()};
    return 0;
}

int run(const std::vector<std::string> &args)
{
    if (args.size() < 2)
        throw UsageError{};
    const std::string &command = args[0];
    const std::string &path = args[1];
    if (command == "list" && args.size() == 2)
        return list(path);
    if (command == "dump" && args.size() == 3)
        return dump(path, args[2], std::numeric_limits<uint64_t>::max());
    if (command == "dump" && args.size() == 5 && args[3] == "--count")
        return dump(path, args[2], parseCount(args[4].c_str(), 0, std::numeric_limits<uint64_t>::max()));
    if (command == "envelope" && args.size() == 3)
        return makeEnvelope(path, args[2], DEFAULT_POINTS);
    if (command == "envelope" && args.size() == 4 && args[3] == "--remove")
        return removeEnvelopeOf(path, args[2]);
    if (command == "envelope" && args.size() == 5 && args[3] == "--points")
        return makeEnvelope(path, args[2], static_cast<int>(parseCount(args[4].c_str(), 2, 1000000)));
    throw UsageError{};
}

} // namespace

int main(int argc, char **argv)
{
    try {
        return run(std::vector<std::string>(argv + 1, argv + argc));
    } catch (const UsageError &) {
        std::fputs(USAGE, stderr);
        return EXIT_USAGE;
    } catch (const Failure &failure) {
        std::fprintf(stderr, "vorn: %s\n", failure.reason.c_str());
        return EXIT_FAILED;
    } catch (const std::bad_alloc &) {
        std::fprintf(stderr, "vorn: out of memory\n");
        return EXIT_FAILED;
    }
}
