#ifndef VORN_SRARCHIVE_H
#define VORN_SRARCHIVE_H

#include <cstdint>
#include "srzipdir.h"

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace vornsr {

struct IniSection;

// Names of our own members, which libsigrok never opens.
extern const char *const CURVE_METADATA_MEMBER; // "vorngraph/metadata"
std::string curveMemberName(uint64_t number);   // "vorngraph/curve-N"
std::string referenceMemberName(uint64_t number); // "vorngraph/reference-N", of [reference N]

// One waveform the archive offers.
struct Channel
{
    enum Kind { Analog, Logic, Curve };

    Kind kind = Analog;
    std::string name;
    std::string unit;
    uint64_t sampleCount = 0;
    double sampleInterval = 0.0;
    double startTime = 0.0;
    std::vector<const ZipEntry *> members; // data in chunk order
    std::string damage;                    // why its data cannot be read; then it has no samples
    unsigned bit = 0;            // logic: bit of this probe in a sample of unitSize bytes
    unsigned unitSize = 0;       // logic: bytes per sample
    uint64_t curveNumber = 0;    // curve: N of [curve N]; reference: N of [reference N]
    double sourceInterval = 0.0; // reference: the interval its envelope's sources had
};

// Progress of one read: report(done, total) samples in place, between members, from the reading
// threads one at a time; false from it stops the read, which then fails with cancelled set.
struct ReadProgress
{
    std::function<bool(uint64_t done, uint64_t total)> report;
    bool cancelled = false;
};

// A parsed sigrok session archive (srzip versions 1 and 2, plus our envelope curves).
// Opening checks the structure and bounds every size by the bytes in the file. Damage stays
// local: a channel whose members are unusable fails its own reads, the others still load.
class SrArchive
{
public:
    ~SrArchive();
    SrArchive(const SrArchive &) = delete;
    SrArchive &operator=(const SrArchive &) = delete;

    static std::unique_ptr<SrArchive> open(const std::string &path, std::string &error);

    const std::vector<Channel> &channels() const { return m_channels; }
    // The references stored with envelopes (kind Curve, named after their waveform); never
    // offered as waveforms.
    const std::vector<Channel> &references() const { return m_references; }
    bool readReference(size_t index, double *out, std::string &error) const;
    // Our envelope members that offer no curve, each with where and why: the metadata as a whole
    // or one of its sections.
    const std::vector<std::string> &unreadableCurves() const { return m_unreadableCurves; }
    // The members as the central directory lists them.
    const std::vector<ZipEntry> &entries() const { return m_entries; }
    // Reads the first count samples of channel index into out, telling progress how far it came.
    bool readSamples(size_t index, double *out, uint64_t count, std::string &error,
                     ReadProgress *progress = nullptr) const;
    // The content of member name when the archive has it (present); at most limit bytes.
    bool readMember(const std::string &name, uint64_t limit, std::string &text, bool &present, std::string &error) const;

private:
    SrArchive() = default;
    bool load(std::string &error);
    bool readChannel(const Channel &channel, double *out, uint64_t count, std::string &error,
                     ReadProgress *progress = nullptr) const;
    bool readSmallMember(const std::string &name, uint64_t limit, std::string &text,
                         std::string &error) const;
    bool loadDevice(std::string &error);
    void loadCurves();
    bool parseCurveSection(const IniSection &section, const char *prefix, Channel &channel) const;
    void attachCurveMember(const std::string &memberName, Channel &channel) const;
    std::string sectionDamage(const IniSection &section, Channel &channel) const;
    void collectChunks(const std::string &prefix, uint64_t sampleBytes, Channel &channel) const;

    int m_fd = -1;
    uint64_t m_dataEnd = 0; // member data lies before the central directory
    std::vector<ZipEntry> m_entries;
    std::unordered_map<std::string_view, const ZipEntry *> m_members; // names view m_entries
    // Members named "<base>-<chunk number>", by base; while loading only.
    std::unordered_map<std::string_view, std::vector<std::pair<uint64_t, const ZipEntry *>>> m_chunks;
    std::vector<Channel> m_channels;
    std::vector<Channel> m_references;
    std::vector<std::string> m_unreadableCurves;
    double m_sampleInterval = 0.0;
};

} // namespace vornsr

#endif
