// vorn check: judges captures against envelopes, for people (one line per waveform), scripts
// (--json) and CI systems (--junit).

#include "judging.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QXmlStreamWriter>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <thread>

namespace {

constexpr int EXIT_READ_FAILED = 2;
constexpr int EXIT_CHECK_FAILED = 3;

struct Options
{
    std::vector<std::string> files;
    std::string reference;
    std::string junit;
    bool json = false;
    AlignmentOptions align;
    unsigned jobs = 0; // 0: one per core
};

[[noreturn]] void badOption(const std::string &why)
{
    std::fprintf(stderr, "vorn: %s\n", why.c_str());
    throw UsageError{};
}

unsigned parseJobs(const std::string &text)
{
    char *end = nullptr;
    const unsigned long n = std::strtoul(text.c_str(), &end, 10);
    if (text.empty() || *end || text[0] == '-' || n < 1 || n > 1024)
        throw UsageError{};
    return static_cast<unsigned>(n);
}

double parseAlignment(const std::string &text)
{
    const double shift = parseScaledValue(QString::fromStdString(text), QStringLiteral("s"));
    if (!(shift > 0.0) || !std::isfinite(shift))
        badOption("--align needs a time above zero, such as 1ms, not '" + text + "'");
    return shift;
}

// LEVEL[:rising|:falling], the level in the waveform's unit, volts for sigrok's analog channels.
void parseTrigger(const std::string &text, AlignmentOptions &align)
{
    const size_t colon = text.find(':');
    const std::string edge = colon == std::string::npos ? "rising" : text.substr(colon + 1);
    align.trigger = true;
    align.level = parseScaledValue(QString::fromStdString(text.substr(0, colon)), QStringLiteral("V"));
    if (!std::isfinite(align.level) || (edge != "rising" && edge != "falling"))
        badOption("--trigger needs LEVEL[:rising|:falling], such as 1.65:rising, not '" + text + "'");
    align.edge = edge == "rising" ? TriggerEdge::Rising : TriggerEdge::Falling;
}

} // namespace

bool parseAlignmentArgument(const std::vector<std::string> &args, size_t &i, AlignmentOptions &align)
{
    if ((args[i] != "--align" && args[i] != "--trigger") || i + 1 >= args.size())
        return false;
    if (args[i] == "--align")
        align.maxShift = parseAlignment(args[++i]);
    else
        parseTrigger(args[++i], align);
    return true;
}

namespace {

Options parseOptions(const std::vector<std::string> &args)
{
    Options o;
    for (size_t i = 1; i < args.size(); ++i) {
        const std::string &a = args[i];
        if (a == "--json")
            o.json = true;
        else if ((a == "--reference" || a == "--junit") && i + 1 < args.size())
            (a == "--reference" ? o.reference : o.junit) = args[++i];
        else if (parseAlignmentArgument(args, i, o.align))
            continue;
        else if (a == "--jobs" && i + 1 < args.size())
            o.jobs = parseJobs(args[++i]);
        else if (a.rfind("--", 0) == 0)
            throw UsageError{};
        else
            o.files.push_back(a);
    }
    if (o.files.empty() || (o.align.trigger && o.align.maxShift > 0.0))
        throw UsageError{};
    return o;
}

QString seconds(double t)
{
    return ValueFormatter::formatWithUnit(t, QStringLiteral("s"));
}

} // namespace

QString describe(const Verdict &v)
{
    const EnvelopeCheckResult &r = v.result;
    const QString head = QStringLiteral("%1 %2 %3: ").arg(r.passed() ? "pass" : "fail", QString::fromStdString(v.file),
                                                        QString::fromStdString(v.waveform));
    if (!r.failure.isEmpty())
        return head + r.failure;
    QString line = head + QStringLiteral("%1 checked").arg(r.checked);
    if (v.aligned)
        line += QStringLiteral(", shift %1").arg(seconds(r.shift));
    if (r.nanSamples)
        line += QStringLiteral(", %1 NaN").arg(r.nanSamples);
    if (r.violations()) {
        line += QStringLiteral(", %1 violations (%2 above, %3 below), first at %4")
                    .arg(r.violations()).arg(r.above).arg(r.below).arg(seconds(r.firstViolation));
    }
    if (r.above)
        line += QStringLiteral(", worst above %1 at %2")
                    .arg(ValueFormatter::formatWithUnit(r.worstAbove.excess, v.unit), seconds(r.worstAbove.time));
    if (r.below)
        line += QStringLiteral(", worst below %1 at %2")
                    .arg(ValueFormatter::formatWithUnit(r.worstBelow.excess, v.unit), seconds(r.worstBelow.time));
    if (r.uncovered > 0.0)
        line += QStringLiteral(", %1 of the envelope uncovered").arg(seconds(r.uncovered));
    if (!std::isnan(r.minMargin))
        line += QStringLiteral(", min margin %1 %").arg(r.minMargin * 100, 0, 'g', 3);
    return line;
}

