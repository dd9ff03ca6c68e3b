#include "srarchive.h"

#include "srini.h"

#include <zip.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace vornsr {

const char *const CURVE_METADATA_MEMBER = "vorngraph/metadata";

std::string curveMemberName(uint64_t number)
{
    return "vorngraph/curve-" + std::to_string(number);
}

namespace {

constexpr uint64_t MAX_METADATA_BYTES = 1 << 20;
constexpr uint64_t MAX_CHANNELS = 65536;
constexpr unsigned MAX_UNIT_SIZE = 64;
// Deflate cannot expand by more than about 1032:1; anything claiming more lies about its size.
constexpr uint64_t MAX_DEFLATE_RATIO = 1040;
constexpr size_t STREAM_BUFFER_BYTES = 1 << 16;

// Reads one member front to back and tells a short or damaged member apart from a good one.
class MemberStream
{
public:
    MemberStream(zip_t *zip, const Member &member)
        : m_name(member.name), m_file(zip_fopen_index(zip, member.index, 0)), m_left(member.size)
    {
        if (!m_file)
            m_openError = zip_strerror(zip);
    }
    ~MemberStream()
    {
        if (m_file)
            zip_fclose(m_file);
    }
    MemberStream(const MemberStream &) = delete;
    MemberStream &operator=(const MemberStream &) = delete;

    bool read(void *buffer, uint64_t bytes, std::string &error)
    {
        if (!m_file) {
            error = "member " + m_name + ": " + m_openError;
            return false;
        }
        auto *out = static_cast<char *>(buffer);
        while (bytes > 0) {
            const zip_int64_t got = zip_fread(m_file, out, bytes);
            if (got < 0) {
                error = "member " + m_name + " damaged: " + zip_file_strerror(m_file);
                return false;
            }
            if (got == 0) {
                error = "member " + m_name + " truncated";
                return false;
            }
            out += got;
            bytes -= static_cast<uint64_t>(got);
            m_left -= std::min<uint64_t>(m_left, static_cast<uint64_t>(got));
        }
        return true;
    }

    // libzip compares the checksum only when a read finds the end of the member, so a member
    // read to its stated size is asked for one more byte: none may come, and no error.
    bool finish(std::string &error)
    {
        if (m_left > 0 || !m_file)
            return true;
        char extra = 0;
        const zip_int64_t got = zip_fread(m_file, &extra, 1);
        if (got < 0)
            error = "member " + m_name + " damaged: " + zip_file_strerror(m_file);
        else if (got > 0)
            error = "member " + m_name + " is longer than its stated size";
        return got == 0;
    }

private:
    std::string m_name;
    zip_file_t *m_file;
    std::string m_openError;
    uint64_t m_left; // bytes of the member not read yet
};

bool parseChunkNumber(const std::string &text, uint64_t &number)
{
    // Only the canonical spelling counts: libsigrok computes "%d" names and finds no other.
    if (text.empty() || text.size() > 9 || text[0] == '0')
        return false;
    number = 0;
    for (char c : text) {
        if (c < '0' || c > '9')
            return false;
        number = number * 10 + static_cast<uint64_t>(c - '0');
    }
    return true;
}

bool startsWith(const std::string &text, const char *prefix)
{
    return text.compare(0, std::strlen(prefix), prefix) == 0;
}

} // namespace

SrArchive::~SrArchive()
{
    if (m_zip)
        zip_discard(m_zip);
}

std::unique_ptr<SrArchive> SrArchive::open(const std::string &path, std::string &error)
{
    int code = 0;
    // No ZIP_CHECKCONS: it seeks to every local header, seconds for the 100 k members of a long
    // capture; sizes are checked here and CRCs by libzip as each member is read.
    zip_t *zip = zip_open(path.c_str(), ZIP_RDONLY, &code);
    if (!zip) {
        zip_error_t zerror;
        zip_error_init_with_code(&zerror, code);
        switch (code) {
        case ZIP_ER_NOENT: error = "file not found"; break;
        case ZIP_ER_NOZIP: error = "not a zip archive"; break;
        case ZIP_ER_OPEN: case ZIP_ER_READ: error = std::string("cannot read file: ") + zip_error_strerror(&zerror); break;
        default: error = std::string("damaged zip archive: ") + zip_error_strerror(&zerror); break;
        }
        zip_error_fini(&zerror);
        return nullptr;
    }
    std::unique_ptr<SrArchive> archive(new SrArchive);
    archive->m_zip = zip;
    if (!archive->load(error))
        return nullptr;
    return archive;
}

