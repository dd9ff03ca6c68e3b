// vorn check: judges captures against envelopes, for people (one line per waveform), scripts
// (--json) and CI systems (--junit).

#include "judging.h"
#include "progress.h"
#include "limitsreport.h"
#include "report.h"

#include <QApplication>
#include <QDir>
#include <QFileInfo>

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QXmlStreamWriter>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <system_error>
#include <thread>

namespace {

constexpr int EXIT_READ_FAILED = 2;
constexpr int EXIT_CHECK_FAILED = 3;

struct Options
{
    std::vector<std::string> files;
    std::string reference;
    std::string junit;
    ReportOptions report;
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
    if (text.empty())
        badOption("--jobs needs a whole number of files to check at once, at least 1");
    char *end = nullptr;
    errno = 0;
    const unsigned long n = std::strtoul(text.c_str(), &end, 10);
    if (*end || !std::isdigit(static_cast<unsigned char>(text[0])) || n < 1 || errno == ERANGE)
        badOption("--jobs needs a whole number of files to check at once, at least 1, not '" + text + "'");
    return static_cast<unsigned>(std::min<unsigned long>(n, UINT_MAX));
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

Options parseOptions(const std::vector<std::string> &args)
{
    Options o;
    for (size_t i = 1; i < args.size(); ++i) {
        const std::string &a = args[i];
        if (a == "--json")
            o.json = true;
        else if ((a == "--reference" || a == "--junit" || a == "--report" || a == "--report-dir") && i + 1 < args.size())
            (a == "--reference" ? o.reference : a == "--junit" ? o.junit : a == "--report" ? o.report.report : o.report.reportDir) = args[++i];
        else if (a == "--align" && i + 1 < args.size())
            o.align.maxShift = parseAlignment(args[++i]);
        else if (a == "--trigger" && i + 1 < args.size())
            parseTrigger(args[++i], o.align);
        else if (a == "--jobs")
            o.jobs = parseJobs(i + 1 < args.size() ? args[++i] : std::string());
        else if (a.rfind("--", 0) == 0)
            throw UsageError{};
        else
            o.files.push_back(a);
    }
    if (o.align.trigger && o.align.maxShift > 0.0)
        badOption("--align and --trigger exclude each other: align by the best fit or by a trigger, not both");
    if (o.files.empty())
        throw UsageError{};
    o.report.reference = o.reference;
    o.report.args = args;
    return o;
}

QString seconds(double t)
{
    return ValueFormatter::formatWithUnit(t, QStringLiteral("s"));
}

} // namespace

bool passed(const Verdict &v)
{
    return (!v.enveloped || v.result.passed()) && v.limits.passed();
}

QString describe(const Verdict &v)
{
    const EnvelopeCheckResult &r = v.result;
    const QString head = QStringLiteral("%1 %2 %3: ").arg(passed(v) ? "pass" : "fail", QString::fromStdString(v.file),
                                                        QString::fromStdString(v.waveform));
    if (!v.enveloped)
        return head + limitsText(v.limits);
    if (!r.failure.isEmpty())
        return head + r.failure + (v.limits.outcomes.empty() ? QString() : ", " + limitsText(v.limits));
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
        line += QStringLiteral(", min margin %1").arg(marginText(r.minMargin));
    if (!v.limits.outcomes.empty())
        line += ", " + limitsText(v.limits);
    const QString notes = checkNotes(r);
    if (!notes.isEmpty())
        line += QStringLiteral("; ") + notes;
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
                       {"result", passed(v) ? "pass" : "fail"},
                       {"checked", static_cast<double>(r.checked)},
                       {"nan", static_cast<double>(r.nanSamples)},
                       {"above", static_cast<double>(r.above)},
                       {"below", static_cast<double>(r.below)},
                       {"first_violation", orNull(r.firstViolation)},
                       {"worst_above", excess(r.worstAbove)},
                       {"worst_below", excess(r.worstBelow)},
                       {"min_margin", orNull(r.minMargin)},
                       {"uncovered", r.uncovered + r.uncoveredByShift},
                       {"uncovered_by_shift", r.uncoveredByShift},
                       {"gaps", r.gaps},
                       {"shift", r.shift}};
    QJsonArray spans;
    for (const auto &[first, last] : r.gapSpans)
        spans.append(QJsonArray{first, last});
    row.insert("gap_spans", spans);
    if (r.captureInterval > 0.0)
        row.insert("sample_rates", QJsonObject{{"capture", 1 / r.captureInterval}, {"envelope", 1 / r.envelopeInterval}});
    if (!r.failure.isEmpty())
        row.insert("reason", r.failure);
    if (!v.limits.outcomes.empty()) {
        QJsonObject measured = measurementsJson(QString(), v.limits.measurements);
        measured.remove("waveform");
        row.insert("measurements", measured);
        row.insert("limit_failures", limitFailuresJson(v.limits));
    }
    return row;
}

