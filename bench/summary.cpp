// The figures the project is judged by, measured in one run on the same data and printed after
// Google Benchmark's table.

#include "summary.h"

#include "downsampling.h"
#include "minmaxpyramid.h"

#include <QElapsedTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QProcessEnvironment>
#include <QRegularExpression>
#include <QStringList>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <functional>
#include <random>

#include <unistd.h>

namespace {

constexpr std::size_t LONG = 100'000'000;
constexpr int MAX_POINTS = 5000;

double bestMilliseconds(int repeats, const std::function<void()> &work)
{
    double best = INFINITY;
    for (int i = 0; i < repeats; ++i) {
        const auto start = std::chrono::steady_clock::now();
        work();
        best = std::min(best, std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    }
    return best;
}

bool identical(const QVector<QPointF> &a, const QVector<QPointF> &b)
{
    return a.size() == b.size()
        && std::equal(a.begin(), a.end(), b.begin(), [](QPointF p, QPointF q) { return p.x() == q.x() && p.y() == q.y(); });
}

void printReduction(const std::vector<double> &samples)
{
    const MinMaxPyramid pyramid(samples);
    const SampleTimeBase time{1e-6, 0.0};
    const auto view = [&](std::uint64_t first, std::uint64_t last, const char *label) {
        QVector<QPointF> fast, plain;
        const double fastMs = bestMilliseconds(9, [&] {
            fast = downsampleVisibleRange(samples, time, first, last, MAX_POINTS, &pyramid);
        });
        const double plainMs = bestMilliseconds(3, [&] { plain = downsampleVisibleRange(samples, time, first, last, MAX_POINTS); });
        if (label[0] == 'r')
            std::printf("reduction 100M: pyramid %.3f ms, naive %.1f ms, ratio %.0f, identical %s\n", fastMs, plainMs,
                        plainMs / fastMs, identical(fast, plain) ? "yes" : "no");
        else
            std::printf("zoom 100M: pyramid %.3f ms, naive %.1f ms\n", fastMs, plainMs);
    };
    view(0, samples.size() - 1, "reduction");
    view(samples.size() * 45 / 100, samples.size() * 55 / 100 - 1, "zoom");
}

// The peak resident memory of a running process, in bytes.
double peakBytes(qint64 pid)
{
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly))
        return NAN;
    const auto m = QRegularExpression(QStringLiteral("VmHWM:\\s*([0-9]+) kB")).match(QString::fromLatin1(status.readAll()));
    return m.hasMatch() ? m.captured(1).toDouble() * 1024 : NAN;
}

// Seconds from starting the viewer to the end of its first painted frame, offscreen; the median
// of the runs. peak gets the viewer's largest peak memory up to a second after that frame.
double firstFrameSeconds(const QString &file, double *peak = nullptr, int runs = 5, int waitMs = 30000)
{
    std::vector<double> seconds;
    for (int i = 0; i < runs; ++i) {
        QProcess viewer;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        viewer.setProcessEnvironment(environment);
        QElapsedTimer clock;
        clock.start();
        viewer.start(QStringLiteral(VORN_VORNVIEW), {file, QStringLiteral("--timing")});
        viewer.setReadChannel(QProcess::StandardError);
        QByteArray output;
        while (!output.contains("first frame") && viewer.waitForReadyRead(waitMs))
            output += viewer.readAllStandardError();
        if (!output.contains("first frame"))
            return INFINITY;
        seconds.push_back(clock.nsecsElapsed() / 1e9);
        if (peak) {
            viewer.waitForReadyRead(1000);
            *peak = std::max(std::isnan(*peak) ? 0.0 : *peak, peakBytes(viewer.processId()));
        }
        viewer.kill();
        viewer.waitForFinished();
    }
    std::sort(seconds.begin(), seconds.end());
    return seconds[seconds.size() / 2];
}

void printOpen()
{
    const QString one = QStringLiteral("/tmp/vorn-bench-100M.sr"), four = QStringLiteral("/tmp/vorn-bench-4x25M.sr");
    if (!ensureCapture(one, LONG, 1) || !ensureCapture(four, LONG / 4, 4)) {
        std::printf("open: could not write the captures\n");
        return;
    }
    double peak = NAN;
    const double oneSeconds = firstFrameSeconds(one, &peak);
    std::printf("open 100M: first frame %.2f s; open 4x25M: first frame %.2f s\n", oneSeconds, firstFrameSeconds(four));
    std::printf("viewer 100M: peak %.2f bytes/sample\n", peak / double(LONG));
    // Many short channels: opening must grow with the channel count, not with its cube.
    QStringList channels;
    for (int count : {64, 256, 512}) {
        const QString file = QStringLiteral("/tmp/vorn-bench-%1x1000.sr").arg(count);
        channels << (ensureCapture(file, 1000, count) ? QString::asprintf("%d %.2f s", count, firstFrameSeconds(file))
                                                      : QStringLiteral("%1 not written").arg(count));
    }
    std::printf("open channels of 1000 samples: first frame %s\n", qPrintable(channels.join(QStringLiteral(", "))));
}