bool SrArchive::load(std::string &error)
{
    const zip_int64_t entries = zip_get_num_entries(m_zip, 0);
    for (zip_int64_t i = 0; i < entries; ++i) {
        zip_stat_t st;
        if (zip_stat_index(m_zip, static_cast<zip_uint64_t>(i), 0, &st) != 0 || !st.name) {
            error = "damaged zip directory";
            return false;
        }
        const bool stored = st.comp_method == ZIP_CM_STORE;
        const bool deflated = st.comp_method == ZIP_CM_DEFLATE;
        // Only these two bound the stated size by the bytes in the file; sigrok writes no other.
        if (!stored && !deflated) {
            error = std::string("member ") + st.name + " uses an unsupported compression method";
            return false;
        }
        if ((stored && st.size != st.comp_size)
            || (deflated && st.size / MAX_DEFLATE_RATIO > st.comp_size)) {
            error = std::string("member ") + st.name + " claims an impossible size";
            return false;
        }
        m_members.emplace(st.name, Member{static_cast<uint64_t>(i), st.size, st.name});
    }

    std::string version;
    if (!m_members.count("version")) {
        error = "not a sigrok session file (no version member)";
        return false;
    }
    if (!readSmallMember("version", 16, version, error))
        return false;
    while (!version.empty() && (version.back() == '\n' || version.back() == '\r' || version.back() == ' '))
        version.pop_back();
    if (version != "1" && version != "2") {
        error = "unsupported version " + (version.empty() ? std::string("(empty)") : version);
        return false;
    }
    return loadDevice(error) && loadCurves(error);
}

bool SrArchive::readSmallMember(const std::string &name, uint64_t limit, std::string &text,
                                std::string &error) const
{
    const auto it = m_members.find(name);
    if (it == m_members.end()) {
        error = "member " + name + " missing";
        return false;
    }
    if (it->second.size > limit) {
        error = "member " + name + " too large";
        return false;
    }
    text.assign(it->second.size, '\0');
    MemberStream stream(m_zip, it->second);
    return stream.read(&text[0], text.size(), error) && stream.finish(error);
}

