// vorn envelope --from and vorn check on captures made by the real sigrok-cli.

#include "zipfixture.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QXmlStreamReader>

#include <cmath>

namespace {

Run vorn(const QStringList &args) { return run(QStringLiteral(VORN_BINARY), args); }

} // namespace

class TstVornCheck : public QObject
{
    Q_OBJECT

private slots:
    // good.sr gets an envelope of at most 20 knots from three captures; tight.sr one of 20 points that
    // is wide up to point 8, has a gap at point 9 and lies far below the signal from point 10 on;
    // bare.sr has none.
    void initTestCase()
    {
        const QString sigrok = QStandardPaths::findExecutable(QStringLiteral("sigrok-cli"));
        if (sigrok.isEmpty())
            QSKIP("sigrok-cli is not installed (Debian package sigrok-cli)");
        for (const char *name : {"good.sr", "a.sr", "b.sr", "bare.sr"})
            QCOMPARE(QProcess::execute(sigrok, {"-d", "demo", "--channels", "A0,A1", "--config", "samplerate=1M",
                                                "--samples", "20000", "-o", path(name)}), 0);
        const Run made = vorn({"envelope", path("good.sr"), "A1", "--from", path("a.sr"), path("b.sr"), path("good.sr"),
                               "--points", "20", "--dx", "2us", "--dy", "50 mV"});
        QCOMPARE(made.exitCode, 0);
        QVERIFY2(made.out.startsWith("A1: ") && made.out.split(' ')[1].toInt() <= 20, made.out.constData());
        // Limits from a capture of another length would not fit the one they are stored in.
        QCOMPARE(QProcess::execute(sigrok, {"-d", "demo", "--channels", "A1", "--config", "samplerate=1M", "--samples",
                                            "10000", "-o", path("short.sr")}), 0);
        QCOMPARE(vorn({"envelope", path("bare.sr"), "A1", "--from", path("short.sr")}).exitCode, 2);

        EnvelopeData tight;
        for (WaveformData *curve : {&tight.upper, &tight.lower}) {
            curve->sampleInterval = 19999e-6 / 19;
            curve->samples.writable().assign(20, -200.0);
        }
        std::fill_n(tight.upper.samples.writable().begin(), 9, 100.0);
        std::fill_n(tight.upper.samples.writable().begin() + 10, 10, -100.0);
        tight.upper.samples.writable()[9] = std::nan("");
        QVERIFY(QFile::copy(path("bare.sr"), path("tight.sr")));
        QVERIFY(saveEnvelope(path("tight.sr"), "A1", tight));
        // Samples at 1 us: the first one at or after point 10.
        m_firstViolation = std::ceil(10 * tight.upper.sampleInterval / 1e-6) * 1e-6;
    }

