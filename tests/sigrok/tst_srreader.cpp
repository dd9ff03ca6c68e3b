#include "srreadercache.h"
#include "waveform_sigrok.h"
#include "zipfixture.h"

#include <QTemporaryDir>
#include <QTest>

#include <cstring>
#include <sys/stat.h>
#include <sys/time.h>

Q_DECLARE_METATYPE(std::vector<ZipMember>)

namespace {

QByteArray utf8(const QString &path)
{
    return path.toUtf8();
}

std::vector<ZipMember> withMember(std::vector<ZipMember> members, const ZipMember &extra)
{
    for (ZipMember &m : members) {
        if (m.name == extra.name) {
            m = extra;
            return members;
        }
    }
    members.push_back(extra);
    return members;
}

std::vector<ZipMember> withoutMember(std::vector<ZipMember> members, const QByteArray &name)
{
    members.erase(std::remove_if(members.begin(), members.end(), [&](const ZipMember &m) { return m.name == name; }),
                  members.end());
    return members;
}

std::vector<ZipMember> withMetadata(const QByteArray &deviceKeys)
{
    return withMember(sampleCapture(), {"metadata", "[global]\nsigrok version=0.5.2\n[device 1]\n" + deviceKeys});
}

std::vector<double> readAll(const QByteArray &path, int index, uint64_t count)
{
    std::vector<double> samples(count);
    if (sigrok_read_waveform_data_by_index(path.constData(), index, samples.data(), count) != 0)
        return {};
    return samples;
}

} // namespace

class TstSrReader : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void offersAnalogThenLogicWithTheirSamples();
    void joinsChunksInNumericOrder();
    void readsASingleUnchunkedLogicMember();
    void readsAPrefixButNotMoreThanThereIs();
    void cutsLongNamesAtACharacterBoundary();
    void parsesEachArchiveOnceWhileItIsUnchanged();
    void refusesDataThatFailsItsChecksum();
    void refusesBadFilesWithAReason_data();
    void refusesBadFilesWithAReason();

private:
    QTemporaryDir m_dir;
};

void TstSrReader::initTestCase()
{
    QVERIFY(m_dir.isValid());
}

void TstSrReader::offersAnalogThenLogicWithTheirSamples()
{
    const QString path = m_dir.filePath("capture.sr");
    QVERIFY(writeZip(path, sampleCapture()));
    int32_t count = -1;
    QCOMPARE(sigrok_read_waveform_count(utf8(path), &count), 0);
    QCOMPARE(count, 4);

    const char *names[] = {"A0", "A1", "D0", "D2"};
    const char *units[] = {"V", "V", "", ""};
    const uint64_t counts[] = {4, 2, 3, 3};
    for (int i = 0; i < 4; ++i) {
        SigrokWaveformInfo info;
        std::memset(&info, 0x7f, sizeof info);
        QCOMPARE(sigrok_read_waveform_info_by_index(utf8(path), i, &info), 0);
        QCOMPARE(info.name, names[i]);
        QCOMPARE(info.unit, units[i]);
        QCOMPARE(info.sampleCount, counts[i]);
        QCOMPARE(info.sampleInterval, 1.0 / 1000);
        QCOMPARE(info.startTime, 0.0);
    }
    QCOMPARE(readAll(utf8(path), 0, 4), (std::vector<double>{0.5, -1.25, 3.0, 7.0}));
    QCOMPARE(readAll(utf8(path), 1, 2), (std::vector<double>{double(1e-3f), 2e6}));
    // Logic bytes 0x01 0x04 0x05: probe1 is bit 0, probe3 is bit 2.
    QCOMPARE(readAll(utf8(path), 2, 3), (std::vector<double>{1, 0, 1}));
    QCOMPARE(readAll(utf8(path), 3, 3), (std::vector<double>{0, 1, 1}));
}

void TstSrReader::joinsChunksInNumericOrder()
{
    std::vector<ZipMember> members = withoutMember(withoutMember(sampleCapture(), "analog-1-4-1"), "analog-1-4-2");
    // Added in an order where "10" sorts before "2" as text.
    for (int chunk : {10, 2, 1, 11, 3, 4, 5, 6, 7, 8, 9, 12})
        members.push_back({"analog-1-4-" + QByteArray::number(chunk), floats({float(chunk), float(-chunk)})});
    const QString path = m_dir.filePath("chunks.sr");
    QVERIFY(writeZip(path, members));
    std::vector<double> expected;
    for (int chunk = 1; chunk <= 12; ++chunk)
        expected.insert(expected.end(), {double(chunk), double(-chunk)});
    QCOMPARE(readAll(utf8(path), 0, 24), expected);
}

void TstSrReader::readsASingleUnchunkedLogicMember()
{
    std::vector<ZipMember> members = withoutMember(withoutMember(sampleCapture(), "logic-1-1"), "logic-1-2");
    members.push_back({"logic-1", QByteArray("\x04\x05", 2)});
    const QString path = m_dir.filePath("single.sr");
    QVERIFY(writeZip(path, members));
    QCOMPARE(readAll(utf8(path), 3, 2), (std::vector<double>{1, 1}));
}