bool SrArchive::loadDevice(std::string &error)
{
    std::string text;
    if (!readSmallMember("metadata", MAX_METADATA_BYTES, text, error))
        return false;
    std::vector<IniSection> sections;
    if (!parseIni(text, sections, error)) {
        error = "metadata: " + error;
        return false;
    }
    const IniSection *device = findSection(sections, "device 1");
    if (!device) {
        error = "metadata: no [device 1] section";
        return false;
    }

    // Keys count in file order, as libsigrok reads them: a channel must be declared by
    // "total probes" or "total analog" before a probeN or analogN key may name it.
    std::vector<Channel::Kind> declared;
    std::map<uint64_t, std::string> probes, analogs;
    std::string capture = "logic-1";
    uint64_t rate = 0, unitSize = 0;
    for (const auto &kv : device->keys) {
        const std::string &key = kv.first, &value = kv.second;
        uint64_t n = 0;
        if (key == "capturefile") {
            capture = value;
        } else if (key == "samplerate") {
            if (!parseSampleRate(value, rate)) {
                error = "metadata: bad samplerate '" + value + "'";
                return false;
            }
        } else if (key == "unitsize") {
            if (!parseUnsigned(value, unitSize) || unitSize < 1 || unitSize > MAX_UNIT_SIZE) {
                error = "metadata: bad unitsize '" + value + "'";
                return false;
            }
        } else if (key == "total probes" || key == "total analog") {
            if (!parseUnsigned(value, n) || n > MAX_CHANNELS - declared.size()) {
                error = "metadata: bad " + key + " '" + value + "'";
                return false;
            }
            declared.insert(declared.end(), n, key == "total probes" ? Channel::Logic : Channel::Analog);
        } else if (startsWith(key, "probe") || startsWith(key, "analog")) {
            const bool logic = startsWith(key, "probe");
            if (!parseChunkNumber(key.substr(logic ? 5 : 6), n))
                continue; // not a channel key
            if (n > declared.size() || declared[n - 1] != (logic ? Channel::Logic : Channel::Analog)) {
                error = "metadata: " + key + " names no declared channel";
                return false;
            }
            (logic ? probes : analogs)[n] = value;
        }
    }
    if (probes.empty() && analogs.empty())
        return true;
    if (rate == 0) {
        error = "metadata: no samplerate";
        return false;
    }
    m_sampleInterval = 1.0 / static_cast<double>(rate);

    for (const auto &entry : analogs) {
        Channel channel;
        channel.kind = Channel::Analog;
        channel.name = entry.second;
        channel.unit = "V";
        channel.sampleInterval = m_sampleInterval;
        const std::string prefix = "analog-1-" + std::to_string(entry.first);
        if (!collectChunks(prefix, channel.members, error))
            return false;
        uint64_t bytes = 0;
        for (const Member &m : channel.members) {
            if (m.size % sizeof(float) != 0) {
                error = "member " + m.name + " size is not a whole number of samples";
                return false;
            }
            bytes += m.size;
        }
        channel.sampleCount = bytes / sizeof(float);
        m_channels.push_back(std::move(channel));
    }
    if (probes.empty())
        return true;
    if (unitSize == 0) {
        error = "metadata: no unitsize";
        return false;
    }
    if (capture.empty() || capture.find('/') != std::string::npos) {
        error = "metadata: bad capturefile '" + capture + "'";
        return false;
    }
    std::vector<Member> logicMembers;
    if (!collectChunks(capture, logicMembers, error))
        return false;
    uint64_t bytes = 0;
    for (const Member &m : logicMembers) {
        if (m.size % unitSize != 0) {
            error = "member " + m.name + " size is not a whole number of samples";
            return false;
        }
        bytes += m.size;
    }
    for (const auto &entry : probes) {
        if (entry.first > unitSize * 8) {
            error = "metadata: probe" + std::to_string(entry.first) + " does not fit unitsize "
                    + std::to_string(unitSize);
            return false;
        }
        Channel channel;
        channel.kind = Channel::Logic;
        channel.name = entry.second;
        channel.sampleInterval = m_sampleInterval;
        channel.members = logicMembers;
        channel.bit = static_cast<unsigned>(entry.first - 1);
        channel.unitSize = static_cast<unsigned>(unitSize);
        channel.sampleCount = bytes / unitSize;
        m_channels.push_back(std::move(channel));
    }
    return true;
}

bool SrArchive::collectChunks(const std::string &prefix, std::vector<Member> &chunks,
                              std::string &error) const
{
    std::map<uint64_t, const Member *> numbered;
    const std::string chunkPrefix = prefix + "-";
    for (auto it = m_members.lower_bound(chunkPrefix);
         it != m_members.end() && startsWith(it->first, chunkPrefix.c_str()); ++it) {
        uint64_t n = 0;
        if (parseChunkNumber(it->first.substr(chunkPrefix.size()), n))
            numbered.emplace(n, &it->second);
    }
    chunks.clear();
    if (numbered.empty()) {
        // A capture written in one piece has a single member without a chunk number.
        const auto single = m_members.find(prefix);
        if (single != m_members.end())
            chunks.push_back(single->second);
        return true;
    }
    uint64_t expected = 1;
    for (const auto &entry : numbered) {
        if (entry.first != expected) {
            error = "member " + chunkPrefix + std::to_string(expected) + " missing";
            return false;
        }
        chunks.push_back(*entry.second);
        ++expected;
    }
    return true;
}

