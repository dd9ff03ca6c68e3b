// vorn measure, vorn limits, and measurement limits judged by vorn check.

#include "zipfixture.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <cmath>

namespace {

Run vorn(const QStringList &args) { return run(QStringLiteral(VORN_BINARY), args); }

// 20 ms at 1 MHz of a 3.3 V pulse on A1: linear edges of 20 us (16 us from 10 to 90 %), the
// rising one centred on 5 ms, the falling one width later.
std::vector<ZipMember> pulseCapture(double width)
{
    QByteArray data;
    for (int i = 0; i < 20000; ++i) {
        const double t = i * 1e-6;
        const auto edge = [t](double centre) { return std::clamp((t - centre) / 20e-6 + 0.5, 0.0, 1.0); };
        const float v = static_cast<float>(3.3 * (edge(5e-3) - edge(5e-3 + width)));
        data.append(reinterpret_cast<const char *>(&v), sizeof v);
    }
    return {{"version", "2"},
            {"metadata", "[global]\nsigrok version=0.5.2\n\n[device 1]\ncapturefile=logic-1\n"
                         "total probes=0\nsamplerate=1 MHz\ntotal analog=1\nanalog1=A1\nunitsize=1\n", true},
            {"analog-1-1-1", data, true}};
}

} // namespace

class TstVornMeasure : public QObject
{
    Q_OBJECT

private slots:
    // golden.sr holds limits on width and rise time, period.sr one on a period a single pulse
    // does not have; wide.sr is 200 us wider than pulse.sr.
    void initTestCase()
    {
        QVERIFY(writeZip(path("pulse.sr"), pulseCapture(10e-3)));
        QVERIFY(writeZip(path("wide.sr"), pulseCapture(10.2e-3)));
        QVERIFY(QFile::copy(path("pulse.sr"), path("golden.sr")) && QFile::copy(path("pulse.sr"), path("period.sr")));
        const Run set = vorn({"limits", path("golden.sr"), "A1", "9.9ms<=pulse_width<=10.1ms", "rise_time<=20us"});
        QCOMPARE(set.exitCode, 0);
        QCOMPARE(set.out, QByteArray("A1 pulse_width 9.9 ms .. 10.1 ms\nA1 rise_time <= 20 μs\n"));
        QCOMPARE(vorn({"limits", path("period.sr"), "A1", "period<=30ms"}).exitCode, 0);
        // Every member of the capture stays as it was, and sigrok-cli still opens it.
        auto members = storedMembers(path("golden.sr"));
        QVERIFY(members.erase("vorngraph/limits"));
        QVERIFY(members == storedMembers(path("pulse.sr")));
        const QString sigrok = QStandardPaths::findExecutable(QStringLiteral("sigrok-cli"));
        if (!sigrok.isEmpty())
            QCOMPARE(QProcess::execute(sigrok, {"-i", path("golden.sr"), "--show"}), 0);
    }

    void limitsJudge_data()
    {
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("failed"); // the measurements that failed, in order
        QTest::newRow("within the limits") << QStringList{"pulse.sr", "--reference", "golden.sr"} << 0 << "";
        QTest::newRow("own limits") << QStringList{"golden.sr"} << 0 << "";
        QTest::newRow("too wide") << QStringList{"wide.sr", "--reference", "golden.sr"} << 3 << "pulse_width";
        QTest::newRow("cannot be measured") << QStringList{"pulse.sr", "--reference", "period.sr"} << 3 << "period";
        QTest::newRow("no limits, no envelope") << QStringList{"pulse.sr"} << 2 << "";
    }
    void limitsJudge()
    {
        QFETCH(QStringList, files);
        QFETCH(int, exitCode);
        QFETCH(QString, failed);
        QStringList args{"check", "--json"};
        for (const QString &f : files)
            args << (f.endsWith(".sr") ? path(qPrintable(f)) : f);
        const Run run = vorn(args);
        QCOMPARE(run.exitCode, exitCode);
        if (exitCode == 2)
            return;
        const QJsonObject r = QJsonDocument::fromJson(run.out).array().at(0).toObject();
        QCOMPARE(r["result"].toString(), QString(exitCode ? "fail" : "pass"));
        QStringList seen;
        for (const QJsonValue &f : r["limit_failures"].toArray())
            seen << f["measurement"].toString();
        QCOMPARE(seen.join(' '), failed);
        QVERIFY(std::abs(r["measurements"]["rise_time"].toDouble() - 16e-6) < 0.1e-6);
        if (failed == "period")
            QVERIFY(r["limit_failures"][0]["reason"].toString().startsWith("period cannot be measured: "));
    }

