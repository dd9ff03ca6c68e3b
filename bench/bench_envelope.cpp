// Making an envelope from ten long captures against only reading them.

#include "summary.h"

#include "vornmask.h"
#include "waveform_sigrok.h"

#include <QProcess>
#include <QString>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

namespace {

constexpr int CAPTURES = 10;
constexpr std::size_t SAMPLES = 10'000'000;

WaveformData load(const std::string &path)
{
    SigrokWaveformInfo info;
    WaveformData w;
    if (sigrok_read_waveform_info_by_index(path.c_str(), 0, &info) != 0
        || !allocateSamples(w.samples.writable(), info.sampleCount)
        || sigrok_read_waveform_data_by_index(path.c_str(), 0, w.samples.writable().data(), info.sampleCount) != 0)
        return WaveformData();
    w.name = QString::fromUtf8(info.name);
    w.sampleInterval = info.sampleInterval;
    w.startTime = info.startTime;
    return w;
}

double milliseconds(const std::function<bool()> &work, bool &ok)
{
    const auto start = std::chrono::steady_clock::now();
    ok = work() && ok;
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

} // namespace

void printEnvelopeBuild()
{
    std::vector<std::string> files;
    for (int i = 0; i < CAPTURES; ++i) {
        files.push_back("/tmp/vorn-bench-10M-" + std::to_string(i) + ".sr");
        if (!ensureCapture(QString::fromStdString(files.back()), SAMPLES, 1)) {
            std::printf("envelope 10x10M: could not write the captures\n");
            return;
        }
    }
    // Reading alone and reading with the construction take turns, so that drift hits both.
    std::vector<double> loads, builds;
    bool ok = true;
    int knots = 0;
    for (int round = 0; round < 3; ++round) {
        loads.push_back(milliseconds([&] {
            bool read = true;
            for (const std::string &f : files)
                read = !load(f).samples->empty() && read;
            return read;
        }, ok));
        builds.push_back(milliseconds([&] {
            SourceHull hull;
            for (const std::string &f : files) {
                if (!hull.add(load(f)))
                    return false;
            }
            EnvelopeBuildReport report;
            const bool built = !hull.build({}, &report).isEmpty();
            knots = report.knots;
            return built;
        }, ok));
    }
    if (!ok) {
        std::printf("envelope 10x10M: a capture could not be read\n");
        return;
    }
    std::printf("envelope 10x10M: %.0f ms, %.2fx load (%.0f ms to read them; %d knots)\n", median(builds),
                median(builds) / median(loads), median(loads), knots);
}
