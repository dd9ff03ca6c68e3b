#include "srownmember.h"

#include "capturelock.h"
#include "srarchive.h"
#include "srcurvewriter.h"
#include "srnames.h"
#include "srreadercache.h"
#include "zipreplace.h"

#include <zip.h>

#include <memory>

namespace vornsr {

const char *const LIMITS_MEMBER = "vorngraph/limits";

namespace {

constexpr zip_uint64_t MAX_MEMBER_BYTES = 1u << 20;

struct ZipDiscarder { void operator()(zip_t *z) const { zip_discard(z); } };

// present is false when the archive has no such member.
bool readFrom(zip_t *zip, const std::string &member, std::string &text, bool &present, std::string &error)
{
    zip_stat_t st;
    present = zip_stat(zip, member.c_str(), 0, &st) == 0;
    text.clear();
    if (!present)
        return true;
    if (st.size > MAX_MEMBER_BYTES) {
        error = member + " is too large";
        return false;
    }
    text.assign(st.size, '\0');
    zip_file_t *file = zip_fopen_index(zip, st.index, 0);
    const bool ok = file && zip_fread(file, &text[0], st.size) == static_cast<zip_int64_t>(st.size);
    if (file)
        zip_fclose(file);
    if (!ok)
        error = member + " cannot be read";
    return ok;
}

bool readAt(const std::string &path, const std::string &member, std::string &text, bool &present, std::string &error)
{
    int code = 0;
    std::unique_ptr<zip_t, ZipDiscarder> zip(zip_open(path.c_str(), ZIP_RDONLY, &code));
    if (!zip) {
        error = "not a readable capture";
        return false;
    }
    return readFrom(zip.get(), member, text, present, error);
}

} // namespace

// From the archive the reader has parsed already: opening a capture of 100,000 members through
// libzip again costs more than half a second.
bool readOwnMember(const std::string &path, const std::string &member, std::string &text, std::string &error)
{
    text.clear();
    const std::shared_ptr<const SrArchive> archive = cachedArchive(path, error);
    if (!archive) {
        error = "not a readable capture";
        return false;
    }
    bool present = false;
    return archive->readMember(member, MAX_MEMBER_BYTES, text, present, error);
}

bool replaceOwnMember(const std::string &path, const std::string &member, const std::string *text,
                      std::string &error)
{
    if (text && text->size() > MAX_MEMBER_BYTES) {
        error = member + " would be too large";
        return false;
    }
    const std::unique_ptr<CaptureLock> lock = CaptureLock::acquire(path, error);
    if (!lock)
        return false;
    const std::unique_ptr<SrArchive> archive = SrArchive::open(lock->path(), error);
    if (!archive)
        return false;
    const std::vector<std::string> channels = offeredNames(archive->channels());
    const auto readsBack = [&](const std::string &written, std::string &reason) {
        std::string why, stored;
        bool present = false;
        const std::unique_ptr<SrArchive> saved = SrArchive::open(written, why);
        if (saved && offeredNames(saved->channels()) != channels)
            why = "its channels would differ";
        else if (saved && readAt(written, member, stored, present, why) && (present != !!text || (text && stored != *text)))
            why = member + " would differ";
        if (why.empty())
            return true;
        reason = "the saved capture would not read back: " + why + "; nothing was written";
        return false;
    };
    std::string failure;
    std::unique_ptr<zip_t, ZipDiscarder> zip(openArchiveForUpdate(*lock, readsBack, failure, error));
    if (!zip || !seenAlike(zip.get(), archive->entries(), error))
        return false;
    std::string old;
    bool present = false;
    if (!readFrom(zip.get(), member, old, present, error))
        return false;
    if (present == !!text && (!text || old == *text))
        return true;
    if (text ? !putMember(zip.get(), member, text->data(), text->size(), error) : !deleteMember(zip.get(), member, error))
        return false;
    return closeReplacing(zip.release(), failure, error);
}

} // namespace vornsr
