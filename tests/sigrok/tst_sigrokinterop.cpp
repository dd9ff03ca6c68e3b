// Our reader, writer and vorn command against captures that the real sigrok-cli writes and reads.

#include "zipfixture.h"

#include <QFile>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>

namespace {

Run vorn(const QStringList &args) { return run(QStringLiteral(VORN_BINARY), args); }

// The rows of vorn's listing after its heading, split into their fields.
QList<QStringList> vornList(const QString &path)
{
    QList<QStringList> rows;
    for (const QString &line : QString::fromUtf8(vorn({"list", path}).out).split('\n').mid(1)) {
        if (line.count('\t') == 5)
            rows << line.split('\t');
    }
    return rows;
}

} // namespace

class TstSigrokInterop : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        m_sigrok = QStandardPaths::findExecutable(QStringLiteral("sigrok-cli"));
        if (m_sigrok.isEmpty())
            return;
        // "long" has about a thousand chunks per channel.
        for (const char *capture : {"analog 5000 A0,A1,A2,A3 100k", "logic 5000 D0,D3,D7 1M", "mixed 5000 D0,D1,A0,A2 1M",
                                       "long 1000000 A0,A1 1M"}) {
            const QStringList f = QString(capture).split(QLatin1Char(' '));
            const QString path = m_dir.filePath(f[0] + ".sr");
            QCOMPARE(run(m_sigrok, {"-d", "demo", "--samples", f[1], "--channels", f[2], "--config", "samplerate=" + f[3],
                                    "-o", path}).exitCode, 0);
        }
    }

    void readsWhatSigrokShowsAndPrints_data()
    {
        QTest::addColumn<QString>("name");
        for (const char *name : {"analog", "logic", "mixed", "long"})
            QTest::newRow(name) << name;
    }

    void readsWhatSigrokShowsAndPrints()
    {
        if (m_sigrok.isEmpty())
            QSKIP("sigrok-cli is not installed (Debian package sigrok-cli); the interoperability checks need it");
        QFETCH(QString, name);
        const QString path = m_dir.filePath(name + ".sr");
        const Run show = run(m_sigrok, {"-i", path, "--show"});
        QCOMPARE(show.exitCode, 0);

        // sigrok lists disabled probes too, named by their number; we offer the named channels,
        // analog first.
        QHash<QString, QStringList> shown; // "analog" and "logic" channels, "Samplerate", ...
        const QRegularExpression line(QStringLiteral("^(?:- (\\D.*): (analog|logic)|(.+ count|Samplerate): (\\S+))$"));
        for (const QString &text : QString::fromUtf8(show.out).split('\n')) {
            const auto m = line.match(text);
            if (m.hasMatch())
                shown[m.captured(2) + m.captured(3)] << m.captured(1) + m.captured(4);
        }
        QStringList names;
        for (const QStringList &l : vornList(path)) {
            names.append(l[1]);
            const bool analog = shown["analog"].contains(l[1]);
            QCOMPARE(l[2].toULongLong(), shown[analog ? "Analog sample count" : "Logic sample count"].value(0).toULongLong());
            QCOMPARE(l[3].toDouble(), 1.0 / shown["Samplerate"].value(0).toDouble());
        }
        QCOMPARE(names, shown["analog"] + shown["logic"]);

        // sigrok-cli 0.7 exits with 1 after "-O analog" even when it printed everything, so what
        // counts is what it printed.
        const Run printed = run(m_sigrok, {"-i", path, "-O", "analog"});
        QHash<QString, QList<double>> expected; // "A0: -10.00 V DC", two decimals
        const QRegularExpression value(QStringLiteral("^(\\S+): (\\S+) V"));
        for (const QString &text : QString::fromUtf8(printed.out).split('\n')) {
            const auto m = value.match(text);
            if (m.hasMatch())
                expected[m.captured(1)].append(m.captured(2).toDouble());
        }
        QCOMPARE(expected.isEmpty(), shown["analog"].isEmpty());
        for (auto it = expected.cbegin(); it != expected.cend(); ++it) {
            const QList<QByteArray> ours = vorn({"dump", path, it.key()}).out.split('\n');
            QCOMPARE(ours.size() - 1, it.value().size());
            for (int i = 0; i < it.value().size(); ++i) {
                const double v = ours[i].toDouble();
                if (std::fabs(v - it.value()[i]) > 0.005 + 1e-9)
                    QFAIL(qPrintable(QStringLiteral("%1[%2]: %3 against %4").arg(it.key()).arg(i).arg(v).arg(it.value()[i])));
            }
        }
    }

    void savedCapturesStillOpenInSigrok()
    {
        if (m_sigrok.isEmpty())
            QSKIP("sigrok-cli is not installed");
        const QString original = m_dir.filePath("mixed.sr");
        const QString saved = m_dir.filePath("saved.sr");
        QVERIFY(QFile::copy(original, saved));
        const auto before = storedMembers(saved);

        const Run made = vorn({"envelope", saved, "A0", "--points", "30"});
        QVERIFY2(made.exitCode == 0, made.err.constData());
        const QList<QStringList> listed = vornList(saved);
        QCOMPARE(listed.size(), 6);
        QVERIFY(listed[4][1] == "A0 [upper]" && listed[5][1] == "A0 [lower]" && listed[4][2] == listed[0][2]);
        const auto after = storedMembers(saved);
        for (const auto &[name, member] : before)
            QVERIFY2(after.count(name) && after.at(name) == member, name.constData());

        const Run showSaved = run(m_sigrok, {"-i", saved, "--show"});
        QCOMPARE(showSaved.exitCode, 0);
        QCOMPARE(showSaved.out, run(m_sigrok, {"-i", original, "--show"}).out);

        // sigrok copies the float data bit for bit; ours must read both files the same.
        const QString copied = m_dir.filePath("copied.sr");
        QCOMPARE(run(m_sigrok, {"-i", saved, "-o", copied}).exitCode, 0);
        for (const char *channel : {"A0", "A2", "D0", "D1"})
            QCOMPARE(vorn({"dump", copied, channel}).out, vorn({"dump", saved, channel}).out);
    }

    void reportsFailuresWithExitCodes_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("message"); // how stdout begins when it succeeds, else stderr
        QTest::newRow("help") << QStringList{"--help"} << 0 << "usage: vorn COMMAND ARGUMENTS";
        QTest::newRow("no command") << QStringList() << 1 << "usage: vorn COMMAND ARGUMENTS";
        QTest::newRow("unknown command") << QStringList{"show", "@capture"} << 1 << "usage:";
        QTest::newRow("count not a number") << QStringList{"dump", "@capture", "A0", "--count", "x"} << 1 << "usage:";
        QTest::newRow("one point") << QStringList{"envelope", "@capture", "A0", "--points", "1"} << 1 << "usage:";
        QTest::newRow("missing file") << QStringList{"list", "@nothing"} << 2 << "vorn: @nothing: file not found\n";
        QTest::newRow("not a capture") << QStringList{"list", "@text"} << 2 << "vorn: @text: not a zip archive\n";
        QTest::newRow("unknown waveform") << QStringList{"dump", "@capture", "B7"} << 2 << "vorn: @capture: no waveform named 'B7'\n";
        QTest::newRow("micro sign") << QStringList{"envelope", "@capture", "A0", "--dx", QString::fromUtf8("2\u00b5s")} << 0 << "";
    }

    void reportsFailuresWithExitCodes()
    {
        QFETCH(QStringList, args);
        QFETCH(int, exitCode);
        QFETCH(QString, message);
        QVERIFY(writeZip(m_dir.filePath("capture"), sampleCapture()) && writeFile(m_dir.filePath("text"), "plain text"));
        for (QString &arg : args)
            arg = arg.startsWith('@') ? m_dir.filePath(arg.mid(1)) : arg;
        message.replace('@', m_dir.path() + '/');
        const Run r = vorn(args);
        QCOMPARE(r.exitCode, exitCode);
        const QByteArray &shown = exitCode == 0 ? r.out : r.err;
        QVERIFY2(QString::fromUtf8(shown).left(message.size()) == message, shown.constData());
        QVERIFY((exitCode == 0 ? r.err : r.out).isEmpty());
    }

    // A terminal shows every byte of a message: one that is not UTF-8 is written as \xNN.
    void namesThatAreNotUtf8AreEscaped()
    {
        const QString path = m_dir.filePath(QString::fromUtf8("caf\u00e9"));
        QVERIFY(writeZip(path, sampleCapture()));
        const Run r = run("sh", {"-c", "exec \"$0\" dump \"$1\" \"$(printf 'B\\377')\"", VORN_BINARY, path});
        QCOMPARE(QString::fromUtf8(r.err), "vorn: " + path + ": no waveform named 'B\\xFF'\n");
    }

private:
    QTemporaryDir m_dir;
    QString m_sigrok;
};

QTEST_GUILESS_MAIN(TstSigrokInterop)
#include "tst_sigrokinterop.moc"
