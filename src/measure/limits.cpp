#include "vornmeasure.h"

#include "srini.h"
#include "srownmember.h"

#include <glib.h>

#include <QRegularExpression>

#include <algorithm>
#include <cmath>
#include <memory>

namespace {

double parseBound(const QString &text, Measure measure, const QString &waveformUnit)
{
    const QString unit = measureUnit(measure, waveformUnit);
    QString t = text.trimmed();
    if (unit == QLatin1String("%")) {
        if (t.endsWith('%'))
            t.chop(1);
        return parseCommandLineValue(t.trimmed(), QString());
    }
    return parseCommandLineValue(t, unit);
}

bool fail(QString *error, const QString &why)
{
    if (error)
        *error = why;
    return false;
}

QString number(double v)
{
    return QString::fromStdString(vornsr::formatDouble(v));
}

} // namespace

bool parseLimitExpression(const QString &text, const QString &waveformUnit, MeasurementLimit &limit, QString *error)
{
    static const QRegularExpression form(QStringLiteral("^\\s*(?:([^<>=]+?)\\s*<=\\s*)?([a-z_]+)\\s*(<=|>=)\\s*([^<>=]+?)\\s*$"));
    const QRegularExpressionMatch match = form.match(text);
    Measure measure;
    if (!match.hasMatch())
        return fail(error, QStringLiteral("'%1' is no limit; write it as rise_time<=25us, frequency>=990Hz or 1ms<=period<=2ms").arg(text));
    if (!measureFromKey(match.captured(2), measure))
        return fail(error, QStringLiteral("'%1' is no measurement").arg(match.captured(2)));
    const bool twoSided = match.capturedLength(1) > 0;
    if (twoSided && match.captured(3) != QLatin1String("<="))
        return fail(error, QStringLiteral("'%1': a range is written low<=%2<=high").arg(text, match.captured(2)));
    const double lower = twoSided ? parseBound(match.captured(1), measure, waveformUnit) : 0.0;
    const double bound = parseBound(match.captured(4), measure, waveformUnit);
    if (!std::isfinite(lower) || !std::isfinite(bound))
        return fail(error, QStringLiteral("'%1': a bound is no number in %2").arg(text, measureUnit(measure, waveformUnit)));
    MeasurementLimit result = limit.measure == measure ? limit : MeasurementLimit{limit.waveform, measure};
    if (twoSided) {
        result.min = lower;
        result.max = bound;
    } else {
        (match.captured(3) == QLatin1String("<=") ? result.max : result.min) = bound;
    }
    if (result.min > result.max)
        return fail(error, QStringLiteral("'%1': the lower bound lies above the upper").arg(text));
    limit = result;
    return true;
}

QString describeLimit(const MeasurementLimit &limit, const QString &waveformUnit)
{
    const auto f = [&](double v) { return formatMeasure(limit.measure, v, waveformUnit); };
    if (!std::isnan(limit.min) && !std::isnan(limit.max))
        return QStringLiteral("%1 .. %2").arg(f(limit.min), f(limit.max));
    return std::isnan(limit.max) ? QStringLiteral(">= %1").arg(f(limit.min)) : QStringLiteral("<= %1").arg(f(limit.max));
}

QString limitsToIni(const std::vector<MeasurementLimit> &limits)
{
    std::unique_ptr<GKeyFile, decltype(&g_key_file_free)> file(g_key_file_new(), g_key_file_free);
    for (size_t i = 0; i < limits.size(); ++i) {
        const MeasurementLimit &l = limits[i];
        const QByteArray group = QByteArray("limit ") + QByteArray::number(static_cast<qulonglong>(i + 1));
        g_key_file_set_string(file.get(), group.constData(), "waveform", l.waveform.toUtf8().constData());
        g_key_file_set_string(file.get(), group.constData(), "measurement", measureKey(l.measure));
        if (!std::isnan(l.min))
            g_key_file_set_value(file.get(), group.constData(), "min", number(l.min).toUtf8().constData());
        if (!std::isnan(l.max))
            g_key_file_set_value(file.get(), group.constData(), "max", number(l.max).toUtf8().constData());
    }
    gsize length = 0;
    std::unique_ptr<gchar, decltype(&g_free)> text(g_key_file_to_data(file.get(), &length, nullptr), g_free);
    return QString::fromUtf8(text.get(), static_cast<int>(length));
}

