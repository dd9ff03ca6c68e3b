// vorn check --report on 200 captures of 1 M samples, two of them failing, against the check alone.

#include "summary.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStringList>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

// Milliseconds of one vorn check run, or -1 when it could not judge every file.
double checkMilliseconds(const QStringList &args)
{
    QProcess check;
    check.setStandardOutputFile(QProcess::nullDevice());
    check.setStandardErrorFile(QProcess::nullDevice());
    QElapsedTimer clock;
    clock.start();
    check.start(QStringLiteral(VORN_VORN), args);
    if (!check.waitForFinished(-1) || check.exitStatus() != QProcess::NormalExit || check.exitCode() != 3)
        return -1.0;
    return clock.nsecsElapsed() / 1e6;
}

double median(std::vector<double> runs)
{
    std::sort(runs.begin(), runs.end());
    return runs[runs.size() / 2];
}

} // namespace

void printReport()
{
    const QString dir = QStringLiteral("/tmp/vorn-bench-report");
    QDir().mkpath(dir);
    QStringList files;
    for (int i = 0; i < 198; ++i) {
        files << dir + QStringLiteral("/capture%1.sr").arg(i, 3, 10, QLatin1Char('0'));
        if (!ensureCapture(files.back(), 1'000'000, 1)) {
            std::printf("report 200 files: could not write the captures\n");
            return;
        }
    }
    // Twice the sample rate: the sine runs twice as fast and covers half the envelope.
    for (const char *name : {"/fail0.sr", "/fail1.sr"}) {
        files << dir + QLatin1String(name);
        if (!QFileInfo::exists(files.back())
            && QProcess::execute(QStringLiteral(VORN_GENSR), {files.back(), "1000000", "1", "2000000"}) != 0) {
            std::printf("report 200 files: could not write the failing captures\n");
            return;
        }
    }
    const QString reference = dir + QStringLiteral("/reference.sr");
    if (!QFileInfo::exists(reference)
        && (!QFile::copy(files.front(), reference)
            || QProcess::execute(QStringLiteral(VORN_VORN), {"envelope", reference, "A0", "--dy", "0.5"}) != 0)) {
        QFile::remove(reference);
        std::printf("report 200 files: could not make the reference\n");
        return;
    }
    const QStringList check = QStringList{"check", "--reference", reference} + files;
    const QString html = dir + QStringLiteral("/report.html");
    std::vector<double> alone, reported;
    for (int round = 0; round < 3; ++round) {
        alone.push_back(checkMilliseconds(check));
        reported.push_back(checkMilliseconds(check + QStringList{"--report", html}));
    }
    if (*std::min_element(alone.begin(), alone.end()) < 0 || *std::min_element(reported.begin(), reported.end()) < 0) {
        std::printf("report 200 files: vorn check failed\n");
        return;
    }
    std::printf("report 200 files: %.0f ms, %.2fx check (%.0f ms, report %.0f kB)\n", median(reported),
                median(reported) / median(alone), median(alone), QFileInfo(html).size() / 1024.0);
}
