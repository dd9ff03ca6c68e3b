// Saves that meet other saves, killed saves, foreign programs, other users and awkward names.

#include "vornwaveform.h"
#include "waveform_sigrok.h"
#include "zipfixture.h"

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <atomic>
#include <chrono>
#include <fcntl.h>
#include <grp.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

EnvelopeData envelope()
{
    EnvelopeData e;
    for (WaveformData *c : {&e.upper, &e.lower}) {
        c->sampleInterval = 1e-3;
        c->samples.writable() = {c == &e.upper ? 1.0 : -1.0, 0.5};
    }
    return e;
}

QStringList offeredNames(const QString &path)
{
    QStringList names;
    int32_t count = 0;
    sigrok_read_waveform_count(path.toUtf8(), &count);
    for (int32_t i = 0; i < count; ++i) {
        SigrokWaveformInfo info;
        sigrok_read_waveform_info_by_index(path.toUtf8(), i, &info);
        names << QString::fromUtf8(info.name);
    }
    return names;
}

std::vector<ZipMember> captureNamed(const QByteArrayList &names, QByteArray extraMetadata = {},
                                    int samples = 4)
{
    QByteArray metadata = "[global]\nsigrok version=0.5.2\n\n[device 1]\nsamplerate=1 kHz\n"
                          "total analog=" + QByteArray::number(names.size()) + "\n";
    std::vector<ZipMember> members{{"version", "2"}};
    for (int i = 0; i < names.size(); ++i) {
        metadata += "analog" + QByteArray::number(i + 1) + "=" + names[i] + "\n";
        members.push_back({"analog-1-" + QByteArray::number(i + 1) + "-1", QByteArray(samples * 4, '\x3f')});
    }
    members.push_back({"metadata", metadata});
    if (!extraMetadata.isEmpty())
        members.push_back({"vorngraph/metadata", extraMetadata});
    return members;
}

QStringList entries(const QString &dir)
{
    return QDir(dir).entryList(QDir::Files | QDir::Hidden, QDir::Name);
}

} // namespace

class TstSaveSafety : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void concurrentSavesKeepEveryEnvelope();
    void aLockedCaptureIsWaitedForThenRefused_data();
    void aLockedCaptureIsWaitedForThenRefused();
    void aCaptureReplacedDuringTheSaveIsNotOverwritten();
    void removesOnlyAbandonedTemporariesOfTheSameCapture();
    void readOnlyHoldsForRoot();
    void keepsTheGroupWhereTheSaverMay();
    void envelopesOfEveryOfferedWaveformComeBack_data();
    void envelopesOfEveryOfferedWaveformComeBack();

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_path;
};

void TstSaveSafety::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_path = m_dir->filePath("capture.sr");
    QVERIFY(writeZip(m_path, captureNamed({"A0", "A1"})));
}

void TstSaveSafety::concurrentSavesKeepEveryEnvelope()
{
    for (int round = 0; round < 10; ++round) {
        QVERIFY(writeZip(m_path, captureNamed({"A0", "A1"})));
        QProcess a, b;
        a.start(VORN_BINARY, {"envelope", m_path, "A0"});
        b.start(VORN_BINARY, {"envelope", m_path, "A1"});
        QVERIFY(a.waitForFinished() && b.waitForFinished());
        QCOMPARE(a.exitCode() + b.exitCode(), 0);
        QCOMPARE(offeredNames(m_path).size(), 6);
    }
}

void TstSaveSafety::aLockedCaptureIsWaitedForThenRefused_data()
{
    QTest::addColumn<int>("holdMs");
    QTest::newRow("released after a moment") << 300;
    QTest::newRow("held throughout") << 8000;
}

void TstSaveSafety::aLockedCaptureIsWaitedForThenRefused()
{
    QFETCH(int, holdMs);
    const QByteArray original = readFile(m_path);
    const int fd = open(QFile::encodeName(m_path), O_RDONLY);
    QCOMPARE(flock(fd, LOCK_EX), 0);
    std::thread holder([fd, holdMs] {
        std::this_thread::sleep_for(std::chrono::milliseconds(holdMs));
        close(fd);
    });
    const bool saved = saveEnvelope(m_path, "A0", envelope());
    const QString error = lastEnvelopeFileError();
    holder.join();
    QCOMPARE(saved, holdMs < 1000);
    if (!saved) {
        QVERIFY2(error.contains("another program is saving"), qPrintable(error));
        QCOMPARE(readFile(m_path), original);
    }
}

void TstSaveSafety::aCaptureReplacedDuringTheSaveIsNotOverwritten()
{
    // Long enough that writing the copy takes a while, in which a program that ignores our lock
    // renames its own file over the capture.
    QVERIFY(writeZip(m_path, captureNamed({"A0"}, {}, 4 << 20)));
    const QString theirs = m_dir->filePath("theirs.sr");
    QVERIFY(writeZip(theirs, captureNamed({"B0"})));
    const QByteArray theirBytes = readFile(theirs);
    std::atomic<bool> done{false}, replaced{false};
    std::thread other([&] {
        while (!done && !replaced) {
            if (entries(m_dir->path()).filter(".capture.sr.").size() == 1)
                replaced = rename(QFile::encodeName(theirs), QFile::encodeName(m_path)) == 0;
        }
    });
    const bool saved = saveEnvelope(m_path, "A0", envelope());
    done = true;
    other.join();
    QVERIFY(replaced);
    QVERIFY(!saved);
    QVERIFY2(lastEnvelopeFileError().contains("changed by another program"), qPrintable(lastEnvelopeFileError()));
    QCOMPARE(readFile(m_path), theirBytes);
    QCOMPARE(entries(m_dir->path()), QStringList{"capture.sr"});
}

