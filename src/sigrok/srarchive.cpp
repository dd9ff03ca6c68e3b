#include "srarchive.h"

#include "srini.h"
#include "srmemberreader.h"

#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <map>
#include <mutex>
#include <system_error>
#include <thread>

namespace vornsr {

const char *const CURVE_METADATA_MEMBER = "vorngraph/metadata";

std::string curveMemberName(uint64_t number)
{
    return "vorngraph/curve-" + std::to_string(number);
}

std::string referenceMemberName(uint64_t number)
{
    return "vorngraph/reference-" + std::to_string(number);
}

namespace {

constexpr uint64_t MAX_METADATA_BYTES = 1 << 20;
constexpr uint64_t MAX_CHANNELS = 65536;
constexpr uint64_t MAX_INFLATE_RATIO = 1032; // what deflate can make of a byte at most
constexpr unsigned MAX_UNIT_SIZE = 64;
constexpr uint64_t PARALLEL_BYTES = 1 << 20; // below this a second thread costs more than it saves
constexpr unsigned MAX_THREADS = 8;

// How the bytes of one sample become a double.
struct SampleLayout
{
    Channel::Kind kind;
    unsigned bytes;
    unsigned byteIndex;
    unsigned mask;

    explicit SampleLayout(const Channel &c)
        : kind(c.kind), bytes(c.kind == Channel::Analog ? 4 : c.kind == Channel::Logic ? c.unitSize : 8),
          byteIndex(c.bit / 8), mask(1u << (c.bit % 8))
    {
    }

    // src may be dst's own memory: no sample is wider than a double, so going backwards every
    // sample is read before its double overwrites it.
    void widen(const unsigned char *src, double *dst, uint64_t n) const
    {
        switch (kind) {
        case Channel::Analog:
            for (uint64_t i = n; i-- > 0;) {
                float value; // float32 little-endian on every target we build for
                std::memcpy(&value, src + 4 * i, sizeof value);
                dst[i] = value;
            }
            break;
        case Channel::Logic:
            for (uint64_t i = n; i-- > 0;)
                dst[i] = (src[i * bytes + byteIndex] & mask) ? 1.0 : 0.0;
            break;
        case Channel::Curve:
            if (src != reinterpret_cast<const unsigned char *>(dst))
                std::memcpy(dst, src, n * sizeof(double));
            break;
        }
    }
};

bool parseChunkNumber(std::string_view text, uint64_t &number)
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

bool isUtf8(const std::string &text)
{
    return g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr);
}

bool startsWith(const std::string &text, const char *prefix)
{
    return text.compare(0, std::strlen(prefix), prefix) == 0;
}

} // namespace

SrArchive::~SrArchive()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

std::unique_ptr<SrArchive> SrArchive::open(const std::string &path, std::string &error)
{
    std::unique_ptr<SrArchive> archive(new SrArchive);
    archive->m_fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat st;
    if (archive->m_fd < 0 || ::fstat(archive->m_fd, &st) != 0) {
        error = errno == ENOENT ? "file not found" : std::string("cannot read file: ") + std::strerror(errno);
        return nullptr;
    }
    if (!S_ISREG(st.st_mode)) {
        error = "not a regular file";
        return nullptr;
    }
    if (!readZipDirectory(archive->m_fd, static_cast<uint64_t>(st.st_size), archive->m_entries,
                          archive->m_dataEnd, error)
        || !archive->load(error))
        return nullptr;
    return archive;
}

