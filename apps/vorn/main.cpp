// vorn: lists, dumps, makes envelopes of and checks the waveforms in sigrok session files.

#include "capture.h"
#include "live.h"

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
    "       vorn envelope FILE.sr NAME [--from GOOD.sr ...] [--points N] [--dx TIME] [--dy VALUE]\n"
    "                     [--sigma K]\n"
    "       vorn envelope FILE.sr NAME --remove\n"
    "       vorn check FILE.sr [FILE.sr ...] [--reference REF.sr] [--json] [--junit OUT.xml]\n"
    "                  [--align MAXSHIFT | --trigger LEVEL[:rising|:falling]] [--jobs N]\n"
    "       vorn scan [DRIVER]\n"
    "       vorn acquire DRIVER [DEVICE OPTIONS] [--count K] -o OUT.sr\n"
    "       vorn run DRIVER [DEVICE OPTIONS] --reference REF.sr [--count K | --duration TIME]\n"
    "                [--stop-on-fail] [--save-failures DIR] [--save-all DIR]\n"
    "                [--align MAXSHIFT | --trigger LEVEL[:rising|:falling]] [--json] [--junit OUT.xml]\n"
    "envelope: limits around every sample of NAME in the good captures (FILE itself without\n"
    "  --from), widened by --dx in time and --dy in value (chosen from the captures' timing and\n"
    "  noise when not given), with at most N knots where the limits bend. --sigma K puts them at\n"
    "  the mean plus and minus K standard deviations instead, which need not contain the captures.\n"
    "check: --align moves each capture by the shift within +-MAXSHIFT (such as 1ms) at which it\n"
    "  fits its envelope best, --trigger puts its first crossing of LEVEL on the envelope middle's;\n"
    "  the shift is reported. Files are checked N at a time (--jobs, one per core by default).\n"
    "device options, as sigrok-cli takes them: DRIVER such as demo or rigol-ds:conn=usb,\n"
    "  --config KEY=VALUE[:KEY=VALUE...] (after --channel-group NAME: for that group),\n"
    "  --channels A1,D0, and the length of each acquisition: --samples N, --frames N or --time T\n"
    "run: acquires again and again (forever without --count or --duration; Ctrl+C ends it), judges\n"
    "  each acquisition against REF's envelopes as check does and prints the tally at the end.\n"
    "exit status of check: 0 all pass, 3 a waveform fails, 2 a file cannot be read or checked\n"
    "exit status of run: 0 all pass, 3 an acquisition fails, 2 a device error\n";

constexpr int EXIT_USAGE = 1;
constexpr int EXIT_FAILED = 2;

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
        std::printf("%zu\t%s\t%llu\t%s\t%s\t%s\n", i, printable(infos[i].name).c_str(),
                    static_cast<unsigned long long>(infos[i].sampleCount), shortest(infos[i].sampleInterval).c_str(),
                    shortest(infos[i].startTime).c_str(), printable(infos[i].unit).c_str());
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

struct EnvelopeOptions
{
    int points = 0; // an upper bound on the knots; 0 lets the construction decide
    std::vector<std::string> from;
    double sigma = 0.0;
    std::string dx;
    std::string dy;
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
            o.sigma = parseCommandLineValue(QString::fromStdString(args[++i]), QString());
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

// A tolerance given on the command line: a number with an optional prefix and unit, not negative;
// NaN, for the construction to choose, when none is given.
double parseTolerance(const std::string &text, const QString &unit)
{
    if (text.empty())
        return std::numeric_limits<double>::quiet_NaN();
    const double value = parseCommandLineValue(QString::fromStdString(text), unit);
    if (!(value >= 0.0) || !std::isfinite(value))
        throw Failure{"'" + text + "' is no tolerance in " + (unit.isEmpty() ? "units" : unit.toStdString())};
    return value;
}

// Makes NAME's envelope from the captures (FILE itself without --from) and stores it in FILE.
int makeEnvelope(const std::string &path, const std::string &name, const EnvelopeOptions &options)
{
    const auto infos = readInfos(path);
    const SigrokWaveformInfo &target = infos[static_cast<size_t>(findWaveform(infos, name, path))];
    const std::vector<std::string> sources = options.from.empty() ? std::vector<std::string>{path} : options.from;
    SourceHull hull(options.sigma);
    QString unit;
    for (const std::string &good : sources) {
        WaveformData capture;
        try {
            capture = loadWaveform(good, name, std::numeric_limits<uint64_t>::max());
        } catch (const Failure &failure) {
            throw Failure{good + ": " + failure.reason};
        }
        // The envelope is stored for FILE's waveform: every capture must share its time base.
        if (capture.samples->size() != target.sampleCount || capture.sampleInterval != target.sampleInterval
            || capture.startTime != target.startTime)
            throw Failure{good + ": '" + name + "' differs from the one in " + path + " in length, sample rate or start"};
        unit = capture.unit;
        QString error;
        if (!hull.add(capture, &error))
            throw Failure{good + ": " + error.toStdString()};
    }
    EnvelopeBuildOptions build;
    build.dx = parseTolerance(options.dx, QStringLiteral("s"));
    build.dy = parseTolerance(options.dy, unit);
    build.sigma = options.sigma;
    build.maxKnots = options.points;
    EnvelopeBuildReport report;
    QString error;
    const EnvelopeData envelope = hull.build(build, &report, &error);
    if (envelope.isEmpty())
        throw Failure{error.toStdString()};
    if (!saveEnvelope(QString::fromStdString(path), QString::fromStdString(name), envelope))
        throw Failure{lastEnvelopeFileError().toStdString(), path};
    std::printf("%s: %d knots, %llu samples per limit, dx %s, dy %s, from %d capture%s\n", name.c_str(), report.knots,
                static_cast<unsigned long long>(report.intervals + 1),
                qPrintable(ValueFormatter::formatWithUnit(report.dx, QStringLiteral("s"))),
                qPrintable(ValueFormatter::formatWithUnit(report.dy, unit)), report.captures,
                report.captures == 1 ? "" : "s");
    return 0;
}

int removeEnvelopeOf(const std::string &path, const std::string &name)
{
    const auto infos = readInfos(path);
    findWaveform(infos, name, path);
    if (!removeEnvelope(QString::fromStdString(path), QString::fromStdString(name)))
        throw Failure{lastEnvelopeFileError().toStdString(), path};
    return 0;
}

int run(const std::vector<std::string> &args)
{
    if (!args.empty() && args[0] == "scan")
        return scanCommand(args);
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
        return makeEnvelope(path, args[2], parseEnvelopeOptions(args));
    }
    if (command == "check")
        return checkCaptures(args);
    if (command == "acquire")
        return acquireCommand(args);
    if (command == "run")
        return runCommand(args);
    throw UsageError{};
}

} // namespace

int main(int argc, char **argv)
{
    if (argc == 2 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0)) {
        std::fputs(USAGE, stdout);
        return 0;
    }
    try {
        return run(std::vector<std::string>(argv + 1, argv + argc));
    } catch (const UsageError &) {
        std::fputs(USAGE, stderr);
        return EXIT_USAGE;
    } catch (const Failure &failure) {
        const std::string message = failure.file.empty() ? failure.reason : failure.file + ": " + failure.reason;
        std::fprintf(stderr, "vorn: %s\n", printable(message).c_str());
        return EXIT_FAILED;
    } catch (const std::bad_alloc &) {
        std::fprintf(stderr, "vorn: out of memory\n");
        return EXIT_FAILED;
    }
}
