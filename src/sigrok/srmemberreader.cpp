#include "srmemberreader.h"

#include <libdeflate.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace vornsr {

namespace {

constexpr uint32_t LOCAL_SIGNATURE = 0x04034b50;
constexpr uint64_t LOCAL_BYTES = 30;
constexpr uint16_t STORED = 0;
constexpr uint16_t DEFLATED = 8;
constexpr uint16_t ENCRYPTED = 1;
// Deflate cannot expand by more than about 1032:1; anything claiming more lies about its size.
constexpr uint64_t MAX_DEFLATE_RATIO = 1032;
// Small members are read in batches; a member larger than this gets a read of its own.
constexpr uint64_t WINDOW_BYTES = 1 << 20;

} // namespace

std::string memberDamage(const ZipEntry &entry, uint64_t dataEnd, uint64_t sampleBytes)
{
    const std::string member = "member " + entry.name;
    if (entry.method != STORED && entry.method != DEFLATED)
        return member + " uses an unsupported compression method";
    if (entry.flags & ENCRYPTED)
        return member + " is encrypted";
    // The deflate bound leaves room for the few bytes of a stream's block headers.
    if ((entry.method == STORED && entry.size != entry.compressedSize)
        || (entry.method == DEFLATED && entry.size / MAX_DEFLATE_RATIO > entry.compressedSize + 8))
        return member + " claims an impossible size";
    if (entry.localHeader > dataEnd || entry.compressedSize > dataEnd - entry.localHeader
        || dataEnd - entry.localHeader - entry.compressedSize < LOCAL_BYTES)
        return member + " does not fit in the file";
    if (entry.size % sampleBytes != 0)
        return member + " size is not a whole number of samples";
    return std::string();
}

MemberReader::MemberReader(int fd, uint64_t dataEnd)
    : m_fd(fd), m_dataEnd(dataEnd), m_inflater(libdeflate_alloc_decompressor())
{
    if (!m_inflater)
        throw std::bad_alloc();
}

MemberReader::~MemberReader()
{
    libdeflate_free_decompressor(m_inflater);
}

const unsigned char *MemberReader::fetch(uint64_t offset, uint64_t bytes)
{
    if (offset >= m_windowStart && bytes <= m_windowBytes && offset - m_windowStart <= m_windowBytes - bytes)
        return m_window.data() + (offset - m_windowStart);
    if (offset > m_dataEnd || bytes > m_dataEnd - offset)
        return nullptr;
    const uint64_t n = std::min(std::max(bytes, WINDOW_BYTES), m_dataEnd - offset);
    if (m_window.size() < n)
        m_window.resize(n);
    m_windowBytes = 0;
    if (!readAt(m_fd, offset, m_window.data(), n))
        return nullptr;
    m_windowStart = offset;
    m_windowBytes = n;
    return m_window.data();
}

bool MemberReader::read(const ZipEntry &entry, void *out, std::string &error)
{
    const auto fail = [&](const char *why) {
        error = "member " + entry.name + " " + why;
        return false;
    };
    const unsigned char *local = fetch(entry.localHeader, LOCAL_BYTES);
    if (!local || le32(local) != LOCAL_SIGNATURE)
        return fail("damaged: no local header");
    const uint64_t start = entry.localHeader + LOCAL_BYTES + le16(local + 26) + le16(local + 28);
    if (start > m_dataEnd || entry.compressedSize > m_dataEnd - start)
        return fail("truncated");
    if (entry.method == STORED && entry.size > WINDOW_BYTES) {
        if (!readAt(m_fd, start, out, entry.size))
            return fail("truncated");
    } else {
        const unsigned char *data = nullptr;
        try {
            data = fetch(start, entry.compressedSize);
        } catch (const std::bad_alloc &) {
            return fail("cannot be read: not enough memory");
        }
        if (!data)
            return fail("truncated");
        if (entry.method == STORED) {
            std::memcpy(out, data, entry.size);
        } else {
            switch (libdeflate_deflate_decompress(m_inflater, data, entry.compressedSize, out, entry.size, nullptr)) {
            case LIBDEFLATE_SUCCESS: break;
            case LIBDEFLATE_SHORT_OUTPUT: return fail("truncated");
            case LIBDEFLATE_INSUFFICIENT_SPACE: return fail("is longer than its stated size");
            default: return fail("damaged: invalid deflate data");
            }
        }
    }
    if (libdeflate_crc32(0, out, entry.size) != entry.crc)
        return fail("damaged: CRC error");
    return true;
}

} // namespace vornsr