void TstSaveSafety::removesOnlyAbandonedTemporariesOfTheSameCapture()
{
    const QStringList abandoned{".capture.sr.vornsave-a1B2c3"};
    const QStringList kept{".capture.sr.vornsave-heLd01", ".capture.sr.vornsave-a1B2c", ".capture.sr.backup1",
                           ".other.sr.vornsave-a1B2c3", "capture.sr.vornsave-a1B2c3"};
    for (const QString &name : abandoned + kept)
        QVERIFY(writeFile(m_dir->filePath(name), "left over"));
    // A save in progress elsewhere holds its temporary file.
    const int held = open(QFile::encodeName(m_dir->filePath(kept[0])), O_RDONLY);
    QCOMPARE(flock(held, LOCK_EX), 0);
    QVERIFY(saveEnvelope(m_path, "A0", envelope()));
    close(held);
    QStringList expected = kept + QStringList{"capture.sr"};
    expected.sort();
    QCOMPARE(entries(m_dir->path()), expected);
}

void TstSaveSafety::readOnlyHoldsForRoot()
{
    if (geteuid() != 0)
        QSKIP("only root can write past the mode bits");
    QCOMPARE(chmod(QFile::encodeName(m_path), 0444), 0);
    const QByteArray original = readFile(m_path);
    QVERIFY(!saveEnvelope(m_path, "A0", envelope()));
    QCOMPARE(lastEnvelopeFileError(), QStringLiteral("file is read-only"));
    QCOMPARE(readFile(m_path), original);
}

void TstSaveSafety::keepsTheGroupWhereTheSaverMay()
{
    if (geteuid() != 0)
        QSKIP("needs root to act as another user");
    // root's capture, writable by group 100; saved by nobody, who is in that group.
    const gid_t group = 100;
    QCOMPARE(chmod(QFile::encodeName(m_dir->path()), 0777), 0);
    QCOMPARE(chown(QFile::encodeName(m_path), 0, group), 0);
    QCOMPARE(chmod(QFile::encodeName(m_path), 0664), 0);
    const pid_t child = fork();
    if (child == 0) {
        const bool became = setgroups(1, &group) == 0 && setgid(65534) == 0 && setuid(65534) == 0;
        _exit(became && saveEnvelope(m_path, "A0", envelope()) ? 0 : 1);
    }
    int status = 0;
    QCOMPARE(waitpid(child, &status, 0), child);
    QCOMPARE(status, 0);
    struct stat st;
    QCOMPARE(stat(QFile::encodeName(m_path), &st), 0);
    QCOMPARE(st.st_gid, group);
    QCOMPARE(st.st_mode & 07777, mode_t(0664));
}

void TstSaveSafety::envelopesOfEveryOfferedWaveformComeBack_data()
{
    QTest::addColumn<QByteArrayList>("names");
    QTest::addColumn<QByteArray>("curves");
    const QByteArray common = QString(65, QChar(0x00e9)).toUtf8(); // 130 bytes
    QTest::newRow("a curve number the reader cannot read")
        << QByteArrayList{"A0"} << QByteArray("[curve 9999999999]\nname=X [upper]\n");
    QTest::newRow("the highest curve number the reader reads")
        << QByteArrayList{"A0"}
        << QByteArray("[curve 999999999]\nname=Y\nunit=\nsamples=0\nstart=0\ninterval=1\n");
    QTest::newRow("a name that fits only without a suffix") << QByteArrayList{QByteArray(125, 'x')} << QByteArray();
    QTest::newRow("long names that share their first 130 bytes")
        << QByteArrayList{common + "a", common + "b", common.left(118)} << QByteArray();
}

void TstSaveSafety::envelopesOfEveryOfferedWaveformComeBack()
{
    QFETCH(QByteArrayList, names);
    QFETCH(QByteArray, curves);
    std::vector<ZipMember> capture = captureNamed(names, curves);
    if (curves.contains("999999999]"))
        capture.push_back({"vorngraph/curve-999999999", QByteArray()});
    QVERIFY(writeZip(m_path, capture));
    const QStringList offered = offeredNames(m_path);
    for (const QString &name : offered)
        QVERIFY2(saveEnvelope(m_path, name, envelope()), qPrintable(lastEnvelopeFileError()));
    const QStringList after = offeredNames(m_path);
    QCOMPARE(QSet<QString>(after.begin(), after.end()).size(), after.size());
    for (const QString &name : offered) {
        QVERIFY(name.toUtf8().size() < 128 && QString::fromUtf8(name.toUtf8()) == name);
        QVERIFY2(after.contains(name + " [upper]") && after.contains(name + " [lower]"), qPrintable(name));
    }
}

QTEST_APPLESS_MAIN(TstSaveSafety)
#include "tst_savesafety.moc"
