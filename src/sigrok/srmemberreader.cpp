#include "srmemberreader.h"

#include <libdeflate.h>
#include <zlib.h>

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

bool MemberReader::dataStart(const ZipEntry &entry, uint64_t &start, std::string &error)
{
    const unsigned char *local = fetch(entry.localHeader, LOCAL_BYTES);
    if (!local || le32(local) != LOCAL_SIGNATURE) {
        error = "member " + entry.name + " damaged: no local header";
        return false;
    }
    start = entry.localHeader + LOCAL_BYTES + le16(local + 26) + le16(local + 28);
    if (start > m_dataEnd || entry.compressedSize > m_dataEnd - start) {
        error = "member " + entry.name + " truncated";
        return false;
    }
    return true;
}

bool MemberReader::readPrefix(const ZipEntry &entry, void *out, uint64_t bytes, std::string &error)
{
    uint64_t start = 0;
    if (!dataStart(entry, start, error))
        return false;
    if (bytes > entry.size) {
        error = "member " + entry.name + " truncated";
        return false;
    }
    if (entry.method == STORED) {
        if (readAt(m_fd, start, out, bytes))
            return true;
        error = "member " + entry.name + " truncated";
        return false;
    }
    // A stream that has to stop early: the output window is all the memory it takes.
    z_stream stream{};
    if (inflateInit2(&stream, -MAX_WBITS) != Z_OK) {
        error = "member " + entry.name + " cannot be read: not enough memory";
        return false;
    }
    auto *to = static_cast<unsigned char *>(out);
    uint64_t consumed = 0, produced = 0;
    int status = Z_OK;
    while (produced < bytes) {
        const uint64_t chunk = std::min(WINDOW_BYTES, entry.compressedSize - consumed);
        const unsigned char *data = chunk > 0 ? fetch(start + consumed, chunk) : nullptr;
        if (!data)
            break;
        stream.next_in = const_cast<unsigned char *>(data);
        stream.avail_in = static_cast<uInt>(chunk);
        stream.next_out = to + produced;
        stream.avail_out = static_cast<uInt>(std::min<uint64_t>(bytes - produced, UINT32_MAX));
        status = inflate(&stream, Z_NO_FLUSH);
        consumed += chunk - stream.avail_in;
        produced = static_cast<uint64_t>(stream.next_out - to);
        if (status != Z_OK)
            break;
    }
    inflateEnd(&stream);
    if (produced == bytes)
        return true;
    error = "member " + entry.name
            + (status == Z_DATA_ERROR || status == Z_NEED_DICT ? " damaged: invalid deflate data" : " truncated");
    return false;
}

bool MemberReader::read(const ZipEntry &entry, void *out, std::string &error)
{
    const auto fail = [&](const char *why) {
        error = "member " + entry.name + " " + why;
        return false;
    };
    uint64_t start = 0;
    if (!dataStart(entry, start, error))
        return false;
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
