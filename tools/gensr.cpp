// Writes a sigrok session file of N samples on C analog channels (sine plus noise, with a rare
// one-sample spike), chunked the way sigrok-cli chunks its captures, for benchmarks and tests.
//   vorn_gensr OUT.sr SAMPLES [CHANNELS] [SAMPLERATE_HZ]

#include <zip.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr size_t CHUNK_SAMPLES = 1024; // sigrok-cli writes about a thousand samples per member
constexpr int FAST_DEFLATE = 1;

bool add(zip_t *zip, const std::string &name, const void *data, size_t size, bool compress)
{
    zip_source_t *source = zip_source_buffer(zip, data, size, 0);
    const zip_int64_t index = source ? zip_file_add(zip, name.c_str(), source, ZIP_FL_OVERWRITE) : -1;
    if (index < 0) {
        zip_source_free(source);
        return false;
    }
    return zip_set_file_compression(zip, static_cast<zip_uint64_t>(index),
                                    compress ? ZIP_CM_DEFLATE : ZIP_CM_STORE, FAST_DEFLATE) == 0;
}

std::vector<float> channelSamples(size_t count, int channel)
{
    std::vector<float> samples(count);
    std::mt19937 random(static_cast<unsigned>(channel + 1));
    std::normal_distribution<float> noise(0.0f, 0.02f);
    const double period = 5000.0 * (channel + 1);
    for (size_t i = 0; i < count; ++i)
        samples[i] = static_cast<float>(std::sin(2 * M_PI * static_cast<double>(i) / period)) + noise(random);
    for (size_t i = 7919; i < count; i += 1000003) // rare spikes a plain decimation would miss
        samples[i] = (i / 1000003) % 2 ? 3.0f : -3.0f;
    return samples;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 3 || argc > 5) {
        std::fprintf(stderr, "usage: vorn_gensr OUT.sr SAMPLES [CHANNELS] [SAMPLERATE_HZ]\n");
        return 1;
    }
    const std::string path = argv[1];
    const size_t count = std::strtoull(argv[2], nullptr, 10);
    const int channels = argc > 3 ? std::atoi(argv[3]) : 1;
    const unsigned long long rate = argc > 4 ? std::strtoull(argv[4], nullptr, 10) : 1000000;
    if (count == 0 || channels < 1 || channels > 16 || rate == 0) {
        std::fprintf(stderr, "vorn_gensr: bad arguments\n");
        return 1;
    }
    std::string metadata = "[global]\nsigrok version=0.5.2\n\n[device 1]\nsamplerate=" + std::to_string(rate)
                           + " Hz\ntotal analog=" + std::to_string(channels) + "\n";
    for (int c = 1; c <= channels; ++c)
        metadata += "analog" + std::to_string(c) + "=A" + std::to_string(c - 1) + "\n";

    int error = 0;
    zip_t *zip = zip_open(path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
    if (!zip) {
        std::fprintf(stderr, "vorn_gensr: cannot create %s\n", path.c_str());
        return 2;
    }
    std::vector<std::vector<float>> data; // alive until zip_close
    bool ok = add(zip, "version", "2", 1, false) && add(zip, "metadata", metadata.data(), metadata.size(), true);
    for (int c = 0; ok && c < channels; ++c) {
        data.push_back(channelSamples(count, c));
        const std::vector<float> &samples = data.back();
        for (size_t first = 0, chunk = 1; ok && first < count; first += CHUNK_SAMPLES, ++chunk) {
            const size_t n = std::min(CHUNK_SAMPLES, count - first);
            ok = add(zip, "analog-1-" + std::to_string(c + 1) + "-" + std::to_string(chunk), &samples[first],
                     n * sizeof(float), true);
        }
    }
    if (!ok || zip_close(zip) != 0) {
        std::fprintf(stderr, "vorn_gensr: %s\n", zip_strerror(zip));
        zip_discard(zip);
        return 2;
    }
    return 0;
}
