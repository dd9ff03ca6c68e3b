// Feeds arbitrary bytes to the .sr reader as a file and reads every waveform it offers.

#include "srarchive.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const std::string path = "/dev/shm/vorn-fuzz-" + std::to_string(getpid()) + ".sr";
    FILE *file = std::fopen(path.c_str(), "wb");
    if (!file)
        return 0;
    std::fwrite(data, 1, size, file);
    std::fclose(file);

    std::string error;
    const auto archive = vornsr::SrArchive::open(path, error);
    if (!archive)
        return 0;
    for (size_t i = 0; i < archive->channels().size(); ++i) {
        std::vector<double> samples(archive->channels()[i].sampleCount);
        archive->readSamples(i, samples.data(), samples.size(), error);
    }
    return 0;
}
