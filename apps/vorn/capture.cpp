#include "capture.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

[[noreturn]] void failWithReaderError(const std::string &path)
{
    throw Failure{sigrok_get_last_error(), path};
}

// Bytes of the well-formed UTF-8 sequence at text[i], or 0 when none starts there.
size_t utf8Sequence(const std::string &text, size_t i)
{
    const auto byte = [&](size_t k) { return static_cast<unsigned char>(text[k]); };
    const unsigned char lead = byte(i);
    if (lead < 0x80)
        return 1;
    const size_t n = lead >= 0xC2 && lead <= 0xDF ? 2 : lead >= 0xE0 && lead <= 0xEF ? 3 : lead >= 0xF0 && lead <= 0xF4 ? 4 : 0;
    if (n == 0 || text.size() - i < n)
        return 0;
    uint32_t code = lead & (0x7F >> n);
    for (size_t k = 1; k < n; ++k) {
        if ((byte(i + k) & 0xC0) != 0x80)
            return 0;
        code = code << 6 | (byte(i + k) & 0x3F);
    }
    const bool overlong = (n == 3 && code < 0x800) || (n == 4 && code < 0x10000);
    return overlong || (code >= 0xD800 && code <= 0xDFFF) || code > 0x10FFFF ? 0 : n;
}

// C0 controls, DEL and the C1 controls (U+0080 ... U+009F).
bool isControl(const std::string &text, size_t i, size_t n)
{
    const auto byte = [&](size_t k) { return static_cast<unsigned char>(text[k]); };
    return (n == 1 && (byte(i) < 0x20 || byte(i) == 0x7F)) || (n == 2 && byte(i) == 0xC2 && byte(i + 1) < 0xA0);
}

} // namespace

std::string printable(const std::string &text)
{
    std::string out;
    // Each byte of a control character is escaped too: a tab would split a column of vorn list,
    // an escape sequence would reach the terminal.
    for (size_t i = 0; i < text.size();) {
        const size_t n = utf8Sequence(text, i);
        if (n > 0 && !isControl(text, i, n)) {
            out.append(text, i, n);
            i += n;
            continue;
        }
        for (size_t k = 0; k < std::max<size_t>(n, 1); ++k) {
            char escaped[5];
            std::snprintf(escaped, sizeof escaped, "\\x%02X", static_cast<unsigned char>(text[i++]));
            out += escaped;
        }
    }
    return out;
}

std::vector<SigrokWaveformInfo> readInfos(const std::string &path)
{
    int32_t count = 0;
    if (sigrok_read_waveform_count(path.c_str(), &count) != 0)
        failWithReaderError(path);
    std::vector<SigrokWaveformInfo> infos(static_cast<size_t>(std::max(count, 0)));
    for (int32_t i = 0; i < count; ++i) {
        if (sigrok_read_waveform_info_by_index(path.c_str(), i, &infos[static_cast<size_t>(i)]) != 0)
            failWithReaderError(path);
    }
    return infos;
}

int32_t findWaveform(const std::vector<SigrokWaveformInfo> &infos, const std::string &name, const std::string &path)
{
    for (size_t i = 0; i < infos.size(); ++i) {
        if (name == infos[i].name)
            return static_cast<int32_t>(i);
    }
    throw Failure{"no waveform named '" + name + "'", path};
}

WaveformData loadWaveformAt(const std::string &path, const std::vector<SigrokWaveformInfo> &infos, int32_t index,
                            uint64_t limit)
{
    const SigrokWaveformInfo &info = infos[static_cast<size_t>(index)];
    WaveformData waveform;
    waveform.name = QString::fromUtf8(info.name);
    waveform.unit = QString::fromUtf8(info.unit);
    waveform.sampleInterval = info.sampleInterval;
    waveform.startTime = info.startTime;
    const uint64_t count = std::min(limit, info.sampleCount);
    if (!allocateSamples(waveform.samples.writable(), count))
        throw Failure{printable(info.name) + ": " + sampleMemoryShortfall(count).toStdString(), path};
    if (sigrok_read_waveform_data_by_index(path.c_str(), index, waveform.samples.writable().data(), count) != 0)
        failWithReaderError(path);
    return waveform;
}

WaveformData loadWaveform(const std::string &path, const std::string &name, uint64_t limit)
{
    const auto infos = readInfos(path);
    return loadWaveformAt(path, infos, findWaveform(infos, name, path), limit);
}

std::vector<EnvelopedWaveform> envelopedWaveforms(const std::string &path, const std::vector<SigrokWaveformInfo> &infos)
{
    QStringList names;
    for (const SigrokWaveformInfo &info : infos)
        names << QString::fromUtf8(info.name);
    std::vector<EnvelopedWaveform> result;
    for (const EnvelopePairing &pair : pairEnvelopeCurves(names)) {
        EnvelopedWaveform w{infos[static_cast<size_t>(pair.waveform)].name, pair.waveform, {}, {}};
        try {
            if (pair.upper >= 0) {
                w.envelope.upper = loadWaveformAt(path, infos, pair.upper, UINT64_MAX);
                w.envelope.lower = loadWaveformAt(path, infos, pair.lower, UINT64_MAX);
                loadEnvelopeReference(QString::fromStdString(path), QString::fromUtf8(w.name.c_str()), w.envelope);
            }
        } catch (const Failure &failure) {
            w.envelope = EnvelopeData();
            w.unreadable = "its envelope cannot be read: " + failure.reason;
        }
        result.push_back(std::move(w));
    }
    return result;
}

std::vector<std::string> unreadableCurves(const std::string &path)
{
    const char *text = sigrok_read_unreadable_curves(path.c_str());
    if (!text)
        failWithReaderError(path);
    std::vector<std::string> lines;
    for (const char *line = text; *line;) {
        const char *end = std::strchr(line, '\n');
        lines.emplace_back(line, end ? end : line + std::strlen(line));
        line = end ? end + 1 : line + std::strlen(line);
    }
    return lines;
}