bool SrArchive::load(std::string &error)
{
    // Chunks are grouped by the name before their number in one pass: a long capture has a
    // hundred thousand of them.
    m_members.reserve(m_entries.size());
    for (const ZipEntry &entry : m_entries) {
        if (!m_members.emplace(entry.name, &entry).second)
            continue; // the first of equal names is the member
        const size_t dash = entry.name.rfind('-');
        uint64_t n = 0;
        if (dash != std::string::npos && parseChunkNumber(std::string_view(entry.name).substr(dash + 1), n))
            m_chunks[std::string_view(entry.name).substr(0, dash)].emplace_back(n, &entry);
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
    if (!loadDevice(error))
        return false;
    loadCurves();
    // The channels hold their members now; the grouping would only add to a long capture's peak.
    m_chunks = {};
    return true;
}

bool SrArchive::readSmallMember(const std::string &name, uint64_t limit, std::string &text,
                                std::string &error) const
{
    const auto it = m_members.find(name);
    if (it == m_members.end()) {
        error = "member " + name + " missing";
        return false;
    }
    const ZipEntry &entry = *it->second;
    error = memberDamage(entry, m_dataEnd, 1);
    if (!error.empty())
        return false;
    if (entry.size > limit) {
        error = "member " + name + " too large";
        return false;
    }
    text.assign(entry.size, '\0');
    MemberReader reader(m_fd, m_dataEnd);
    return reader.read(entry, &text[0], error);
}

bool SrArchive::readMember(const std::string &name, uint64_t limit, std::string &text, bool &present,
                           std::string &error) const
{
    text.clear();
    present = m_members.count(name) > 0;
    return !present || readSmallMember(name, limit, text, error);
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
    if (!device->unreadable.empty()) {
        error = "metadata: " + device->unreadable;
        return false;
    }

    // Keys count in file order, as libsigrok reads them: a channel must be declared by
    // "total probes" or "total analog" before a probeN or analogN key may name it.
    std::vector<Channel::Kind> declared;
    std::map<uint64_t, std::string> probes, analogs;
    std::string capture = "logic-1";
    std::string logicDamage; // what keeps the probes from their data; analog channels still load
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
                logicDamage = "metadata: bad unitsize '" + value + "'";
                unitSize = 0;
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
        collectChunks("analog-1-" + std::to_string(entry.first), sizeof(float), channel);
        m_channels.push_back(std::move(channel));
    }
    if (probes.empty())
        return true;
    if (logicDamage.empty() && unitSize == 0)
        logicDamage = "metadata: no unitsize";
    if (logicDamage.empty() && (capture.empty() || capture.find('/') != std::string::npos))
        logicDamage = "metadata: bad capturefile '" + capture + "'";
    Channel logic;
    logic.kind = Channel::Logic;
    logic.sampleInterval = m_sampleInterval;
    logic.unitSize = static_cast<unsigned>(unitSize);
    logic.damage = logicDamage;
    if (logicDamage.empty())
        collectChunks(capture, unitSize, logic);
    for (const auto &entry : probes) {
        Channel channel = logic;
        channel.name = entry.second;
        channel.bit = static_cast<unsigned>(entry.first - 1);
        if (channel.damage.empty() && entry.first > unitSize * 8)
            channel.damage = "metadata: probe" + std::to_string(entry.first) + " does not fit unitsize "
                             + std::to_string(unitSize);
        if (!channel.damage.empty()) {
            channel.members.clear();
            channel.sampleCount = 0;
        }
        m_channels.push_back(std::move(channel));
    }
    return true;
}

void SrArchive::collectChunks(const std::string &prefix, uint64_t sampleBytes, Channel &channel) const
{
    const std::string chunkPrefix = prefix + "-";
    const auto group = m_chunks.find(prefix);
    std::vector<std::pair<uint64_t, const ZipEntry *>> numbered;
    if (group != m_chunks.end())
        numbered = group->second;
    std::sort(numbered.begin(), numbered.end());
    if (numbered.empty()) {
        // A capture written in one piece has a single member without a chunk number.
        const auto single = m_members.find(prefix);
        if (single != m_members.end())
            numbered.emplace_back(1, single->second);
    }
    uint64_t expected = 1, bytes = 0;
    channel.members.reserve(numbered.size());
    for (const auto &entry : numbered) {
        if (entry.first != expected++)
            channel.damage = "member " + chunkPrefix + std::to_string(expected - 1) + " missing";
        else
            channel.damage = memberDamage(*entry.second, m_dataEnd, sampleBytes);
        if (!channel.damage.empty())
            break;
        channel.members.push_back(entry.second);
        bytes += entry.second->size; // each at most 1032 times the file's size: no overflow
    }
    if (!channel.damage.empty())
        channel.members.clear();
    channel.sampleCount = channel.damage.empty() ? bytes / sampleBytes : 0;
}

// Why one section of our metadata offers no curve, or empty when it is a curve's.
std::string SrArchive::sectionDamage(const IniSection &section, Channel &channel) const
{
    const std::string *name = section.value("name");
    const std::string *samples = section.value("samples");
    const std::string *start = section.value("start");
    const std::string *interval = section.value("interval");
    if (!section.unreadable.empty()) {
        const std::string where = "[" + section.name + "] ";
        return section.unreadable.compare(0, where.size(), where) == 0 ? section.unreadable.substr(where.size())
                                                                        : section.unreadable;
    }
    if (!name || name->empty())
        return "no name";
    if (!isUtf8(*name))
        return "its name is not UTF-8 text";
    if (!samples || !parseUnsigned(*samples, channel.sampleCount))
        return "samples '" + (samples ? *samples : std::string()) + "' is no count";
    // The bytes of the archive bound what its member can hold, whatever the section claims.
    if (channel.sampleCount > m_dataEnd * MAX_INFLATE_RATIO / sizeof(double))
        return "samples " + *samples + " is more than the archive can hold";
    if (!start || !parseDouble(*start, channel.startTime) || !std::isfinite(channel.startTime))
        return "start '" + (start ? *start : std::string()) + "' is no finite number";
    if (!interval || !parseDouble(*interval, channel.sampleInterval) || !std::isfinite(channel.sampleInterval))
        return "interval '" + (interval ? *interval : std::string()) + "' is no finite number";
    return std::string();
}

