#include "vornwaveform.h"
#include "waveform_sigrok.h"
#include "zipfixture.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>
#include <cstring>
#include <limits>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

const double NaN = std::numeric_limits<double>::quiet_NaN();

WaveformData curve(std::vector<double> samples, double interval, double start, const QString &unit = "V")
{
    WaveformData w;
    w.unit = unit;
    w.sampleInterval = interval;
    w.startTime = start;
    w.samples.writable() = std::move(samples);
    return w;
}

EnvelopeData envelopeOf(double scale)
{
    EnvelopeData e;
    // Values that a text format could not keep: thirds, a denormal, NaN gaps.
    e.upper = curve({scale / 3, NaN, 1e-310, -0.1, scale}, 1e-7 / 3, -0.123456789012345678);
    e.lower = curve({-scale / 3, NaN, -1e-310, -0.2, 0.0}, 1e-7 / 3, -0.123456789012345678);
    return e;
}

struct Read
{
    SigrokWaveformInfo info;
    std::vector<double> samples;
};

// Every waveform the reader offers, by name.
std::map<QString, Read> readWaveforms(const QString &path)
{
    std::map<QString, Read> out;
    const QByteArray p = path.toUtf8();
    int32_t count = 0;
    if (sigrok_read_waveform_count(p, &count) != 0)
        return out;
    for (int32_t i = 0; i < count; ++i) {
        Read r;
        sigrok_read_waveform_info_by_index(p, i, &r.info);
        r.samples.resize(r.info.sampleCount);
        sigrok_read_waveform_data_by_index(p, i, r.samples.data(), r.info.sampleCount);
        out[QString::fromUtf8(r.info.name)] = r;
    }
    return out;
}

bool sameBits(const std::vector<double> &a, const std::vector<double> &b)
{
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(double)) == 0;
}

QStringList entries(const QString &dir)
{
    return QDir(dir).entryList(QDir::Files | QDir::Hidden | QDir::System);
}

} // namespace

class TstEnvelopeFile : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void savedCurvesReadBackBitExact();
    void saveLeavesEveryCaptureMemberAsItWas();
    void savingAgainReplacesInPlace();
    void savingAnUnchangedEnvelopeWritesNothing();
    void removingTakesOutExactlyWhatSavingAdded();
    void keepsPermissionsAndSymbolicLinks();
    void failedSaveLeavesTheFileUntouched_data();
    void failedSaveLeavesTheFileUntouched();

private:
    QScopedPointer<QTemporaryDir> m_dir;
    QString m_path;
};

void TstEnvelopeFile::init()
{
    m_dir.reset(new QTemporaryDir);
    QVERIFY(m_dir->isValid());
    m_path = m_dir->filePath("capture.sr");
    QVERIFY(writeZip(m_path, sampleCapture()));
}

void TstEnvelopeFile::savedCurvesReadBackBitExact()
{
    const EnvelopeData e = envelopeOf(2.0);
    QVERIFY(saveEnvelope(m_path, "A1", e));
    const auto read = readWaveforms(m_path);
    QCOMPARE(read.size(), size_t(6));
    for (const auto &[name, source] : {std::pair{QStringLiteral("A1 [upper]"), &e.upper},
                                       std::pair{QStringLiteral("A1 [lower]"), &e.lower}}) {
        QVERIFY2(read.count(name), qPrintable(name));
        const Read &r = read.at(name);
        QVERIFY(sameBits(r.samples, *source->samples));
        QCOMPARE(r.info.sampleInterval, source->sampleInterval);
        QCOMPARE(r.info.startTime, source->startTime);
        QCOMPARE(r.info.unit, "V");
    }
}

void TstEnvelopeFile::saveLeavesEveryCaptureMemberAsItWas()
{
    const auto before = readMembers(m_path);
    QVERIFY(saveEnvelope(m_path, "A0", envelopeOf(1.0)));
    const auto after = readMembers(m_path);
    QCOMPARE(after.size(), before.size() + 3);
    for (const auto &[name, member] : before) {
        QVERIFY2(after.count(name), name.constData());
        QCOMPARE(after.at(name).data, member.data);
        QCOMPARE(after.at(name).compressed, member.compressed);
        QCOMPARE(after.at(name).crc, member.crc);
    }
}

