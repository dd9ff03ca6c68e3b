#include "sigrokcontext.h"
#include "vornacquire.h"

#include <stdexcept>

namespace {

uint64_t positive(const std::string &option, const std::string &text)
{
    uint64_t n = 0;
    if (sr_parse_sizestring(text.c_str(), &n) != SR_OK || n == 0)
        throw std::invalid_argument(option + " needs a count above zero, such as 20k, not '" + text + "'");
    return n;
}

} // namespace

bool parseDeviceArgument(const std::vector<std::string> &args, size_t &i, DeviceOptions &o, std::string &group)
{
    const std::string &a = args[i];
    if (a != "--config" && a != "--channel-group" && a != "--channels" && a != "--samples" && a != "--frames"
        && a != "--time")
        return false;
    if (i + 1 >= args.size())
        throw std::invalid_argument(a + " needs a value");
    const std::string &value = args[++i];
    if (a == "--channel-group") {
        group = value;
    } else if (a == "--config") {
        for (const std::string &pair : splitAt(value, ':')) {
            const size_t equals = pair.find('=');
            if (equals == 0 || equals == std::string::npos)
                throw std::invalid_argument("--config needs KEY=VALUE, such as samplerate=1M, not '" + pair + "'");
            o.settings.push_back({group, pair.substr(0, equals), pair.substr(equals + 1)});
        }
    } else if (a == "--channels") {
        o.channels = splitAt(value, ',');
    } else if (a == "--samples") {
        o.samples = positive(a, value);
    } else if (a == "--frames") {
        o.frames = positive(a, value);
    } else {
        const uint64_t ms = sr_parse_timestring(value.c_str());
        if (ms == 0)
            throw std::invalid_argument("--time needs a length such as 20ms or 1s, not '" + value + "'");
        o.time = double(ms) / 1000.0;
    }
    return true;
}
