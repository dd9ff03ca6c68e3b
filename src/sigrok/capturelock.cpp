#include "capturelock.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

namespace vornsr {

namespace {

const char TEMP_MARK[] = ".vornsave-";
constexpr size_t TEMP_RANDOM_CHARS = 6; // what mkstemp puts in place of XXXXXX
constexpr size_t NAME_BYTES_MAX = 255;  // NAME_MAX of every file system we write to

std::string folderOf(const std::string &path)
{
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string(".") : path.substr(0, slash);
}

std::string baseOf(const std::string &path)
{
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

bool inGroup(gid_t group)
{
    if (getegid() == group)
        return true;
    const int n = getgroups(0, nullptr);
    std::vector<gid_t> groups(static_cast<size_t>(n > 0 ? n : 0));
    const int got = n > 0 ? getgroups(n, groups.data()) : 0;
    for (int i = 0; i < got; ++i) {
        if (groups[static_cast<size_t>(i)] == group)
            return true;
    }
    return false;
}

// The mode bits decide, as they would for a program that honours them: root may write what
// anybody may write, but a file nobody may write stays as it is, whoever saves.
bool writableByMode(const struct stat &st)
{
    const uid_t user = geteuid();
    if (user == 0)
        return (st.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) != 0;
    if (user == st.st_uid)
        return (st.st_mode & S_IWUSR) != 0;
    if (inGroup(st.st_gid))
        return (st.st_mode & S_IWGRP) != 0;
    return (st.st_mode & S_IWOTH) != 0;
}

bool sameFile(const struct stat &a, const struct stat &b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// ".NAME.vornsave-", with NAME cut short enough that the whole temporary name is a valid file
// name even when the capture's own name uses up the file system's limit.
std::string temporaryPrefix(const std::string &path)
{
    const size_t room = NAME_BYTES_MAX - 1 - (sizeof TEMP_MARK - 1) - TEMP_RANDOM_CHARS;
    return "." + baseOf(path).substr(0, room) + TEMP_MARK;
}

bool isOurTemporary(const std::string &name, const std::string &prefix)
{
    if (name.size() != prefix.size() + TEMP_RANDOM_CHARS || name.compare(0, prefix.size(), prefix) != 0)
        return false;
    for (size_t i = prefix.size(); i < name.size(); ++i) {
        const char c = name[i];
        if (!((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')))
            return false;
    }
    return true;
}

} // namespace

CaptureLock::~CaptureLock()
{
    if (m_fd >= 0)
        ::close(m_fd); // releases the lock
}

std::unique_ptr<CaptureLock> CaptureLock::acquire(const std::string &path, std::string &error,
                                                  int waitMilliseconds)
{
    char resolved[PATH_MAX];
    if (!::realpath(path.c_str(), resolved)) {
        error = errno == ENOENT ? "file not found" : std::string("cannot open file: ") + std::strerror(errno);
        return nullptr;
    }
    std::unique_ptr<CaptureLock> lock(new CaptureLock);
    lock->m_path = resolved;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(waitMilliseconds);
    for (;;) {
        lock->m_fd = ::open(resolved, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        if (lock->m_fd < 0) {
            error = errno == ENOENT ? "file not found" : std::string("cannot open file: ") + std::strerror(errno);
            return nullptr;
        }
        if (::fstat(lock->m_fd, &lock->m_identity) != 0 || !S_ISREG(lock->m_identity.st_mode)) {
            error = "not a regular file";
            return nullptr;
        }
        while (::flock(lock->m_fd, LOCK_EX | LOCK_NB) != 0) {
            if (errno != EWOULDBLOCK && errno != EINTR) {
                error = std::string("cannot lock file: ") + std::strerror(errno);
                return nullptr;
            }
            if (std::chrono::steady_clock::now() >= deadline) {
                error = "another program is saving this file; try again when it has finished";
                return nullptr;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        // The save we waited for renamed a new file over the one we locked: lock that one.
        struct stat now;
        if (::stat(resolved, &now) == 0 && sameFile(now, lock->m_identity))
            break;
        ::close(lock->m_fd);
        lock->m_fd = -1;
    }
    // Read the identity again under the lock: the previous holder may have changed the file.
    if (::fstat(lock->m_fd, &lock->m_identity) != 0) {
        error = std::string("cannot read file: ") + std::strerror(errno);
        return nullptr;
    }
    // A folder that allows the rename does not make a read-only capture writable.
    if (!writableByMode(lock->m_identity)) {
        error = "file is read-only";
        return nullptr;
    }
    lock->removeLeftovers();
    return lock;
}

bool CaptureLock::stillTheFileRead() const
{
    struct stat now;
    return ::stat(m_path.c_str(), &now) == 0 && sameFile(now, m_identity)
           && now.st_size == m_identity.st_size && now.st_mtim.tv_sec == m_identity.st_mtim.tv_sec
           && now.st_mtim.tv_nsec == m_identity.st_mtim.tv_nsec && now.st_ctim.tv_sec == m_identity.st_ctim.tv_sec
           && now.st_ctim.tv_nsec == m_identity.st_ctim.tv_nsec;
}

int CaptureLock::createTemporary(std::string &tempPath) const
{
    std::string templ = folderOf(m_path) + "/" + temporaryPrefix(m_path) + std::string(TEMP_RANDOM_CHARS, 'X');
    const int fd = ::mkstemp(&templ[0]);
    if (fd < 0)
        return -1;
    ::fcntl(fd, F_SETFD, FD_CLOEXEC);
    ::flock(fd, LOCK_EX | LOCK_NB);
    tempPath = templ;
    return fd;
}

// Temporary files of saves that were killed: ours by name, and held by no process. Any save of
// this capture would hold the capture's lock, which we have, so only a dead one can have left them.
void CaptureLock::removeLeftovers() const
{
    const std::string folder = folderOf(m_path);
    const std::string prefix = temporaryPrefix(m_path);
    DIR *dir = ::opendir(folder.c_str());
    if (!dir)
        return;
    const int dirFd = ::dirfd(dir);
    while (const dirent *entry = ::readdir(dir)) {
        if (!isOurTemporary(entry->d_name, prefix))
            continue;
        const int fd = ::openat(dirFd, entry->d_name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
        if (fd < 0)
            continue;
        struct stat st;
        if (::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && ::flock(fd, LOCK_EX | LOCK_NB) == 0)
            ::unlinkat(dirFd, entry->d_name, 0);
        ::close(fd);
    }
    ::closedir(dir);
}

} // namespace vornsr