// The worst sample outside, for a CI system's one-line message: its value, how far beyond which
// limit, and when.
QString worstViolation(const Verdict &v)
{
    const EnvelopeCheckResult &r = v.result;
    const QString limits = v.limits.passed() ? QString() : limitsText(v.limits);
    if (!v.enveloped || v.result.passed())
        return limits;
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
    if (!limits.isEmpty())
        message += "; " + limits;
    return message;
}

// One testcase per file and waveform; a file that could not be checked is a testcase in error.
// A failing testcase names its picture the two ways CI servers look for attachments.
bool writeJUnit(const std::string &path, const std::vector<Verdict> &verdicts, const std::vector<Trouble> &troubles,
                const std::vector<QString> &attachments)
{
    QFile file(QString::fromStdString(path));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    int failures = 0;
    for (const Verdict &v : verdicts)
        failures += !passed(v);
    QXmlStreamWriter xml(&file);
    xml.setAutoFormatting(true);
    xml.writeStartDocument();
    xml.writeStartElement("testsuites");
    xml.writeStartElement("testsuite");
    xml.writeAttribute("name", "vorn check");
    xml.writeAttribute("tests", QString::number(verdicts.size() + troubles.size()));
    xml.writeAttribute("failures", QString::number(failures));
    xml.writeAttribute("errors", QString::number(troubles.size()));
    for (size_t i = 0; i < verdicts.size(); ++i) {
        const Verdict &v = verdicts[i];
        const QString attachment = i < attachments.size() ? attachments[i] : QString();
        xml.writeStartElement("testcase");
        xml.writeAttribute("classname", QString::fromStdString(v.file));
        xml.writeAttribute("name", QString::fromStdString(v.waveform));
        if (!attachment.isEmpty()) {
            xml.writeStartElement("properties");
            xml.writeStartElement("property");
            xml.writeAttribute("name", "attachment");
            xml.writeAttribute("value", attachment);
            xml.writeEndElement();
            xml.writeEndElement();
        }
        if (!passed(v)) {
            xml.writeStartElement("failure");
            xml.writeAttribute("message", worstViolation(v));
            xml.writeAttribute("type", v.enveloped && !v.result.passed() ? "envelope" : "limits");
            xml.writeCharacters(describe(v));
            xml.writeEndElement();
        }
        // A pass says what it did not judge, too.
        QString out = checkNotes(v.result, INT_MAX);
        if (!attachment.isEmpty())
            out += (out.isEmpty() ? "" : "\n") + QStringLiteral("[[ATTACHMENT|%1]]").arg(attachment);
        if (!out.isEmpty())
            xml.writeTextElement("system-out", out);
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

Golden referenceGolden(const std::string &path)
{
    Golden golden;
    const std::vector<std::string> unreadable = unreadableCurves(path);
    if (!unreadable.empty())
        throw Failure{unreadable.front(), path};
    for (EnvelopedWaveform &w : envelopedWaveforms(path, readInfos(path))) {
        if (!w.unreadable.empty())
            throw Failure{w.name + ": " + w.unreadable, path};
        if (!w.envelope.isEmpty())
            golden.envelopes[w.name] = std::move(w.envelope);
    }
    golden.limits = limitsOf(path);
    if (golden.envelopes.empty() && golden.limits.empty())
        throw Failure{path + ": the reference holds no envelope"};
    return golden;
}

namespace {

// Why a check judged no sample, in plain words: every sample under the limits is NaN, or none
// lies under them at all.
std::string nothingJudged(const WaveformData &waveform, const EnvelopeData &envelope, const EnvelopeCheckResult &result)
{
    if (result.nanSamples > 0)
        return "every one of the " + std::to_string(result.nanSamples) + " samples under its envelope is NaN";
    const auto span = [](const WaveformData &w) {
        const double last = w.samples->empty() ? w.startTime
                                               : w.startTime + static_cast<double>(w.samples->size() - 1) * w.sampleInterval;
        return (seconds(w.startTime) + " to " + seconds(last)).toStdString();
    };
    if (waveform.samples->empty())
        return "the capture has no samples to judge against its envelope";
    return "no sample lies under its envelope: the envelope spans " + span(envelope.upper) + ", the capture "
           + span(waveform);
}

} // namespace

bool judgeWaveform(const WaveformData &waveform, const EnvelopeData &envelope, const AlignmentOptions &align,
                   EnvelopeCheckResult &result, std::string &trouble)
{
    const QString defect = envelopeDefect(envelope, waveform);
    if (!defect.isEmpty()) {
        trouble = waveform.name.toStdString() + ": " + defect.toStdString();
        return false;
    }
    result = checkAligned(waveform, envelope, align);
    if (result.checked == 0 && result.failure.isEmpty()) {
        trouble = waveform.name.toStdString() + ": " + nothingJudged(waveform, envelope, result);
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

// Checks every plain waveform of one file that has an envelope or measurement limits, its own or
// the reference's, one waveform in memory at a time. An envelope with no sample under it judges
// nothing: that waveform is in trouble, not passed.
void checkFile(const std::string &path, const Golden *reference, const AlignmentOptions &align, Outcome &outcome)
{
    const auto troubled = [&](const std::string &reason) {
        outcome.messages += "vorn: " + printable(path + ": " + reason) + "\n";
        outcome.troubles.push_back({path, reason});
    };
    const auto infos = readInfos(path);
    const WaveformLimits ownLimits = reference ? WaveformLimits() : limitsOf(path);
    const WaveformLimits &limits = reference ? reference->limits : ownLimits;
    size_t checked = 0;
    const bool aligned = align.trigger || align.maxShift > 0.0;
    // A limit that could not be read may be the one that fails this capture.
    if (!reference) {
        for (const std::string &line : unreadableCurves(path))
            troubled(line);
        checked += outcome.troubles.size();
    }
    for (EnvelopedWaveform &w : envelopedWaveforms(path, infos)) {
        if (reference) {
            const auto it = reference->envelopes.find(w.name);
            w.envelope = it != reference->envelopes.end() ? it->second : EnvelopeData();
            w.unreadable.clear();
        }
        if (!w.unreadable.empty()) {
            ++checked;
            troubled(w.name + ": " + w.unreadable);
            continue;
        }
        const auto limited = limits.find(w.name);
        if (w.envelope.isEmpty() && limited == limits.end())
            continue;
        const WaveformData waveform = loadWaveformAt(path, infos, w.index, UINT64_MAX);
        Verdict verdict{path, w.name, waveform.unit, {}, aligned, !w.envelope.isEmpty(), {}};
        ++checked;
        if (verdict.enveloped) {
            std::string trouble;
            if (!judgeWaveform(waveform, w.envelope, align, verdict.result, trouble)) {
                troubled(trouble);
                continue;
            }
        }
        if (limited != limits.end())
            verdict.limits = judgeLimits(waveform, limited->second);
        outcome.verdicts.push_back(std::move(verdict));
    }
    if (checked == 0 && limits.empty())
        throw Failure{reference ? "no waveform matches a name in the reference" : "no waveform has an envelope"};
    if (checked == 0)
        throw Failure{reference ? "no waveform matches a name in the reference" : "no waveform has an envelope or limits"};
}

// More workers than cores only wait for each other, and each holds a capture: the count asked
// for is kept within the cores and what the memory holds for a few captures each.
unsigned usefulJobs(unsigned asked, size_t files)
{
    constexpr uint64_t MEMORY_PER_JOB = 256ull << 20;
    const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
    const uint64_t memory = std::max<uint64_t>(1, availableMemory() / MEMORY_PER_JOB);
    uint64_t jobs = asked ? asked : cores;
    jobs = std::min<uint64_t>({jobs, cores, memory, std::max<size_t>(files, 1)});
    return static_cast<unsigned>(std::max<uint64_t>(jobs, 1));
}

// Files are checked on every core, each worker holding one capture, and reported in the order
// given.
std::vector<Outcome> checkAll(const Options &options, const Golden *reference)
{
    std::vector<Outcome> outcomes(options.files.size());
    std::atomic<size_t> next{0};
    Progress progress(outcomes.size(), "files");
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
            progress.advance();
        }
    };
    std::vector<std::thread> workers;
    for (unsigned j = 1; j < usefulJobs(options.jobs, outcomes.size()); ++j) {
        try {
            workers.emplace_back(work);
        } catch (const std::system_error &) {
            break; // the workers there are share the files
        }
    }
    work();
    for (std::thread &worker : workers)
        worker.join();
    return outcomes;
}

} // namespace

void LimitStatistics::add(const Verdict &v)
{
    const QString name = QString::fromStdString(v.waveform);
    m_units[name] = v.unit;
    for (const LimitOutcome &o : v.limits.outcomes) {
        if (o.measured.valid())
            m_statistics.add(name, o.limit.measure, o.measured.value, &o.limit);
    }
}

void LimitStatistics::print(FILE *out) const
{
    for (const MeasureStatistics::Row &row : m_statistics.rows())
        std::fprintf(out, "%s\n", printable(statisticsLine(row, m_units.at(row.waveform)).toStdString()).c_str());
}

namespace {

// A file name part made of what every file system and CI server takes.
QString fileNamePart(const QString &text)
{
    QString part = text;
    part.replace(QRegularExpression(QStringLiteral("[^A-Za-z0-9._-]+")), QStringLiteral("_"));
    return part;
}

} // namespace

int reportPictureLimit(const ReportOptions &options)
{
    return options.reportDir.empty() ? REPORT_PICTURE_LIMIT : 10 * REPORT_PICTURE_LIMIT;
}

// Only failing waveforms are drawn, a bounded number of them, so a long batch stays quick to
// report and its file of a reasonable size.
std::vector<QString> writeReports(const ReportOptions &options, const std::vector<Verdict> &verdicts,
                                  const std::vector<Trouble> &troubles, const VerdictSource &source)
{
    const auto application = startOffscreenPictures();
    std::vector<ReportRow> rows;
    for (const Verdict &v : verdicts)
        rows.push_back({QString::fromStdString(v.file), QString::fromStdString(v.waveform), v.unit, v.result, describe(v),
                        v.enveloped, v.limits.outcomes});
    std::vector<ReportTrouble> notJudged;
    for (const Trouble &t : troubles)
        notJudged.push_back({QString::fromStdString(t.file), QString::fromStdString(t.reason)});
    const ReportSource rowSource = [&](const ReportRow &row, WaveformData &waveform, EnvelopeData &envelope) {
        return source(verdicts[static_cast<size_t>(&row - rows.data())], waveform, envelope);
    };
    std::vector<FailurePictures> pictures = drawFailures(rows, rowSource, reportPictureLimit(options));
    std::vector<QString> attachments(rows.size());
    if (!options.reportDir.empty()) {
        const QDir dir(QString::fromStdString(options.reportDir));
        if (!dir.mkpath(QStringLiteral(".")))
            throw Failure{"cannot make the folder " + options.reportDir};
        for (size_t i = 0; i < rows.size(); ++i) {
            if (pictures[i].whole.isEmpty())
                continue;
            const QString name = QStringLiteral("%1-%2-%3.png").arg(i + 1, 4, 10, QLatin1Char('0'))
                                     .arg(fileNamePart(QFileInfo(rows[i].file).completeBaseName()), fileNamePart(rows[i].waveform));
            QString error;
            if (!writeReportFile(dir.filePath(name), pictures[i].whole, &error))
                throw Failure{"cannot write " + dir.filePath(name).toStdString() + ": " + error.toStdString()};
            attachments[i] = dir.absoluteFilePath(name);
        }
    }
    if (!options.report.empty()) {
        // The file stays of a reasonable size: the first failures are drawn, the rest listed.
        int drawn = 0;
        for (FailurePictures &p : pictures) {
            if (!p.whole.isEmpty() && ++drawn > REPORT_PICTURE_LIMIT)
                p = {};
        }
        ReportInfo info;
        info.command = "vorn";
        if (!options.args.empty()) // check or run
            info.title = QStringLiteral("vorn %1 report").arg(QString::fromStdString(options.args.front()));
        for (const std::string &a : options.args)
            info.command += " " + QString::fromStdString(a);
        info.reference = QString::fromStdString(options.reference);
        QString error;
        if (!writeReportFile(QString::fromStdString(options.report), reportHtml(rows, notJudged, pictures, info), &error))
            throw Failure{"cannot write " + options.report + ": " + error.toStdString()};
    }
    return attachments;
}

namespace {

// A checked file's waveform read again, with the envelope it was judged against.
bool readAgain(const Verdict &v, const Options &options, const Golden &reference, WaveformData &waveform, EnvelopeData &envelope)
{
    try {
        waveform = loadWaveform(v.file, v.waveform, UINT64_MAX);
        if (!options.reference.empty()) {
            const auto it = reference.envelopes.find(v.waveform);
            envelope = it != reference.envelopes.end() ? it->second : EnvelopeData();
            return true;
        }
        for (EnvelopedWaveform &w : envelopedWaveforms(v.file, readInfos(v.file))) {
            if (w.name == v.waveform) {
                envelope = std::move(w.envelope);
                return true;
            }
        }
        return false;
    } catch (const Failure &) {
        return false;
    }
}

} // namespace

int checkCaptures(const std::vector<std::string> &args)
{
    const Options options = parseOptions(args);
    Golden reference;
    if (!options.reference.empty())
        reference = referenceGolden(options.reference);

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
        failed += !passed(v);
        const QString name = QString::fromStdString(v.waveform);
        auto tally = std::find_if(tallies.begin(), tallies.end(), [&](const BatchTally &t) { return t.name() == name; });
        if (tally == tallies.end())
            tally = tallies.insert(tallies.end(), BatchTally(name));
        if (v.enveloped)
            tally->add(QString::fromStdString(v.file), v.result);
        if (options.json)
            array.append(toJson(v));
        else
            std::printf("%s\n", printable(describe(v).toStdString()).c_str());
    }
    if (options.json) {
        std::printf("%s", QJsonDocument(array).toJson(QJsonDocument::Indented).constData());
    } else if (options.files.size() > 1) {
        for (const BatchTally &t : tallies) {
            if (t.tested())
                std::printf("%s\n", printable(t.line().toStdString()).c_str());
        }
        LimitStatistics statistics;
        for (const Verdict &v : verdicts)
            statistics.add(v);
        statistics.print(stdout);
        std::printf("%zu files, %zu waveforms: %zu passed, %zu failed, %zu not judged\n", options.files.size(),
                    verdicts.size(), verdicts.size() - failed, failed, troubles.size());
    }
    std::vector<QString> attachments;
    if (!options.report.report.empty() || !options.report.reportDir.empty())
        attachments = writeReports(options.report, verdicts, troubles, [&](const Verdict &v, WaveformData &w, EnvelopeData &e) {
            return readAgain(v, options, reference, w, e);
        });
    if (!options.junit.empty() && !writeJUnit(options.junit, verdicts, troubles, attachments))
        throw Failure{"cannot write " + options.junit};
    if (!troubles.empty())
        return EXIT_READ_FAILED;
    return failed ? EXIT_CHECK_FAILED : 0;
}