namespace {

QJsonValue orNull(double value)
{
    return std::isnan(value) ? QJsonValue() : QJsonValue(value);
}

QJsonValue excess(const EnvelopeCheckResult::Excess &e)
{
    if (std::isnan(e.time))
        return QJsonValue();
    return QJsonObject{{"time", e.time}, {"excess", e.excess}};
}

} // namespace

QJsonObject toJson(const Verdict &v)
{
    const EnvelopeCheckResult &r = v.result;
    QJsonObject row{{"file", QString::fromStdString(v.file)},
                       {"waveform", QString::fromStdString(v.waveform)},
                       {"result", r.passed() ? "pass" : "fail"},
                       {"checked", static_cast<double>(r.checked)},
                       {"nan", static_cast<double>(r.nanSamples)},
                       {"above", static_cast<double>(r.above)},
                       {"below", static_cast<double>(r.below)},
                       {"first_violation", orNull(r.firstViolation)},
                       {"worst_above", excess(r.worstAbove)},
                       {"worst_below", excess(r.worstBelow)},
                       {"min_margin", orNull(r.minMargin)},
                       {"uncovered", r.uncovered},
                       {"shift", r.shift}};
    if (!r.failure.isEmpty())
        row.insert("reason", r.failure);
    return row;
}

// The worst sample outside, for a CI system's one-line message: its value, how far beyond which
// limit, and when.
QString worstViolation(const Verdict &v)
{
    const EnvelopeCheckResult &r = v.result;
    if (!r.failure.isEmpty())
        return r.failure;
    QString message;
    if (r.violations()) {
        const EnvelopeCheckResult::Excess &w = r.worst();
        message = QStringLiteral("worst violation %1, %2 %3 the %4 limit at %5 (%6 outside, first at %7)")
                      .arg(ValueFormatter::formatWithUnit(w.value, v.unit),
                           ValueFormatter::formatWithUnit(w.excess, v.unit), &w == &r.worstBelow ? "below" : "above",
                           &w == &r.worstBelow ? "lower" : "upper", seconds(w.time))
                      .arg(r.violations())
                      .arg(seconds(r.firstViolation));
    }
    if (r.uncovered > 0.0)
        message += (message.isEmpty() ? "" : "; ") + QStringLiteral("%1 of the envelope uncovered").arg(seconds(r.uncovered));
    if (v.aligned)
        message += QStringLiteral("; shift %1").arg(seconds(r.shift));
    return message;
}

// One testcase per file and waveform; a file that could not be checked is a testcase in error.
bool writeJUnit(const std::string &path, const std::vector<Verdict> &verdicts, const std::vector<Trouble> &troubles)
{
    QFile file(QString::fromStdString(path));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    int failures = 0;
    for (const Verdict &v : verdicts)
        failures += !v.result.passed();
    QXmlStreamWriter xml(&file);
    xml.setAutoFormatting(true);
    xml.writeStartDocument();
    xml.writeStartElement("testsuites");
    xml.writeStartElement("testsuite");
    xml.writeAttribute("name", "vorn check");
    xml.writeAttribute("tests", QString::number(verdicts.size() + troubles.size()));
    xml.writeAttribute("failures", QString::number(failures));
    xml.writeAttribute("errors", QString::number(troubles.size()));
    for (const Verdict &v : verdicts) {
        xml.writeStartElement("testcase");
        xml.writeAttribute("classname", QString::fromStdString(v.file));
        xml.writeAttribute("name", QString::fromStdString(v.waveform));
        if (!v.result.passed()) {
            xml.writeStartElement("failure");
            xml.writeAttribute("message", worstViolation(v));
            xml.writeAttribute("type", "envelope");
            xml.writeCharacters(describe(v));
            xml.writeEndElement();
        }
        xml.writeEndElement();
    }
    for (const Trouble &t : troubles) {
        xml.writeStartElement("testcase");
        xml.writeAttribute("classname", QString::fromStdString(t.file));
        xml.writeAttribute("name", QString::fromStdString(t.file));
        xml.writeStartElement("error");
        xml.writeAttribute("message", QString::fromStdString(t.reason));
        xml.writeEndElement();
        xml.writeEndElement();
    }
    xml.writeEndDocument();
    return !xml.hasError() && file.flush();
}

std::map<std::string, EnvelopeData> referenceEnvelopes(const std::string &path)
{
    std::map<std::string, EnvelopeData> envelopes;
    for (EnvelopedWaveform &w : envelopedWaveforms(path, readInfos(path))) {
        if (!w.envelope.isEmpty())
            envelopes[w.name] = std::move(w.envelope);
    }
    if (envelopes.empty())
        throw Failure{path + ": the reference holds no envelope"};
    return envelopes;
}

bool judgeWaveform(const WaveformData &waveform, const EnvelopeData &envelope, const AlignmentOptions &align,
                   EnvelopeCheckResult &result, std::string &trouble)
{
    result = checkAligned(waveform, envelope, align);
    if (result.checked == 0 && result.failure.isEmpty()) {
        trouble = waveform.name.toStdString() + ": no sample lies under its envelope";
        return false;
    }
    return true;
}

