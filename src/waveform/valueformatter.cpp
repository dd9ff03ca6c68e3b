#include "decimal.h"
#include "vornwaveform.h"

#include <QLocale>

#include <cmath>

namespace {

struct Prefix
{
    const char16_t *text;
    int exponent;
};

// Searched in this order; the lower-case and ASCII spellings are only read, never written.
const Prefix PARSE_PREFIXES[] = {
    {u"T", 12}, {u"t", 12}, {u"G", 9}, {u"g", 9}, {u"M", 6},   {u"k", 3},   {u"K", 3},
    {u"", 0},   {u"m", -3}, {u"\u03bc", -6},      {u"u", -6},  {u"n", -9},  {u"p", -12},
};

const Prefix FORMAT_PREFIXES[] = {
    {u"T", 12}, {u"G", 9}, {u"M", 6}, {u"k", 3}, {u"", 0}, {u"m", -3}, {u"\u03bc", -6}, {u"n", -9}, {u"p", -12},
};
constexpr int FORMAT_PREFIX_COUNT = sizeof FORMAT_PREFIXES / sizeof FORMAT_PREFIXES[0];

bool parseNumberBefore(const QString &text, const QString &suffix, int exponent, double &value)
{
    if (!text.endsWith(suffix))
        return false;
    bool ok = false;
    const double number = text.left(text.size() - suffix.size()).trimmed().toDouble(&ok);
    if (ok)
        value = scaleByPowerOfTen(number, exponent);
    return ok;
}

QString mantissaText(double mantissa, int significant)
{
    const double magnitude = std::fabs(mantissa);
    const int integerDigits = magnitude >= 1.0 ? static_cast<int>(std::floor(std::log10(magnitude))) + 1 : 0;
    int decimals = significant - integerDigits;
    if (magnitude < 1.0 && magnitude > 0.0)
        decimals = significant - 1 - static_cast<int>(std::floor(std::log10(magnitude)));
    QString text = QString::number(mantissa, 'f', decimals < 0 ? 0 : decimals);
    if (text.contains(QLatin1Char('.'))) {
        while (text.endsWith(QLatin1Char('0')))
            text.chop(1);
        if (text.endsWith(QLatin1Char('.')))
            text.chop(1);
    }
    if (text == QLatin1String("-0"))
        text = QStringLiteral("0");
    return text;
}

QString joinUnit(const QString &number, const QString &prefix, const QString &unit)
{
    const QString suffix = prefix + unit;
    return suffix.isEmpty() ? number : number + QLatin1Char(' ') + suffix;
}

} // namespace

double parseScaledValue(const QString &text, const QString &unit)
{
    const QString s = text.trimmed();
    double value = 0.0;
    for (const Prefix &p : PARSE_PREFIXES) {
        if (parseNumberBefore(s, QString::fromUtf16(p.text) + unit, p.exponent, value))
            return value;
    }
    // The unit may be left out: "5m".
    for (const Prefix &p : PARSE_PREFIXES) {
        if (p.exponent != 0 && parseNumberBefore(s, QString::fromUtf16(p.text), p.exponent, value))
            return value;
    }
    bool ok = false;
    value = s.toDouble(&ok);
    return ok ? value : std::nan("");
}

double parseCommandLineValue(const QString &text, const QString &unit)
{
    QString typed = text;
    return parseScaledValue(typed.replace(QChar(0x00b5), QChar(0x03bc)), unit);
}

QString ValueFormatter::formatWithUnit(double value, const QString &unit)
{
    if (value == 0.0)
        return joinUnit(QStringLiteral("0"), QString(), unit);
    if (!std::isfinite(value))
        return joinUnit(QString::number(value), QString(), unit);
    // Beyond the prefixes a fixed-point mantissa would run to hundreds of digits.
    if (std::fabs(value) >= 1e18 || std::fabs(value) < 1e-18)
        return joinUnit(QString::number(value, 'g', QLocale::FloatingPointShortest), QString(), unit);

    int index = FORMAT_PREFIX_COUNT - 1;
    for (int i = 0; i < FORMAT_PREFIX_COUNT; ++i) {
        if (std::fabs(value) >= scaleByPowerOfTen(1.0, FORMAT_PREFIXES[i].exponent)) {
            index = i;
            break;
        }
    }
    QString best;
    for (int significant = 1; significant <= 6; ++significant) {
        int i = index;
        QString number = mantissaText(unscaleByPowerOfTen(value, FORMAT_PREFIXES[i].exponent), significant);
        // Rounding may carry into the next prefix: 999.9996 m is 1.
        if (i > 0 && std::fabs(number.toDouble()) >= 1000.0) {
            --i;
            number = mantissaText(unscaleByPowerOfTen(value, FORMAT_PREFIXES[i].exponent), significant);
        }
        best = joinUnit(number, QString::fromUtf16(FORMAT_PREFIXES[i].text), unit);
        if (scaleByPowerOfTen(number.toDouble(), FORMAT_PREFIXES[i].exponent) == value)
            break;
    }
    return best;
}
