#include "srzipdir.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace vornsr {

namespace {

constexpr uint32_t END_SIGNATURE = 0x06054b50;
constexpr uint32_t END64_SIGNATURE = 0x06064b50;
constexpr uint32_t LOCATOR64_SIGNATURE = 0x07064b50;
constexpr uint32_t ENTRY_SIGNATURE = 0x02014b50;
constexpr uint64_t END_BYTES = 22;
constexpr uint64_t LOCATOR64_BYTES = 20;
constexpr uint64_t END64_BYTES = 56;
constexpr uint64_t ENTRY_BYTES = 46;
constexpr uint64_t LOCAL_BYTES = 30;
constexpr uint64_t MAX_COMMENT = 0xffff;
constexpr uint16_t ZIP64_EXTRA = 0x0001;

struct Directory
{
    uint64_t entries = 0;
    uint64_t size = 0;
    uint64_t offset = 0;
    uint64_t recordStart = 0; // where the end records begin: the directory must end before
};

bool damaged(std::string &error, const std::string &what)
{
    error = "damaged zip archive: " + what;
    return false;
}

// The end record is the last one whose comment runs exactly to the end of the file, as writers
// leave it; a signature inside a comment does not fit that way.
bool findEnd(int fd, uint64_t fileSize, Directory &dir, bool &zip64, std::string &error)
{
    const uint64_t tailBytes = std::min(fileSize, END_BYTES + MAX_COMMENT);
    std::vector<unsigned char> tail(tailBytes);
    if (tailBytes < END_BYTES || !readAt(fd, fileSize - tailBytes, tail.data(), tailBytes)) {
        error = "not a zip archive";
        return false;
    }
    for (uint64_t at = tailBytes - END_BYTES + 1; at-- > 0;) {
        const unsigned char *p = tail.data() + at;
        if (le32(p) != END_SIGNATURE || at + END_BYTES + le16(p + 20) != tailBytes)
            continue;
        dir.entries = le16(p + 10);
        dir.size = le32(p + 12);
        dir.offset = le32(p + 16);
        dir.recordStart = fileSize - tailBytes + at;
        zip64 = dir.entries == 0xffff || dir.size == 0xffffffff || dir.offset == 0xffffffff;
        return true;
    }
    // A zip's first member with no end record after it: the file was cut short.
    unsigned char head[4];
    const bool started = fileSize >= sizeof head && readAt(fd, 0, head, sizeof head) && le32(head) == 0x04034b50;
    error = started ? "the archive is truncated" : "not a zip archive";
    return false;
}

bool readEnd64(int fd, Directory &dir, std::string &error)
{
    unsigned char locator[LOCATOR64_BYTES], end[END64_BYTES];
    // Without a locator the 0xffff and 0xffffffff fields are plain values (65,535 members).
    if (dir.recordStart < LOCATOR64_BYTES || !readAt(fd, dir.recordStart - LOCATOR64_BYTES, locator, sizeof locator)
        || le32(locator) != LOCATOR64_SIGNATURE)
        return true;
    const uint64_t at = le64(locator + 8);
    if (at > dir.recordStart - LOCATOR64_BYTES - END64_BYTES || !readAt(fd, at, end, sizeof end)
        || le32(end) != END64_SIGNATURE)
        return damaged(error, "zip64 end record missing");
    dir.entries = le64(end + 32);
    dir.size = le64(end + 40);
    dir.offset = le64(end + 48);
    dir.recordStart = at;
    return true;
}

// Fields that do not fit 32 bits are 0xffffffff in the entry and follow, in this order, in the
// zip64 extra field.
bool applyZip64(const unsigned char *extra, uint64_t extraBytes, ZipEntry &e)
{
    while (extraBytes >= 4) {
        const uint16_t id = le16(extra), bytes = le16(extra + 2);
        if (bytes > extraBytes - 4)
            return false;
        if (id == ZIP64_EXTRA) {
            const unsigned char *p = extra + 4, *end = p + bytes;
            for (uint64_t *field : {&e.size, &e.compressedSize, &e.localHeader}) {
                if (*field != 0xffffffff)
                    continue;
                if (end - p < 8)
                    return false;
                *field = le64(p);
                p += 8;
            }
            return true;
        }
        extra += 4 + bytes;
        extraBytes -= 4 + bytes;
    }
    return e.size != 0xffffffff && e.compressedSize != 0xffffffff && e.localHeader != 0xffffffff;
}

// Members that share bytes would let a small file claim the ratio bound of each of them over
// and over; every member's local header and data must have bytes of their own, so that all
// members together claim no more than the file holds. Checked on the directory alone, before
// anything is inflated or allocated. A member running past the data is damaged on its own and
// never read.
bool membersApart(const std::vector<ZipEntry> &entries, uint64_t dataEnd, std::string &error)
{
    std::vector<std::pair<uint64_t, uint64_t>> ranges; // start and end of each member
    ranges.reserve(entries.size());
    for (const ZipEntry &e : entries) {
        if (e.localHeader <= dataEnd && e.compressedSize <= dataEnd - e.localHeader
            && LOCAL_BYTES <= dataEnd - e.localHeader - e.compressedSize)
            ranges.emplace_back(e.localHeader, e.localHeader + LOCAL_BYTES + e.compressedSize);
    }
    std::sort(ranges.begin(), ranges.end());
    for (size_t i = 1; i < ranges.size(); ++i) {
        if (ranges[i].first < ranges[i - 1].second)
            return damaged(error, "members overlap");
    }
    return true;
}

} // namespace