namespace {

// What one file gave: its verdicts, or why it could not be checked, with the messages for stderr
// kept until the files before it are reported.
struct Outcome
{
    std::vector<Verdict> verdicts;
    std::vector<Trouble> troubles;
    std::string messages;
};

// Checks every plain waveform of one file that has an envelope, its own or the reference's, one
// waveform in memory at a time. An envelope with no sample under it judges nothing: that waveform
// is in trouble, not passed.
void checkFile(const std::string &path, const std::map<std::string, EnvelopeData> *reference,
               const AlignmentOptions &align, Outcome &outcome)
{
    const auto infos = readInfos(path);
    size_t checked = 0;
    const bool aligned = align.trigger || align.maxShift > 0.0;
    for (EnvelopedWaveform &w : envelopedWaveforms(path, infos)) {
        if (reference) {
            const auto it = reference->find(w.name);
            w.envelope = it != reference->end() ? it->second : EnvelopeData();
        }
        if (w.envelope.isEmpty())
            continue;
        const WaveformData waveform = loadWaveformAt(path, infos, w.index, UINT64_MAX);
        EnvelopeCheckResult result;
        std::string reason;
        ++checked;
        if (!judgeWaveform(waveform, w.envelope, align, result, reason)) {
            outcome.messages += "vorn: " + printable(path + ": " + reason) + "\n";
            outcome.troubles.push_back({path, reason});
            continue;
        }
        outcome.verdicts.push_back({path, w.name, waveform.unit, result, aligned});
    }
    if (checked == 0)
        throw Failure{reference ? "no waveform matches a name in the reference" : "no waveform has an envelope"};
}

// Files are checked on every core, each worker holding one capture, and reported in the order
// given.
std::vector<Outcome> checkAll(const Options &options, const std::map<std::string, EnvelopeData> *reference)
{
    std::vector<Outcome> outcomes(options.files.size());
    std::atomic<size_t> next{0};
    const auto work = [&] {
        for (size_t i = next++; i < outcomes.size(); i = next++) {
            const std::string &file = options.files[i];
            try {
                checkFile(file, reference, options.align, outcomes[i]);
            } catch (const Failure &failure) {
                outcomes[i].messages += "vorn: " + printable(file + ": " + failure.reason) + "\n";
                outcomes[i].troubles.push_back({file, failure.reason});
            } catch (const std::bad_alloc &) {
                outcomes[i].messages += "vorn: " + printable(file) + ": not enough memory\n";
                outcomes[i].troubles.push_back({file, "not enough memory"});
            }
        }
    };
    const unsigned jobs = std::max(1u, std::min<unsigned>(options.jobs ? options.jobs : std::thread::hardware_concurrency(),
                                                          static_cast<unsigned>(outcomes.size())));
    std::vector<std::thread> workers;
    for (unsigned j = 1; j < jobs; ++j)
        workers.emplace_back(work);
    work();
    for (std::thread &worker : workers)
        worker.join();
    return outcomes;
}

} // namespace

int checkCaptures(const std::vector<std::string> &args)
{
    const Options options = parseOptions(args);
    std::map<std::string, EnvelopeData> reference;
    if (!options.reference.empty())
        reference = referenceEnvelopes(options.reference);

    std::vector<Verdict> verdicts;
    std::vector<Trouble> troubles;
    for (Outcome &outcome : checkAll(options, options.reference.empty() ? nullptr : &reference)) {
        std::fputs(outcome.messages.c_str(), stderr);
        verdicts.insert(verdicts.end(), outcome.verdicts.begin(), outcome.verdicts.end());
        troubles.insert(troubles.end(), outcome.troubles.begin(), outcome.troubles.end());
    }

    size_t failed = 0;
    QJsonArray array;
    std::vector<BatchTally> tallies; // per waveform, in the order first seen
    for (const Verdict &v : verdicts) {
        failed += !v.result.passed();
        const QString name = QString::fromStdString(v.waveform);
        auto tally = std::find_if(tallies.begin(), tallies.end(), [&](const BatchTally &t) { return t.name() == name; });
        if (tally == tallies.end())
            tally = tallies.insert(tallies.end(), BatchTally(name));
        tally->add(QString::fromStdString(v.file), v.result);
        if (options.json)
            array.append(toJson(v));
        else
            std::printf("%s\n", qPrintable(describe(v)));
    }
    if (options.json) {
        std::printf("%s", QJsonDocument(array).toJson(QJsonDocument::Indented).constData());
    } else if (options.files.size() > 1) {
        for (const BatchTally &t : tallies)
            std::printf("%s\n", qPrintable(t.line()));
        std::printf("%zu files, %zu waveforms: %zu passed, %zu failed, %zu not judged\n", options.files.size(),
                    verdicts.size(), verdicts.size() - failed, failed, troubles.size());
    }
    if (!options.junit.empty() && !writeJUnit(options.junit, verdicts, troubles))
        throw Failure{"cannot write " + options.junit};
    if (!troubles.empty())
        return EXIT_READ_FAILED;
    return failed ? EXIT_CHECK_FAILED : 0;
}
