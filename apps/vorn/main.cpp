// vorn: lists, dumps, makes envelopes of and checks the waveforms in sigrok session files.

#include "capture.h"
#include "progress.h"
#include "limitsreport.h"
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

// Each command's block starts with "  vorn COMMAND"; "vorn COMMAND --help" prints its blocks.
const char USAGE[] =
    "usage: vorn COMMAND ARGUMENTS; vorn COMMAND --help for one command; vorn --version\n"
    "Times take an SI prefix and an optional unit (5us, 1.5 ms, 2 us); values are in the waveform's\n"
    "unit with an optional prefix (20mV, 0.02).\n"
    "\n"
    "  vorn list FILE.sr\n"
    "      Lists every waveform: index, name, samples, interval (s), start (s) and unit.\n"
    "\n"
    "  vorn dump FILE.sr NAME [--count N]\n"
    "      Prints the samples of waveform NAME, one per line.\n"
    "      --count N          only the first N samples (default: all)\n"
    "\n"
    "  vorn envelope FILE.sr NAME [--from GOOD.sr ...] [--points N] [--dx TIME] [--dy VALUE] [--sigma K]\n"
    "      Makes NAME's envelope from good captures and stores it in FILE: limits around every\n"
    "      sample of NAME in the good captures, widened, straight between knots where they bend.\n"
    "      --from GOOD.sr ... the good captures (default: FILE itself)\n"
    "      --points N         at most N knots (default: as many as the limits need)\n"
    "      --dx TIME          widening in time: the limit at t covers t-dx ... t+dx (default: the\n"
    "                         spread of the captures' edge times, at least two samples)\n"
    "      --dy VALUE         widening in value (default: five times the captures' noise, 1 % to\n"
    "                         5 % of their value span)\n"
    "      --sigma K          limits at the mean plus and minus K standard deviations instead of\n"
    "                         the extremes; they need not contain the captures (default: off)\n"
    "\n"
    "  vorn envelope FILE.sr NAME --remove\n"
    "      Takes NAME's envelope out of FILE.\n"
    "\n"
    "  vorn check FILE.sr [FILE.sr ...] [--reference REF.sr] [--json] [--junit OUT.xml]\n"
    "             [--align MAXSHIFT | --trigger LEVEL[:rising|:falling]] [--jobs N]\n"
    "             [--report OUT.html] [--report-dir DIR]\n"
    "      Judges every waveform that has an envelope against it, sample by sample.\n"
    "      --reference REF.sr the envelopes of REF's waveforms of the same name (default: each\n"
    "                         file's own)\n"
    "      --json             the verdicts as JSON on standard output\n"
    "      --junit OUT.xml    the verdicts as a JUnit report\n"
    "      --align MAXSHIFT   judge each capture at the shift within +-MAXSHIFT, a time, where it\n"
    "                         fits best (default: no shift)\n"
    "      --trigger LEVEL[:rising|:falling]\n"
    "                         put the capture's first crossing of LEVEL, a value, on the golden\n"
    "                         crossing (edge default: rising); excludes --align\n"
    "      --jobs N           files checked at once (default: one per core)\n"
    "      --report OUT.html  one self-contained HTML file with every verdict and pictures of the\n"
    "                         first failures (default: none)\n"
    "      --report-dir DIR   a picture of each failing waveform in DIR, named in --junit as an\n"
    "                         attachment (default: none)\n"
    "      Measurement limits kept in the file (or REF.sr) are applied with the envelopes; a waveform\n"
    "      with limits but no envelope is judged by its limits alone.\n"
    "      Exit status: 0 all pass, 3 a waveform fails, 2 a file cannot be read or checked.\n"
    "\n"
    "  vorn measure FILE.sr [NAME ...] [--from TIME] [--to TIME] [--json]\n"
    "      Measures each waveform (every one without NAME): levels, amplitude, extremes, mean,\n"
    "      rms, rise and fall time, pulse width, period, frequency, duty cycle, overshoot,\n"
    "      undershoot and settling time; a measurement that does not apply says why.\n"
    "      --from TIME        start of the span measured (default: the waveform's first sample)\n"
    "      --to TIME          end of the span measured (default: its last sample)\n"
    "      --json             the measurements as JSON, in SI units, null where one does not apply\n"
    "\n"
    "  vorn limits REF.sr NAME 'rise_time<=25us' 'overshoot<=12%' '1ms<=period<=2ms' ...\n"
    "      Keeps measurement limits for waveform NAME in REF.sr beside its envelopes.\n"
    "\n"
    "  vorn limits REF.sr NAME --remove [MEASUREMENT ...]\n"
    "      Takes NAME's limits (all, or the measurements named) out of REF.sr.\n"
    "\n"
    "  vorn scan [DRIVER]\n"
    "      Lists the sigrok devices found (of DRIVER only, such as demo) and their channels.\n"
    "\n"
    "  vorn acquire DRIVER [DEVICE OPTIONS] [--count K] -o OUT.sr\n"
    "      Records K acquisitions as .sr files (OUT-001.sr ... when K > 1): a golden set.\n"
    "      --count K          acquisitions (default: 1)\n"
    "      -o OUT.sr          where to write them\n"
    "\n"
    "  vorn run DRIVER [DEVICE OPTIONS] --reference REF.sr [--count K | --duration TIME]\n"
    "           [--stop-on-fail] [--save-failures DIR] [--save-all DIR]\n"
    "           [--align MAXSHIFT | --trigger LEVEL[:rising|:falling]] [--json] [--junit OUT.xml]\n"
    "           [--report OUT.html] [--report-dir DIR]\n"
    "      Acquires again and again, judges each acquisition against REF's envelopes and\n"
    "      measurement limits as check judges a file, prints a line per acquisition and the tally\n"
    "      at the end or on Ctrl+C.\n"
    "      --reference REF.sr the golden capture whose envelopes and limits judge\n"
    "      --count K          stop after K acquisitions (default: forever)\n"
    "      --duration TIME    stop after TIME (default: forever)\n"
    "      --stop-on-fail     stop at the first failing acquisition\n"
    "      --save-failures DIR  every failing acquisition as .sr in DIR, with REF's envelopes\n"
    "      --save-all DIR     every acquisition as .sr in DIR\n"
    "      --align, --trigger, --json, --junit, --report, --report-dir as for check\n"
    "      Exit status: 0 all pass, 3 an acquisition fails, 2 a device error.\n"
    "\n"
    "  Device options, as sigrok-cli takes them: DRIVER such as demo or rigol-ds:conn=usb;\n"
    "      --config KEY=VALUE[:KEY=VALUE...] (after --channel-group NAME: for that group);\n"
    "      --channels A1,D0; the length of each acquisition: --samples N, --frames N or --time T\n"
    "      (default: the device's own).\n"
    "\n"
    "Exit status: 1 for arguments that make no sense, 2 for a file that cannot be read or written.\n";

