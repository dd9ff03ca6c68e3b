// Writes the bundled sample capture: 100 ms at 100 kHz of signals a test engineer knows at first
// sight, three analog channels and a serial line on two logic probes.
//   vorn_gensample OUT.sr

#include <zip.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr double RATE = 100e3;
constexpr size_t COUNT = 10000;
constexpr size_t CHUNK_SAMPLES = 4096;
constexpr double BAUD = 9600;
const char MESSAGE[] = "VornGraph\r\n";
constexpr double MESSAGE_STARTS[] = {0.006, 0.041, 0.076}; // seconds

double timeOf(size_t i)
{
    return static_cast<double>(i) / RATE;
}

// An underdamped second-order system answering a 5 V step at 10 ms.
std::vector<float> stepResponse(std::mt19937 &random)
{
    constexpr double stepAt = 0.010, level = 5.0, zeta = 0.15, omega = 2 * M_PI * 150;
    const double omegaD = omega * std::sqrt(1 - zeta * zeta);
    std::normal_distribution<double> noise(0.0, 0.01);
    std::vector<float> out(COUNT);
    for (size_t i = 0; i < COUNT; ++i) {
        const double t = timeOf(i) - stepAt;
        const double clean = t < 0 ? 0.0
                                   : level * (1 - std::exp(-zeta * omega * t)
                                                      * (std::cos(omegaD * t) + zeta / std::sqrt(1 - zeta * zeta) * std::sin(omegaD * t)));
        out[i] = static_cast<float>(clean + noise(random));
    }
    return out;
}

// A 250 Hz PWM whose duty cycle rises from 20 % to 80 %, ringing after every edge, with
// switching ripple on both levels.
std::vector<float> pwm(std::mt19937 &random)
{
    constexpr double period = 1 / 250.0, high = 3.3, ringHz = 6000, ringDecay = 4e-4, ringAmplitude = 0.3;
    std::normal_distribution<double> noise(0.0, 0.01);
    std::vector<float> out(COUNT);
    for (size_t i = 0; i < COUNT; ++i) {
        const double t = timeOf(i);
        const double phase = std::fmod(t, period);
        const double duty = 0.2 + 0.6 * t / timeOf(COUNT - 1);
        const bool on = phase < duty * period;
        const double sinceEdge = on ? phase : phase - duty * period;
        const double ring = ringAmplitude * std::exp(-sinceEdge / ringDecay) * std::sin(2 * M_PI * ringHz * sinceEdge);
        const double ripple = 0.04 * std::sin(2 * M_PI * 20e3 * t);
        out[i] = static_cast<float>((on ? high + ring : -ring) + ripple + noise(random));
    }
    return out;
}

// 50 Hz mains, 230 V rms, with third and fifth harmonics and noise.
std::vector<float> mains(std::mt19937 &random)
{
    constexpr double peak = 325, f = 50;
    std::normal_distribution<double> noise(0.0, 4.0);
    std::vector<float> out(COUNT);
    for (size_t i = 0; i < COUNT; ++i) {
        const double w = 2 * M_PI * f * timeOf(i);
        out[i] = static_cast<float>(peak * (std::sin(w) + 0.10 * std::sin(3 * w) + 0.05 * std::sin(5 * w)) + noise(random));
    }
    return out;
}

// Bit 0 TX: the message in 8N1 at 9600 baud, idle high; bit 1 RTS: low from half a millisecond
// before each message until just after it.
std::vector<uint8_t> serialLine()
{
    std::vector<uint8_t> out(COUNT, 0x3);
    const double bit = 1 / BAUD;
    for (const double start : MESSAGE_STARTS) {
        const double frameLength = 10 * bit;
        const size_t length = sizeof MESSAGE - 1;
        for (size_t i = 0; i < COUNT; ++i) {
            const double t = timeOf(i) - start;
            if (t < -0.0005 || t > length * frameLength + 0.0002)
                continue;
            out[i] &= ~uint8_t(0x2);
            if (t < 0 || t >= length * frameLength)
                continue;
            const size_t byte = static_cast<size_t>(t / frameLength);
            const int slot = static_cast<int>((t - byte * frameLength) / bit); // 0 start, 1-8 data, 9 stop
            const bool level = slot == 0 ? false : slot == 9 ? true : (MESSAGE[byte] >> (slot - 1)) & 1;
            if (!level)
                out[i] &= ~uint8_t(0x1);
        }
    }
    return out;
}

bool add(zip_t *zip, const std::string &name, const void *data, size_t size)
{
    zip_source_t *source = zip_source_buffer(zip, data, size, 0);
    const zip_int64_t index = source ? zip_file_add(zip, name.c_str(), source, ZIP_FL_OVERWRITE) : -1;
    if (index < 0) {
        zip_source_free(source);
        return false;
    }
    return zip_set_file_compression(zip, static_cast<zip_uint64_t>(index), ZIP_CM_DEFLATE, 9) == 0;
}

// Writes samples in members named prefix + chunk number, the way sigrok-cli splits a capture.
template<typename T>
bool addChunked(zip_t *zip, const std::string &prefix, const std::vector<T> &samples)
{
    bool ok = true;
    for (size_t first = 0, chunk = 1; ok && first < samples.size(); first += CHUNK_SAMPLES, ++chunk) {
        const size_t n = std::min(CHUNK_SAMPLES, samples.size() - first);
        ok = add(zip, prefix + std::to_string(chunk), &samples[first], n * sizeof(T));
    }
    return ok;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: vorn_gensample OUT.sr\n");
        return 1;
    }
    std::mt19937 random(2024);
    const std::vector<float> analog[] = {stepResponse(random), pwm(random), mains(random)};
    const std::vector<uint8_t> logic = serialLine();
    // libsigrok wants the totals before the channel names.
    const std::string metadata = "[global]\nsigrok version=0.5.2\n\n[device 1]\ncapturefile=logic-1\n"
                                 "total probes=2\nsamplerate=100 kHz\ntotal analog=3\n"
                                 "probe1=TX\nprobe2=RTS\nanalog3=Step\nanalog4=PWM\nanalog5=Mains\nunitsize=1\n";
    int error = 0;
    zip_t *zip = zip_open(argv[1], ZIP_CREATE | ZIP_TRUNCATE, &error);
    if (!zip) {
        std::fprintf(stderr, "vorn_gensample: cannot create %s\n", argv[1]);
        return 2;
    }
    bool ok = add(zip, "version", "2", 1) && add(zip, "metadata", metadata.data(), metadata.size())
              && addChunked(zip, "logic-1-", logic);
    for (int c = 0; ok && c < 3; ++c)
        ok = addChunked(zip, "analog-1-" + std::to_string(c + 3) + "-", analog[c]);
    if (!ok || zip_close(zip) != 0) {
        std::fprintf(stderr, "vorn_gensample: %s\n", zip_strerror(zip));
        zip_discard(zip);
        return 2;
    }
    return 0;
}
