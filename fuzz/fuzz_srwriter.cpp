// Saves an envelope into arbitrary bytes taken for a capture, then checks what the writer
// promises: a save that succeeds is read back under the offered name, one that fails leaves
// the file as it was.

#include "srarchive.h"
#include "srcurvewriter.h"
#include "srnames.h"

#include <dirent.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

std::string readAll(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// A private folder in memory, removed with everything in it when the fuzzer exits.
struct Folder
{
    std::string path;
    Folder()
    {
        char templ[] = "/dev/shm/vorn-fuzz-writer-XXXXXX";
        path = mkdtemp(templ) ? templ : "";
    }
    ~Folder()
    {
        if (DIR *dir = opendir(path.c_str())) {
            while (const dirent *entry = readdir(dir))
                unlinkat(dirfd(dir), entry->d_name, 0);
            closedir(dir);
        }
        rmdir(path.c_str());
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static Folder folder;
    const std::string path = folder.path + "/capture.sr";
    std::FILE *file = std::fopen(path.c_str(), "wb");
    if (!file)
        return 0;
    std::fwrite(data, 1, size, file);
    std::fclose(file);

    std::string error;
    auto archive = vornsr::SrArchive::open(path, error);
    if (!archive || archive->channels().empty())
        return 0;
    const std::string name = vornsr::offeredNames(archive->channels()).front();
    archive.reset();
    const double samples[] = {1.0, -2.0};
    vornsr::CurveData upper{name + " [upper]", "V", 1e-3, 0.0, samples, 2};
    const std::string before = readAll(path);
    if (!vornsr::replaceCurves(path, {upper.name}, {upper}, error)) {
        if (readAll(path) != before)
            std::abort(); // a failed save changed the file
        return 0;
    }
    archive = vornsr::SrArchive::open(path, error);
    if (!archive)
        std::abort(); // a successful save left a file the reader refuses
    const std::vector<std::string> names = vornsr::offeredNames(archive->channels());
    for (size_t i = 0; i < names.size(); ++i) {
        double back[2] = {};
        if (names[i] == upper.name && archive->channels()[i].sampleCount == 2
            && archive->readSamples(i, back, 2, error) && std::memcmp(back, samples, sizeof back) == 0)
            return 0;
    }
    std::abort(); // the saved curve is not offered under its name
}
