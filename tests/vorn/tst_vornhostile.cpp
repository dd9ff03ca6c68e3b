// Crafted captures that must not pass, and must get a named, bounded, printable answer.

#include "zipfixture.h"

#include <QTemporaryDir>
#include <QTest>

#include <cmath>

Q_DECLARE_METATYPE(std::vector<ZipMember>)

namespace {

Run vorn(const QStringList &args) { return run(QStringLiteral(VORN_BINARY), args); }

const double NaN = std::nan("");
// A0 runs up to 204 kV where its limits allow 1.5 V.
const QList<float> HOT{0.0f, 204e3f, 0.0f, 1.0f};
const QList<float> CALM{0.0f, 0.5f, 0.0f, 1.0f};

QList<StoredCurve> band(QList<double> upper, QList<double> lower, QByteArray interval = "0.001", QByteArray start = "0")
{
    return {{"A0 [upper]", upper, interval, start}, {"A0 [lower]", lower, interval, start}};
}

std::vector<ZipMember> a0(const QList<float> &samples, const QList<StoredCurve> &curves)
{
    return withCurves(analogCapture({{"A0", samples}}), curves);
}

} // namespace

class TstVornHostile : public QObject
{
    Q_OBJECT

private slots:
    void answersEveryCraftedFile_data()
    {
        QTest::addColumn<std::vector<ZipMember>>("members");
        QTest::addColumn<QStringList>("args"); // FILE stands for the crafted capture
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("says"); // in what it printed

        const QStringList CHECK{"check", "FILE"};
        const QList<StoredCurve> tight = band({1.5, 1.5, 1.5, 1.5}, {-0.5, -0.5, -0.5, -0.5});
        const auto posing = withCurves(analogCapture({{"A0", HOT}, {"A0 [upper]", {1e6f, 1e6f, 1e6f, 1e6f}},
                                                      {"A0 [lower]", {-1e6f, -1e6f, -1e6f, -1e6f}}}), tight);
        QTest::newRow("channels named as limits") << posing << CHECK << 3 << "fail FILE A0: 4 checked";
        QTest::newRow("as reference") << posing << QStringList{"check", "FILE", "--reference", "FILE"} << 3 << "fail FILE A0";
        QTest::newRow("no envelope of a curve name")
            << posing << QStringList{"envelope", "FILE", "A0 [upper]"} << 2 << "named like an envelope curve";

        QTest::newRow("infinite, crossed") << a0(HOT, band({-INFINITY, -INFINITY}, {INFINITY, INFINITY}))
                                           << CHECK << 2 << "A0: its envelope cannot judge: the upper limit is infinite at 0 s";
        QTest::newRow("upper all NaN") << a0(HOT, band({NaN, NaN, NaN, NaN}, {-1, -1, -1, -1})) << CHECK
                                       << 2 << "the upper limit has no two neighbouring samples with values";
        QTest::newRow("crossed at one sample") << a0(CALM, band({2, 2, -3, 2}, {-1, -1, -1, -1}))
                                               << CHECK << 2 << "the limits cross at 2 ms (upper -3, lower -1)";
        QTest::newRow("NaN on one side") << a0(CALM, band({2, 2, NaN, 2, 2}, {-1, -1, -1, -1, -1}))
                                         << CHECK << 2 << "the upper limit is NaN at 2 ms where the lower limit has a value";
        QTest::newRow("time base that does not advance") << a0(HOT, band({2, 2, 2}, {-1, -1, -1}, "1e-300", "1"))
                                                         << CHECK << 2 << "do not advance in time";
        QTest::newRow("spans one sample") << a0(CALM, band({2, 2, 2}, {-1, -1, -1}, "1e-300"))
                                          << CHECK << 2 << "the limits span 2e-300 s, less than one sample interval of the capture (1 ms)";
        QTest::newRow("envelope past the capture") << a0(CALM, band({2, 2}, {-1, -1}, "0.001", "5"))
                                                   << CHECK << 2
                                                   << "no sample lies under its envelope: the envelope spans 5 s to 5.001 s, the capture 0 s to 3 ms";
        QTest::newRow("NaN capture") << a0({NAN, NAN, NAN, NAN}, tight) << CHECK << 2
                                     << "every one of the 4 samples under its envelope is NaN";

        QTest::newRow("envelope of NaN") << a0({NAN, NAN}, {}) << QStringList{"envelope", "FILE", "A0"} << 2
                                         << "FILE: 'A0' has no sample with a value (all 2 are NaN)";
        QTest::newRow("envelope of infinity") << a0({0, 1, INFINITY}, {}) << QStringList{"envelope", "FILE", "A0"} << 2
                                              << "FILE: 'A0' holds an infinite sample at 2 ms";

        auto garbage = analogCapture({{"A0", HOT}});
        garbage.push_back({"vorngraph/metadata", "[curve 1\nname", true});
        QTest::newRow("metadata garbage") << garbage << CHECK << 2 << "FILE: vorngraph/metadata: ";
        garbage.back() = {"vorngraph/metadata", QByteArray((1 << 20) + 1, '#'), true};
        QTest::newRow("metadata too large") << garbage << QStringList{"list", "FILE"} << 2
                                            << "FILE: vorngraph/metadata: member vorngraph/metadata too large, so no envelope curve was read";
        QTest::newRow("interval NaN") << a0(HOT, band({2, 2}, {-1, -1}, "nan")) << CHECK << 2
                                      << "FILE: [curve 1] 'A0 [upper]' in vorngraph/metadata: interval 'nan' is no finite number";
        QTest::newRow("name not UTF-8") << a0(HOT, {{"A0 \xff [upper]", {2, 2}}}) << CHECK << 2
                                        << "[curve 1] in vorngraph/metadata: name: Key file contains key";
        QList<StoredCurve> absurd = band({2, 2}, {-1, -1});
        absurd[0].count = "2305843009213693951";
        QTest::newRow("absurd count") << a0(HOT, absurd) << CHECK << 2
                                      << "samples 2305843009213693951 is more than the archive can hold";

        const auto calm = a0(CALM, tight);
        QTest::newRow("huge trigger level") << calm << QStringList{"check", "FILE", "--trigger", "1e300"} << 3
                                            << "no rising crossing of 1e+300 V";
        QTest::newRow("jobs not a count") << calm << QStringList{"check", "FILE", "--jobs", "0"} << 1
                                          << "--jobs needs a whole number of files to check at once, at least 1, not '0'";
        QTest::newRow("jobs without a count") << calm << QStringList{"check", "FILE", "--jobs"} << 1
                                              << "--jobs needs a whole number of files to check at once, at least 1";
        QTest::newRow("more jobs than help") << calm << QStringList{"check", "FILE", "FILE", "FILE", "--jobs", "1024"} << 0
                                             << "3 files, 3 waveforms: 3 passed";
        QTest::newRow("list escapes controls") << analogCapture({{"A\tB\x1b[31m\xc2\x9b", {1.0f}}}) << QStringList{"list", "FILE"}
                                               << 0 << "0\tA\\x09B\\x1B[31m\\xC2\\x9B\t1\t";
    }
    void answersEveryCraftedFile()
    {
        QFETCH(std::vector<ZipMember>, members);
        QFETCH(QStringList, args);
        QFETCH(int, exitCode);
        QFETCH(QString, says);
        const QString file = m_dir.filePath(QStringLiteral("crafted.sr"));
        QVERIFY(writeZip(file, members));
        args.replaceInStrings(QRegularExpression("^FILE$"), file);
        const Run r = vorn(args);
        const QString printed = QString::fromUtf8(r.out + r.err);
        QVERIFY2(printed.contains(QString(says).replace("FILE", file)), qPrintable(printed));
        QCOMPARE(r.exitCode, exitCode);
    }

