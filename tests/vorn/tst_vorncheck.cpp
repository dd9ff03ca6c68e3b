// vorn envelope --from and vorn check on captures made by the real sigrok-cli.

#include "vornwaveform.h"
#include "waveform_sigrok.h"

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

struct Run
{
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

Run vorn(const QStringList &args)
{
    QProcess process;
    process.start(QStringLiteral(VORN_BINARY), args);
    process.waitForFinished(60000);
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1, process.readAllStandardOutput(),
            process.readAllStandardError()};
}

WaveformData readCurve(const QString &path, const QString &name)
{
    const QByteArray file = path.toUtf8();
    int32_t count = 0;
    sigrok_read_waveform_count(file, &count);
    for (int32_t i = 0; i < count; ++i) {
        SigrokWaveformInfo info;
        sigrok_read_waveform_info_by_index(file, i, &info);
        if (name != QString::fromUtf8(info.name))
            continue;
        WaveformData w;
        w.sampleInterval = info.sampleInterval;
        w.startTime = info.startTime;
        w.unit = QString::fromUtf8(info.unit);
        w.samples.writable().resize(info.sampleCount);
        sigrok_read_waveform_data_by_index(file, i, w.samples.writable().data(), info.sampleCount);
        return w;
    }
    return {};
}

} // namespace

class TstVornCheck : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void exitCodesAndReports_data();
    void exitCodesAndReports();
    void junitReportReadsBack();

private:
    QString path(const char *name) const { return m_dir.filePath(QString::fromLatin1(name)); }

    QTemporaryDir m_dir;
    double m_firstViolation = 0.0;
};

// good.sr gets an envelope from three captures; tight.sr the same envelope with a gap at point 9
// and the upper limit far below the signal from point 10 on; bare.sr has none.
void TstVornCheck::initTestCase()
{
    const QString sigrok = QStandardPaths::findExecutable(QStringLiteral("sigrok-cli"));
    if (sigrok.isEmpty())
        QSKIP("sigrok-cli is not installed (Debian package sigrok-cli)");
    for (const char *name : {"good.sr", "a.sr", "b.sr", "bare.sr"}) {
        QCOMPARE(QProcess::execute(sigrok, {"-d", "demo", "--channels", "A0,A1", "--config", "samplerate=1M",
                                            "--samples", "20000", "-o", path(name)}),
                 0);
    }
    QCOMPARE(vorn({"envelope", path("good.sr"), "A1", "--from", path("a.sr"), path("b.sr"), path("good.sr"),
                   "--points", "20", "--dx", "2us", "--dy", "50 mV"})
                 .exitCode,
             0);

    EnvelopeData envelope{readCurve(path("good.sr"), "A1 [upper]"), readCurve(path("good.sr"), "A1 [lower]")};
    QCOMPARE(envelope.upper.samples->size(), 20U);
    std::vector<double> &upper = envelope.upper.samples.writable();
    upper[9] = std::nan("");
    std::fill(upper.begin() + 10, upper.end(), -100.0);
    QVERIFY(QFile::copy(path("bare.sr"), path("tight.sr")));
    QVERIFY(saveEnvelope(path("tight.sr"), "A1", envelope));
    // Samples at 1 us: the first one at or after point 10.
    m_firstViolation = std::ceil(10 * envelope.upper.sampleInterval / 1e-6) * 1e-6;
}

void TstVornCheck::exitCodesAndReports_data()
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

void TstVornCheck::exitCodesAndReports()
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
    const QStringList keys{"above", "below", "checked", "file", "first_violation", "min_margin", "nan", "result",
                           "waveform", "worst_above", "worst_below"};
    for (int i = 0; i < reports.size(); ++i) {
        const QJsonObject r = reports[i].toObject();
        QCOMPARE(r.keys(), keys);
        QCOMPARE(r["result"].toString(), results[i]);
        QCOMPARE(r["checked"].toDouble(), 20000.0);
        QCOMPARE(r["min_margin"].toDouble() < 0, results[i] == "fail");
        if (results[i] == "fail") {
            QCOMPARE(r["first_violation"].toDouble(), m_firstViolation);
            QCOMPARE(r["worst_above"]["excess"].toDouble() > 90, true);
            QVERIFY(r["worst_below"].isNull());
        } else {
            QVERIFY(r["first_violation"].isNull());
        }
    }
}

void TstVornCheck::junitReportReadsBack()
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
    QCOMPARE(seen, (QStringList{"3/1/1", "good.sr:A1", "tight.sr:A1", "failure:first violation", "missing.sr:missing.sr",
                                "error:file not"}));
}

QTEST_GUILESS_MAIN(TstVornCheck)
#include "tst_vorncheck.moc"