    // A batch gives each limited measurement's spread: widths of 10 and 10.2 ms against 9.9 .. 10.1 ms.
    void batchStatistics()
    {
        const Run run = vorn({"check", path("pulse.sr"), path("wide.sr"), "--reference", path("golden.sr")});
        QCOMPARE(run.exitCode, 3);
        QVERIFY2(run.out.contains("A1 pulse_width: 2 values, min 10 ms, mean 10.1 ms, max 10.2 ms, sd 141.4 μs, Cpk 0.00\n"),
                 run.out.constData());
        QVERIFY2(run.out.contains("fail " + path("wide.sr").toUtf8() + " A1: 1 of 2 limits failed: pulse_width 10.2 ms outside"),
                 run.out.constData());
    }

    void refusesBadLimits_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::newRow("no comparison") << QStringList{"A1", "rise_time<<1us"};
        QTest::newRow("unknown measurement") << QStringList{"A1", "slew<=1us"};
        QTest::newRow("unknown waveform") << QStringList{"B7", "rise_time<=1us"};
        QTest::newRow("bound against the kept one") << QStringList{"A1", "pulse_width>=11ms"};
    }
    void refusesBadLimits()
    {
        QFETCH(QStringList, args);
        const QByteArray before = readFile(path("golden.sr"));
        const Run run = vorn(QStringList{"limits", path("golden.sr")} + args);
        QCOMPARE(run.exitCode, 2);
        QVERIFY(run.err.startsWith("vorn: "));
        QCOMPARE(readFile(path("golden.sr")), before);
    }

    void removesLimits()
    {
        QVERIFY(QFile::copy(path("golden.sr"), path("removed.sr")));
        QCOMPARE(vorn({"limits", path("removed.sr"), "A1", "--remove", "rise_time"}).out,
                 QByteArray("A1 pulse_width 9.9 ms .. 10.1 ms\n"));
        QCOMPARE(vorn({"limits", path("removed.sr"), "A1", "--remove"}).exitCode, 0);
        QVERIFY(storedMembers(path("removed.sr")) == storedMembers(path("pulse.sr")));
    }

    void measuresWithUnitsAndJson()
    {
        Run run = vorn({"measure", path("wide.sr"), "--json"});
        QCOMPARE(run.exitCode, 0);
        const QJsonObject m = QJsonDocument::fromJson(run.out).array().at(0).toObject();
        QCOMPARE(m.keys(), QStringList({"amplitude", "duty_cycle", "fall_time", "frequency", "high", "low", "max", "mean",
                                        "min", "overshoot", "peak_to_peak", "period", "pulse_width", "rise_time", "rms",
                                        "settling_time", "undershoot", "waveform"}));
        QVERIFY(std::abs(m["pulse_width"].toDouble() - 10.2e-3) < 1e-8);
        QVERIFY(m["period"].isNull() && m["frequency"].isNull());
        run = vorn({"measure", path("wide.sr"), "A1", "--from", "14ms", "--to", "16ms"});
        QVERIFY2(run.out.contains("\n  fall_time      16 μs\n") && run.out.contains("\n  rise_time      - (no rising"),
                 run.out.constData());
    }

private:
    QString path(const char *name) const { return m_dir.filePath(QString::fromLatin1(name)); }
    QTemporaryDir m_dir;
};

QTEST_GUILESS_MAIN(TstVornMeasure)
#include "tst_vornmeasure.moc"