// Seconds the viewer takes to close file once it has drawn it: it writes a picture of the window
// and ends, reporting how long the window took to go; NaN when it did not.
double closeSeconds(const QString &file)
{
    QProcess viewer;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    viewer.setProcessEnvironment(environment);
    viewer.setStandardOutputFile(QProcess::nullDevice());
    const QString picture = QDir::temp().filePath(QStringLiteral("vorn-bench-close.png"));
    viewer.start(QStringLiteral(VORN_VORNVIEW), {file, QStringLiteral("--timing"), QStringLiteral("--screenshot"), picture});
    if (!viewer.waitForFinished(600000)) {
        viewer.kill();
        viewer.waitForFinished();
        return NAN;
    }
    QFile::remove(picture);
    const auto m = QRegularExpression(QStringLiteral("closed after ([0-9]+) ms")).match(QString::fromUtf8(viewer.readAllStandardError()));
    return m.hasMatch() ? m.captured(1).toDouble() / 1e3 : NAN;
}

// Ten thousand channels of 100 samples: time and memory must grow with the count, not its square,
// and closing must not take longer than opening.
void printManyChannels()
{
    QStringList counts;
    double peak = NAN, seconds = NAN;
    for (int count : {2500, 5000, 10000}) {
        const QString file = QStringLiteral("/tmp/vorn-bench-%1x100.sr").arg(count);
        if (!ensureCapture(file, 100, count)) {
            std::printf("open %d channels: could not write %s\n", count, qPrintable(file));
            return;
        }
        // One run each, given the minutes it took before opening became linear.
        peak = NAN;
        seconds = firstFrameSeconds(file, &peak, 1, 600000);
        counts << QString::asprintf("%d %.2f s %.0f MB (%.0f KB each)", count, seconds, peak / 1e6, peak / 1e3 / count);
    }
    std::printf("open channels of 100 samples: %s\n", qPrintable(counts.join(QStringLiteral(", "))));
    std::printf("open 10000 channels: %.2f s, %.0f MB\n", seconds, peak / 1e6);
    std::printf("close 10000 channels: %.2f s\n", closeSeconds(QStringLiteral("/tmp/vorn-bench-10000x100.sr")));
}

// Loading runs in a process of its own, so that its peak memory is the load's alone; it and
// `unzip -p` are both timed here from start to exit, taking turns, and each must succeed.
void printLoad()
{
    const QString file = QStringLiteral("/tmp/vorn-bench-100M.sr");
    if (!ensureCapture(file, LONG, 1)) {
        std::printf("load 100M: could not write %s\n", qPrintable(file));
        return;
    }
    const auto run = [](const QString &program, const QStringList &arguments, QByteArray *output) {
        QProcess process;
        if (!output)
            process.setStandardOutputFile(QProcess::nullDevice());
        process.setStandardErrorFile(QProcess::nullDevice());
        QElapsedTimer clock;
        clock.start();
        process.start(program, arguments);
        if (!process.waitForFinished(-1) || process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0)
            return -1.0;
        const double seconds = clock.nsecsElapsed() / 1e9;
        if (output)
            *output = process.readAllStandardOutput();
        return seconds;
    };
    std::vector<double> ours, unzip;
    double peak = 0;
    for (int i = 0; i < 5; ++i) {
        QByteArray output;
        ours.push_back(run(QStringLiteral(VORN_LOADCAPTURE), {file}, &output));
        const auto m = QRegularExpression(QStringLiteral("peak [0-9]+ bytes, ([0-9.]+) bytes/sample")).match(QString::fromUtf8(output));
        if (ours.back() < 0 || !m.hasMatch()) {
            std::printf("load 100M: vorn_loadcapture failed\n");
            return;
        }
        peak = std::max(peak, m.captured(1).toDouble());
        unzip.push_back(run(QStringLiteral("unzip"), {"-p", file}, nullptr));
        if (unzip.back() < 0) {
            std::printf("load 100M: unzip -p failed\n");
            return;
        }
    }
    std::sort(ours.begin(), ours.end());
    std::sort(unzip.begin(), unzip.end());
    std::printf("load 100M: ours %.2f s, unzip %.2f s, ratio %.2f (medians of 5), peak %.2f bytes/sample\n", ours[2], unzip[2],
                ours[2] / unzip[2], peak);
}

