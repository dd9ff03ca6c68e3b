#ifndef VORN_SRMEMBERREADER_H
#define VORN_SRMEMBERREADER_H

#include "srzipdir.h"

#include <string>
#include <vector>

struct libdeflate_decompressor;

namespace vornsr {

// Decodes whole members straight from the archive file: the raw bytes come through a window
// read ahead over the file, deflate data is inflated in one call into the caller's buffer and
// every member's CRC-32 is checked. One reader per thread.
class MemberReader
{
public:
    MemberReader(int fd, uint64_t dataEnd);
    ~MemberReader();
    MemberReader(const MemberReader &) = delete;
    MemberReader &operator=(const MemberReader &) = delete;

    // Fills out, which holds entry.size bytes, with the member's content.
    bool read(const ZipEntry &entry, void *out, std::string &error);
    // Fills out with the first bytes of the member's content, inflating no more than that; the
    // CRC covers the whole member, so it is not checked.
    bool readPrefix(const ZipEntry &entry, void *out, uint64_t bytes, std::string &error);

private:
    const unsigned char *fetch(uint64_t offset, uint64_t bytes);
    bool dataStart(const ZipEntry &entry, uint64_t &start, std::string &error);

    int m_fd;
    uint64_t m_dataEnd;
    libdeflate_decompressor *m_inflater;
    std::vector<unsigned char> m_window;
    uint64_t m_windowStart = 0;
    uint64_t m_windowBytes = 0;
};

// Why the archive cannot give entry as a member of sampleBytes-byte samples, or "" when it can:
// a method we cannot bound, or a size that the bytes in the file cannot hold.
std::string memberDamage(const ZipEntry &entry, uint64_t dataEnd, uint64_t sampleBytes);

} // namespace vornsr

#endif
