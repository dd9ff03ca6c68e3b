#include "srreadercache.h"

#include "srarchive.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <mutex>

namespace vornsr {

namespace {

struct FileIdentity
{
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec modified{};
    timespec changed{}; // a rewrite in place that restores the time still moves this one

    bool operator==(const FileIdentity &o) const
    {
        return device == o.device && inode == o.inode && size == o.size
               && modified.tv_sec == o.modified.tv_sec && modified.tv_nsec == o.modified.tv_nsec
               && changed.tv_sec == o.changed.tv_sec && changed.tv_nsec == o.changed.tv_nsec;
    }
};

struct Cache
{
    std::mutex mutex;
    std::string path;
    FileIdentity identity;
    std::shared_ptr<const SrArchive> archive;
    unsigned long parses = 0;
};

Cache &cache()
{
    static Cache instance;
    return instance;
}

} // namespace

std::shared_ptr<const SrArchive> cachedArchive(const std::string &path, std::string &error)
{
    struct stat st;
    if (::stat(path.c_str(), &st) != 0) {
        error = errno == ENOENT ? "file not found" : std::string("cannot read file: ") + std::strerror(errno);
        return nullptr;
    }
    if (!S_ISREG(st.st_mode)) {
        error = "not a regular file";
        return nullptr;
    }
    const FileIdentity identity{st.st_dev, st.st_ino, st.st_size, st.st_mtim, st.st_ctim};

    Cache &c = cache();
    std::lock_guard<std::mutex> lock(c.mutex);
    if (c.archive && c.path == path && c.identity == identity)
        return c.archive;
    c.archive.reset();
    ++c.parses;
    std::shared_ptr<const SrArchive> archive = SrArchive::open(path, error);
    if (archive) {
        c.path = path;
        c.identity = identity;
        c.archive = archive;
    }
    return archive;
}

void dropCachedArchive()
{
    Cache &c = cache();
    std::lock_guard<std::mutex> lock(c.mutex);
    c.archive.reset();
}

unsigned long archiveParseCount()
{
    Cache &c = cache();
    std::lock_guard<std::mutex> lock(c.mutex);
    return c.parses;
}

} // namespace vornsr