// Our curves never cost the capture: metadata or a section that cannot be read offers no curve
// and is noted with its reason, and a curve whose member is missing or of the wrong size fails
// its own reads.
void SrArchive::loadCurves()
{
    if (!m_members.count(CURVE_METADATA_MEMBER))
        return;
    std::string text, error;
    std::vector<IniSection> sections;
    if (!readSmallMember(CURVE_METADATA_MEMBER, MAX_METADATA_BYTES, text, error) || !parseIni(text, sections, error)) {
        m_unreadableCurves.push_back(std::string(CURVE_METADATA_MEMBER) + ": " + error + ", so no envelope curve was read");
        return;
    }
    for (const IniSection &section : sections) {
        // References are read as curves are, but never offered as waveforms.
        Channel reference;
        if (parseCurveSection(section, "reference ", reference)) {
            m_references.push_back(std::move(reference));
            continue;
        }
        uint64_t number = 0;
        if (!startsWith(section.name, "curve ") || !parseChunkNumber(section.name.substr(6), number))
            continue;
        Channel channel;
        channel.kind = Channel::Curve;
        channel.curveNumber = number;
        const std::string why = sectionDamage(section, channel);
        if (!why.empty()) {
            const std::string *name = section.value("name");
            m_unreadableCurves.push_back("[" + section.name + "]"
                                         + (name && isUtf8(*name) && !name->empty() ? " '" + *name + "'" : std::string())
                                         + " in " + CURVE_METADATA_MEMBER + ": " + why);
            continue;
        }
        const std::string *unit = section.value("unit");
        channel.name = *section.value("name");
        channel.unit = unit ? *unit : std::string();
        attachCurveMember(curveMemberName(number), channel);
        m_channels.push_back(std::move(channel));
    }
}

// A [reference N] section (or one of another prefix) and its member; false when the section is
// not one of that kind or cannot be read.
bool SrArchive::parseCurveSection(const IniSection &section, const char *prefix, Channel &channel) const
{
    uint64_t number = 0;
    const size_t length = std::strlen(prefix);
    if (!startsWith(section.name, prefix) || !parseChunkNumber(section.name.substr(length), number))
        return false;
    const bool reference = length != 6;
    const std::string *name = section.value("name");
    const std::string *unit = section.value("unit");
    const std::string *samples = section.value("samples");
    const std::string *start = section.value("start");
    const std::string *interval = section.value("interval");
    const std::string *source = section.value("source interval");
    channel.kind = Channel::Curve;
    channel.curveNumber = number;
    if (!section.unreadable.empty() || !name || name->empty() || !samples
        || !parseUnsigned(*samples, channel.sampleCount) || channel.sampleCount > UINT64_MAX / sizeof(double)
        || !start || !parseDouble(*start, channel.startTime) || !std::isfinite(channel.startTime) || !interval
        || !parseDouble(*interval, channel.sampleInterval) || !std::isfinite(channel.sampleInterval))
        return false;
    if (reference && (!source || !parseDouble(*source, channel.sourceInterval) || !(channel.sourceInterval > 0.0)))
        return false;
    channel.name = *name;
    channel.unit = unit ? *unit : std::string();
    attachCurveMember(reference ? referenceMemberName(number) : curveMemberName(number), channel);
    return true;
}

// A curve's doubles live in one member of its own; a missing or damaged one fails only its reads.
void SrArchive::attachCurveMember(const std::string &memberName, Channel &channel) const
{
    const auto member = m_members.find(memberName);
    if (member == m_members.end())
        channel.damage = "member " + memberName + " missing";
    else if (member->second->size != channel.sampleCount * sizeof(double))
        channel.damage = "member " + member->second->name + " size does not match its samples count";
    else
        channel.damage = memberDamage(*member->second, m_dataEnd, sizeof(double));
    if (channel.damage.empty())
        channel.members.push_back(member->second);
    else
        channel.sampleCount = 0;
}

