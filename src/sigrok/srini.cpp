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
            gchar *value = g_key_file_get_string(file.get(), *group, *key, &gerror);
            if (!value) {
                error = std::string("[") + *group + "] " + *key + ": "
                        + (gerror ? gerror->message : "unreadable value");
                g_clear_error(&gerror);
                return false;
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
    return end && *end == '\0' && errno != ERANGE;
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
    // multiplier (any case; "m" is mega here, as in libsigrok), then an optional "Hz".
    const char *s = text.c_str();
    while (*s == ' ')
        ++s;
    if (*s < '0' || *s > '9')
        return false;
    char *end = nullptr;
    errno = 0;
    const double number = g_ascii_strtod(s, &end);
    if (errno == ERANGE || end == s)
        return false;
    s = end;
    while (*s == ' ')
        ++s;
    double multiplier = 1.0;
    switch (*s) {
    case 'k': case 'K': multiplier = 1e3; ++s; break;
    case 'm': case 'M': multiplier = 1e6; ++s; break;
    case 'g': case 'G': multiplier = 1e9; ++s; break;
    case 't': case 'T': multiplier = 1e12; ++s; break;
    case 'p': case 'P': multiplier = 1e15; ++s; break;
    default: break;
    }
    if (*s && g_ascii_strcasecmp(s, "Hz") != 0)
        return false;
    const double value = std::round(number * multiplier);
    if (!(value >= 1.0) || value > 1.8e19)
        return false;
    hertz = static_cast<uint64_t>(value);
    return true;
}

} // namespace vornsr
