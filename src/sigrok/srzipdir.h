#ifndef VORN_SRZIPDIR_H
#define VORN_SRZIPDIR_H

#include <cstdint>
#include <string>
#include <vector>

namespace vornsr {

// One member as the zip's central directory lists it.
struct ZipEntry
{
    std::string name;
    uint64_t size = 0;            // uncompressed bytes
    uint64_t compressedSize = 0;
    uint64_t localHeader = 0;     // offset of the member's local header in the file
    uint32_t crc = 0;
    uint16_t method = 0;
    uint16_t flags = 0;
};

// Reads the central directory (zip64 included) of the archive open as fd. dataEnd receives
// where member data must end: the start of the central directory.
bool readZipDirectory(int fd, uint64_t fileSize, std::vector<ZipEntry> &entries, uint64_t &dataEnd,
                      std::string &error);

// Reads exactly bytes at offset; false on a short read or an error.
bool readAt(int fd, uint64_t offset, void *buffer, uint64_t bytes);

inline uint16_t le16(const unsigned char *p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }
inline uint32_t le32(const unsigned char *p) { return le16(p) | static_cast<uint32_t>(le16(p + 2)) << 16; }
inline uint64_t le64(const unsigned char *p) { return le32(p) | static_cast<uint64_t>(le32(p + 4)) << 32; }

} // namespace vornsr

#endif
