// vorn: lists, dumps, makes envelopes of and checks the waveforms in sigrok session files.

#include "capture.h"

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
    "       vorn envelope FILE.sr NAME [--points N] [--dx TIME] [--dy VALUE]\n"
    "       vorn envelope FILE.sr NAME --from GOOD.sr [GOOD.sr ...] [--points N] [--sigma K]\n"
    "                     [--dx TIME] [--dy VALUE]\n"
    "       vorn envelope FILE.sr NAME --remove\n"
    "       vorn check FILE.sr [FILE.sr ...] [--reference REF.sr] [--json] [--junit OUT.xml]\n"
    "exit status of check: 0 all pass, 3 a waveform fails, 2 a file cannot be read or checked\n";

constexpr int EXIT_USAGE = 1;
constexpr int EXIT_FAILED = 2;
constexpr int DEFAULT_POINTS = 20;
constexpr int DIVISIONS = 10;

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

struct EnvelopeOptions
{
    int points = DEFAULT_POINTS;
    std::vector<std::string> from;
    double sigma = 0.0;
    std::string dx = "0";
    std::string dy = "0";
};

EnvelopeOptions parseEnvelopeOptions(const std::vector<std::string> &args)
{
    EnvelopeOptions o;
    for (size_t i = 3; i < args.size(); ++i) {
        const std::string &a = args[i];
        const bool hasValue = i + 1 < args.size();
        if (a == "--points" && hasValue)
            o.points = static_cast<int>(parseCount(args[++i].c_str(), 2, 1000000));
        else if (a == "--sigma" && hasValue)
            o.sigma = parseScaledValue(QString::fromStdString(args[++i]), QString());
        else if (a == "--dx" && hasValue)
            o.dx = args[++i];
        else if (a == "--dy" && hasValue)
            o.dy = args[++i];
        else if (a == "--from" && hasValue && args[i + 1].rfind("--", 0) != 0)
            while (i + 1 < args.size() && args[i + 1].rfind("--", 0) != 0)
                o.from.push_back(args[++i]);
        else
            throw UsageError{};
    }
    if (!(o.sigma >= 0.0) || (o.sigma > 0.0 && o.from.empty()))
        throw UsageError{};
    return o;
}

// A tolerance given on the command line: a number with an optional prefix and unit, not negative.
double parseTolerance(const std::string &text, const QString &unit)
{
    const double value = parseScaledValue(QString::fromStdString(text), unit);
    if (!(value >= 0.0) || !std::isfinite(value))
        throw Failure{"'" + text + "' is no tolerance in " + (unit.isEmpty() ? "units" : unit.toStdString())};
    return value;
}

void storeEnvelope(const std::string &path, const QString &name, EnvelopeData envelope, const EnvelopeOptions &o)
{
    const double dx = parseTolerance(o.dx, QStringLiteral("s"));
    const double dy = parseTolerance(o.dy, envelope.upper.unit);
    if (dx > 0.0 || dy > 0.0)
        envelope = widenEnvelope(envelope, dx, dy);
    if (!saveEnvelope(QString::fromStdString(path), name, envelope))
        throw Failure{lastEnvelopeFileError().toStdString()};
}

int makeEnvelope(const std::string &path, const std::string &name, const EnvelopeOptions &options)
{
    const int pointCount = options.points;
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
    storeEnvelope(path, waveform.name, envelope, options);
    return 0;
}

// The envelope of NAME in FILE from the spread of NAME over several good captures.
int makeEnvelopeFrom(const std::string &path, const std::string &name, const EnvelopeOptions &options)
{
    const auto infos = readInfos(path);
    const SigrokWaveformInfo &target = infos[static_cast<size_t>(findWaveform(infos, name))];
    QVector<WaveformData> captures;
    for (const std::string &good : options.from) {
        try {
            captures.append(loadWaveform(good, name, std::numeric_limits<uint64_t>::max()));
        } catch (const Failure &failure) {
            throw Failure{good + ": " + failure.reason};
        }
    }
    // The envelope is stored for FILE's waveform: the good captures must share its time base
    // (they are compared with one another below).
    const WaveformData &first = captures.first();
    if (first.samples->size() != target.sampleCount || first.sampleInterval != target.sampleInterval
        || first.startTime != target.startTime)
        throw Failure{options.from.front() + ": '" + name + "' differs from the one in " + path
                      + " in length, sample rate or start"};
    QString error;
    const EnvelopeData envelope = envelopeFromCaptures(captures, options.points, options.sigma, &error);
    if (envelope.isEmpty())
        throw Failure{error.toStdString()};
    storeEnvelope(path, QString::fromStdString(name), envelope, options);
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
    if (command == "envelope" && args.size() == 4 && args[3] == "--remove")
        return removeEnvelopeOf(path, args[2]);
    if (command == "envelope" && args.size() >= 3) {
        const EnvelopeOptions options = parseEnvelopeOptions(args);
        return options.from.empty() ? makeEnvelope(path, args[2], options) : makeEnvelopeFrom(path, args[2], options);
    }
    if (command == "check")
        return checkCaptures(args);
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
