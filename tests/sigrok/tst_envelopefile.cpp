#include "vornwaveform.h"
#include "zipfixture.h"

#include <QTemporaryDir>
#include <QTest>

#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

class TstEnvelopeFile : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_dir.reset(new QTemporaryDir);
        QVERIFY(m_dir->isValid());
        m_path = m_dir->filePath("capture.sr");
        QVERIFY(writeZip(m_path, sampleCapture()));
    }

    // Saved again, A0's curves are replaced where they stood, in front of A1's.
    void savedCurvesReadBackBitExact()
    {
        QVERIFY(saveEnvelope(m_path, "A0", envelopeOf(1.0)));
        QVERIFY(saveEnvelope(m_path, "A1", envelopeOf(2.0)));
        EnvelopeData subnormal = envelopeOf(5.0); // times %.17g writes and strtod reads as underflow
        subnormal.upper.startTime = 1e-310;
        subnormal.lower.sampleInterval = 4e-320;
        QVERIFY(saveEnvelope(m_path, "A0", subnormal));
        const auto read = readWaveforms(m_path);
        const QList<QPair<QString, QByteArray>> stored = {
            {"A0 [upper]", described(subnormal.upper)}, {"A0 [lower]", described(subnormal.lower)},
            {"A1 [upper]", described(envelopeOf(2.0).upper)}, {"A1 [lower]", described(envelopeOf(2.0).lower)}};
        QCOMPARE(read.mid(4), stored); // and nothing after them
    }

    // Curves stored under one name are offered as two: saving the first keeps the second, and
    // the envelope of an envelope curve comes back under its own names.
    void savesUnderTheNamesOffered()
    {
        const QByteArray section = "name=A0 [upper]\nunit=V\nsamples=1\nstart=0\ninterval=1\n";
        QVERIFY(writeZip(m_path, withMember(withMember(withMember(sampleCapture(),
            {"vorngraph/metadata", "[curve 1]\n" + section + "[curve 2]\n" + section}),
            {"vorngraph/curve-1", QByteArray(8, '\0')}), {"vorngraph/curve-2", QByteArray(8, '\0')})));
        QVERIFY(saveEnvelope(m_path, "A0", envelopeOf(1.0)));
        QVERIFY(saveEnvelope(m_path, "A0 [lower]", envelopeOf(2.0)));
        QCOMPARE(offeredNames(m_path).mid(4), QStringList({"A0 [upper]", "A0 (2) [upper]", "A0 [lower]",
                                                           "A0 [lower] [upper]", "A0 [lower] [lower]"}));
    }

    // A section the reader cannot read hides its curve; saving under its name rewrites it whole.
    void rewritesSectionsTheReaderCannotRead()
    {
        QVERIFY(writeZip(m_path, withMember(withMember(sampleCapture(), {"vorngraph/metadata",
            "[curve 1]\nname=A0 [upper]\nunit=V\nsamples=1\nstart=0\ninterval=1\nnote=M\xfcller\nnote=M\xfcller\n"}),
            {"vorngraph/curve-1", QByteArray(8, '\0')})));
        QCOMPARE(offeredNames(m_path).size(), 4);
        QVERIFY(saveEnvelope(m_path, "A0", envelopeOf(1.0)));
        QCOMPARE(offeredNames(m_path).mid(4), QStringList({"A0 [upper]", "A0 [lower]"}));
    }

    // Where libzip could read the archive otherwise than the reader, a save would rewrite what
    // was never checked: two members named vorngraph/metadata.
    void leavesArchivesReadInTwoWaysAlone()
    {
        const QByteArray curve = "[curve 1]\nname=A0 [upper]\nunit=V\nsamples=1\nstart=0\ninterval=1\n";
        QVERIFY(writeZip(m_path, withMember(withMember(withMember(sampleCapture(), {"vorngraph/metadata", curve}),
            {"vorngraph/curve-1", QByteArray(8, '\0')}), {"vorngraph/metadatX", curve})));
        const QByteArray twice = readFile(m_path).replace("vorngraph/metadatX", "vorngraph/metadata");
        QVERIFY(writeFile(m_path, twice));
        QVERIFY(!removeEnvelope(m_path, "A0"));
        QCOMPARE(readFile(m_path), twice);
    }

    void savingAnUnchangedEnvelopeWritesNothing()
    {
        QVERIFY(saveEnvelope(m_path, "A0", envelopeOf(1.0)));
        const auto inode = [this] {
            struct stat st;
            return stat(QFile::encodeName(m_path).constData(), &st) == 0 ? st.st_ino : ino_t(0);
        };
        const ino_t written = inode();
        QVERIFY(saveEnvelope(m_path, "A0", envelopeOf(1.0)));
        QCOMPARE(inode(), written); // a save replaces the file, and none happened
        EnvelopeData moved = envelopeOf(1.0);
        moved.lower.startTime += 1e-9;
        QVERIFY(saveEnvelope(m_path, "A0", moved));
        QVERIFY(inode() != written);
    }

    void removingTakesOutExactlyWhatSavingAdded()
    {
        const QByteArray original = readFile(m_path);
        QVERIFY(removeEnvelope(m_path, "A0")); // nothing stored yet: nothing written
        QCOMPARE(readFile(m_path), original);
        QVERIFY(saveEnvelope(m_path, "A0", envelopeOf(1.0)));
        QVERIFY(saveEnvelope(m_path, "A1", envelopeOf(2.0)));
        QVERIFY(removeEnvelope(m_path, "A0"));
        QCOMPARE(offeredNames(m_path), QStringList({"A0", "A1", "D0", "D2", "A1 [upper]", "A1 [lower]"}));
        QVERIFY(saveEnvelope(m_path, "A1", EnvelopeData())); // an empty envelope removes
        QCOMPARE(readFile(m_path), original);
        QCOMPARE(fileNames(m_dir->path()), QStringList{"capture.sr"});
    }

    void keepsPermissionsAndSymbolicLinks()
    {
        QCOMPARE(chmod(QFile::encodeName(m_path).constData(), 0640), 0);
        const QString link = m_dir->filePath("link.sr");
        QVERIFY(QFile::link(m_path, link));
        QVERIFY(saveEnvelope(link, "A0", envelopeOf(1.0)) && QFileInfo(link).isSymLink());
        QCOMPARE(readWaveforms(m_path).size(), 6);
        QCOMPARE(QFile::permissions(m_path), QFile::ReadOwner | QFile::WriteOwner | QFile::ReadUser | QFile::WriteUser
                                                 | QFile::ReadGroup);
    }

    void failedSaveLeavesTheFileUntouched_data()
    {
        QTest::addColumn<QString>("failure");
        QTest::newRow("file missing") << "missing";
        QTest::newRow("not a capture") << "text";
        QTest::newRow("folder read-only") << "readonly";
        QTest::newRow("file read-only in a writable folder") << "readonlyfile";
        QTest::newRow("disk full") << "full";
        // A curve must run forward in time: one of a point or dragged backwards holds no limit.
        QTest::newRow("lower interval zero") << "zero";
        QTest::newRow("upper interval negative") << "negative";
    }
    void failedSaveLeavesTheFileUntouched()
    {
        QFETCH(QString, failure);
        const QString path = failure == "missing" ? m_dir->filePath("nothing.sr") : m_path;
        if (failure == "text")
            QVERIFY(writeFile(path, "no zip here"));
        const QByteArray original = readFile(path);
        const QStringList before = fileNames(m_dir->path());
        const QByteArray dir = QFile::encodeName(m_dir->path());

        // The save runs in a child, where the limits of the case apply to it alone.
        const pid_t child = fork();
        QVERIFY(child >= 0);
        if (child == 0) {
            if (failure == "readonlyfile")
                chmod(QFile::encodeName(path).constData(), 0444);
            else if (failure == "readonly" && chown(QFile::encodeName(path).constData(), 65534, gid_t(-1)) != 0)
                _exit(3); // nobody's own capture, so that only the folder stands in the way
            chmod(dir.constData(), failure == "readonly" ? 0555 : 0777);
            // root writes anywhere: become nobody, who may read the capture but not write it
            if (failure.startsWith("readonly") && geteuid() == 0 && setuid(65534) != 0)
                _exit(3);
            if (failure == "full") {
                signal(SIGXFSZ, SIG_IGN);
                const struct rlimit fsize{rlim_t(original.size() / 2), rlim_t(original.size() / 2)};
                setrlimit(RLIMIT_FSIZE, &fsize);
            }
            EnvelopeData envelope = envelopeOf(1.0);
            envelope.lower.sampleInterval = failure == "zero" ? 0.0 : envelope.lower.sampleInterval;
            envelope.upper.sampleInterval = failure == "negative" ? -1e-3 : envelope.upper.sampleInterval;
            _exit(saveEnvelope(path, "A0", envelope) ? 0 : 1);
        }
        int status = 0;
        QCOMPARE(waitpid(child, &status, 0), child);
        chmod(dir.constData(), 0755);
        QVERIFY(WIFEXITED(status) && WEXITSTATUS(status) == 1);
        QCOMPARE(readFile(path), original);
        QCOMPARE(fileNames(m_dir->path()), before);
    }

private:
    QScopedPointer<QTemporaryDir> m_dir;
    QString m_path;
};

QTEST_APPLESS_MAIN(TstEnvelopeFile)
#include "tst_envelopefile.moc"
