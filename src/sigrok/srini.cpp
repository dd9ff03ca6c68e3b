#include "srini.h"

#include <glib.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <memory>

namespace vornsr {

namespace {
struct KeyFileDeleter { void operator()(GKeyFile *f) const { g_key_file_free(f); } };
struct StrvDeleter { void operator()(gchar **v) const { g_strfreev(v); } };
}

const std::string *IniSection::value(const std::string &key) const
{
    for (const auto &kv : keys) {
        if (kv.first == key)
            return &kv.second;
    }
    return nullptr;
}

bool parseIni(const std::string &text, std::vector<IniSection> &sections, std::string &error)
{
    std::unique_ptr<GKeyFile, KeyFileDeleter> file(g_key_file_new());
    GError *gerror = nullptr;
    if (!g_key_file_load_from_data(file.get(), text.data(), text.size(), G_KEY_FILE_NONE, &gerror)) {
        error = gerror ? gerror->message : "unreadable key file";
        g_clear_error(&gerror);
        return false;
    }
    sections.clear();
    std::unique_ptr<gchar *, StrvDeleter> groups(g_key_file_get_groups(file.get(), nullptr));
    for (gchar **group = groups.get(); *group; ++group) {
        IniSection section;
        section.name = *group;
        std::unique_ptr<gchar *, StrvDeleter> keys(g_key_file_get_keys(file.get(), *group, nullptr, nullptr));
        for (gchar **key = keys.get(); key && *key; ++key) {
            // An escape GLib cannot read comes back with an error beside the value; libsigrok
            // refuses such a value, so it is unreadable here too.
            gchar *value = g_key_file_get_string(file.get(), *group, *key, &gerror);
            if (!value || gerror) {
                g_free(value);
                if (section.unreadable.empty())
                    section.unreadable = std::string("[") + *group + "] " + *key + ": "
                                         + (gerror ? gerror->message : "unreadable value");
                g_clear_error(&gerror);
                continue;
            }
            section.keys.emplace_back(*key, value);
            g_free(value);
        }
        sections.push_back(std::move(section));
    }
    return true;
}

const IniSection *findSection(const std::vector<IniSection> &sections, const std::string &name)
{
    for (const auto &section : sections) {
        if (section.name == name)
            return &section;
    }
    return nullptr;
}

std::string formatDouble(double value)
{
    char buffer[G_ASCII_DTOSTR_BUF_SIZE];
    g_ascii_formatd(buffer, sizeof buffer, "%.17g", value);
    return buffer;
}

bool parseDouble(const std::string &text, double &value)
{
    if (text.empty())
        return false;
    char *end = nullptr;
    errno = 0;
    value = g_ascii_strtod(text.c_str(), &end);
    // Underflow also reports ERANGE, yet a subnormal written with %.17g reads back exactly.
    return end && *end == '\0' && (errno != ERANGE || std::fabs(value) < 1.0);
}

bool parseUnsigned(const std::string &text, uint64_t &value)
{
    if (text.empty() || text[0] < '0' || text[0] > '9')
        return false;
    char *end = nullptr;
    errno = 0;
    value = g_ascii_strtoull(text.c_str(), &end, 10);
    while (end && (*end == ' ' || *end == '\t'))
        ++end;
    return end && *end == '\0' && errno != ERANGE;
}

bool parseSampleRate(const std::string &text, uint64_t &hertz)
{
    // libsigrok's size strings: a decimal number, optional blanks, an optional k/M/G/T/P
    // multiplier (any case; "m" is mega here, as in libsigrok), then an optional "Hz". Where
    // libsigrok would truncate a fraction of a hertz, we refuse: a rate taken as another one
    // would stretch the time axis without a word.
    const char *s = text.c_str();
    while (*s == ' ' || *s == '\t')
        ++s;
    std::string whole, fraction;
    while (*s >= '0' && *s <= '9')
        whole += *s++;
    if (*s == '.') {
        while (*++s >= '0' && *s <= '9')
            fraction += *s;
    }
    if (whole.empty() && fraction.empty())
        return false;
    while (*s == ' ' || *s == '\t')
        ++s;
    unsigned exponent = 0;
    switch (*s) {
    case 'k': case 'K': exponent = 3; break;
    case 'm': case 'M': exponent = 6; break;
    case 'g': case 'G': exponent = 9; break;
    case 't': case 'T': exponent = 12; break;
    case 'p': case 'P': exponent = 15; break;
    default: break;
    }
    if (exponent > 0)
        ++s;
    if (*s && g_ascii_strcasecmp(s, "Hz") != 0)
        return false;
    while (!fraction.empty() && fraction.back() == '0')
        fraction.pop_back();
    if (fraction.size() > exponent)
        return false;
    // The digits of the rate in hertz: the fraction moves into the whole part, zeros fill up.
    const std::string digits = whole + fraction + std::string(exponent - fraction.size(), '0');
    uint64_t value = 0;
    for (char c : digits) {
        const unsigned digit = static_cast<unsigned>(c - '0');
        if (value > (UINT64_MAX - digit) / 10)
            return false;
        value = value * 10 + digit;
    }
    // libsigrok takes the rate through a double: one that rounds to 2^64 Hz or more it cannot
    // hold, and refuses the file.
    if (static_cast<double>(value) >= 18446744073709551616.0)
        return false;
    hertz = value;
    return value > 0;
}

} // namespace vornsr
