// Writes a sigrok session file of N samples on C analog channels (sine plus noise, with a rare
// one-sample spike), chunked the way sigrok-cli chunks its captures, for benchmarks and tests;
// or, with --pulse, one 3.3 V pulse on A1 as a bench records it (20 ms at 1 MHz, an underdamped
// rise at 5 ms, a fall at 15 ms, 5 mV of noise, edges jittering by up to 3 us from seed to seed),
// good or with a fault: late (rise 40 us late), early (fall 40 us early), glitch (300 mV for
// 5 us at 10 ms), low (9 % low), short (ends 1 ms early).
//   vorn_gensr OUT.sr SAMPLES [CHANNELS] [SAMPLERATE_HZ]
//   vorn_gensr OUT.sr --pulse SEED [late|early|glitch|low|short|delay=US]

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

// An underdamped step of one volt, 0 before t = 0.
double step(double t)
{
    if (t < 0)
        return 0.0;
    const double zeta = 0.3, w = 2 * M_PI * 50e3, wd = w * std::sqrt(1 - zeta * zeta);
    return 1 - std::exp(-zeta * w * t) * (std::cos(wd * t) + zeta / std::sqrt(1 - zeta * zeta) * std::sin(wd * t));
}

std::vector<float> pulseSamples(unsigned seed, const std::string &fault)
{
    std::mt19937 random(seed);
    std::normal_distribution<double> noise(0.0, 5e-3);
    std::uniform_real_distribution<double> jitter(-3e-6, 3e-6);
    // "delay=N": the good pulse N us later (or earlier), as a scope triggered elsewhere records it.
    const double delay = fault.rfind("delay=", 0) == 0 ? std::strtod(fault.c_str() + 6, nullptr) * 1e-6 : 0.0;
    const double rise = 5e-3 + delay + jitter(random) + (fault == "late" ? 40e-6 : 0.0);
    const double fall = 15e-3 + delay + jitter(random) - (fault == "early" ? 40e-6 : 0.0);
    const double amplitude = fault == "low" ? 3.3 * 0.91 : 3.3;
    std::vector<float> samples(fault == "short" ? 19000 : 20000);
    for (size_t i = 0; i < samples.size(); ++i) {
        const double t = static_cast<double>(i) * 1e-6;
        const bool glitch = fault == "glitch" && t >= 10e-3 && t < 10.005e-3;
        samples[i] = static_cast<float>(amplitude * (step(t - rise) - step(t - fall)) + noise(random) + (glitch ? 0.3 : 0.0));
    }
    return samples;
}

} // namespace

int main(int argc, char **argv)
{
    const bool pulse = argc >= 4 && argc <= 5 && std::string(argv[2]) == "--pulse";
    if (!pulse && (argc < 3 || argc > 5)) {
        std::fprintf(stderr, "usage: vorn_gensr OUT.sr SAMPLES [CHANNELS] [SAMPLERATE_HZ]\n"
                             "       vorn_gensr OUT.sr --pulse SEED [late|early|glitch|low|short|delay=US]\n");
        return 1;
    }
    const std::string path = argv[1];
    const std::string fault = pulse && argc == 5 ? argv[4] : "";
    const size_t count = pulse ? 20000 : std::strtoull(argv[2], nullptr, 10);
    const int channels = pulse ? 1 : argc > 3 ? std::atoi(argv[3]) : 1;
    const unsigned long long rate = !pulse && argc > 4 ? std::strtoull(argv[4], nullptr, 10) : 1000000;
    if (count == 0 || channels < 1 || channels > 65536 || rate == 0) {
        std::fprintf(stderr, "vorn_gensr: bad arguments\n");
        return 1;
    }
    std::string metadata = "[global]\nsigrok version=0.5.2\n\n[device 1]\nsamplerate=" + std::to_string(rate)
                           + " Hz\ntotal analog=" + std::to_string(channels) + "\n";
    for (int c = 1; c <= channels; ++c)
        metadata += "analog" + std::to_string(c) + "=A" + std::to_string(pulse ? c : c - 1) + "\n";

    int error = 0;
    zip_t *zip = zip_open(path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
    if (!zip) {
        std::fprintf(stderr, "vorn_gensr: cannot create %s\n", path.c_str());
        return 2;
    }
    std::vector<std::vector<float>> data; // alive until zip_close
    bool ok = add(zip, "version", "2", 1, false) && add(zip, "metadata", metadata.data(), metadata.size(), true);
    for (int c = 0; ok && c < channels; ++c) {
        data.push_back(pulse ? pulseSamples(static_cast<unsigned>(std::strtoul(argv[3], nullptr, 10)), fault)
                             : channelSamples(count, c));
        const std::vector<float> &samples = data.back();
        for (size_t first = 0, chunk = 1; ok && first < samples.size(); first += CHUNK_SAMPLES, ++chunk) {
            const size_t n = std::min(CHUNK_SAMPLES, samples.size() - first);
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
