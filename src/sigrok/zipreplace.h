#ifndef VORN_ZIPREPLACE_H
#define VORN_ZIPREPLACE_H

#include <string>

typedef struct zip zip_t;

namespace vornsr {

class CaptureLock;

// Opens the locked capture for changes. zip_close() then writes the new archive to a temporary
// file in the same folder, flushes it to disk, gives it the old file's permissions, owner and
// group as far as the saving user may, checks that the capture is still the file that was read,
// and renames the new one over it; a failure at any point leaves the old file as it was, and
// where libzip's code would say little, failure gets the reason. The lock must outlive the archive.
zip_t *openArchiveForUpdate(const CaptureLock &lock, std::string &failure, std::string &error);

} // namespace vornsr

#endif