bool SrArchive::readReference(size_t index, double *out, std::string &error) const
{
    if (index >= m_references.size() || !m_references[index].damage.empty()) {
        error = index < m_references.size() ? m_references[index].damage : "no such reference";
        return false;
    }
    return m_references[index].sampleCount == 0 || readChannel(m_references[index], out, m_references[index].sampleCount, error);
}

bool SrArchive::readSamples(size_t index, double *out, uint64_t count, std::string &error,
                            ReadProgress *progress) const
{
    if (index >= m_channels.size()) {
        error = "no waveform " + std::to_string(index);
        return false;
    }
    const Channel &channel = m_channels[index];
    if (!channel.damage.empty()) {
        error = channel.damage;
        return false;
    }
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
    return readChannel(channel, out, count, error, progress);
}

// Members are independent: each thread decodes a run of them straight into its place in out.
// A member holding no more than count samples is inflated into its own stretch of out and
// widened there in place, while it is still in the cache.
bool SrArchive::readChannel(const Channel &channel, double *out, uint64_t count, std::string &error,
                            ReadProgress *progress) const
{
    const SampleLayout layout(channel);
    std::vector<uint64_t> first; // first sample of each member that count reaches
    first.reserve(channel.members.size());
    uint64_t samples = 0, compressed = 0;
    for (const ZipEntry *member : channel.members) {
        if (samples >= count)
            break;
        first.push_back(samples);
        samples += member->size / layout.bytes;
        compressed += member->compressedSize;
    }
    const size_t needed = first.size();
    const unsigned threads = compressed < PARALLEL_BYTES
                                 ? 1
                                 : std::max(1u, std::min(MAX_THREADS, std::thread::hardware_concurrency()));
    // Every thread runs until it fails or passes the earliest failure seen, so the reason given
    // is always that of the first bad member.
    std::atomic<size_t> firstFailure{needed};
    std::vector<std::string> errors(threads);
    std::vector<size_t> failedAt(threads, needed);
    const auto failed = [&](unsigned t, size_t at) {
        failedAt[t] = at;
        size_t seen = firstFailure;
        while (at < seen && !firstFailure.compare_exchange_weak(seen, at)) {
        }
    };
    // Cancelling moves the earliest failure to the first member: every thread stops after the one it is on.
    std::atomic<uint64_t> decoded{0};
    std::mutex reporting;
    const auto report = [&](uint64_t n) {
        const uint64_t done = decoded += n;
        std::unique_lock<std::mutex> lock(reporting, std::try_to_lock);
        if (lock.owns_lock() && !progress->cancelled && !progress->report(done, count)) {
            progress->cancelled = true;
            firstFailure = 0;
        }
    };
    const auto work = [&](unsigned t, size_t begin, size_t end) {
        try {
            MemberReader reader(m_fd, m_dataEnd);
            std::vector<unsigned char> partial;
            for (size_t i = begin; i < end && i < firstFailure; ++i) {
                const ZipEntry &member = *channel.members[i];
                const uint64_t n = std::min(member.size / layout.bytes, count - first[i]);
                double *to = out + first[i];
                unsigned char *bytes = reinterpret_cast<unsigned char *>(to);
                const uint64_t wanted = n * layout.bytes;
                if (wanted != member.size || layout.bytes > sizeof(double)) {
                    partial.resize(wanted);
                    bytes = partial.data();
                }
                // The last member count reaches is inflated only as far as count needs.
                if (!(wanted == member.size ? reader.read(member, bytes, errors[t])
                                            : reader.readPrefix(member, bytes, wanted, errors[t])))
                    return failed(t, i);
                layout.widen(bytes, to, n);
                if (progress)
                    report(n);
            }
        } catch (const std::bad_alloc &) {
            errors[t] = "not enough memory";
            failed(t, begin);
        }
    };

    std::vector<std::thread> helpers;
    size_t begin = 0;
    uint64_t done = 0;
    for (unsigned t = 0; t < threads; ++t) {
        size_t end = begin;
        const uint64_t target = compressed / threads * (t + 1);
        while (end < needed && (t + 1 == threads || done < target))
            done += channel.members[end++]->compressedSize;
        try {
            if (t + 1 < threads) {
                helpers.emplace_back(work, t, begin, end);
                begin = end;
                continue;
            }
        } catch (const std::system_error &) {
            // No thread to be had: this one does the share itself.
        }
        work(t, begin, end);
        begin = end;
    }
    for (std::thread &helper : helpers)
        helper.join();
    if (progress && progress->cancelled) {
        error = "cancelled";
        return false;
    }
    for (unsigned t = 0; t < threads; ++t) {
        if (failedAt[t] == firstFailure && failedAt[t] < needed) {
            error = errors[t];
            return false;
        }
    }
    return true;
}

} // namespace vornsr
