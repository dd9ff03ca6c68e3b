#include "zipreplace.h"

#include "capturelock.h"

#include <zip.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace vornsr {

namespace {

// State of one libzip source that reads the original file and writes its replacement.
struct ReplacingFile
{
    const CaptureLock *lock = nullptr;
    std::string path;
    struct stat original{};
    std::string *failure = nullptr; // a reason clearer than libzip's codes
    ReadBackCheck readsBack;
    FILE *in = nullptr;
    int out = -1;
    std::string tempPath;
    zip_uint64_t writePos = 0;
    zip_uint64_t writeEnd = 0;
    zip_error_t error;

    zip_int64_t fail(int zipError, int systemError)
    {
        zip_error_set(&error, zipError, systemError);
        return -1;
    }

    void discardTemp()
    {
        if (out >= 0)
            ::close(out);
        out = -1;
        if (!tempPath.empty())
            ::unlink(tempPath.c_str());
        tempPath.clear();
    }

    zip_int64_t beginWrite()
    {
        const int fd = lock->createTemporary(tempPath);
        if (fd < 0)
            return fail(ZIP_ER_TMPOPEN, errno);
        out = fd;
        // Keep the file as the user had it, as far as the saving user may: a new owner can only
        // be given by root, a group by its members. The mode comes last, as chown clears set-id bits.
        if (::fchown(fd, original.st_uid, original.st_gid) != 0)
            (void)::fchown(fd, static_cast<uid_t>(-1), original.st_gid);
        if (::fchmod(fd, original.st_mode & 07777) != 0) {
            const int e = errno;
            discardTemp();
            return fail(ZIP_ER_TMPOPEN, e);
        }
        writePos = writeEnd = 0;
        return 0;
    }

    zip_int64_t write(const void *data, zip_uint64_t length)
    {
        const char *p = static_cast<const char *>(data);
        zip_uint64_t left = length;
        while (left > 0) {
            const ssize_t n = ::write(out, p, left);
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0)
                return fail(ZIP_ER_WRITE, n < 0 ? errno : ENOSPC);
            p += n;
            left -= static_cast<zip_uint64_t>(n);
        }
        writePos += length;
        if (writePos > writeEnd)
            writeEnd = writePos;
        return static_cast<zip_int64_t>(length);
    }

    zip_int64_t commitWrite()
    {
        if (::fsync(out) != 0) {
            const int e = errno;
            discardTemp();
            return fail(ZIP_ER_WRITE, e);
        }
        const int fd = out;
        out = -1;
        if (::close(fd) != 0) {
            const int e = errno;
            discardTemp();
            return fail(ZIP_ER_WRITE, e);
        }
        if (readsBack && !readsBack(tempPath, *failure)) {
            discardTemp();
            return fail(ZIP_ER_INCONS, 0);
        }
        // A program that does not take our lock may have replaced or changed the file meanwhile.
        if (!lock->stillTheFileRead()) {
            discardTemp();
            *failure = "the file was changed by another program while saving; nothing was written";
            return fail(ZIP_ER_CHANGED, 0);
        }
        if (::rename(tempPath.c_str(), path.c_str()) != 0) {
            const int e = errno;
            discardTemp();
            *failure = std::string("cannot replace the file: ") + std::strerror(e) + "; nothing was written";
            return fail(ZIP_ER_RENAME, e);
        }
        tempPath.clear();
        // The rename itself must reach the disk too, or a crash could bring back the old name.
        const size_t slash = path.rfind('/');
        const std::string dir = slash == std::string::npos ? std::string(".") : path.substr(0, slash);
        const int dirFd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY);
        if (dirFd >= 0) {
            ::fsync(dirFd);
            ::close(dirFd);
        }
        return 0;
    }

    zip_int64_t seek(FILE *file, zip_uint64_t position, zip_uint64_t size, void *data,
                     zip_uint64_t length)
    {
        const zip_int64_t target = zip_source_seek_compute_offset(position, size, data, length, &error);
        if (target < 0)
            return -1;
        if (file) {
            if (::fseeko(file, static_cast<off_t>(target), SEEK_SET) != 0)
                return fail(ZIP_ER_SEEK, errno);
        } else {
            if (::lseek(out, static_cast<off_t>(target), SEEK_SET) < 0)
                return fail(ZIP_ER_SEEK, errno);
            writePos = static_cast<zip_uint64_t>(target);
        }
        return 0;
    }
};

