#ifndef VORN_SRCURVEWRITER_H
#define VORN_SRCURVEWRITER_H

#include <cstdint>
#include <string>
#include <vector>

typedef struct zip zip_t;

namespace vornsr {

// A curve to store beside the capture; the samples are borrowed until the call returns.
struct CurveData
{
    std::string name;
    std::string unit;
    double sampleInterval = 0.0;
    double startTime = 0.0;
    const double *samples = nullptr;
    uint64_t sampleCount = 0;
    // References only: the interval the envelope's sources were captured at.
    double sourceInterval = 0.0;
};

// One save: the curves named in removeCurves and the references named in removeReferences go,
// then curves and references are stored. A reference is named after the waveform whose envelope
// it belongs to; it is never offered as a waveform.
struct CurveChange
{
    std::vector<std::string> removeCurves;
    std::vector<std::string> removeReferences;
    std::vector<CurveData> curves;
    std::vector<CurveData> references;
};

// Takes out every stored curve whose name is in `remove`, then stores `curves`; a curve that
// replaces one of the same name keeps its place. Every member of the capture stays
// byte-identical, and the file is replaced atomically or not at all. When nothing would change,
// the file is not written.
struct ZipEntry;
// Whether libzip reads the archive's directory as we do; where it would not, a rewrite could
// change what we never checked, so the archive is left alone (error says so).
bool seenAlike(zip_t *zip, const std::vector<ZipEntry> &entries, std::string &error);
// Puts size bytes of data under name (kept until the archive is closed), replacing a member of
// that name; deletes a member where there is one. False, with the reason in error, on failure.
bool putMember(zip_t *zip, const std::string &name, const void *data, uint64_t size, std::string &error);
bool deleteMember(zip_t *zip, const std::string &name, std::string &error);
// Writes the archive opened for update over the capture and forgets the cached reading of it;
// failure is the reason the replacement gave, if any.
bool closeReplacing(zip_t *zip, const std::string &failure, std::string &error);

bool replaceCurves(const std::string &path, const std::vector<std::string> &remove,
                   const std::vector<CurveData> &curves, std::string &error);
bool replaceCurves(const std::string &path, const CurveChange &change, std::string &error);

} // namespace vornsr

#endif
