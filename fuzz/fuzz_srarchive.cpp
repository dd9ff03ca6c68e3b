// Feeds arbitrary bytes to the .sr reader as a file, names its channels as the reader offers
// them and reads every waveform it offers, the way the window does.

#include "srarchive.h"
#include "srnames.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // A file in memory that the reader opens by name: nothing is left behind on disk.
    static const int fd = memfd_create("vorn-fuzz.sr", 0);
    static const std::string path = "/proc/self/fd/" + std::to_string(fd);
    if (fd < 0 || ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != static_cast<ssize_t>(size))
        return 0;

    std::string error;
    const auto archive = vornsr::SrArchive::open(path, error);
    if (!archive)
        return 0;
    vornsr::offeredNames(archive->channels());
    for (size_t i = 0; i < archive->channels().size(); ++i) {
        std::vector<double> samples(archive->channels()[i].sampleCount);
        archive->readSamples(i, samples.data(), samples.size(), error);
    }
    return 0;
}