zip_int64_t replacingFileCallback(void *userdata, void *data, zip_uint64_t length, zip_source_cmd_t cmd)
{
    auto *file = static_cast<ReplacingFile *>(userdata);
    switch (cmd) {
    case ZIP_SOURCE_OPEN:
        // Read through the locked descriptor: the path could name another file by now.
        if (!file->in) {
            const int fd = ::dup(file->lock->fd());
            if (fd < 0 || !(file->in = ::fdopen(fd, "rb"))) {
                const int e = errno;
                if (fd >= 0)
                    ::close(fd);
                return file->fail(ZIP_ER_OPEN, e);
            }
        }
        std::rewind(file->in);
        return 0;
    case ZIP_SOURCE_READ: {
        const size_t n = std::fread(data, 1, length, file->in);
        if (n < length && std::ferror(file->in))
            return file->fail(ZIP_ER_READ, errno);
        return static_cast<zip_int64_t>(n);
    }
    case ZIP_SOURCE_CLOSE:
        if (file->in)
            std::fclose(file->in);
        file->in = nullptr;
        return 0;
    case ZIP_SOURCE_STAT: {
        auto *st = ZIP_SOURCE_GET_ARGS(zip_stat_t, data, length, &file->error);
        if (!st)
            return -1;
        zip_stat_init(st);
        st->size = static_cast<zip_uint64_t>(file->original.st_size);
        st->mtime = file->original.st_mtime;
        st->valid |= ZIP_STAT_SIZE | ZIP_STAT_MTIME;
        return sizeof(zip_stat_t);
    }
    case ZIP_SOURCE_ERROR:
        return zip_error_to_data(&file->error, data, length);
    case ZIP_SOURCE_FREE:
        if (file->in)
            std::fclose(file->in);
        file->discardTemp();
        zip_error_fini(&file->error);
        delete file;
        return 0;
    case ZIP_SOURCE_SEEK:
        return file->seek(file->in, static_cast<zip_uint64_t>(::ftello(file->in)),
                          static_cast<zip_uint64_t>(file->original.st_size), data, length);
    case ZIP_SOURCE_TELL:
        return static_cast<zip_int64_t>(::ftello(file->in));
    case ZIP_SOURCE_BEGIN_WRITE:
        return file->beginWrite();
    case ZIP_SOURCE_WRITE:
        return file->write(data, length);
    case ZIP_SOURCE_SEEK_WRITE:
        return file->seek(nullptr, file->writePos, file->writeEnd, data, length);
    case ZIP_SOURCE_TELL_WRITE:
        return static_cast<zip_int64_t>(file->writePos);
    case ZIP_SOURCE_COMMIT_WRITE:
        return file->commitWrite();
    case ZIP_SOURCE_ROLLBACK_WRITE:
        file->discardTemp();
        return 0;
    case ZIP_SOURCE_REMOVE:
        // Only asked for when every member was deleted, which never happens to a capture.
        return file->fail(ZIP_ER_INTERNAL, 0);
    case ZIP_SOURCE_SUPPORTS:
        return ZIP_SOURCE_SUPPORTS_WRITABLE;
    default:
        return file->fail(ZIP_ER_OPNOTSUPP, 0);
    }
}

} // namespace

zip_t *openArchiveForUpdate(const CaptureLock &lock, const ReadBackCheck &readsBack, std::string &failure,
                            std::string &error)
{
    auto *file = new ReplacingFile;
    file->lock = &lock;
    file->readsBack = readsBack;
    file->path = lock.path();
    file->original = lock.identity();
    file->failure = &failure;
    zip_error_init(&file->error);
    zip_error_t zerror;
    zip_error_init(&zerror);
    zip_source_t *source = zip_source_function_create(replacingFileCallback, file, &zerror);
    if (!source) {
        error = zip_error_strerror(&zerror);
        zip_error_fini(&zerror);
        zip_error_fini(&file->error);
        delete file;
        return nullptr;
    }
    zip_t *zip = zip_open_from_source(source, 0, &zerror);
    if (!zip) {
        error = zip_error_code_zip(&zerror) == ZIP_ER_NOZIP ? "not a zip archive"
                                                             : std::string("cannot open archive: ") + zip_error_strerror(&zerror);
        zip_error_fini(&zerror);
        zip_source_free(source); // frees file
        return nullptr;
    }
    zip_error_fini(&zerror);
    return zip;
}

} // namespace vornsr
