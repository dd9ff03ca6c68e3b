#include "srnames.h"

#include <cstring>
#include <set>

namespace vornsr {

namespace {

constexpr size_t NAME_BYTES = 127; // the info record's name field, less its NUL
const char *const SUFFIXES[] = {" [upper]", " [lower]"};
constexpr size_t SUFFIX_BYTES = 8;
// Behind a device channel whose name would end like a curve's, so that it never poses as a limit.
const std::string CHANNEL_TAG = " (channel)";

// The longest prefix of at most limit bytes that ends on a character boundary.
std::string cutUtf8(const std::string &text, size_t limit)
{
    if (text.size() <= limit)
        return text;
    size_t n = limit;
    while (n > 0 && (static_cast<unsigned char>(text[n]) & 0xC0) == 0x80)
        --n;
    return text.substr(0, n);
}

bool endsWith(const std::string &text, const char *suffix)
{
    const size_t n = std::strlen(suffix);
    return text.size() >= n && text.compare(text.size() - n, n, suffix) == 0;
}

bool endsLikeCurve(const std::string &text)
{
    return endsWith(text, SUFFIXES[0]) || endsWith(text, SUFFIXES[1]);
}

} // namespace

std::vector<std::string> offeredNames(const std::vector<Channel> &channels)
{
    std::vector<std::string> names;
    std::set<std::string> taken;
    for (const Channel &channel : channels) {
        std::string base = channel.name, suffix;
        size_t room = NAME_BYTES - SUFFIX_BYTES;
        if (channel.kind == Channel::Curve) {
            room = NAME_BYTES;
            for (const char *s : SUFFIXES) {
                if (endsWith(base, s)) {
                    suffix = s;
                    base.resize(base.size() - SUFFIX_BYTES);
                    room = NAME_BYTES - SUFFIX_BYTES;
                    break; // "X [lower] [upper]" is the upper curve of "X [lower]"
                }
            }
        }
        std::string name = cutUtf8(base, room) + suffix;
        if (channel.kind != Channel::Curve && endsLikeCurve(name)) {
            base = cutUtf8(base, room - CHANNEL_TAG.size()) + CHANNEL_TAG;
            name = base;
        }
        for (unsigned n = 2; taken.count(name); ++n) {
            const std::string tag = " (" + std::to_string(n) + ")";
            name = cutUtf8(base, room - tag.size()) + tag + suffix;
        }
        taken.insert(name);
        names.push_back(name);
    }
    return names;
}

} // namespace vornsr
