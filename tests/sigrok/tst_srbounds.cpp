// Sizes the reader believes come from the archive's own bytes, and damage stays with the
// waveform that needs the damaged part.

#include "srini.h"
#include "waveform_sigrok.h"
#include "zipfixture.h"

#include <QTemporaryDir>
#include <QTest>

Q_DECLARE_METATYPE(std::vector<ZipMember>)

namespace {

enum class Patch { None, ClaimGiB, Bzip2, DeflateClaimsTooMuch };

// Writes value into the field at localAt of the member's local header and at centralAt of its
// central directory entry.
bool patchField(QByteArray &zip, const QByteArray &name, int localAt, int centralAt, quint32 value, int bytes)
{
    int patched = 0;
    for (qsizetype at = 0; at + 46 < zip.size(); ++at) {
        const bool local = zip.mid(at, 4) == QByteArray("PK\3\4", 4) && zip.mid(at + 30, name.size()) == name;
        const bool central = zip.mid(at, 4) == QByteArray("PK\1\2", 4) && zip.mid(at + 46, name.size()) == name;
        if (!local && !central)
            continue;
        for (int i = 0; i < bytes; ++i)
            zip[at + (local ? localAt : centralAt) + i] = static_cast<char>(value >> (8 * i));
        ++patched;
    }
    return patched == 2;
}

bool applyPatch(QByteArray &zip, const QByteArray &name, Patch patch)
{
    const quint32 gib = 1u << 30;
    switch (patch) {
    case Patch::None: return true;
    case Patch::ClaimGiB: return patchField(zip, name, 18, 20, gib, 4) && patchField(zip, name, 22, 24, gib, 4);
    case Patch::Bzip2: return patchField(zip, name, 8, 10, 12, 2);
    case Patch::DeflateClaimsTooMuch: return patchField(zip, name, 22, 24, gib, 4);
    }
    return false;
}

} // namespace

class TstSrBounds : public QObject
{
    Q_OBJECT

private slots:
    void damageStaysWithTheWaveformThatNeedsIt_data();
    void damageStaysWithTheWaveformThatNeedsIt();
    void sampleRatesAreTakenExactlyOrRefused_data();
    void sampleRatesAreTakenExactlyOrRefused();

private:
    QTemporaryDir m_dir;
};

void TstSrBounds::damageStaysWithTheWaveformThatNeedsIt_data()
{
    QTest::addColumn<std::vector<ZipMember>>("members");
    QTest::addColumn<QByteArray>("patched");
    QTest::addColumn<int>("patch");
    QTest::addColumn<QList<int>>("bad"); // waveforms whose data calls fail
    QTest::addColumn<QString>("reason");

    std::vector<ZipMember> good = sampleCapture();
    const QByteArray metadata = good[1].data;
    const auto with = [&](ZipMember extra) {
        std::vector<ZipMember> members = good;
        for (ZipMember &m : members) {
            if (m.name == extra.name)
                return m = extra, members;
        }
        members.push_back(extra);
        return members;
    };
    QTest::newRow("stored member claiming a GiB beyond the file")
        << with({"analog-1-5-1", floats({1, 2})}) << QByteArray("analog-1-5-1") << int(Patch::ClaimGiB) << QList<int>{1}
        << "member analog-1-5-1 does not fit in the file";
    QTest::newRow("deflate claiming more than it can expand")
        << good << QByteArray("analog-1-4-2") << int(Patch::DeflateClaimsTooMuch) << QList<int>{0}
        << "member analog-1-4-2 claims an impossible size";
    QTest::newRow("bzip2 notes nobody reads")
        << with({"notes.txt", "hello"}) << QByteArray("notes.txt") << int(Patch::Bzip2) << QList<int>() << QString();
    QTest::newRow("bzip2 analog member")
        << good << QByteArray("analog-1-5-1") << int(Patch::Bzip2) << QList<int>{1}
        << "member analog-1-5-1 uses an unsupported compression method";
    QTest::newRow("non-UTF-8 value in [global]")
        << with({"metadata", QByteArray(metadata).replace("0.5.2", "0.5.2\nowner=M\xfcller")}) << QByteArray()
        << int(Patch::None) << QList<int>() << QString();
    QTest::newRow("odd-length logic member")
        << with({"metadata", QByteArray(metadata).replace("unitsize=1", "unitsize=2")}) << QByteArray()
        << int(Patch::None) << QList<int>{2, 3} << "member logic-1-2 size is not a whole number of samples";
}

void TstSrBounds::damageStaysWithTheWaveformThatNeedsIt()
{
    QFETCH(std::vector<ZipMember>, members);
    QFETCH(QByteArray, patched);
    QFETCH(int, patch);
    QFETCH(QList<int>, bad);
    QFETCH(QString, reason);

    const QString file = m_dir.filePath(QString::number(qHash(QTest::currentDataTag())) + ".sr");
    const QByteArray path = QFile::encodeName(file);
    QVERIFY(writeZip(file, members));
    QByteArray bytes = readFile(file);
    QVERIFY(applyPatch(bytes, patched, static_cast<Patch>(patch)));
    QVERIFY(writeFile(file, bytes));

    int32_t count = 0;
    QVERIFY2(sigrok_read_waveform_count(path, &count) == 0, sigrok_get_last_error());
    QCOMPARE(count, 4);
    for (int32_t i = 0; i < count; ++i) {
        SigrokWaveformInfo info;
        QCOMPARE(sigrok_read_waveform_info_by_index(path, i, &info), 0);
        std::vector<double> samples(info.sampleCount);
        const int status = sigrok_read_waveform_data_by_index(path, i, samples.data(), info.sampleCount);
        if (!bad.contains(i)) {
            QVERIFY2(status == 0 && info.sampleCount > 0, sigrok_get_last_error());
            continue;
        }
        QVERIFY(status != 0);
        QCOMPARE(info.sampleCount, uint64_t(0)); // nothing to allocate for what cannot be read
        QCOMPARE(QString::fromUtf8(sigrok_get_last_error()), reason);
    }
}

void TstSrBounds::sampleRatesAreTakenExactlyOrRefused_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<quint64>("hertz"); // 0: refused

    QTest::newRow("half a hertz") << QByteArray("0.5 Hz") << quint64(0);
    QTest::newRow("fraction of a hertz after kilo") << QByteArray("2.0005 kHz") << quint64(0);
    QTest::newRow("fraction with kilo") << QByteArray("1.5 kHz") << quint64(1500);
    QTest::newRow("exponent") << QByteArray("1e6 Hz") << quint64(0);
}

void TstSrBounds::sampleRatesAreTakenExactlyOrRefused()
{
    QFETCH(QByteArray, text);
    QFETCH(quint64, hertz);
    uint64_t parsed = 0;
    QCOMPARE(vornsr::parseSampleRate(text.toStdString(), parsed), hertz != 0);
    if (hertz != 0)
        QCOMPARE(parsed, uint64_t(hertz));
}

QTEST_APPLESS_MAIN(TstSrBounds)
#include "tst_srbounds.moc"
