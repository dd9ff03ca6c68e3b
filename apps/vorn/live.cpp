// vorn scan, acquire and run: sigrok devices found, recorded, and judged acquisition after
// acquisition against a golden capture's envelopes.

#include "judging.h"
#include "progress.h"
#include "vornacquire.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <ctime>
#include <stdexcept>
#include <thread>
#include <malloc.h>
#include <unistd.h>

namespace {

constexpr int EXIT_DEVICE = 2;
constexpr int EXIT_CHECK_FAILED = 3;

using Clock = std::chrono::steady_clock;

double since(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// Seconds this thread has run on a processor: on a busy machine, what judging costs apart from
// the time it waited for a core.
double threadSeconds()
{
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return double(t.tv_sec) + double(t.tv_nsec) / 1e9;
}

std::string join(const std::vector<std::string> &items, const char *separator)
{
    std::string text;
    for (const std::string &item : items)
        text += (text.empty() ? "" : separator) + item;
    return text;
}

// The device arguments anywhere after the driver; the rest is left to the command.
DeviceOptions deviceOptions(const std::vector<std::string> &args, std::vector<std::string> &rest)
{
    DeviceOptions device;
    device.driver = args[1];
    std::string group;
    for (size_t i = 2; i < args.size(); ++i) {
        try {
            if (parseDeviceArgument(args, i, device, group))
                continue;
        } catch (const std::invalid_argument &e) {
            std::fprintf(stderr, "vorn: %s\n", e.what());
            throw UsageError{};
        }
        rest.push_back(args[i]);
    }
    return device;
}

uint64_t count(const std::string &text)
{
    char *end = nullptr;
    const unsigned long long n = std::strtoull(text.c_str(), &end, 10);
    if (text.empty() || *end || text[0] == '-' || n == 0)
        throw UsageError{};
    return n;
}

// Ctrl+C ends a run as its last acquisition does: the handler only wakes a thread that stops it.
int g_interrupt[2] = {-1, -1};

extern "C" void onInterrupt(int)
{
    const char byte = 'i';
    [[maybe_unused]] const ssize_t n = write(g_interrupt[1], &byte, 1);
}

class InterruptWatch
{
public:
    explicit InterruptWatch(AcquisitionLoop &loop)
    {
        if (pipe(g_interrupt) != 0)
            return;
        m_thread = std::thread([&loop] {
            char byte = 0;
            if (read(g_interrupt[0], &byte, 1) == 1 && byte == 'i')
                loop.stop();
        });
        std::signal(SIGINT, onInterrupt);
        std::signal(SIGTERM, onInterrupt);
    }
    ~InterruptWatch()
    {
        if (!m_thread.joinable())
            return;
        std::signal(SIGINT, SIG_DFL);
        std::signal(SIGTERM, SIG_DFL);
        const char byte = 'q';
        [[maybe_unused]] const ssize_t n = write(g_interrupt[1], &byte, 1);
        m_thread.join();
        close(g_interrupt[0]);
        close(g_interrupt[1]);
    }

private:
    std::thread m_thread;
};

struct RunOptions
{
    DeviceOptions device;
    std::string reference;
    uint64_t count = 0; // 0: until the duration ends or forever
    double duration = 0.0;
    bool stopOnFail = false;
    std::string saveFailures;
    std::string saveAll;
    AlignmentOptions align;
    bool json = false;
    std::string junit;
    ReportOptions report;
};

RunOptions parseRunOptions(const std::vector<std::string> &args)
{
    RunOptions o;
    std::vector<std::string> rest;
    o.device = deviceOptions(args, rest);
    for (size_t i = 0; i < rest.size(); ++i) {
        const std::string &a = rest[i];
        const bool hasValue = i + 1 < rest.size();
        if (a == "--reference" && hasValue)
            o.reference = rest[++i];
        else if (a == "--count" && hasValue)
            o.count = count(rest[++i]);
        else if (a == "--duration" && hasValue)
            o.duration = parseScaledValue(QString::fromStdString(rest[++i]), QStringLiteral("s"));
        else if (a == "--stop-on-fail")
            o.stopOnFail = true;
        else if (a == "--save-failures" && hasValue)
            o.saveFailures = rest[++i];
        else if (a == "--save-all" && hasValue)
            o.saveAll = rest[++i];
        else if (a == "--json")
            o.json = true;
        else if (a == "--junit" && hasValue)
            o.junit = rest[++i];
        else if (a == "--report" && hasValue)
            o.report.report = rest[++i];
        else if (a == "--report-dir" && hasValue)
            o.report.reportDir = rest[++i];
        else if (!parseAlignmentArgument(rest, i, o.align))
            throw UsageError{};
    }
    if (o.reference.empty() || (o.count && o.duration > 0.0) || std::isnan(o.duration) || o.duration < 0.0
        || (o.align.trigger && o.align.maxShift > 0.0))
        throw UsageError{};
    o.report.reference = o.reference;
    o.report.args = args;
    return o;
}

std::string numbered(const std::string &dir, uint64_t n, const char *kind)
{
    char name[48];
    std::snprintf(name, sizeof name, "/%s-%06llu.sr", kind, static_cast<unsigned long long>(n));
    return dir + name;
}

// A live run: acquisitions judged as they come, tallied per waveform.
class Run
{
public:
    explicit Run(const RunOptions &options) : m_options(options), m_golden(referenceGolden(options.reference))
    {
        for (const auto &[name, envelope] : m_golden.envelopes)
            m_envelopes.emplace_back(QString::fromStdString(name), envelope);
    }

    int exec();

private:
    // False when no waveform of the acquisition has an envelope or limits in the reference.
    bool judge(uint64_t n, double time, const Acquisition &acquisition);
    std::vector<Verdict> judgeWaveforms(const std::string &label, const Acquisition &acquisition) const;
    void keep(const std::vector<Verdict> &verdicts, const Acquisition &acquisition);
    bool keepsVerdicts() const;
    std::vector<QString> writeReports() const;
    void save(const std::string &dir, const char *kind, uint64_t n, const Acquisition &acquisition);
    void summary(double seconds, double acquiring) const;
    BatchTally &tally(const std::string &name);

    const RunOptions &m_options;
    Golden m_golden;
    std::vector<std::pair<QString, EnvelopeData>> m_envelopes;
    std::vector<BatchTally> m_tallies; // in the order first judged
    LimitStatistics m_statistics;
    std::vector<Verdict> m_verdicts;   // kept for --junit and the report only
    std::map<size_t, WaveformData> m_failing; // the first failing waveforms, by verdict, to draw
    static constexpr size_t KEPT_SAMPLES = size_t(32) << 20;
    size_t m_keptSamples = 0;
    uint64_t m_judged = 0;
    uint64_t m_failed = 0;
    double m_judging = 0.0; // seconds
    double m_judgingCpu = 0.0;
    std::string m_lastFailure;
};

BatchTally &Run::tally(const std::string &name)
{
    const QString key = QString::fromStdString(name);
    for (BatchTally &t : m_tallies) {
        if (t.name() == key)
            return t;
    }
    m_tallies.emplace_back(key);
    return m_tallies.back();
}

std::vector<Verdict> Run::judgeWaveforms(const std::string &label, const Acquisition &acquisition) const
{
    std::vector<Verdict> verdicts;
    const bool aligned = m_options.align.trigger || m_options.align.maxShift > 0.0;
    for (const WaveformData &waveform : acquisition.waveforms) {
        const std::string name = waveform.name.toStdString();
        const auto envelope = m_golden.envelopes.find(name);
        const auto limits = m_golden.limits.find(name);
        const bool enveloped = envelope != m_golden.envelopes.end();
        if (!enveloped && limits == m_golden.limits.end())
            continue;
        Verdict v{label, name, waveform.unit, {}, aligned, enveloped, {}};
        std::string trouble;
        if (enveloped && !judgeWaveform(waveform, envelope->second, m_options.align, v.result, trouble))
            v.result.failure = QString::fromStdString(trouble);
        if (limits != m_golden.limits.end())
            v.limits = judgeLimits(waveform, limits->second);
        verdicts.push_back(std::move(v));
    }
    return verdicts;
}

bool Run::judge(uint64_t n, double time, const Acquisition &acquisition)
{
    const auto start = Clock::now();
    const double startCpu = threadSeconds();
    const std::string label = "acquisition " + std::to_string(n);
    const std::vector<Verdict> verdicts = judgeWaveforms(label, acquisition);
    m_judging += since(start);
    m_judgingCpu += threadSeconds() - startCpu;
    if (verdicts.empty())
        return false;
    ++m_judged;
    bool passed = true;
    std::vector<std::string> faults;
    QJsonArray rows;
    for (const Verdict &v : verdicts) {
        if (v.enveloped)
            tally(v.waveform).add(QString::fromStdString(label), v.result);
        m_statistics.add(v);
        passed = passed && ::passed(v);
        if (!::passed(v))
            faults.push_back(v.waveform + ": " + worstViolation(v).toStdString());
        if (m_options.json)
            rows.append(toJson(v));
    }
    m_failed += !passed;
    if (!passed)
        m_lastFailure = label;
    if (!m_options.saveAll.empty())
        save(m_options.saveAll, "acquisition", n, acquisition);
    else if (!passed && !m_options.saveFailures.empty())
        save(m_options.saveFailures, "fail", n, acquisition);
    if (m_options.json) {
        const QJsonObject line{{"acquisition", double(n)}, {"time", time}, {"result", passed ? "pass" : "fail"},
                               {"waveforms", rows}};
        std::printf("%s\n", QJsonDocument(line).toJson(QJsonDocument::Compact).constData());
    } else {
        std::string shift;
        if ((m_options.align.trigger || m_options.align.maxShift > 0.0) && passed && verdicts.front().enveloped)
            shift = "  shift " + ValueFormatter::formatWithUnit(verdicts.front().result.shift, "s").toStdString();
        std::printf("%6llu  %9.3f s  %s%s%s\n", static_cast<unsigned long long>(n), time, passed ? "pass" : "fail",
                    shift.c_str(), faults.empty() ? "" : ("  " + printable(join(faults, "; "))).c_str());
    }
    std::fflush(stdout);
    if (keepsVerdicts())
        keep(verdicts, acquisition);
    return true;
}

bool Run::keepsVerdicts() const
{
    return !m_options.junit.empty() || !m_options.report.report.empty() || !m_options.report.reportDir.empty();
}

// Verdicts without their transitions, which a long run would pile up; the samples of the first
// failures, as many as the report draws and a few hundred megabytes hold.
void Run::keep(const std::vector<Verdict> &verdicts, const Acquisition &acquisition)
{
    const bool pictures = !m_options.report.report.empty() || !m_options.report.reportDir.empty();
    for (const Verdict &v : verdicts) {
        if (pictures && !::passed(v) && m_failing.size() < size_t(reportPictureLimit(m_options.report))) {
            for (const WaveformData &w : acquisition.waveforms) {
                if (w.name.toStdString() == v.waveform && m_keptSamples + w.samples->size() <= KEPT_SAMPLES) {
                    m_failing[m_verdicts.size()] = w;
                    m_keptSamples += w.samples->size();
                }
            }
        }
        m_verdicts.push_back(v);
        m_verdicts.back().limits.measurements.transitions = {};
    }
}

std::vector<QString> Run::writeReports() const
{
    if (m_options.report.report.empty() && m_options.report.reportDir.empty())
        return {};
    return ::writeReports(m_options.report, m_verdicts, {}, [this](const Verdict &v, WaveformData &waveform, EnvelopeData &envelope) {
        const auto kept = m_failing.find(static_cast<size_t>(&v - m_verdicts.data()));
        if (kept == m_failing.end())
            return false;
        waveform = kept->second;
        const auto it = m_golden.envelopes.find(v.waveform);
        envelope = it != m_golden.envelopes.end() ? it->second : EnvelopeData();
        return true;
    });
}

void Run::save(const std::string &dir, const char *kind, uint64_t n, const Acquisition &acquisition)
{
    const std::string path = numbered(dir, n, kind);
    std::string error;
    if (!saveAcquisition(path, acquisition, m_envelopes, &error))
        std::fprintf(stderr, "vorn: %s\n", printable(error).c_str());
}

void Run::summary(double seconds, double acquiring) const
{
    FILE *out = m_options.json ? stderr : stdout;
    for (const BatchTally &t : m_tallies)
        std::fprintf(out, "%s\n", qPrintable(t.line()));
    m_statistics.print(out);
    std::fprintf(out, "%llu acquisitions in %.1f s: %llu passed, %llu failed%s%s\n",
                 static_cast<unsigned long long>(m_judged), seconds,
                 static_cast<unsigned long long>(m_judged - m_failed), static_cast<unsigned long long>(m_failed),
                 m_lastFailure.empty() ? "" : ", last failure ", m_lastFailure.c_str());
    const double per = m_judged ? 1000.0 / double(m_judged) : 0.0;
    std::fprintf(out, "%.1f acquisitions/s judged, %.2f %% of the time judging (%.3f ms per acquisition, %.3f ms "
                      "of it on a processor), %.1f %% acquiring\n",
                 seconds > 0 ? double(m_judged) / seconds : 0.0, seconds > 0 ? 100.0 * m_judging / seconds : 0.0,
                 per * m_judging, per * m_judgingCpu, seconds > 0 ? 100.0 * acquiring / seconds : 0.0);
}

int Run::exec()
{
    // A folder that does not exist yet is made, as a user naming a new one expects.
    for (const std::string &dir : {m_options.saveFailures, m_options.saveAll}) {
        if (dir.empty())
            continue;
        std::error_code error;
        std::filesystem::create_directories(dir, error);
        if (error)
            throw Failure{"cannot make the folder " + dir + ": " + error.message()};
        if (access(dir.c_str(), W_OK) != 0)
            throw Failure{"cannot write into " + dir};
    }
    AcquisitionLoop loop;
    const auto start = Clock::now();
    if (!loop.start(m_options.device, m_options.count))
        throw Failure{loop.error()};
    InterruptWatch watch(loop);
    Acquisition acquisition;
    bool matched = true;
    for (uint64_t n = 1; loop.next(acquisition); ++n) {
        matched = judge(n, since(start), acquisition);
        if (!matched || (m_options.stopOnFail && m_failed) || (m_options.duration > 0.0 && since(start) >= m_options.duration)) {
            loop.stop();
            break;
        }
    }
    const double seconds = since(start);
    summary(seconds, loop.acquiringSeconds());
    const std::vector<QString> attachments = writeReports();
    if (!m_options.junit.empty() && !writeJUnit(m_options.junit, m_verdicts, {}, attachments))
        throw Failure{"cannot write " + m_options.junit};
    if (!matched)
        throw Failure{"no acquired channel has an envelope or limits in " + m_options.reference};
    if (!loop.error().empty()) {
        std::fprintf(stderr, "vorn: %s\n", printable(loop.error()).c_str());
        return EXIT_DEVICE;
    }
    return m_failed ? EXIT_CHECK_FAILED : 0;
}

std::string outputName(const std::string &out, uint64_t n, uint64_t count)
{
    if (count == 1)
        return out;
    const size_t dot = out.size() >= 3 && out.compare(out.size() - 3, 3, ".sr") == 0 ? out.size() - 3 : out.size();
    char number[24];
    std::snprintf(number, sizeof number, "-%03llu", static_cast<unsigned long long>(n));
    return out.substr(0, dot) + number + out.substr(dot);
}

} // namespace

int scanCommand(const std::vector<std::string> &args)
{
    if (args.size() > 2)
        throw UsageError{};
    std::vector<DeviceDescription> devices;
    try {
        devices = scanDevices(args.size() == 2 ? args[1] : std::string());
    } catch (const std::runtime_error &e) {
        throw Failure{e.what()};
    }
    for (const DeviceDescription &d : devices) {
        std::printf("%s%s%s - %s with %zu channels: %s\n", d.driver.c_str(), d.connection.empty() ? "" : ":conn=",
                    d.connection.c_str(), d.name.c_str(), d.channels.size(), join(d.channels, " ").c_str());
        if (!d.groups.empty())
            std::printf("  channel groups: %s\n", join(d.groups, ", ").c_str());
    }
    if (devices.empty())
        throw Failure{args.size() == 2 ? "no " + args[1] + " device found" : "no device found"};
    return 0;
}

int acquireCommand(const std::vector<std::string> &args)
{
    if (args.size() < 2)
        throw UsageError{};
    std::vector<std::string> rest;
    const DeviceOptions device = deviceOptions(args, rest);
    uint64_t total = 1;
    std::string out;
    for (size_t i = 0; i < rest.size(); ++i) {
        if (rest[i] == "--count" && i + 1 < rest.size())
            total = count(rest[++i]);
        else if (rest[i] == "-o" && i + 1 < rest.size())
            out = rest[++i];
        else
            throw UsageError{};
    }
    if (out.empty())
        throw UsageError{};
    // Of what was asked for, all acquisitions together: samples, frames or milliseconds of signal.
    const uint64_t each = device.samples ? device.samples
                          : device.frames ? device.frames
                                          : uint64_t(std::ceil(device.time * 1000.0));
    Progress progress(each * total, device.samples ? "samples" : device.frames ? "frames" : "s",
                      device.samples || device.frames ? 1.0 : 0.001);
    AcquisitionLoop loop; // after progress, so that its thread ends before progress goes
    loop.setProgress([&](uint64_t k, const SigrokDevice::Progress &p) {
        const uint64_t now = device.samples ? p.samples : device.frames ? p.frames : uint64_t(p.seconds * 1000.0);
        progress.reach(k * each + std::min(now, each));
    });
    if (!loop.start(device, total))
        throw Failure{loop.error()};
    InterruptWatch watch(loop);
    Acquisition acquisition;
    uint64_t n = 0;
    while (loop.next(acquisition)) {
        const std::string path = outputName(out, ++n, total);
        std::string error;
        if (!saveAcquisition(path, acquisition, {}, &error))
            throw Failure{error};
        const uint64_t samples = acquisition.waveforms.empty() ? 0 : acquisition.waveforms.front().samples->size();
        progress.printAbove([&] {
            std::printf("%s: %zu channels, %llu samples at %s\n", printable(path).c_str(),
                        acquisition.waveforms.size(), static_cast<unsigned long long>(samples),
                        qPrintable(ValueFormatter::formatWithUnit(double(acquisition.samplerate), "Hz")));
        });
    }
    if (!loop.error().empty())
        throw Failure{loop.error()};
    return n == total ? 0 : EXIT_DEVICE;
}

int runCommand(const std::vector<std::string> &args)
{
    if (args.size() < 2)
        throw UsageError{};
    const RunOptions options = parseRunOptions(args);
    // Acquisitions come and go at the same sizes: their pages stay with the process instead of
    // going back to the system and being faulted in again for the next one.
    mallopt(M_MMAP_THRESHOLD, 256 << 20);
    mallopt(M_TRIM_THRESHOLD, 512 << 20);
    return Run(options).exec();
}
