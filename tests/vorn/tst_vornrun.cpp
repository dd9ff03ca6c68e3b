// vorn acquire and vorn run on sigrok's demo driver: a golden set recorded, an envelope made from
// it, and live runs judged against it.

#include "zipfixture.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

namespace {

Run vorn(const QStringList &args) { return run(QStringLiteral(VORN_BINARY), args); }

const QStringList DEMO = {"--channels", "A0,A1", "--config", "samplerate=1M", "--samples", "5000"};

} // namespace

class TstVornRun : public QObject
{
    Q_OBJECT

private slots:
    // Five demo acquisitions recorded as g-001.sr ... g-005.sr, A1's envelope made from them.
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        const Run acquired = vorn(QStringList{"acquire", "demo"} + DEMO + QStringList{"--count", "5", "-o", path("g.sr")});
        QVERIFY2(acquired.exitCode == 0, acquired.err.constData());
        QVERIFY2(acquired.err.isEmpty(), acquired.err.constData()); // no progress without a terminal
        QStringList golden;
        for (int k = 1; k <= 5; ++k)
            golden << path(QStringLiteral("g-00%1.sr").arg(k));
        const Run made = vorn(QStringList{"envelope", golden.front(), "A1", "--from"} + golden);
        QVERIFY2(made.exitCode == 0, made.err.constData());
    }

    void judgesEveryAcquisition_data()
    {
        QTest::addColumn<QString>("driver");
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("expected"); // in stdout or stderr
        QTest::addColumn<int>("saved");
        const QStringList lower = {"--channel-group", "A1", "--config", "amplitude=5"};
        QTest::newRow("good ones pass") << "demo" << QStringList{"--count", "10", "--save-failures", "F"} << 0
                                        << "A1: 10 tested, 10 passed, 0 failed (0.0 %)" << 0;
        QTest::newRow("a lower amplitude fails each, each saved")
            << "demo" << lower + QStringList{"--count", "3", "--save-failures", "F"} << 3
            << "A1: 3 tested, 0 passed, 3 failed (100.0 %)" << 3;
        QTest::newRow("stop on fail stops at the first")
            << "demo" << lower + QStringList{"--count", "10", "--stop-on-fail"} << 3
            << "A1: 1 tested, 0 passed, 1 failed (100.0 %)" << 0;
        QTest::newRow("missing driver") << "nodriver" << QStringList{"--count", "1"} << 2
                                        << "vorn: no sigrok driver named 'nodriver'" << 0;
        QTest::newRow("unknown key") << "demo" << QStringList{"--config", "bogus=1", "--count", "1"} << 2
                                     << "vorn: demo does not take 'bogus'" << 0;
    }

    void judgesEveryAcquisition()
    {
        QFETCH(QString, driver);
        QFETCH(QStringList, args);
        QFETCH(int, exitCode);
        QFETCH(QString, expected);
        QFETCH(int, saved);
        // Not made here: run makes the folder it is told to save into.
        QDir failures(path(QTest::currentDataTag()));
        args.replaceInStrings(QRegularExpression("^F$"), failures.path());
        const Run r = vorn(QStringList{"run", driver} + DEMO + QStringList{"--reference", path("g-001.sr")} + args);
        QVERIFY2(r.exitCode == exitCode, r.out + r.err);
        QVERIFY2((r.out + r.err).contains(expected.toUtf8()), r.out + r.err);
        const QStringList files = failures.entryList({"*.sr"}, QDir::Files);
        QCOMPARE(files.size(), saved);
        // Each saved acquisition carries the envelope and fails against it on its own.
        for (const QString &file : files) {
            const Run list = vorn({"list", failures.filePath(file)});
            QVERIFY2(list.out.contains("A1 [upper]"), list.out);
            QCOMPARE(vorn({"check", failures.filePath(file)}).exitCode, 3);
        }
    }

    // On a terminal (script gives it one) acquire tells how far it is, of every acquisition together.
    void acquireShowsProgressOnATerminal()
    {
        const QString command = QStringLiteral(VORN_BINARY " acquire demo") + ' ' + DEMO.join(' ')
                                + " --count 2 -o " + path("tty.sr");
        const Run r = run("script", {"-qec", command, "/dev/null"});
        QVERIFY2(r.exitCode == 0 && r.out.contains("/10k samples, "), r.out + r.err);
    }

    // A reference with a measurement limit alone on A0 that no acquisition meets: each fails by
    // it, the summary gives its spread, and the report and the JUnit pictures are written as
    // check writes them.
    void reportsARunJudgedByLimits()
    {
        const QString reference = path("limited.sr");
        QVERIFY(QFile::copy(path("g-001.sr"), reference));
        QCOMPARE(vorn({"limits", reference, "A0", "frequency<=1Hz"}).exitCode, 0);
        const Run r = vorn(QStringList{"run", "demo"} + DEMO
                           + QStringList{"--reference", reference, "--count", "2", "--report", path("run.html"),
                                         "--report-dir", path("pictures"), "--junit", path("run.xml")});
        QVERIFY2(r.exitCode == 3, r.out + r.err);
        QVERIFY2(r.out.contains("A0 frequency: 2 values") && r.out.contains("2 failed"), r.out);
        QFile html(path("run.html"));
        QVERIFY(html.open(QIODevice::ReadOnly));
        const QByteArray report = html.readAll();
        QCOMPARE(report.count("<td class=\"fail\">fail</td>"), 2);
        QCOMPARE(report.count("<td class=\"pass\">pass</td>"), 2); // A1 by its envelope
        QCOMPARE(report.count("<img "), 2);
        QCOMPARE(QDir(path("pictures")).entryList({"*.png"}, QDir::Files).size(), 2);
    }

private:
    QString path(const QString &name) const { return m_dir.filePath(name); }
    QTemporaryDir m_dir;
};

QTEST_GUILESS_MAIN(TstVornRun)
#include "tst_vornrun.moc"