bool SrArchive::loadCurves(std::string &error)
{
    if (!m_members.count(CURVE_METADATA_MEMBER))
        return true;
    std::string text;
    if (!readSmallMember(CURVE_METADATA_MEMBER, MAX_METADATA_BYTES, text, error))
        return false;
    std::vector<IniSection> sections;
    if (!parseIni(text, sections, error)) {
        error = std::string(CURVE_METADATA_MEMBER) + ": " + error;
        return false;
    }
    for (const IniSection &section : sections) {
        uint64_t number = 0;
        if (!startsWith(section.name, "curve ") || !parseChunkNumber(section.name.substr(6), number))
            continue;
        const std::string where = std::string(CURVE_METADATA_MEMBER) + ": [" + section.name + "] ";
        const std::string *name = section.value("name");
        const std::string *unit = section.value("unit");
        const std::string *samples = section.value("samples");
        const std::string *start = section.value("start");
        const std::string *interval = section.value("interval");
        Channel channel;
        channel.kind = Channel::Curve;
        channel.curveNumber = number;
        if (!name || name->empty()) {
            error = where + "has no name";
            return false;
        }
        if (!samples || !parseUnsigned(*samples, channel.sampleCount)
            || channel.sampleCount > UINT64_MAX / sizeof(double)) {
            error = where + "has no valid samples count";
            return false;
        }
        if (!start || !parseDouble(*start, channel.startTime) || !std::isfinite(channel.startTime)
            || !interval || !parseDouble(*interval, channel.sampleInterval)
            || !std::isfinite(channel.sampleInterval)) {
            error = where + "has no valid start or interval";
            return false;
        }
        channel.name = *name;
        channel.unit = unit ? *unit : std::string();
        const auto member = m_members.find(curveMemberName(number));
        if (member == m_members.end()) {
            error = "member " + curveMemberName(number) + " missing";
            return false;
        }
        if (member->second.size != channel.sampleCount * sizeof(double)) {
            error = "member " + member->first + " size does not match its samples count";
            return false;
        }
        channel.members.push_back(member->second);
        m_channels.push_back(std::move(channel));
    }
    return true;
}

bool SrArchive::readSamples(size_t index, double *out, uint64_t count, std::string &error) const
{
    if (index >= m_channels.size()) {
        error = "no waveform " + std::to_string(index);
        return false;
    }
    const Channel &channel = m_channels[index];
    std::lock_guard<std::mutex> lock(m_readMutex);
    if (count > channel.sampleCount) {
        error = "asked for " + std::to_string(count) + " samples of a waveform of "
                + std::to_string(channel.sampleCount);
        return false;
    }
    if (count == 0)
        return true;
    if (!out) {
        error = "no sample buffer";
        return false;
    }
    switch (channel.kind) {
    case Channel::Analog: return readAnalog(channel, out, count, error);
    case Channel::Logic: return readLogic(channel, out, count, error);
    case Channel::Curve: return readCurve(channel, out, count, error);
    }
    return false;
}

bool SrArchive::readAnalog(const Channel &channel, double *out, uint64_t count, std::string &error) const
{
    // Inflate through a cache-sized buffer and widen to double on the way out, so the samples
    // pass through memory once.
    std::vector<float> buffer(STREAM_BUFFER_BYTES / sizeof(float));
    for (const Member &member : channel.members) {
        MemberStream stream(m_zip, member);
        uint64_t left = std::min<uint64_t>(member.size / sizeof(float), count);
        count -= left;
        while (left > 0) {
            const size_t n = static_cast<size_t>(std::min<uint64_t>(left, buffer.size()));
            if (!stream.read(buffer.data(), n * sizeof(float), error))
                return false;
            std::copy(buffer.data(), buffer.data() + n, out); // float32 little-endian on every target we build for
            out += n;
            left -= n;
        }
        if (!stream.finish(error))
            return false;
        if (count == 0)
            break;
    }
    return true;
}

bool SrArchive::readLogic(const Channel &channel, double *out, uint64_t count, std::string &error) const
{
    std::vector<unsigned char> buffer(STREAM_BUFFER_BYTES / channel.unitSize * channel.unitSize);
    const unsigned byteIndex = channel.bit / 8;
    const unsigned mask = 1u << (channel.bit % 8);
    for (const Member &member : channel.members) {
        MemberStream stream(m_zip, member);
        uint64_t left = std::min<uint64_t>(member.size / channel.unitSize, count);
        count -= left;
        const size_t perRead = buffer.size() / channel.unitSize;
        while (left > 0) {
            const size_t n = static_cast<size_t>(std::min<uint64_t>(left, perRead));
            if (!stream.read(buffer.data(), n * channel.unitSize, error))
                return false;
            const unsigned char *sample = buffer.data() + byteIndex;
            for (size_t i = 0; i < n; ++i, sample += channel.unitSize)
                *out++ = (*sample & mask) ? 1.0 : 0.0;
            left -= n;
        }
        if (!stream.finish(error))
            return false;
        if (count == 0)
            break;
    }
    return true;
}

bool SrArchive::readCurve(const Channel &channel, double *out, uint64_t count, std::string &error) const
{
    MemberStream stream(m_zip, channel.members.front());
    return stream.read(out, count * sizeof(double), error) && stream.finish(error);
}

} // namespace vornsr