bool readAt(int fd, uint64_t offset, void *buffer, uint64_t bytes)
{
    auto *out = static_cast<unsigned char *>(buffer);
    while (bytes > 0) {
        const ssize_t got = ::pread(fd, out, bytes, static_cast<off_t>(offset));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return false;
        out += got;
        offset += static_cast<uint64_t>(got);
        bytes -= static_cast<uint64_t>(got);
    }
    return true;
}

bool readZipDirectory(int fd, uint64_t fileSize, std::vector<ZipEntry> &entries, uint64_t &dataEnd,
                      std::string &error)
{
    Directory dir;
    bool zip64 = false;
    if (!findEnd(fd, fileSize, dir, zip64, error) || (zip64 && !readEnd64(fd, dir, error)))
        return false;
    if (dir.offset > dir.recordStart || dir.size > dir.recordStart - dir.offset
        || dir.entries > dir.size / ENTRY_BYTES)
        return damaged(error, "central directory does not fit the file");
    std::vector<unsigned char> bytes(dir.size);
    if (!readAt(fd, dir.offset, bytes.data(), dir.size)) {
        error = "cannot read file";
        return false;
    }
    entries.clear();
    entries.reserve(dir.entries);
    const unsigned char *p = bytes.data(), *const end = p + bytes.size();
    for (uint64_t i = 0; i < dir.entries; ++i) {
        if (static_cast<uint64_t>(end - p) < ENTRY_BYTES || le32(p) != ENTRY_SIGNATURE)
            return damaged(error, "bad central directory entry");
        const uint64_t nameBytes = le16(p + 28), extraBytes = le16(p + 30), commentBytes = le16(p + 32);
        if (nameBytes + extraBytes + commentBytes > static_cast<uint64_t>(end - p) - ENTRY_BYTES)
            return damaged(error, "bad central directory entry");
        ZipEntry e;
        e.flags = le16(p + 8);
        e.method = le16(p + 10);
        e.crc = le32(p + 16);
        e.compressedSize = le32(p + 20);
        e.size = le32(p + 24);
        e.localHeader = le32(p + 42);
        e.name.assign(reinterpret_cast<const char *>(p + ENTRY_BYTES), nameBytes);
        if (!applyZip64(p + ENTRY_BYTES + nameBytes, extraBytes, e))
            return damaged(error, "bad zip64 sizes of " + e.name);
        entries.push_back(std::move(e));
        p += ENTRY_BYTES + nameBytes + extraBytes + commentBytes;
    }
    dataEnd = dir.offset;
    return membersApart(entries, dataEnd, error);
}

} // namespace vornsr
