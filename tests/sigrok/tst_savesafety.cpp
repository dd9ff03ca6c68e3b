// Saves that meet other saves, killed saves, foreign programs, other users and awkward names.

#include "waveform_sigrok.h"
#include "zipfixture.h"

#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <atomic>
#include <fcntl.h>
#include <grp.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

// Analog channels of the given names, and our curve metadata when there is some.
std::vector<ZipMember> capture(const QByteArrayList &names, const QByteArray &curves = {}, int samples = 4)
{
    QByteArray metadata = "[device 1]\nsamplerate=1 kHz\ntotal analog=" + QByteArray::number(names.size());
    std::vector<ZipMember> members{{"version", "2"}, {"vorngraph/curve-999999999", {}}};
    for (int i = 0; i < names.size(); ++i) {
        metadata += "\nanalog" + QByteArray::number(i + 1) + "=" + names[i];
        members.push_back({"analog-1-" + QByteArray::number(i + 1), QByteArray(samples * 4, '\x3f')});
    }
    members.push_back({"metadata", metadata + "\n"});
    members.push_back({"vorngraph/metadata", curves});
    return members;
}

} // namespace

class TstSaveSafety : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        m_path = m_dir->filePath("capture.sr");
        QVERIFY(writeZip(m_path, capture({"A0", "A1"})));
    }

    void concurrentSavesKeepEveryEnvelope()
    {
        for (int round = 0; round < 10; ++round) {
            QVERIFY(writeZip(m_path, capture({"A0", "A1"})));
            QProcess a, b;
            a.start(VORN_BINARY, {"envelope", m_path, "A0"});
            b.start(VORN_BINARY, {"envelope", m_path, "A1"});
            QVERIFY(a.waitForFinished() && b.waitForFinished());
            QCOMPARE(a.exitCode() + b.exitCode(), 0);
            QCOMPARE(offeredNames(m_path).size(), 6);
        }
    }

    // Waiting for a lock that is released soon is what the concurrent saves above do.
    void aLockHeldTooLongRefusesTheSave()
    {
        const QByteArray original = readFile(m_path);
        const int fd = open(QFile::encodeName(m_path), O_RDONLY);
        QCOMPARE(flock(fd, LOCK_EX), 0);
        QVERIFY(!saveEnvelope(m_path, "A0", envelopeOf(1)));
        close(fd);
        QVERIFY(lastEnvelopeFileError().contains("another program is saving"));
        QCOMPARE(readFile(m_path), original);
    }

    void aCaptureReplacedDuringTheSaveIsNotOverwritten()
    {
        // Big enough that the copy takes a while, in which a program that ignores our lock renames
        // its own file over the capture.
        QVERIFY(writeZip(m_path, capture({"A0"}, {}, 4 << 20)));
        const QString theirs = m_dir->filePath("theirs.sr");
        QVERIFY(writeZip(theirs, capture({"B0"})));
        const QByteArray theirBytes = readFile(theirs);
        std::atomic<bool> done{false}, replaced{false};
        std::thread other([&] {
            while (!done && !replaced) {
                if (fileNames(m_dir->path()).filter(".capture.sr.").size() == 1)
                    replaced = rename(QFile::encodeName(theirs), QFile::encodeName(m_path)) == 0;
            }
        });
        const bool saved = saveEnvelope(m_path, "A0", envelopeOf(1));
        done = true;
        other.join();
        QVERIFY(replaced && !saved);
        QVERIFY(lastEnvelopeFileError().contains("changed by another program"));
        QCOMPARE(readFile(m_path), theirBytes);
        QCOMPARE(fileNames(m_dir->path()), QStringList{"capture.sr"});
    }

    void removesOnlyAbandonedTemporariesOfTheSameCapture()
    {
        QStringList kept{".capture.sr.vornsave-heLd01", ".capture.sr.vornsave-a1B2c", ".capture.sr.backup1",
                         ".other.sr.vornsave-a1B2c3", "capture.sr.vornsave-a1B2c3"};
        for (const QString &name : kept + QStringList{".capture.sr.vornsave-a1B2c3"})
            QVERIFY(writeFile(m_dir->filePath(name), "left over"));
        // A save in progress elsewhere holds its temporary file.
        const int held = open(QFile::encodeName(m_dir->filePath(kept[0])), O_RDONLY);
        QCOMPARE(flock(held, LOCK_EX), 0);
        QVERIFY(saveEnvelope(m_path, "A0", envelopeOf(1)));
        close(held);
        kept << "capture.sr";
        kept.sort();
        QCOMPARE(fileNames(m_dir->path()), kept);
    }

    void aNameUpToTheFileSystemsLimitSaves()
    {
        // Made under a short name: libzip's own temporary name would not fit either.
        const QString path = m_dir->filePath(QString(252, 'n') + ".sr");
        QVERIFY(QFile::rename(m_path, path));
        QVERIFY2(saveEnvelope(path, "A0", envelopeOf(1)), qPrintable(lastEnvelopeFileError()));
        QCOMPARE(fileNames(m_dir->path()), QStringList{QFileInfo(path).fileName()});
    }

    // An immutable capture may be read and locked, but nothing can be renamed over it.
    void aFailedRenameGivesItsOwnReason()
    {
        const QByteArray original = readFile(m_path);
        const int fd = open(QFile::encodeName(m_path), O_RDONLY);
        int flags = 0;
        if (ioctl(fd, FS_IOC_GETFLAGS, &flags) != 0 || (flags |= FS_IMMUTABLE_FL, ioctl(fd, FS_IOC_SETFLAGS, &flags)) != 0) {
            close(fd);
            QSKIP("needs a file system and a user that can make a file immutable");
        }
        const bool saved = saveEnvelope(m_path, "A0", envelopeOf(1));
        flags &= ~FS_IMMUTABLE_FL;
        QVERIFY(ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0 && close(fd) == 0 && !saved && readFile(m_path) == original);
        QCOMPARE(lastEnvelopeFileError(), "cannot replace the file: Operation not permitted; nothing was written");
        QCOMPARE(fileNames(m_dir->path()), QStringList{"capture.sr"});
    }

    void modeBitsAndGroupHoldForEveryUser_data()
    {
        QTest::addColumn<uid_t>("user");
        QTest::addColumn<int>("mode");
        QTest::newRow("root and a file nobody may write") << uid_t(0) << 0444;
        QTest::newRow("a member of the file's group") << uid_t(65534) << 0664;
    }

    void modeBitsAndGroupHoldForEveryUser()
    {
        QFETCH(uid_t, user);
        QFETCH(int, mode);
        if (geteuid() != 0)
            QSKIP("needs root to be root or another user");
        const gid_t group = 100;
        QVERIFY(chmod(QFile::encodeName(m_dir->path()), 0777) == 0 && chown(QFile::encodeName(m_path), 0, group) == 0);
        QCOMPARE(chmod(QFile::encodeName(m_path), mode_t(mode)), 0);
        const QByteArray original = readFile(m_path);
        const pid_t child = fork();
        if (child == 0)
            _exit((user == 0 || (setgroups(1, &group) == 0 && setgid(user) == 0 && setuid(user) == 0))
                  && saveEnvelope(m_path, "A0", envelopeOf(1)) ? 0 : 1);
        int status = 0;
        QCOMPARE(waitpid(child, &status, 0), child);
        struct stat st;
        QVERIFY(stat(QFile::encodeName(m_path), &st) == 0 && st.st_gid == group && (st.st_mode & 07777) == mode_t(mode));
        QCOMPARE(QList<bool>({status == 0, readFile(m_path) == original}), QList<bool>({(mode & 0222) != 0, (mode & 0222) == 0}));
    }

    void envelopesOfEveryOfferedWaveformComeBack_data()
    {
        QTest::addColumn<QByteArrayList>("names");
        QTest::addColumn<QByteArray>("curves");
        const QByteArray common = QString(65, QChar(0x00e9)).toUtf8(); // 130 bytes
        QTest::newRow("a curve number the reader cannot read") << QByteArrayList{"A0"} << QByteArray("[curve 9999999999]\n");
        QTest::newRow("the highest curve number the reader reads")
            << QByteArrayList{"A0"} << QByteArray("[curve 999999999]\nname=Y\nsamples=0\nstart=0\ninterval=1\n");
        QTest::newRow("a name that fits only without a suffix") << QByteArrayList{QByteArray(125, 'x')} << QByteArray();
        QTest::newRow("long names that share their first 130 bytes")
            << QByteArrayList{common + "a", common + "b", common.left(118)} << QByteArray();
    }

    void envelopesOfEveryOfferedWaveformComeBack()
    {
        QFETCH(QByteArrayList, names);
        QFETCH(QByteArray, curves);
        QVERIFY(writeZip(m_path, capture(names, curves)));
        const QStringList offered = offeredNames(m_path);
        QVERIFY2(offered.size() >= names.size(), qPrintable(QString::fromUtf8(sigrok_get_last_error())));
        for (const QString &name : offered)
            QVERIFY2(saveEnvelope(m_path, name, envelopeOf(1)), qPrintable(lastEnvelopeFileError()));
        const QStringList after = offeredNames(m_path);
        QCOMPARE(QSet<QString>(after.begin(), after.end()).size(), after.size());
        for (const QString &name : offered)
            QVERIFY(name.toUtf8().size() < 128 && after.contains(name + " [upper]") && after.contains(name + " [lower]"));
    }

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_path;
};

QTEST_APPLESS_MAIN(TstSaveSafety)
#include "tst_savesafety.moc"
