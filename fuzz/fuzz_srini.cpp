// The key-file and number parsers on arbitrary text.

#include "srini.h"

#include <cstdint>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data), size);
    std::vector<vornsr::IniSection> sections;
    std::string error;
    vornsr::parseIni(text, sections, error);
    uint64_t u = 0;
    double d = 0;
    vornsr::parseSampleRate(text, u);
    vornsr::parseUnsigned(text, u);
    vornsr::parseDouble(text, d);
    return 0;
}
