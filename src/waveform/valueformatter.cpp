#include "decimal.h"
#include "vornwaveform.h"

#include <QLocale>

#include <charconv>
#include <cmath>
#include <cstring>

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

// A number as QString::toDouble reads it (C locale, blanks around it allowed); plain ASCII
// numbers, which are all the formatter writes, skip the QString and locale machinery.
bool parseNumber(QStringView text, double &value)
{
    text = text.trimmed();
    char buffer[64];
    const qsizetype size = text.size();
    if (size > 0 && size < qsizetype(sizeof buffer)) {
        qsizetype n = 0;
        for (const QChar c : text) {
            const char16_t u = c.unicode();
            if (!((u >= u'0' && u <= u'9') || u == u'.' || u == u'-' || u == u'+' || u == u'e' || u == u'E'))
                break;
            buffer[n++] = char(u);
        }
        if (n == size) {
            // from_chars takes no leading plus.
            const char *first = buffer + (buffer[0] == '+' && n > 1 && buffer[1] != '-' && buffer[1] != '+' ? 1 : 0);
            const auto result = std::from_chars(first, buffer + n, value);
            if (result.ec == std::errc() && result.ptr == buffer + n)
                return true;
        }
    }
    bool ok = false;
    value = text.toString().toDouble(&ok);
    return ok;
}

// text is prefix + unit after a number: the number scaled by the prefix.
bool parseNumberBefore(QStringView text, QStringView prefix, QStringView unit, int exponent, double &value)
{
    if (!text.endsWith(unit))
        return false;
    text.chop(unit.size());
    if (!text.endsWith(prefix))
        return false;
    text.chop(prefix.size());
    double number = 0.0;
    if (!parseNumber(text, number))
        return false;
    value = scaleByPowerOfTen(number, exponent);
    return true;
}

// The mantissa with significant digits, trailing zeros dropped; its length.
int mantissaText(double mantissa, int significant, char *buffer, int capacity)
{
    const double magnitude = std::fabs(mantissa);
    const int integerDigits = magnitude >= 1.0 ? static_cast<int>(std::floor(std::log10(magnitude))) + 1 : 0;
    int decimals = significant - integerDigits;
    if (magnitude < 1.0 && magnitude > 0.0)
        decimals = significant - 1 - static_cast<int>(std::floor(std::log10(magnitude)));
    const auto result = std::to_chars(buffer, buffer + capacity, mantissa, std::chars_format::fixed, decimals < 0 ? 0 : decimals);
    int length = result.ec == std::errc() ? int(result.ptr - buffer) : 0;
    if (std::memchr(buffer, '.', size_t(length))) {
        while (buffer[length - 1] == '0')
            --length;
        if (buffer[length - 1] == '.')
            --length;
    }
    if (length == 2 && buffer[0] == '-' && buffer[1] == '0') {
        buffer[0] = '0';
        length = 1;
    }
    return length;
}

double parsedMantissa(const char *text, int length)
{
    double value = 0.0;
    std::from_chars(text, text + length, value);
    return value;
}

QString joinUnit(const QString &number, const QString &prefix, const QString &unit)
{
    const QString suffix = prefix + unit;
    return suffix.isEmpty() ? number : number + QLatin1Char(' ') + suffix;
}

} // namespace

double parseScaledValue(const QString &text, const QString &unit)
{
    const QStringView s = QStringView(text).trimmed();
    double value = 0.0;
    for (const Prefix &p : PARSE_PREFIXES) {
        if (parseNumberBefore(s, p.text, unit, p.exponent, value))
            return value;
    }
    // The unit may be left out: "5m".
    for (const Prefix &p : PARSE_PREFIXES) {
        if (p.exponent != 0 && parseNumberBefore(s, p.text, QStringView(), p.exponent, value))
            return value;
    }
    return parseNumber(s, value) ? value : std::nan("");
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
    char number[64];
    int length = 0;
    int i = index;
    for (int significant = 1; significant <= 6; ++significant) {
        i = index;
        length = mantissaText(unscaleByPowerOfTen(value, FORMAT_PREFIXES[i].exponent), significant, number, sizeof number);
        // Rounding may carry into the next prefix: 999.9996 m is 1.
        if (i > 0 && std::fabs(parsedMantissa(number, length)) >= 1000.0) {
            --i;
            length = mantissaText(unscaleByPowerOfTen(value, FORMAT_PREFIXES[i].exponent), significant, number, sizeof number);
        }
        if (scaleByPowerOfTen(parsedMantissa(number, length), FORMAT_PREFIXES[i].exponent) == value)
            break;
    }
    return joinUnit(QString::fromLatin1(number, length), QString::fromUtf16(FORMAT_PREFIXES[i].text), unit);
}
