// The live run on sigrok's demo driver: vorn run against the same loop done by hand with
// sigrok-cli writing each acquisition and vorn check judging the file.

#include "summary.h"

#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QRegularExpression>

#include <algorithm>
#include <cstdio>

namespace {

const QStringList DEVICE = {"--channels", "A0,A1,A2,A3", "--config", "samplerate=1M", "--samples", "20000"};
constexpr int RUN_COUNT = 300;
constexpr int PEER_COUNT = 20;

QByteArray vorn(const QStringList &args, int *exitCode = nullptr)
{
    QProcess p;
    p.start(QStringLiteral(VORN_VORN), args);
    p.waitForFinished(-1);
    if (exitCode)
        *exitCode = p.exitCode();
    return p.readAllStandardOutput() + p.readAllStandardError();
}

// Runs a program to its end, its output dropped.
int quietly(const QString &program, const QStringList &args)
{
    QProcess p;
    p.start(program, args);
    p.waitForFinished(-1);
    return p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
}

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v.empty() ? -1 : v[v.size() / 2];
}

} // namespace

void printRunDemo()
{
    const QString dir = QDir::temp().filePath(QStringLiteral("vorn-bench-run"));
    QDir(dir).removeRecursively();
    QDir().mkpath(dir);
    const QString golden = dir + "/g.sr";
    vorn(QStringList{"acquire", "demo"} + DEVICE + QStringList{"--count", "5", "-o", golden});
    QStringList sources;
    for (int k = 1; k <= 5; ++k)
        sources << dir + QStringLiteral("/g-00%1.sr").arg(k);
    for (const char *channel : {"A0", "A1", "A2", "A3"})
        vorn(QStringList{"envelope", sources.front(), channel, "--from"} + sources);

    const QRegularExpression figures(QStringLiteral("([0-9.]+) acquisitions/s judged, ([0-9.]+) % of the time judging"));
    std::vector<double> rate, share, peerRate, peerShare;
    int failed = 0;
    // Interleaved, so that a busy moment of the machine falls on both sides alike.
    for (int round = 0; round < 3; ++round) {
        int code = 0;
        const QString out = QString::fromUtf8(
            vorn(QStringList{"run", "demo"} + DEVICE + QStringList{"--reference", sources.front(), "--count",
                                                                   QString::number(RUN_COUNT)}, &code));
        const auto m = figures.match(out);
        failed += code != 0;
        if (m.hasMatch()) {
            rate.push_back(m.captured(1).toDouble());
            share.push_back(m.captured(2).toDouble());
        }
        QElapsedTimer total;
        qint64 checking = 0;
        total.start();
        for (int k = 0; k < PEER_COUNT; ++k) {
            const QString file = dir + "/peer.sr";
            quietly(QStringLiteral("sigrok-cli"), QStringList{"-d", "demo"} + DEVICE + QStringList{"-o", file});
            QElapsedTimer check;
            check.start();
            failed += quietly(QStringLiteral(VORN_VORN), {"check", file, "--reference", sources.front()}) != 0;
            checking += check.nsecsElapsed();
        }
        peerRate.push_back(PEER_COUNT / (total.nsecsElapsed() / 1e9));
        peerShare.push_back(100.0 * double(checking) / double(total.nsecsElapsed()));
    }
    std::printf("run demo: %.1f acquisitions/s judged, %.2f %% of the time judging; peer (sigrok-cli writing, "
                "vorn check judging): %.1f acquisitions/s, %.1f %% judging%s\n",
                median(rate), median(share), median(peerRate), median(peerShare),
                failed ? " (some acquisitions failed their envelopes)" : "");
}
