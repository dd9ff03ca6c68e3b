#include "srcapturewriter.h"

#include <zip.h>

#include <algorithm>

namespace {

constexpr size_t CHUNK_BYTES = 1 << 20;
constexpr int FAST_DEFLATE = 1;

bool add(zip_t *zip, const std::string &name, const void *data, size_t size)
{
    zip_source_t *source = zip_source_buffer(zip, data, size, 0);
    const zip_int64_t index = source ? zip_file_add(zip, name.c_str(), source, ZIP_FL_OVERWRITE) : -1;
    if (index < 0) {
        zip_source_free(source);
        return false;
    }
    return zip_set_file_compression(zip, static_cast<zip_uint64_t>(index), ZIP_CM_DEFLATE, FAST_DEFLATE) == 0;
}

// Keys in the order libsigrok writes them: the totals before the channel names they count.
std::string metadata(const SrCapture &c)
{
    std::string text = "[global]\nsigrok version=0.5.2\n\n[device 1]\n";
    if (!c.logicNames.empty())
        text += "capturefile=logic-1\ntotal probes=" + std::to_string(c.logicNames.size()) + "\n";
    text += "samplerate=" + srSamplerateText(c.samplerate) + "\n";
    if (!c.analogNames.empty())
        text += "total analog=" + std::to_string(c.analogNames.size()) + "\n";
    for (size_t k = 0; k < c.logicNames.size(); ++k)
        text += "probe" + std::to_string(k + 1) + "=" + c.logicNames[k] + "\n";
    for (size_t k = 0; k < c.analogNames.size(); ++k)
        text += "analog" + std::to_string(c.logicNames.size() + k + 1) + "=" + c.analogNames[k] + "\n";
    if (!c.logicNames.empty())
        text += "unitsize=" + std::to_string(c.unitsize) + "\n";
    return text;
}

bool addChunks(zip_t *zip, const std::string &prefix, const uint8_t *data, size_t size, size_t granule)
{
    const size_t chunk = std::max(granule, CHUNK_BYTES / granule * granule);
    for (size_t first = 0, n = 1; first < size; first += chunk, ++n) {
        if (!add(zip, prefix + std::to_string(n), data + first, std::min(chunk, size - first)))
            return false;
    }
    return true;
}

} // namespace

std::string srSamplerateText(uint64_t rate)
{
    if (rate >= 1000000000 && rate % 1000000000 == 0)
        return std::to_string(rate / 1000000000) + " GHz";
    if (rate >= 1000000 && rate % 1000000 == 0)
        return std::to_string(rate / 1000000) + " MHz";
    if (rate >= 1000 && rate % 1000 == 0)
        return std::to_string(rate / 1000) + " kHz";
    return std::to_string(rate) + " Hz";
}

bool writeSrCapture(const std::string &path, const SrCapture &capture, std::string *error)
{
    const auto fail = [&](const std::string &why) {
        if (error)
            *error = why;
        return false;
    };
    if (capture.samplerate == 0 || capture.analog.size() != capture.analogNames.size()
        || (!capture.logicNames.empty() && (capture.unitsize == 0 || capture.unitsize * 8 < capture.logicNames.size())))
        return fail("the capture has no sample rate or its channels do not match their names");
    int code = 0;
    zip_t *zip = zip_open(path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &code);
    if (!zip) {
        zip_error_t e;
        zip_error_init_with_code(&e, code);
        const std::string why = zip_error_strerror(&e);
        zip_error_fini(&e);
        return fail("cannot create " + path + ": " + why);
    }
    const std::string meta = metadata(capture);
    bool ok = add(zip, "version", "2", 1) && add(zip, "metadata", meta.data(), meta.size());
    if (ok && !capture.logicNames.empty())
        ok = addChunks(zip, "logic-1-", capture.logic.data(), capture.logic.size(), capture.unitsize);
    for (size_t k = 0; ok && k < capture.analog.size(); ++k) {
        const auto &samples = capture.analog[k];
        ok = addChunks(zip, "analog-1-" + std::to_string(capture.logicNames.size() + k + 1) + "-",
                       reinterpret_cast<const uint8_t *>(samples.data()), samples.size() * sizeof(float), sizeof(float));
    }
    if (!ok || zip_close(zip) != 0) {
        const std::string why = zip_strerror(zip);
        zip_discard(zip);
        return fail("cannot write " + path + ": " + why);
    }
    return true;
}
