#ifndef VORN_ZIPREPLACE_H
#define VORN_ZIPREPLACE_H

#include <string>

typedef struct zip zip_t;

namespace vornsr {

// Opens an existing archive for changes. zip_close() then writes the new archive to a temporary
// file in the same folder, flushes it to disk, gives it the old file's permissions and owner,
// and renames it over the old one; a failure at any point leaves the old file as it was.
// A symbolic link is followed: its target is replaced and the link kept.
zip_t *openArchiveForUpdate(const std::string &path, std::string &error);

} // namespace vornsr

#endif