void TstSrReader::readsAPrefixButNotMoreThanThereIs()
{
    const QString path = m_dir.filePath("prefix.sr");
    QVERIFY(writeZip(path, sampleCapture()));
    QCOMPARE(readAll(utf8(path), 0, 3), (std::vector<double>{0.5, -1.25, 3.0}));
    std::vector<double> tooMany(5);
    QVERIFY(sigrok_read_waveform_data_by_index(utf8(path), 0, tooMany.data(), 5) != 0);
    QCOMPARE(sigrok_get_last_error(), "asked for 5 samples of a waveform of 4");
    SigrokWaveformInfo info;
    QVERIFY(sigrok_read_waveform_info_by_index(utf8(path), 4, &info) != 0);
    QCOMPARE(sigrok_get_last_error(), "no waveform 4");
}

void TstSrReader::cutsLongNamesAtACharacterBoundary()
{
    // 59 two-byte characters fill 118 bytes; one more would split at byte 119, the most a
    // channel name may have so that " [upper]" still fits behind it.
    const QByteArray name = QString(64, QChar(0x00e9)).toUtf8();
    const QString path = m_dir.filePath("long.sr");
    QVERIFY(writeZip(path, withMetadata("samplerate=1 kHz\ntotal analog=2\nanalog1=" + name + "\n")));
    SigrokWaveformInfo info;
    QCOMPARE(sigrok_read_waveform_info_by_index(utf8(path), 0, &info), 0);
    QCOMPARE(QByteArray(info.name), name.left(118));
}

void TstSrReader::parsesEachArchiveOnceWhileItIsUnchanged()
{
    const QString path = m_dir.filePath("cached.sr");
    QVERIFY(writeZip(path, sampleCapture()));
    const unsigned long before = vornsr::archiveParseCount();
    int32_t count = 0;
    QCOMPARE(sigrok_read_waveform_count(utf8(path), &count), 0);
    for (int i = 0; i < count; ++i) {
        SigrokWaveformInfo info;
        QCOMPARE(sigrok_read_waveform_info_by_index(utf8(path), i, &info), 0);
        QVERIFY(!readAll(utf8(path), i, info.sampleCount).empty());
    }
    QCOMPARE(vornsr::archiveParseCount(), before + 1);

    // Same size, new content and time: the cache must notice.
    std::vector<ZipMember> changed = sampleCapture();
    changed[4].data = floats({9.0f, 9.0f, 9.0f});
    QVERIFY(writeZip(path, changed));
    struct timeval times[2] = {{1000000000, 0}, {1000000000, 0}};
    QCOMPARE(utimes(QFile::encodeName(path).constData(), times), 0);
    QCOMPARE(readAll(utf8(path), 0, 4), (std::vector<double>{9, 9, 9, 7}));
    QCOMPARE(vornsr::archiveParseCount(), before + 2);
}

void TstSrReader::refusesDataThatFailsItsChecksum()
{
    const QString path = m_dir.filePath("bitrot.sr");
    const QByteArray data = floats({1.25f, -2.5f});
    QVERIFY(writeZip(path, withMember(sampleCapture(), {"analog-1-5-1", data})));
    QByteArray bytes = readFile(path);
    const qsizetype at = bytes.indexOf(data);
    QVERIFY(at > 0);
    bytes[at + 1] = static_cast<char>(bytes[at + 1] ^ 0x10); // one flipped bit, sizes intact
    QVERIFY(writeFile(path, bytes));
    int32_t count = 0;
    QCOMPARE(sigrok_read_waveform_count(utf8(path), &count), 0);
    std::vector<double> samples(2);
    QVERIFY(sigrok_read_waveform_data_by_index(utf8(path), 1, samples.data(), 2) != 0);
    QVERIFY2(QByteArray(sigrok_get_last_error()).startsWith("member analog-1-5-1 damaged"), sigrok_get_last_error());
}