    // Samples beyond what the process may hold are refused before they are allocated, naming the
    // file, the channel and the size: 8 Mi samples of zeros, 32 MiB of floats in a small archive,
    // under an address-space limit that leaves no room for their 64 MiB of doubles.
    void refusesSamplesBeyondMemory()
    {
        const QString file = m_dir.filePath(QStringLiteral("inflating.sr"));
        auto members = analogCapture({{"A0", {}}});
        members.back().data = QByteArray(32 << 20, '\0');
        QVERIFY(writeZip(file, members));
        const Run r = run("/bin/sh", {"-c", QStringLiteral("ulimit -v 180000 && exec '%1' dump '%2' A0").arg(VORN_BINARY, file)});
        QCOMPARE(QString::fromUtf8(r.err).section(" need ", 0, 0), QStringLiteral("vorn: %1: A0: 8388608 samples").arg(file));
        QCOMPARE(r.exitCode, 2);
    }

    // With no thread to be had, every file is still checked: each share meant for a helper runs
    // on the calling thread. A stack limit beyond what the machine holds makes every new thread's
    // stack fail to map, while the main thread keeps its own. 4 Mi samples are long enough for
    // reading and judging to ask for helpers too.
    void checksWhenNoThreadStarts()
    {
        const QString file = m_dir.filePath(QStringLiteral("long.sr"));
        auto members = analogCapture({{"A0", {}}});
        members.back().data = QByteArray(16 << 20, '\0');
        QVERIFY(writeZip(file, withCurves(members, band({1.5, 1.5}, {-0.5, -0.5}, "4194"))));
        const Run r = run("/bin/sh", {"-c", QStringLiteral("ulimit -s 100000000 && exec '%1' check '%2' '%2' --jobs 2").arg(VORN_BINARY, file)});
        QVERIFY2(r.out.contains("2 files, 2 waveforms: 2 passed"), r.out + r.err);
        QCOMPARE(r.exitCode, 0);
    }

private:
    QTemporaryDir m_dir;
};

QTEST_GUILESS_MAIN(TstVornHostile)
#include "tst_vornhostile.moc"