bool limitsFromIni(const QString &text, std::vector<MeasurementLimit> &limits, QString *error)
{
    std::vector<vornsr::IniSection> sections;
    std::string why;
    limits.clear();
    if (!vornsr::parseIni(text.toStdString(), sections, why))
        return fail(error, QStringLiteral("the limits are unreadable: %1").arg(QString::fromStdString(why)));
    for (const vornsr::IniSection &s : sections) {
        const QString name = QString::fromStdString(s.name);
        if (!name.startsWith(QLatin1String("limit ")))
            continue;
        MeasurementLimit l;
        const std::string *waveform = s.value("waveform"), *measurement = s.value("measurement");
        const std::string *min = s.value("min"), *max = s.value("max");
        if (!waveform || !measurement || !measureFromKey(QString::fromStdString(*measurement), l.measure))
            return fail(error, QStringLiteral("[%1] names no waveform and measurement").arg(name));
        l.waveform = QString::fromStdString(*waveform);
        if ((!min && !max) || (min && !vornsr::parseDouble(*min, l.min)) || (max && !vornsr::parseDouble(*max, l.max))
            || l.min > l.max)
            return fail(error, QStringLiteral("[%1] has no valid min or max").arg(name));
        limits.push_back(l);
    }
    return true;
}

bool loadLimits(const QString &path, std::vector<MeasurementLimit> &limits, QString *error)
{
    std::string text, why;
    limits.clear();
    if (!vornsr::readOwnMember(path.toStdString(), vornsr::LIMITS_MEMBER, text, why))
        return fail(error, QString::fromStdString(why));
    return limitsFromIni(QString::fromStdString(text), limits, error);
}

bool saveLimits(const QString &path, const std::vector<MeasurementLimit> &limits, QString *error)
{
    const std::string text = limitsToIni(limits).toStdString();
    std::string why;
    if (vornsr::replaceOwnMember(path.toStdString(), vornsr::LIMITS_MEMBER, limits.empty() ? nullptr : &text, why))
        return true;
    return fail(error, QString::fromStdString(why));
}

bool LimitVerdict::passed() const
{
    return std::all_of(outcomes.begin(), outcomes.end(), [](const LimitOutcome &o) { return o.passed(); });
}

LimitVerdict judgeLimits(const WaveformData &waveform, const std::vector<MeasurementLimit> &limits)
{
    LimitVerdict verdict;
    verdict.measurements = measurePulses(waveform);
    for (const MeasurementLimit &limit : limits) {
        LimitOutcome o{limit, verdict.measurements[limit.measure], QString()};
        const QString key = QLatin1String(measureKey(limit.measure));
        const QString value = formatMeasure(limit.measure, o.measured.value, waveform.unit);
        if (!o.measured.valid())
            o.failure = QStringLiteral("%1 cannot be measured: %2").arg(key, o.measured.reason);
        else if (o.measured.value > limit.max || o.measured.value < limit.min)
            o.failure = QStringLiteral("%1 %2 outside %3").arg(key, value, describeLimit(limit, waveform.unit));
        verdict.outcomes.push_back(o);
    }
    return verdict;
}

void MeasureStatistics::add(const QString &waveform, Measure measure, double value, const MeasurementLimit *limit)
{
    auto it = std::find_if(m_sums.begin(), m_sums.end(),
                           [&](const Sum &s) { return s.waveform == waveform && s.measure == measure; });
    if (it == m_sums.end())
        it = m_sums.insert(m_sums.end(), Sum{waveform, measure, 0, 0.0, 0.0, value, value, 0.0, 0.0, false});
    // Welford's update keeps the spread exact where it is tiny beside the mean.
    ++it->count;
    const double delta = value - it->mean;
    it->mean += delta / static_cast<double>(it->count);
    it->m2 += delta * (value - it->mean);
    it->min = std::min(it->min, value);
    it->max = std::max(it->max, value);
    if (limit && !std::isnan(limit->min) && !std::isnan(limit->max)) {
        it->bothLimits = true;
        it->lsl = limit->min;
        it->usl = limit->max;
    }
}

std::vector<MeasureStatistics::Row> MeasureStatistics::rows() const
{
    std::vector<Row> rows;
    for (const Sum &s : m_sums) {
        Row r{s.waveform, s.measure, s.count, s.min, s.mean, s.max, 0.0, std::numeric_limits<double>::quiet_NaN()};
        // The sample standard deviation; one value has none.
        r.stddev = s.count > 1 ? std::sqrt(s.m2 / static_cast<double>(s.count - 1)) : 0.0;
        if (s.bothLimits && r.stddev > 0.0)
            r.cpk = std::min(s.usl - r.mean, r.mean - s.lsl) / (3.0 * r.stddev);
        rows.push_back(r);
    }
    return rows;
}
