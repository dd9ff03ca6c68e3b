#ifndef VORN_ZIPREPLACE_H
#define VORN_ZIPREPLACE_H

#include <functional>
#include <string>

typedef struct zip zip_t;

namespace vornsr {

class CaptureLock;

// Opens the locked capture for changes. zip_close() then writes the new archive to a temporary
// file in the same folder, flushes it to disk, gives it the old file's permissions, owner and
// group as far as the saving user may, checks that the capture is still the file that was read,
// and renames the new one over it; a failure at any point leaves the old file as it was, and
// where libzip's code would say little, failure gets the reason. Before the rename, readsBack
// judges the written file by its path; false (with a reason) keeps the old file. The lock must
// outlive the archive.
using ReadBackCheck = std::function<bool(const std::string &path, std::string &reason)>;
zip_t *openArchiveForUpdate(const CaptureLock &lock, const ReadBackCheck &readsBack, std::string &failure,
                            std::string &error);

} // namespace vornsr

#endif
