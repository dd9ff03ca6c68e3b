// The key-file and number parsers on arbitrary text, and on every value of what parses.

#include "srini.h"

#include <cstdint>
#include <string>
#include <vector>

namespace {

void parseNumbers(const std::string &text)
{
    uint64_t u = 0;
    double d = 0;
    vornsr::parseSampleRate(text, u);
    vornsr::parseUnsigned(text, u);
    if (vornsr::parseDouble(text, d))
        vornsr::formatDouble(d);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data), size);
    parseNumbers(text);
    std::vector<vornsr::IniSection> sections;
    std::string error;
    if (!vornsr::parseIni(text, sections, error))
        return 0;
    for (const auto &section : sections) {
        vornsr::findSection(sections, section.name);
        for (const auto &kv : section.keys)
            parseNumbers(kv.second);
    }
    return 0;
}