void TstEnvelopeFile::savingAgainReplacesInPlace()
{
    QVERIFY(saveEnvelope(m_path, "A0", envelopeOf(1.0)));
    QVERIFY(saveEnvelope(m_path, "A1", envelopeOf(2.0)));
    QVERIFY(saveEnvelope(m_path, "A0", envelopeOf(5.0)));
    const auto read = readWaveforms(m_path);
    QCOMPARE(read.size(), size_t(8));
    QVERIFY(sameBits(read.at("A0 [upper]").samples, *envelopeOf(5.0).upper.samples));
    QVERIFY(sameBits(read.at("A1 [upper]").samples, *envelopeOf(2.0).upper.samples));
    // The replaced curves keep their place in front of A1's.
    int32_t count = 0;
    SigrokWaveformInfo info;
    QCOMPARE(sigrok_read_waveform_count(m_path.toUtf8(), &count), 0);
    QCOMPARE(sigrok_read_waveform_info_by_index(m_path.toUtf8(), 4, &info), 0);
    QCOMPARE(info.name, "A0 [upper]");
}

void TstEnvelopeFile::savingAnUnchangedEnvelopeWritesNothing()
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

void TstEnvelopeFile::removingTakesOutExactlyWhatSavingAdded()
{
    const QByteArray original = readFile(m_path);
    QVERIFY(removeEnvelope(m_path, "A0")); // nothing stored yet: nothing written
    QCOMPARE(readFile(m_path), original);
    QVERIFY(saveEnvelope(m_path, "A0", envelopeOf(1.0)));
    QVERIFY(saveEnvelope(m_path, "A1", envelopeOf(2.0)));
    QVERIFY(removeEnvelope(m_path, "A0"));
    const auto read = readWaveforms(m_path);
    QVERIFY(!read.count("A0 [upper]") && !read.count("A0 [lower]"));
    QVERIFY(read.count("A1 [upper]") && read.count("A1 [lower]"));
    QVERIFY(saveEnvelope(m_path, "A1", EnvelopeData())); // an empty envelope removes
    QCOMPARE(readMembers(m_path).size(), sampleCapture().size());
    QCOMPARE(readFile(m_path), original);
    QCOMPARE(entries(m_dir->path()), QStringList{"capture.sr"});
}

void TstEnvelopeFile::keepsPermissionsAndSymbolicLinks()
{
    QCOMPARE(chmod(QFile::encodeName(m_path).constData(), 0640), 0);
    const QString link = m_dir->filePath("link.sr");
    QVERIFY(QFile::link(m_path, link));
    QVERIFY(saveEnvelope(link, "A0", envelopeOf(1.0)));
    QVERIFY(QFileInfo(link).isSymLink());
    QVERIFY(readWaveforms(m_path).count("A0 [upper]"));
    struct stat st;
    QCOMPARE(stat(QFile::encodeName(m_path).constData(), &st), 0);
    QCOMPARE(st.st_mode & 07777, mode_t(0640));
}

void TstEnvelopeFile::failedSaveLeavesTheFileUntouched_data()
{
    QTest::addColumn<QString>("failure");
    QTest::newRow("file missing") << "missing";
    QTest::newRow("not a capture") << "text";
    QTest::newRow("folder read-only") << "readonly";
    QTest::newRow("file read-only in a writable folder") << "readonlyfile";
    QTest::newRow("disk full") << "full";
}

void TstEnvelopeFile::failedSaveLeavesTheFileUntouched()
{
    QFETCH(QString, failure);
    QString path = m_path;
    if (failure == "missing")
        path = m_dir->filePath("nothing.sr");
    if (failure == "text")
        QVERIFY(writeFile(path, "no zip here"));
    const QByteArray original = readFile(path);
    const QStringList before = entries(m_dir->path());

    // The save runs in a child, where the limits of the case apply to it alone.
    const pid_t child = fork();
    QVERIFY(child >= 0);
    if (child == 0) {
        if (failure == "readonlyfile") {
            chmod(QFile::encodeName(path).constData(), 0444);
            chmod(QFile::encodeName(m_dir->path()).constData(), 0777);
        }
        if (failure.startsWith("readonly")) {
            if (failure == "readonly")
                chmod(QFile::encodeName(m_dir->path()).constData(), 0555);
            // root writes anywhere: become nobody, who may read the capture but not write it
            if (geteuid() == 0 && setuid(65534) != 0)
                _exit(3);
        }
        if (failure == "full") {
            signal(SIGXFSZ, SIG_IGN);
            const rlim_t limit = static_cast<rlim_t>(original.size() / 2);
            const struct rlimit fsize{limit, limit};
            setrlimit(RLIMIT_FSIZE, &fsize);
        }
        _exit(saveEnvelope(path, "A0", envelopeOf(1.0)) ? 0 : 1);
    }
    int status = 0;
    QCOMPARE(waitpid(child, &status, 0), child);
    chmod(QFile::encodeName(m_dir->path()).constData(), 0755);
    QVERIFY(WIFEXITED(status));
    QCOMPARE(WEXITSTATUS(status), 1);
    QCOMPARE(readFile(path), original);
    QCOMPARE(entries(m_dir->path()), before);
}

QTEST_APPLESS_MAIN(TstEnvelopeFile)
#include "tst_envelopefile.moc"