// vorn check on 200 captures of 1 M samples, on every core against one file at a time; each run
// is a process of its own, as a test line runs it.
void printBatch()
{
    const QString dir = QStringLiteral("/tmp/vorn-bench-batch");
    QDir().mkpath(dir);
    QStringList files;
    for (int i = 0; i < 200; ++i) {
        files << dir + QStringLiteral("/capture%1.sr").arg(i, 3, 10, QLatin1Char('0'));
        if (!ensureCapture(files.back(), 1'000'000, 1)) {
            std::printf("check 200 files: could not write the captures\n");
            return;
        }
    }
    const QString reference = dir + QStringLiteral("/reference.sr");
    if (!QFileInfo::exists(reference)
        && (!QFile::copy(files.front(), reference)
            || QProcess::execute(QStringLiteral(VORN_VORN), {"envelope", reference, "A0", "--dy", "0.5"}) != 0)) {
        QFile::remove(reference);
        std::printf("check 200 files: could not make the reference\n");
        return;
    }
    // The median of three runs each.
    const auto milliseconds = [&](const QStringList &extra) {
        std::vector<double> runs;
        for (int i = 0; i < 3; ++i) {
            QProcess check;
            check.setStandardOutputFile(QProcess::nullDevice());
            check.setStandardErrorFile(QProcess::nullDevice());
            QElapsedTimer clock;
            clock.start();
            check.start(QStringLiteral(VORN_VORN), QStringList{"check", "--reference", reference} + extra + files);
            if (!check.waitForFinished(-1) || check.exitStatus() != QProcess::NormalExit || check.exitCode() == 2)
                return -1.0;
            runs.push_back(clock.nsecsElapsed() / 1e6);
        }
        std::sort(runs.begin(), runs.end());
        return runs[1];
    };
    const double all = milliseconds({}), one = milliseconds({"--jobs", "1"});
    if (all < 0 || one < 0)
        std::printf("check 200 files: vorn check failed\n");
    else
        std::printf("check 200 files: %.0f ms, %.2fx one thread (%.0f ms)\n", all, all / one, one);
}

} // namespace

bool ensureCapture(const QString &file, std::size_t samples, int channels)
{
    if (QFileInfo::exists(file))
        return true;
    const bool made =
        QProcess::execute(QStringLiteral(VORN_GENSR), {file, QString::number(samples), QString::number(channels)}) == 0;
    // A capture just written is still being flushed to disk, which would slow the first timings.
    ::sync();
    return made;
}

void printSummary(const std::function<std::vector<double>(std::size_t)> &makeSamples)
{
    // VORN_BENCH_ONLY=envelope (a word of the lines wanted, or several: load,check 100M) prints
    // only those lines.
    const QByteArrayList only = qgetenv("VORN_BENCH_ONLY").split(',');
    const auto want = [&only](const char *line) {
        return std::any_of(only.begin(), only.end(), [line](const QByteArray &word) { return QByteArray(line).contains(word); });
    };
    std::printf("\n");
    if (want("reduction zoom"))
        printReduction(makeSamples(LONG));
    if (want("check 100M") || want("check aligned 100M"))
        printCheck(makeSamples(LONG), want("check 100M"), want("check aligned 100M"));
    if (want("measure"))
        printMeasure();
    if (want("envelope 10x10M"))
        printEnvelopeBuild();
    if (want("check 200 files"))
        printBatch();
    if (want("report"))
        printReport();
    if (want("run demo"))
        printRunDemo();
    if (want("load"))
        printLoad();
    if (want("open 100M"))
        printOpen();
    if (want("open channels of 100 samples, open 10000 channels, close 10000 channels"))
        printManyChannels();
    if (want("drag")) {
        const double drag = dragMillisecondsPerMove(100);
        if (drag < 0)
            std::printf("drag 100 points: the press grabbed no handle\n");
        else
            std::printf("drag 100 points: %.2f ms per move\n", drag);
    }
    if (want("edit envelope")) {
        const EditEnvelopeFigure edit = editEnvelopeFigures();
        std::printf("edit envelope 20k: %.1f ms to start, %.2f ms per drag, %.2fx view step\n", edit.startMs, edit.dragMs,
                    edit.viewStepRatio);
        std::printf("edit envelope dense: %d knots, %.1f ms to start, %.2f ms per drag\n", edit.denseKnots,
                    edit.denseStartMs, edit.denseDragMs);
    }
    if (want("view step")) {
        const ViewStepFigure large = viewStepMilliseconds(4, 25'000'000);
        const ViewStepFigure many = viewStepMilliseconds(8, 1'000'000);
        std::printf("view step 4x25M: %.1f ms per step, 8x1M: %.1f ms per step\n", large.worst(), many.worst());
        std::printf("view step by kind (wheel/pan/resize): 4x25M %.1f/%.1f/%.1f ms, 8x1M %.1f/%.1f/%.1f ms\n", large.wheel,
                    large.pan, large.resize, many.wheel, many.pan, many.resize);
        const ViewStepFigure full = viewStepMilliseconds(8, 10'000'000, 1920, 1080);
        std::printf("view step 1920x1080 8x10M: %.1f ms per step (wheel/pan/resize %.1f/%.1f/%.1f ms)\n", full.worst(),
                    full.wheel, full.pan, full.resize);
    }
    std::fflush(stdout);
}