// The blocks of USAGE for one command, or nothing when there is no such command.
std::string commandHelp(const std::string &command)
{
    std::string help, block;
    const std::string usage = USAGE;
    const std::string head = "  vorn " + command + " ";
    size_t at = 0;
    bool inside = false;
    while (at < usage.size()) {
        const size_t end = usage.find('\n', at);
        const std::string line = usage.substr(at, end - at);
        at = end + 1;
        if (line.rfind("  vorn ", 0) == 0)
            inside = line.rfind(head, 0) == 0 || line == head.substr(0, head.size() - 1);
        else if (line.empty() || line[0] != ' ')
            inside = false;
        if (inside)
            help += line.substr(2) + "\n";
    }
    return help;
}

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
    const std::vector<std::string> unreadable = unreadableCurves(path);
    for (const std::string &line : unreadable)
        std::fprintf(stderr, "vorn: %s\n", printable(path + ": " + line).c_str());
    return unreadable.empty() ? 0 : EXIT_FAILED;
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

// What keeps a capture from giving limits, or empty: infinite samples, or none with a value.
std::string unusableCapture(const WaveformData &capture)
{
    const std::vector<double> &x = *capture.samples;
    const auto infinite = std::find_if(x.begin(), x.end(), [](double v) { return std::isinf(v); });
    if (infinite != x.end()) {
        const double t = static_cast<double>(infinite - x.begin()) * capture.sampleInterval + capture.startTime;
        return "holds an infinite sample at " + ValueFormatter::formatWithUnit(t, QStringLiteral("s")).toStdString()
               + "; limits around it would judge nothing";
    }
    if (std::all_of(x.begin(), x.end(), [](double v) { return std::isnan(v); }))
        return x.empty() ? "has no samples" : "has no sample with a value (all " + std::to_string(x.size()) + " are NaN)";
    return std::string();
}

// Makes NAME's envelope from the captures (FILE itself without --from) and stores it in FILE.
int makeEnvelope(const std::string &path, const std::string &name, const EnvelopeOptions &options)
{
    if (isEnvelopeCurveName(QString::fromStdString(name)))
        throw Failure{"'" + name + "' is named like an envelope curve; envelopes are made for waveforms, and a "
                      "device channel named so is offered as '" + name + " (channel)'", path};
    const auto infos = readInfos(path);
    const SigrokWaveformInfo &target = infos[static_cast<size_t>(findWaveform(infos, name, path))];
    const std::vector<std::string> sources = options.from.empty() ? std::vector<std::string>{path} : options.from;
    SourceHull hull(options.sigma);
    QString unit;
    Progress progress(sources.size(), "captures");
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
        const std::string unusable = unusableCapture(capture);
        if (!unusable.empty())
            throw Failure{"'" + name + "' " + unusable, good};
        QString error;
        if (!hull.add(capture, &error))
            throw Failure{good + ": " + error.toStdString()};
        progress.advance();
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
        throw Failure{error.toStdString(), path};
    WaveformData model;
    model.sampleInterval = target.sampleInterval;
    const QString defect = envelopeDefect(envelope, model);
    if (!defect.isEmpty())
        throw Failure{"'" + name + "': " + defect.toStdString() + "; nothing was stored", path};
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
    if (command == "measure")
        return measureCaptures(args);
    if (command == "limits")
        return setLimits(args);
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
    if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
        std::printf("vorn %s\n", VORN_VERSION);
        return 0;
    }
    if (argc == 3 && (std::strcmp(argv[2], "--help") == 0 || std::strcmp(argv[2], "-h") == 0)
        && !commandHelp(argv[1]).empty()) {
        std::fputs(commandHelp(argv[1]).c_str(), stdout);
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