    void exitCodesAndReports_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QStringList>("results"); // the result of each reported waveform, in order
        QTest::newRow("own envelope passes") << QStringList{"good.sr"} << 0 << QStringList{"pass"};
        QTest::newRow("tightened fails") << QStringList{"good.sr", "tight.sr"} << 3 << QStringList{"pass", "fail"};
        QTest::newRow("reference across files") << QStringList{"a.sr", "bare.sr", "--reference", "good.sr"} << 0
                                                << QStringList{"pass", "pass"};
        QTest::newRow("tightened reference") << QStringList{"a.sr", "--reference", "tight.sr"} << 3 << QStringList{"fail"};
        QTest::newRow("unreadable, others reported") << QStringList{"missing.sr", "tight.sr"} << 2 << QStringList{"fail"};
        QTest::newRow("no envelope is no pass") << QStringList{"bare.sr"} << 2 << QStringList{};
        QTest::newRow("no file") << QStringList{} << 1 << QStringList{};
        QTest::newRow("unknown option") << QStringList{"good.sr", "--quick"} << 1 << QStringList{};
    }
    void exitCodesAndReports()
    {
        QFETCH(QStringList, args);
        QFETCH(int, exitCode);
        QFETCH(QStringList, results);
        QStringList command{"check", "--json"};
        for (const QString &a : args)
            command << (a.endsWith(".sr") ? path(qPrintable(a)) : a);
        const Run run = vorn(command);
        QCOMPARE(run.exitCode, exitCode);
        QCOMPARE(run.err.isEmpty(), exitCode == 0 || exitCode == 3);

        const QJsonArray reports = QJsonDocument::fromJson(run.out).array();
        QCOMPARE(reports.size(), results.size());
        for (int i = 0; i < reports.size(); ++i) {
            const QJsonObject r = reports[i].toObject();
            const bool fail = results[i] == "fail";
            QCOMPARE(r.keys(), QStringList({"above", "below", "checked", "file", "first_violation", "min_margin", "nan",
                                            "result", "shift", "uncovered", "waveform", "worst_above", "worst_below"}));
            QCOMPARE(QStringList({r["result"].toString(), QString::number(r["checked"].toDouble()),
                                  QString::number(r["min_margin"].toDouble() < 0),
                                  QString::number(r["first_violation"].toDouble(-1)),
                                  QString::number(r["worst_above"]["excess"].toDouble() > 90),
                                  QString::number(r["worst_below"].isNull())}),
                     QStringList({results[i], "20000", QString::number(fail),
                                  QString::number(fail ? m_firstViolation : -1), QString::number(fail), "1"}));
        }
    }

    // A capture that ends early fails; an envelope with no sample under it judges nothing.
    void uncoveredEnvelopesDoNotPass()
    {
        Run run = vorn({"check", "--json", path("short.sr"), "--reference", path("good.sr")});
        QCOMPARE(run.exitCode, 3);
        const QJsonObject r = QJsonDocument::fromJson(run.out).array().at(0).toObject();
        QCOMPARE(r["result"].toString(), "fail");
        QCOMPARE(r["uncovered"].toDouble(), 10000e-6);

        QVERIFY(QFile::copy(path("bare.sr"), path("later.sr")));
        EnvelopeData later;
        for (WaveformData *curve : {&later.upper, &later.lower}) {
            curve->startTime = 1.0;
            curve->sampleInterval = 1e-3;
            curve->samples.writable().assign(5, curve == &later.upper ? 10.0 : -10.0);
        }
        QVERIFY(saveEnvelope(path("later.sr"), "A1", later));
        run = vorn({"check", path("later.sr")});
        QCOMPARE(run.exitCode, 2);
        QVERIFY2(run.err.contains("A1: no sample lies under its envelope"), run.err.constData());
    }

    void junitReportReadsBack()
    {
        const QString report = path("report.xml");
        QCOMPARE(vorn({"check", path("good.sr"), path("tight.sr"), path("missing.sr"), "--junit", report}).exitCode, 2);
        QFile file(report);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QXmlStreamReader xml(&file);
        QStringList seen;
        while (!xml.atEnd()) {
            if (xml.readNext() != QXmlStreamReader::StartElement)
                continue;
            const auto attribute = [&xml](const char *name) { return xml.attributes().value(QLatin1String(name)).toString(); };
            if (xml.name() == QLatin1String("testsuite"))
                seen << attribute("tests") + "/" + attribute("failures") + "/" + attribute("errors");
            else if (xml.name() == QLatin1String("testcase"))
                seen << QFileInfo(attribute("classname")).fileName() + ":" + attribute("name").section('/', -1);
            else if (xml.name() != QLatin1String("testsuites"))
                seen << xml.name().toString() + ":" + attribute("message").section(' ', 0, 1);
        }
        QVERIFY2(!xml.hasError(), qPrintable(xml.errorString()));
        QCOMPARE(seen, (QStringList{"3/1/1", "good.sr:A1", "tight.sr:A1", "failure:worst violation",
                                    "missing.sr:missing.sr", "error:file not"}));
    }

private:
    QString path(const char *name) const { return m_dir.filePath(QString::fromLatin1(name)); }

    QTemporaryDir m_dir;
    double m_firstViolation = 0.0;
};

QTEST_GUILESS_MAIN(TstVornCheck)
#include "tst_vorncheck.moc"
