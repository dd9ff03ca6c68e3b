#ifndef VORN_SRARCHIVE_H
#define VORN_SRARCHIVE_H

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

typedef struct zip zip_t;

namespace vornsr {

// Names of our own members, which libsigrok never opens.
extern const char *const CURVE_METADATA_MEMBER; // "vorngraph/metadata"
std::string curveMemberName(uint64_t number);   // "vorngraph/curve-N"

struct Member
{
    uint64_t index = 0; // in the zip directory
    uint64_t size = 0;  // uncompressed bytes
    std::string name;
};

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
    std::vector<Member> members; // data in chunk order
    unsigned bit = 0;            // logic: bit of this probe in a sample of unitSize bytes
    unsigned unitSize = 0;       // logic: bytes per sample
    uint64_t curveNumber = 0;    // curve: N of [curve N]
};

// A parsed sigrok session archive (srzip versions 1 and 2, plus our envelope curves).
// Opening checks the whole structure, so that later reads can only fail on damaged data.
class SrArchive
{
public:
    ~SrArchive();
    SrArchive(const SrArchive &) = delete;
    SrArchive &operator=(const SrArchive &) = delete;

    static std::unique_ptr<SrArchive> open(const std::string &path, std::string &error);

    const std::vector<Channel> &channels() const { return m_channels; }
    // Reads the first count samples of channel index into out.
    bool readSamples(size_t index, double *out, uint64_t count, std::string &error) const;

private:
    SrArchive() = default;
    bool load(std::string &error);
    bool readSmallMember(const std::string &name, uint64_t limit, std::string &text,
                         std::string &error) const;
    bool loadDevice(std::string &error);
    bool loadCurves(std::string &error);
    bool collectChunks(const std::string &prefix, std::vector<Member> &chunks,
                       std::string &error) const;
    bool readAnalog(const Channel &channel, double *out, uint64_t count, std::string &error) const;
    bool readLogic(const Channel &channel, double *out, uint64_t count, std::string &error) const;
    bool readCurve(const Channel &channel, double *out, uint64_t count, std::string &error) const;

    zip_t *m_zip = nullptr;
    std::map<std::string, Member> m_members;
    std::vector<Channel> m_channels;
    double m_sampleInterval = 0.0;
    mutable std::mutex m_readMutex; // libzip handles are not thread-safe
};

} // namespace vornsr

#endif
