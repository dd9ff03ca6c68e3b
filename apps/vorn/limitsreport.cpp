#include "limitsreport.h"

#include "capture.h"

#include <cmath>

namespace {

QJsonValue orNull(double v)
{
    return std::isnan(v) ? QJsonValue() : QJsonValue(v);
}

} // namespace

WaveformLimits limitsOf(const std::string &path)
{
    std::vector<MeasurementLimit> limits;
    QString error;
    if (!loadLimits(QString::fromStdString(path), limits, &error))
        throw Failure{error.toStdString(), path};
    WaveformLimits byWaveform;
    for (const MeasurementLimit &l : limits)
        byWaveform[l.waveform.toStdString()].push_back(l);
    return byWaveform;
}

QJsonObject measurementsJson(const QString &name, const PulseMeasurements &m)
{
    QJsonObject row{{"waveform", name}};
    for (int i = 0; i < MEASURE_COUNT; ++i)
        row.insert(measureKey(static_cast<Measure>(i)), orNull(m.values[static_cast<size_t>(i)].value));
    return row;
}

QJsonArray limitFailuresJson(const LimitVerdict &verdict)
{
    QJsonArray failures;
    for (const LimitOutcome &o : verdict.outcomes) {
        if (!o.passed())
            failures.append(QJsonObject{{"measurement", measureKey(o.limit.measure)}, {"value", orNull(o.measured.value)},
                                        {"min", orNull(o.limit.min)}, {"max", orNull(o.limit.max)}, {"reason", o.failure}});
    }
    return failures;
}

QString limitsText(const LimitVerdict &verdict)
{
    QStringList failures;
    for (const LimitOutcome &o : verdict.outcomes) {
        if (!o.passed())
            failures << o.failure;
    }
    const size_t n = verdict.outcomes.size();
    if (failures.isEmpty())
        return QStringLiteral("%1 limit%2 met").arg(n).arg(n == 1 ? "" : "s");
    return QStringLiteral("%1 of %2 limit%3 failed: %4").arg(failures.size()).arg(n).arg(n == 1 ? "" : "s", failures.join("; "));
}

QString statisticsLine(const MeasureStatistics::Row &r, const QString &unit)
{
    const auto f = [&](double v) { return formatMeasure(r.measure, v, unit); };
    QString line = QStringLiteral("%1 %2: %3 values, min %4, mean %5, max %6, sd %7")
                       .arg(r.waveform, QLatin1String(measureKey(r.measure)))
                       .arg(r.count)
                       .arg(f(r.min), f(r.mean), f(r.max), f(r.stddev));
    if (!std::isnan(r.cpk))
        line += QStringLiteral(", Cpk %1").arg(r.cpk, 0, 'f', 2);
    return line;
}
