#ifndef VORN_CAPTURELOCK_H
#define VORN_CAPTURELOCK_H

#include <sys/stat.h>

#include <memory>
#include <string>

namespace vornsr {

// The right to replace one capture, held from reading it to renaming its successor over it.
// Every process that saves through us takes it (an advisory flock on the capture's inode), so
// two saves of the same file run one after the other and neither loses the other's work.
class CaptureLock
{
public:
    ~CaptureLock();
    CaptureLock(const CaptureLock &) = delete;
    CaptureLock &operator=(const CaptureLock &) = delete;

    // Waits up to waitMilliseconds for a save in another process to end. Follows symbolic links
    // and refuses a file whose mode bits forbid the saving user to write it, root included.
    static std::unique_ptr<CaptureLock> acquire(const std::string &path, std::string &error,
                                                int waitMilliseconds = 5000);

    const std::string &path() const { return m_path; } // the resolved path
    int fd() const { return m_fd; }                     // open for reading the locked file
    const struct stat &identity() const { return m_identity; }
    // Whether path still names the file that was locked and read, unchanged.
    bool stillTheFileRead() const;

    // A temporary file beside the capture, named so that a later save can recognise it; it stays
    // locked while open so that no other save takes it for a leftover.
    int createTemporary(std::string &tempPath) const;

private:
    CaptureLock() = default;
    void removeLeftovers() const;

    std::string m_path;
    int m_fd = -1;
    struct stat m_identity{};
};

} // namespace vornsr

#endif