void TstSrReader::refusesBadFilesWithAReason_data()
{
    QTest::addColumn<std::vector<ZipMember>>("members"); // empty: the file holds "text"
    QTest::addColumn<QByteArray>("patchMember");          // member whose stated size is raised by 8
    QTest::addColumn<bool>("failsOnOpen");                // else on reading waveform 0
    QTest::addColumn<QString>("reason");

    const std::vector<ZipMember> good = sampleCapture();
    QTest::newRow("not a zip") << std::vector<ZipMember>() << QByteArray() << true << "not a zip archive";
    QTest::newRow("no version") << withoutMember(good, "version") << QByteArray() << true
                                << "not a sigrok session file (no version member)";
    QTest::newRow("version 3") << withMember(good, {"version", "3"}) << QByteArray() << true << "unsupported version 3";
    QTest::newRow("no metadata") << withoutMember(good, "metadata") << QByteArray() << true << "member metadata missing";
    QTest::newRow("metadata not a key file") << withMember(good, {"metadata", "samplerate 1 kHz\n"}) << QByteArray()
                                             << true << "metadata: ";
    QTest::newRow("no device section") << withMember(good, {"metadata", "[global]\nx=1\n"}) << QByteArray() << true
                                       << "metadata: no [device 1] section";
    QTest::newRow("analog beyond the declared channels")
        << withMetadata("samplerate=1 kHz\ntotal probes=8\ntotal analog=1\nanalog10=A1\n") << QByteArray() << true
        << "metadata: analog10 names no declared channel";
    QTest::newRow("probe before total probes") << withMetadata("samplerate=1 kHz\nprobe1=D0\ntotal probes=1\n")
                                               << QByteArray() << true << "metadata: probe1 names no declared channel";
    QTest::newRow("analog naming a logic channel") << withMetadata("samplerate=1 kHz\ntotal probes=2\ntotal analog=1\nanalog1=A\n")
                                                   << QByteArray() << true << "metadata: analog1 names no declared channel";
    QTest::newRow("no samplerate") << withMetadata("total analog=1\nanalog1=A0\n") << QByteArray() << true
                                   << "metadata: no samplerate";
    QTest::newRow("bad samplerate") << withMetadata("samplerate=fast\ntotal analog=1\nanalog1=A0\n") << QByteArray()
                                    << true << "metadata: bad samplerate 'fast'";
    QTest::newRow("probe beyond unitsize")
        << withMetadata("samplerate=1 kHz\ntotal probes=9\nprobe9=D8\nunitsize=1\n") << QByteArray() << true
        << "metadata: probe9 does not fit unitsize 1";
    QTest::newRow("no unitsize") << withMetadata("samplerate=1 kHz\ntotal probes=1\nprobe1=D0\n") << QByteArray()
                                 << true << "metadata: no unitsize";
    QTest::newRow("chunk missing") << withoutMember(withMember(good, {"analog-1-4-3", floats({1})}), "analog-1-4-2")
                                   << QByteArray() << true << "member analog-1-4-2 missing";
    QTest::newRow("partial sample") << withMember(good, {"analog-1-5-1", "12345"}) << QByteArray() << true
                                    << "member analog-1-5-1 size is not a whole number of samples";
    QTest::newRow("stored size that lies") << withMember(good, {"analog-1-5-1", floats({1, 2})})
                                           << QByteArray("analog-1-5-1") << true
                                           << "member analog-1-5-1 claims an impossible size";
    QTest::newRow("curve without member")
        << withMember(good, {"vorngraph/metadata", "[curve 1]\nname=A0 [upper]\nsamples=2\nstart=0\ninterval=1\n"})
        << QByteArray() << true << "member vorngraph/curve-1 missing";
    QTest::newRow("curve of the wrong size")
        << withMember(withMember(good, {"vorngraph/metadata", "[curve 1]\nname=A0 [upper]\nsamples=3\nstart=0\ninterval=1\n"}),
                      {"vorngraph/curve-1", QByteArray(16, '\0')})
        << QByteArray() << true << "member vorngraph/curve-1 size does not match its samples count";
    QTest::newRow("curve without interval")
        << withMember(withMember(good, {"vorngraph/metadata", "[curve 1]\nname=A0 [upper]\nsamples=2\nstart=0\n"}),
                      {"vorngraph/curve-1", QByteArray(16, '\0')})
        << QByteArray() << true << "vorngraph/metadata: [curve 1] has no valid start or interval";
    QTest::newRow("inflates short") << withMember(good, {"analog-1-4-1", floats({1, 2, 3}), true})
                                    << QByteArray("analog-1-4-1") << false << "member analog-1-4-1 truncated";
}

void TstSrReader::refusesBadFilesWithAReason()
{
    QFETCH(std::vector<ZipMember>, members);
    QFETCH(QByteArray, patchMember);
    QFETCH(bool, failsOnOpen);
    QFETCH(QString, reason);

    const QString path = m_dir.filePath(QStringLiteral("bad-%1.sr").arg(QTest::currentDataTag()).replace(' ', '-'));
    if (members.empty()) {
        QVERIFY(writeFile(path, "text"));
    } else {
        QVERIFY(writeZip(path, members));
    }
    if (!patchMember.isEmpty()) {
        QByteArray bytes = readFile(path);
        const auto stated = readMembers(path).at(patchMember).data.size();
        QVERIFY(patchUncompressedSize(bytes, patchMember, static_cast<quint32>(stated + 8)));
        QVERIFY(writeFile(path, bytes));
    }

    int32_t count = 0;
    const int status = sigrok_read_waveform_count(utf8(path), &count);
    if (failsOnOpen) {
        QVERIFY(status != 0);
    } else {
        QCOMPARE(status, 0);
        std::vector<double> samples(8);
        SigrokWaveformInfo info;
        QCOMPARE(sigrok_read_waveform_info_by_index(utf8(path), 0, &info), 0);
        samples.resize(info.sampleCount);
        QVERIFY(sigrok_read_waveform_data_by_index(utf8(path), 0, samples.data(), info.sampleCount) != 0);
    }
    QVERIFY2(QString::fromUtf8(sigrok_get_last_error()).startsWith(reason), sigrok_get_last_error());
}

QTEST_APPLESS_MAIN(TstSrReader)
#include "tst_srreader.moc"
