#ifndef VORN_SRINI_H
#define VORN_SRINI_H

#include <cstdint>
#include <string>
#include <vector>

namespace vornsr {

// Key files are read with GLib's GKeyFile so that we accept and refuse exactly what libsigrok does.
struct IniSection
{
    std::string name;
    std::vector<std::pair<std::string, std::string>> keys; // in file order
    std::string unreadable; // why the first key left out of keys could not be read, if any

    const std::string *value(const std::string &key) const;
};

// A value that is not valid text only matters to a reader of its section: the key is left out
// and the section says why.
bool parseIni(const std::string &text, std::vector<IniSection> &sections, std::string &error);
const IniSection *findSection(const std::vector<IniSection> &sections, const std::string &name);

// Locale-independent number texts: "%.17g" so that every double reads back bit-exact.
std::string formatDouble(double value);
bool parseDouble(const std::string &text, double &value);
bool parseUnsigned(const std::string &text, uint64_t &value);
// A sample rate such as "1 MHz", "250 kHz", "1.5 GHz" or "200", in Hz.
bool parseSampleRate(const std::string &text, uint64_t &hertz);

} // namespace vornsr

#endif
