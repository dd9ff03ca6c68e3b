#ifndef VORN_SRREADERCACHE_H
#define VORN_SRREADERCACHE_H

#include <memory>
#include <string>

namespace vornsr {

class SrArchive;

// The archive at path, parsed once and reused while the file stays the same one (device,
// inode, size and modification time), so that reading k waveforms does not parse it k times.
std::shared_ptr<const SrArchive> cachedArchive(const std::string &path, std::string &error);
// Forgets the cached archive; writers call it after they replaced a file.
void dropCachedArchive();
// How many times an archive was parsed; lets tests see that the cache works.
unsigned long archiveParseCount();

} // namespace vornsr

#endif
