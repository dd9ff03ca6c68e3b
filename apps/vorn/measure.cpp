// vorn measure and vorn limits: pulse measurements of a capture's waveforms, and the limits a
// golden capture keeps for them.

#include "capture.h"
#include "limitsreport.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

double parseTime(const std::string &text)
{
    const double t = parseCommandLineValue(QString::fromStdString(text), QStringLiteral("s"));
    if (!std::isfinite(t))
        throw Failure{"'" + text + "' is no time, such as 2ms"};
    return t;
}

// The plain waveforms of the capture, all of them when names is empty.
std::vector<int32_t> chosenWaveforms(const std::string &path, const std::vector<SigrokWaveformInfo> &infos,
                                     const std::vector<std::string> &names)
{
    std::vector<int32_t> indices;
    if (names.empty()) {
        for (const EnvelopedWaveform &w : envelopedWaveforms(path, infos))
            indices.push_back(w.index);
    }
    for (const std::string &name : names)
        indices.push_back(findWaveform(infos, name, path));
    return indices;
}

void printHuman(const WaveformData &w, const PulseMeasurements &m)
{
    std::printf("%s\n", printable(w.name.toStdString()).c_str());
    if (!m.levels.note.isEmpty())
        std::printf("  (%s)\n", qPrintable(m.levels.note));
    for (int i = 0; i < MEASURE_COUNT; ++i) {
        const Measure x = static_cast<Measure>(i);
        const MeasureValue &v = m[x];
        const QString text = v.valid() ? formatMeasure(x, v.value, w.unit) : QStringLiteral("- (%1)").arg(v.reason);
        std::printf("  %-14s %s\n", measureKey(x), qPrintable(text));
    }
}

} // namespace

int measureCaptures(const std::vector<std::string> &args)
{
    std::vector<std::string> names;
    double from = std::nan(""), to = std::nan("");
    bool json = false;
    for (size_t i = 2; i < args.size(); ++i) {
        if (args[i] == "--json")
            json = true;
        else if (args[i] == "--from" && i + 1 < args.size())
            from = parseTime(args[++i]);
        else if (args[i] == "--to" && i + 1 < args.size())
            to = parseTime(args[++i]);
        else if (args[i].rfind("--", 0) == 0)
            throw UsageError{};
        else
            names.push_back(args[i]);
    }
    if (from > to)
        throw Failure{"--from lies after --to"};
    const std::string &path = args[1];
    const auto infos = readInfos(path);
    QJsonArray array;
    for (int32_t index : chosenWaveforms(path, infos, names)) {
        const WaveformData w = loadWaveformAt(path, infos, index, UINT64_MAX);
        const PulseMeasurements m = measurePulses(w, from, to);
        if (json)
            array.append(measurementsJson(w.name, m));
        else
            printHuman(w, m);
    }
    if (json)
        std::printf("%s", QJsonDocument(array).toJson(QJsonDocument::Indented).constData());
    return 0;
}

// vorn limits REF.sr NAME EXPR ... sets limits of NAME; --remove [MEASURE ...] takes them out.
int setLimits(const std::vector<std::string> &args)
{
    if (args.size() < 3)
        throw UsageError{};
    const std::string &path = args[1], &name = args[2];
    const auto infos = readInfos(path);
    const WaveformData info = loadWaveformAt(path, infos, findWaveform(infos, name, path), 0);
    std::vector<MeasurementLimit> limits;
    QString error;
    if (!loadLimits(QString::fromStdString(path), limits, &error))
        throw Failure{error.toStdString(), path};
    const QString waveform = QString::fromStdString(name);
    const bool remove = args.size() >= 4 && args[3] == "--remove";
    for (size_t i = remove ? 4 : 3; i < args.size(); ++i) {
        MeasurementLimit limit{waveform};
        Measure measure;
        if (remove && !measureFromKey(QString::fromStdString(args[i]), measure))
            throw Failure{"'" + args[i] + "' is no measurement"};
        if (!remove && !parseLimitExpression(QString::fromStdString(args[i]), info.unit, limit, &error))
            throw Failure{error.toStdString()};
        const auto same = [&](const MeasurementLimit &l) {
            return l.waveform == waveform && l.measure == (remove ? measure : limit.measure);
        };
        const auto old = std::find_if(limits.begin(), limits.end(), same);
        if (remove) {
            limits.erase(std::remove_if(limits.begin(), limits.end(), same), limits.end());
        } else if (old != limits.end()) {
            // A bound given alone keeps the other one already set.
            MeasurementLimit merged = *old;
            if (!parseLimitExpression(QString::fromStdString(args[i]), info.unit, merged, &error))
                throw Failure{error.toStdString()};
            *old = merged;
        } else {
            limits.push_back(limit);
        }
    }
    if (remove && args.size() == 4)
        limits.erase(std::remove_if(limits.begin(), limits.end(), [&](const MeasurementLimit &l) { return l.waveform == waveform; }),
                     limits.end());
    if (!saveLimits(QString::fromStdString(path), limits, &error))
        throw Failure{error.toStdString(), path};
    for (const MeasurementLimit &l : limits) {
        if (l.waveform == waveform)
            std::printf("%s %s %s\n", name.c_str(), measureKey(l.measure), qPrintable(describeLimit(l, info.unit)));
    }
    return 0;
}
