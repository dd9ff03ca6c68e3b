// vorn envelope --from and vorn check on captures made by the real sigrok-cli.

#include "vornmask.h"
#include "zipfixture.h"

#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QXmlStreamReader>

#include <cmath>
#include <random>

namespace {

Run vorn(const QStringList &args) { return run(QStringLiteral(VORN_BINARY), args); }

// A 1 MHz capture of a 3.3 V pulse from rise to fall with 2 us edges and 5 mV of noise.
WaveformData pulse(int samples, double rise, double fall, double amplitude, unsigned seed)
{
    std::mt19937 random(seed);
    std::normal_distribution<double> noise(0.0, 5e-3);
    WaveformData w;
    w.name = QStringLiteral("A1");
    w.sampleInterval = 1e-6;
    for (int i = 0; i < samples; ++i)
        w.samples.writable().push_back(amplitude / 2 * (std::tanh((i * 1e-6 - rise) / 2e-6) - std::tanh((i * 1e-6 - fall) / 2e-6))
                                       + noise(random));
    return w;
}

bool writeCapture(const QString &path, const WaveformData &w)
{
    QByteArray data;
    for (double v : *w.samples) {
        const float f = static_cast<float>(v);
        data.append(reinterpret_cast<const char *>(&f), sizeof f);
    }
    return writeZip(path, {{"version", "2"},
                           {"metadata", "[global]\nsigrok version=0.5.2\n\n[device 1]\ncapturefile=logic-1\n"
                                        "total probes=0\nsamplerate=1 MHz\ntotal analog=1\nanalog1=A1\nunitsize=1\n", true},
                           {"analog-1-1-1", data, true}});
}

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
        tight.upper.samples.writable()[9] = tight.lower.samples.writable()[9] = std::nan("");
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
            QCOMPARE(r.keys(), QStringList({"above", "below", "checked", "file", "first_violation", "gap_spans", "gaps",
                                            "min_margin", "nan", "result", "shift", "uncovered", "uncovered_by_shift",
                                            "waveform", "worst_above", "worst_below"}));
            QCOMPARE(QStringList({r["result"].toString(), QString::number(r["checked"].toDouble()),
                                  QString::number(r["min_margin"].toDouble() < 0),
                                  QString::number(r["first_violation"].toDouble(-1)),
                                  QString::number(r["worst_above"]["excess"].toDouble() > 90),
                                  QString::number(r["worst_below"].isNull())}),
                     // tight.sr's gap, from point 8 to point 10, leaves 2105 samples unjudged.
                     QStringList({results[i], fail ? "17895" : "20000", QString::number(fail),
                                  QString::number(fail ? m_firstViolation : -1), QString::number(fail), "1"}));
        }
    }

    // A capture that ends early fails.
    void uncoveredEnvelopesDoNotPass()
    {
        Run run = vorn({"check", "--json", path("short.sr"), "--reference", path("good.sr")});
        QCOMPARE(run.exitCode, 3);
        const QJsonObject r = QJsonDocument::fromJson(run.out).array().at(0).toObject();
        QCOMPARE(r["result"].toString(), "fail");
        QCOMPARE(r["uncovered"].toDouble(), 10000e-6);
    }

    // A capture that leaves its envelope only below the lower limit, beside a hole in the limits:
    // the failure names the worst one below, and the hole is said in every form.
    void holesAndBelowOnlyFailuresAreSaid()
    {
        QVERIFY(writeCapture(path("holed.sr"), pulse(20000, 5e-3, 12e-3, 3.3, 7)));
        EnvelopeData holed;
        for (WaveformData *curve : {&holed.upper, &holed.lower}) {
            curve->sampleInterval = 19999e-6 / 19;
            curve->samples.writable().assign(20, curve == &holed.upper ? 10.0 : -10.0);
            std::fill_n(curve->samples.writable().begin() + 5, 3, std::nan(""));
        }
        std::fill_n(holed.lower.samples.writable().begin() + 15, 2, 1.0);
        QVERIFY(saveEnvelope(path("holed.sr"), "A1", holed));
        const QString report = path("holed.xml");
        Run run = vorn({"check", path("holed.sr"), "--junit", report});
        QCOMPARE(run.exitCode, 3);
        QVERIFY2(run.out.contains("; 4.21032 ms of the envelope without limits (4.21032 ms to 8.42063 ms)"), run.out.constData());
        run = vorn({"check", "--json", path("holed.sr")});
        const QJsonObject r = QJsonDocument::fromJson(run.out).array().at(0).toObject();
        QCOMPARE(r["gaps"].toDouble(), 4 * holed.upper.sampleInterval);
        QFile file(report);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray xml = file.readAll();
        QVERIFY2(xml.contains("below the lower limit") && !xml.contains("nan") && xml.contains("<system-out>"), xml.constData());
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
        QCOMPARE(seen, (QStringList{"3/1/1", "good.sr:A1", "tight.sr:A1", "failure:worst violation", "system-out:",
                                    "missing.sr:missing.sr", "error:file not"}));
    }

    // A batch with failures and a file that cannot be read: a verdict row per waveform and one for
    // the file, the spread of the limited measurement, the envelope's failure drawn twice (whole
    // and zoomed) and the limit's once, every picture inline, and the JUnit report naming the
    // pictures written to the folder.
    void reportOfABatch()
    {
        const QString html = path("report.html");
        const QString xmlPath = path("pictured.xml");
        QVERIFY(QFile::copy(path("good.sr"), path("limited.sr")));
        QCOMPARE(vorn({"limits", path("limited.sr"), "A1", "peak_to_peak<=1mV"}).exitCode, 0);
        vorn({"check", path("good.sr"), path("limited.sr"), path("tight.sr"), path("missing.sr"), "--report", html,
              "--report-dir", path("pictures"), "--junit", xmlPath});
        QFile file(html);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QXmlStreamReader xml(&file);
        int tables = 0;
        QStringList rows, statistics;
        QStringList images;
        while (!xml.atEnd()) {
            if (xml.readNext() != QXmlStreamReader::StartElement)
                continue;
            for (const char *reference : {"src", "href"}) {
                const QString target = xml.attributes().value(QLatin1String(reference)).toString();
                QVERIFY2(target.isEmpty() || target.startsWith("data:image/png;base64,"), qPrintable(target.left(80)));
            }
            QVERIFY(xml.name() != QLatin1String("script") && xml.name() != QLatin1String("link"));
            tables += xml.name() == QLatin1String("table");
            if (xml.name() == QLatin1String("tr") && tables >= 2)
                (tables == 2 ? statistics : rows)
                    << xml.readElementText(QXmlStreamReader::IncludeChildElements).simplified().section(' ', 0, 2);
            if (xml.name() == QLatin1String("img"))
                images << (QImage::fromData(QByteArray::fromBase64(xml.attributes().value(QLatin1String("src")).toLatin1().mid(22)))
                                   .width() > 1000 ? "chart" : "no chart");
        }
        QVERIFY2(!xml.hasError(), qPrintable(xml.errorString()));
        QCOMPARE(rows, (QStringList{"Capture Waveform Verdict", path("good.sr") + " A1 pass", path("limited.sr") + " A1 fail",
                                    path("tight.sr") + " A1 fail", path("missing.sr") + " not judged"}));
        QCOMPARE(statistics, (QStringList{"Waveform Measurement Values", "A1 peak_to_peak 1"}));
        QCOMPARE(images, (QStringList{"chart", "chart", "chart"}));

        QFile junit(xmlPath);
        QVERIFY(junit.open(QIODevice::ReadOnly));
        QXmlStreamReader cases(&junit);
        QStringList attachments;
        while (!cases.atEnd()) {
            if (cases.readNext() == QXmlStreamReader::StartElement && cases.name() == QLatin1String("property"))
                attachments << cases.attributes().value(QLatin1String("value")).toString();
        }
        QCOMPARE(attachments.size(), 2);
        QVERIFY2(attachments[1].contains("tight") && !QImage(attachments[1]).isNull(), qPrintable(attachments[1]));
        QVERIFY(junit.seek(0) && junit.readAll().contains("[[ATTACHMENT|" + attachments[1].toUtf8() + "]]"));
    }

    // Captures of a production line started up to 0.8 ms earlier than the golden one: they pass once
    // aligned, a pulse 40 us short fails at every shift and one that never reaches the trigger
    // level fails with its reason.
    void alignedBatch_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QString>("tally");
        QTest::addColumn<QStringList>("reasons"); // the JUnit message of each failed capture, its start
        QTest::newRow("unaligned") << QStringList{} << "A1: 5 tested, 1 passed, 4 failed (80.0 %)"
                                   << QStringList{"worst violation", "worst violation", "worst violation", "worst violation"};
        QTest::newRow("search") << QStringList{"--align", "1ms"} << "A1: 5 tested, 3 passed, 2 failed (40.0 %)"
                                << QStringList{"worst violation", "worst violation"};
        QTest::newRow("trigger") << QStringList{"--trigger", "1.65:falling"} << "A1: 5 tested, 3 passed, 2 failed (40.0 %)"
                                 << QStringList{"worst violation", "no falling crossing of 1.65 V"};
    }
    void alignedBatch()
    {
        QFETCH(QStringList, options);
        QFETCH(QString, tally);
        QFETCH(QStringList, reasons);
        if (!QFileInfo::exists(path("golden.sr"))) {
            SourceHull hull;
            for (unsigned seed = 1; seed <= 3; ++seed)
                QVERIFY(hull.add(pulse(20000, 5e-3, 12e-3, 3.3, seed)));
            QVERIFY(writeCapture(path("golden.sr"), pulse(20000, 5e-3, 12e-3, 3.3, 1)));
            QVERIFY(saveEnvelope(path("golden.sr"), "A1", hull.build({})));
            const double early[] = {0.0, 250e-6, 777e-6, 600e-6, 300e-6};
            for (int i = 0; i < 5; ++i) {
                const double width = i == 3 ? 7e-3 - 40e-6 : 7e-3;
                QVERIFY(writeCapture(path(qPrintable(QStringLiteral("line%1.sr").arg(i))),
                                     pulse(21000, 5e-3 + early[i], 5e-3 + early[i] + width, i == 4 ? 1.2 : 3.3, 10 + i)));
            }
        }
        const QString report = path("line.xml");
        QStringList args{"check", "--reference", path("golden.sr"), "--junit", report};
        for (int i = 0; i < 5; ++i)
            args << path(qPrintable(QStringLiteral("line%1.sr").arg(i)));
        Run run = vorn(args + options);
        QCOMPARE(run.exitCode, 3);
        QVERIFY2(run.out.contains(tally.toUtf8() + ", worst "), run.out.constData());

        QFile file(report);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QXmlStreamReader xml(&file);
        QStringList seen;
        while (!xml.atEnd()) {
            if (xml.readNext() == QXmlStreamReader::StartElement && xml.name() == QLatin1String("failure"))
                seen << xml.attributes().value(QLatin1String("message")).toString();
        }
        QCOMPARE(seen.size(), reasons.size());
        for (int i = 0; i < seen.size(); ++i)
            QVERIFY2(seen[i].startsWith(reasons[i]), qPrintable(seen[i]));
        if (options.isEmpty()) {
            // The worst of the late pulse's violations: high where the golden one has fallen already.
            QVERIFY2(QRegularExpression(QStringLiteral("^worst violation 3\\.[0-9]+ V, 3\\.[0-9]+ V above the upper limit "
                                                       "at [0-9.]+ ms \\([0-9]+ outside, first at [0-9.]+ ms\\)$"))
                         .match(seen[2])
                         .hasMatch(),
                     qPrintable(seen[2]));
            return;
        }
        // The shifts found, in the order the files were given.
        run = vorn(args + options + QStringList{"--json"});
        const QJsonArray rows = QJsonDocument::fromJson(run.out).array();
        QCOMPARE(rows.size(), 5);
        const double early[] = {0.0, 250e-6, 777e-6};
        for (int i = 0; i < 3; ++i) {
            QCOMPARE(rows[i]["file"].toString(), path(qPrintable(QStringLiteral("line%1.sr").arg(i))));
            QVERIFY2(std::fabs(rows[i]["shift"].toDouble() - early[i]) <= 1e-6, QJsonDocument(rows[i].toObject()).toJson().constData());
        }
    }

private:
    QString path(const char *name) const { return m_dir.filePath(QString::fromLatin1(name)); }

    QTemporaryDir m_dir;
    double m_firstViolation = 0.0;
};

QTEST_GUILESS_MAIN(TstVornCheck)
#include "tst_vorncheck.moc"
