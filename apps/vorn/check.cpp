// vorn check: judges captures against envelopes, for people (one line per waveform), scripts
// (--json) and CI systems (--junit).

#include "capture.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QXmlStreamWriter>

#include <cmath>
#include <cstdio>
#include <map>

namespace {

constexpr int EXIT_READ_FAILED = 2;
constexpr int EXIT_CHECK_FAILED = 3;

struct Options
{
    std::vector<std::string> files;
    std::string reference;
    std::string junit;
    bool json = false;
};

struct Verdict
{
    std::string file;
    std::string waveform;
    QString unit;
    EnvelopeCheckResult result;
};

// A file that could not be checked, and why.
struct Trouble
{
    std::string file;
    std::string reason;
};

Options parseOptions(const std::vector<std::string> &args)
{
    Options o;
    for (size_t i = 1; i < args.size(); ++i) {
        const std::string &a = args[i];
        if (a == "--json")
            o.json = true;
        else if ((a == "--reference" || a == "--junit") && i + 1 < args.size())
            (a == "--reference" ? o.reference : o.junit) = args[++i];
        else if (a.rfind("--", 0) == 0)
            throw UsageError{};
        else
            o.files.push_back(a);
    }
    if (o.files.empty())
        throw UsageError{};
    return o;
}

QString seconds(double t)
{
    return ValueFormatter::formatWithUnit(t, QStringLiteral("s"));
}

QString describe(const Verdict &v)
{
    const EnvelopeCheckResult &r = v.result;
    QString line = QStringLiteral("%1 %2 %3: %4 checked")
                       .arg(r.passed() ? "pass" : "fail", QString::fromStdString(v.file),
                            QString::fromStdString(v.waveform))
                       .arg(r.checked);
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

QJsonObject toJson(const Verdict &v)
{
    const EnvelopeCheckResult &r = v.result;
    return QJsonObject{{"file", QString::fromStdString(v.file)},
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
                       {"shift", 0.0}};
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
            xml.writeAttribute("message", v.result.violations()
                                              ? QStringLiteral("first violation at %1").arg(seconds(v.result.firstViolation))
                                              : QStringLiteral("%1 of the envelope uncovered").arg(seconds(v.result.uncovered)));
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

// Checks every plain waveform of one file that has an envelope, its own or the reference's. An
// envelope with no sample under it judges nothing: that waveform is in trouble, not passed.
void checkFile(const std::string &path, const std::map<std::string, EnvelopeData> *reference,
               std::vector<Verdict> &verdicts, std::vector<Trouble> &troubles)
{
    const auto infos = readInfos(path);
    size_t checked = 0;
    for (EnvelopedWaveform &w : envelopedWaveforms(path, infos)) {
        if (reference) {
            const auto it = reference->find(w.name);
            w.envelope = it != reference->end() ? it->second : EnvelopeData();
        }
        if (w.envelope.isEmpty())
            continue;
        const WaveformData waveform = loadWaveformAt(path, infos, w.index, UINT64_MAX);
        const EnvelopeCheckResult result = checkEnvelope(waveform, w.envelope);
        ++checked;
        if (result.checked == 0) {
            const std::string reason = w.name + ": no sample lies under its envelope";
            std::fprintf(stderr, "vorn: %s: %s\n", path.c_str(), reason.c_str());
            troubles.push_back({path, reason});
            continue;
        }
        verdicts.push_back({path, w.name, waveform.unit, result});
    }
    if (checked == 0)
        throw Failure{reference ? "no waveform matches a name in the reference" : "no waveform has an envelope"};
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
    for (const std::string &file : options.files) {
        try {
            checkFile(file, options.reference.empty() ? nullptr : &reference, verdicts, troubles);
        } catch (const Failure &failure) {
            std::fprintf(stderr, "vorn: %s\n", printable(file + ": " + failure.reason).c_str());
            troubles.push_back({file, failure.reason});
        }
    }

    size_t failed = 0;
    QJsonArray array;
    for (const Verdict &v : verdicts) {
        failed += !v.result.passed();
        if (options.json)
            array.append(toJson(v));
        else
            std::printf("%s\n", qPrintable(describe(v)));
    }
    if (options.json)
        std::printf("%s", QJsonDocument(array).toJson(QJsonDocument::Indented).constData());
    else if (options.files.size() > 1)
        std::printf("%zu files, %zu waveforms: %zu passed, %zu failed, %zu not judged\n", options.files.size(),
                    verdicts.size(), verdicts.size() - failed, failed, troubles.size());
    if (!options.junit.empty() && !writeJUnit(options.junit, verdicts, troubles))
        throw Failure{"cannot write " + options.junit};
    if (!troubles.empty())
        return EXIT_READ_FAILED;
    return failed ? EXIT_CHECK_FAILED : 0;
}
