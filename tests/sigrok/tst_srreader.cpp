#include "srreadercache.h"
#include "waveform_sigrok.h"
#include "zipfixture.h"

#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <cstring>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

Q_DECLARE_METATYPE(std::vector<ZipMember>)

namespace {

std::vector<ZipMember> withMetadata(const QByteArray &deviceKeys)
{
    return withMember(sampleCapture(), {"metadata", "[global]\nsigrok version=0.5.2\n[device 1]\n" + deviceKeys});
}

// A0 in 64 stored chunks of 5000 samples, enough bytes for the reader to share them out.
std::vector<ZipMember> manyChunks(QList<double> *values = nullptr)
{
    std::vector<ZipMember> members = without(sampleCapture(), {"analog-1-4-1", "analog-1-4-2"});
    for (int chunk = 1; chunk <= 64; ++chunk) {
        std::vector<float> data(5000);
        for (int i = 0; i < 5000; ++i)
            data[size_t(i)] = float(chunk * 10000 + i);
        members.push_back({"analog-1-4-" + QByteArray::number(chunk),
                           QByteArray(reinterpret_cast<const char *>(data.data()), qsizetype(data.size() * 4))});
        if (values)
            values->append(QList<double>(data.begin(), data.end()));
    }
    return members;
}

QList<double> readAll(const QByteArray &path, int index, uint64_t count)
{
    std::vector<double> samples(count);
    if (sigrok_read_waveform_data_by_index(path.constData(), index, samples.data(), count) != 0)
        return {};
    return QList<double>(samples.begin(), samples.end());
}

} // namespace

class TstSrReader : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY(m_dir.isValid()); }

    void offersAnalogThenLogic()
    {
        const QByteArray path = write("capture", sampleCapture());
        int32_t count = -1;
        QCOMPARE(sigrok_read_waveform_count(path, &count), 0);
        QStringList offered;
        for (int i = 0; i < count; ++i) {
            SigrokWaveformInfo info;
            std::memset(&info, 0x7f, sizeof info);
            QCOMPARE(sigrok_read_waveform_info_by_index(path, i, &info), 0);
            offered << QStringLiteral("%1 '%2' %3 %4 %5").arg(info.name, info.unit).arg(info.sampleCount)
                           .arg(info.sampleInterval).arg(info.startTime);
        }
        QCOMPARE(offered, QStringList({"A0 'V' 4 0.001 0", "A1 'V' 2 0.001 0", "D0 '' 3 0.001 0", "D2 '' 3 0.001 0"}));
    }

    void readsTheSamples_data()
    {
        QTest::addColumn<std::vector<ZipMember>>("members");
        QTest::addColumn<int>("index");
        QTest::addColumn<QList<double>>("samples");
        const std::vector<ZipMember> good = sampleCapture();
        QTest::newRow("analog in two chunks") << good << 0 << QList<double>{0.5, -1.25, 3.0, 7.0};
        QTest::newRow("analog, a prefix") << good << 0 << QList<double>{0.5, -1.25, 3.0};
        QTest::newRow("analog as float") << good << 1 << QList<double>{double(1e-3f), 2e6};
        // Logic bytes 0x01 0x04 0x05: probe1 is bit 0, probe3 is bit 2.
        QTest::newRow("logic bit 0") << good << 2 << QList<double>{1, 0, 1};
        QTest::newRow("logic bit 2") << good << 3 << QList<double>{0, 1, 1};
        QTest::newRow("logic in one member without a chunk number")
            << withMember(without(good, {"logic-1-1", "logic-1-2"}), {"logic-1", QByteArray("\x04\x05", 2)}) << 3
            << QList<double>{1, 1};
        // Added in an order where "10" sorts before "2" as text.
        std::vector<ZipMember> chunked = without(good, {"analog-1-4-1", "analog-1-4-2"});
        for (int chunk : {10, 2, 1, 11, 3, 4, 5, 6, 7, 8, 9, 12})
            chunked.push_back({"analog-1-4-" + QByteArray::number(chunk), floats({float(chunk), float(-chunk)})});
        QList<double> joined;
        for (int chunk = 1; chunk <= 12; ++chunk)
            joined << chunk << -chunk;
        QTest::newRow("chunks in numeric order") << chunked << 0 << joined;
        QList<double> many;
        QTest::newRow("over a MiB, read on every core") << manyChunks(&many) << 0 << many;
    }
    void readsTheSamples()
    {
        QFETCH(std::vector<ZipMember>, members);
        QFETCH(int, index);
        QFETCH(QList<double>, samples);
        QCOMPARE(readAll(write("read", members), index, samples.size()), samples);
    }

    void cutsLongNamesAtACharacterBoundary()
    {
        // 59 two-byte characters fill 118 bytes; one more would split at byte 119, the most a
        // channel name may have so that " [upper]" still fits behind it.
        // A fraction of a kilohertz is still a whole number of hertz.
        const QByteArray name = QString(64, QChar(0x00e9)).toUtf8();
        const QByteArray path = write("long", withMetadata("samplerate=1.5 kHz\ntotal analog=2\nanalog1=" + name + "\n"));
        SigrokWaveformInfo info;
        QCOMPARE(sigrok_read_waveform_info_by_index(path, 0, &info), 0);
        QCOMPARE(QByteArray(info.name) + ' ' + QByteArray::number(info.sampleInterval * 1500), name.left(118) + " 1");
    }

    void parsesEachArchiveOnceWhileItIsUnchanged()
    {
        const QByteArray path = write("cached", sampleCapture());
        const unsigned long before = vornsr::archiveParseCount();
        int32_t count = 0;
        SigrokWaveformInfo info;
        QCOMPARE(sigrok_read_waveform_count(path, &count) + sigrok_read_waveform_info_by_index(path, 3, &info), 0);
        QCOMPARE(readAll(path, 0, 4).size() + readAll(path, 3, 3).size(), 7);
        QCOMPARE(vornsr::archiveParseCount(), before + 1);
        // Same size, new content and an old time: the cache must notice.
        write("cached", withMember(sampleCapture(), {"analog-1-4-1", floats({9.0f, 9.0f, 9.0f}), true}));
        struct timeval times[2] = {{1000000000, 0}, {1000000000, 0}};
        QCOMPARE(utimes(path.constData(), times), 0);
        QCOMPARE(readAll(path, 0, 4), (QList<double>{9, 9, 9, 7}));
        QCOMPARE(vornsr::archiveParseCount(), before + 2);
    }

    // A reading stopped anywhere gives no waveform and no error, and the file reads in full after it.
    void cancelledReadingLeavesNothingBehind_data()
    {
        QTest::addColumn<double>("stopAt"); // share of all samples from which progress says stop
        QTest::newRow("before the first chunk") << 0.0;
        QTest::newRow("halfway through a waveform") << 0.5;
        QTest::newRow("after the last chunk") << 1.0;
    }
    void cancelledReadingLeavesNothingBehind()
    {
        QFETCH(double, stopAt);
        QList<double> a0;
        const QByteArray path = write("cancelled", manyChunks(&a0));
        const CaptureContents stopped = readCapture(QString::fromUtf8(path), [&](uint64_t done, uint64_t total) {
            return done < stopAt * double(total);
        });
        QVERIFY(stopped.cancelled);
        QVERIFY(stopped.waveforms.isEmpty() && stopped.error.isEmpty());
        const auto stop = [](void *, uint64_t, uint64_t) { return 1; };
        std::vector<double> samples(a0.size());
        QCOMPARE(sigrok_read_waveform_data_by_index_progress(path, 0, samples.data(), samples.size(), stop, nullptr),
                 SIGROK_READ_CANCELLED);
        uint64_t told = 0;
        const CaptureContents whole = readCapture(QString::fromUtf8(path), [&](uint64_t done, uint64_t) {
            told = done;
            return true;
        });
        QVERIFY2(!whole.cancelled && whole.error.isEmpty(), qPrintable(whole.error));
        QCOMPARE(whole.waveforms.size(), 4);
        QCOMPARE(QList<double>(whole.waveforms[0].samples->begin(), whole.waveforms[0].samples->end()), a0);
        QCOMPARE(told, uint64_t(a0.size() + 2 + 3 + 3));
    }

    void refusesBadFilesWithAReason_data()
    {
        QTest::addColumn<std::vector<ZipMember>>("members"); // empty: the file holds "text"
        QTest::addColumn<QByteArray>("damage"); // as damageMember() takes it
        QTest::addColumn<int>("index");         // the waveform read after opening
        QTest::addColumn<int>("count");         // samples asked for; 0: as many as it has
        QTest::addColumn<QString>("reason");     // after the call that failed; "none": all read

        const std::vector<ZipMember> good = sampleCapture();
        const auto row = [](const char *name, const std::vector<ZipMember> &members, const QString &reason,
                            const QByteArray &damage = {}, int index = 0) {
            QTest::newRow(name) << members << damage << index << 0 << reason;
        };
        row("not a zip", {}, "open: not a zip archive");
        row("no version", without(good, {"version"}), "open: not a sigrok session file (no version member)");
        row("version 3", withMember(good, {"version", "3"}), "open: unsupported version 3");
        row("no metadata", without(good, {"metadata"}), "open: member metadata missing");
        row("metadata not a key file", withMember(good, {"metadata", "samplerate 1 kHz\n"}), "open: metadata: ");
        row("no device section", withMember(good, {"metadata", "[global]\nx=1\n"}), "open: metadata: no [device 1] section");
        row("analog beyond the declared channels",
            withMetadata("samplerate=1 kHz\ntotal probes=8\ntotal analog=1\nanalog10=A1\n"),
            "open: metadata: analog10 names no declared channel");
        row("probe before total probes", withMetadata("samplerate=1 kHz\nprobe1=D0\ntotal probes=1\n"),
            "open: metadata: probe1 names no declared channel");
        row("analog naming a logic channel", withMetadata("samplerate=1 kHz\ntotal probes=2\ntotal analog=1\nanalog1=A\n"),
            "open: metadata: analog1 names no declared channel");
        row("no samplerate", withMetadata("total analog=1\nanalog1=A0\n"), "open: metadata: no samplerate");
        row("escape that cannot be read", withMetadata("samplerate=1 kHz\ntotal analog=1\nanalog1=C:\\data\n"),
            "open: metadata: [device 1] analog1: Key file contains key “analog1” which has a value that cannot be interpreted.");
        // A rate that is not a whole number of hertz would stretch the time axis.
        for (const char *rate : {"fast", "0.5 Hz", "2.0005 kHz", "1e6 Hz", "18446744073709551615 Hz"})
            row(rate, withMetadata(QByteArray("samplerate=") + rate + "\ntotal analog=1\nanalog1=A0\n"),
                QStringLiteral("open: metadata: bad samplerate '%1'").arg(rate));
        // What only the probes need costs the probes alone.
        row("probe beyond unitsize", withMetadata("samplerate=1 kHz\ntotal probes=9\nprobe9=D8\nunitsize=1\n"),
            "data: metadata: probe9 does not fit unitsize 1");
        row("no unitsize", withMetadata("samplerate=1 kHz\ntotal probes=1\nprobe1=D0\n"), "data: metadata: no unitsize");
        row("bad unitsize beside analog", withMetadata("samplerate=1 kHz\ntotal probes=3\ntotal analog=1\nprobe1=D0\n"
                                                       "analog4=A0\nunitsize=x\n"), "data: metadata: bad unitsize 'x'", {}, 1);
        const QByteArray curve = "[curve 1]\nname=A0 [upper]\nsamples=2\nstart=0\ninterval=1\n";
        // Damage to our own curves never costs the capture.
        row("curve without member", withMember(good, {"vorngraph/metadata", curve}), "data: member vorngraph/curve-1 missing",
            {}, 4);
        row("curve of the wrong size",
            withMember(withMember(good, {"vorngraph/metadata", QByteArray(curve).replace("samples=2", "samples=3")}),
                       {"vorngraph/curve-1", QByteArray(16, '\0')}),
            "data: member vorngraph/curve-1 size does not match its samples count", {}, 4);
        row("curve without interval",
            withMember(withMember(good, {"vorngraph/metadata", QByteArray(curve).replace("interval=1\n", "")}),
                       {"vorngraph/curve-1", QByteArray(16, '\0')}),
            "info: no waveform 4", {}, 4);
        // A damaged channel fails its own data call; the file still opens.
        row("chunk missing", without(withMember(good, {"analog-1-4-3", floats({1})}), {"analog-1-4-2"}),
            "data: member analog-1-4-2 missing");
        row("partial sample", withMember(good, {"analog-1-4-1", "12345"}),
            "data: member analog-1-4-1 size is not a whole number of samples");
        row("odd-length logic member", withMember(good, {"metadata", QByteArray(good[1].data).replace("unitsize=1", "unitsize=2")}),
            "data: member logic-1-2 size is not a whole number of samples", {}, 2);
        row("stored size that lies", withMember(good, {"analog-1-4-1", floats({1, 2})}),
            "data: member analog-1-4-1 claims an impossible size", "size:analog-1-4-1");
        row("deflate claiming more than it can expand", good, "data: member analog-1-4-2 claims an impossible size",
            "huge:analog-1-4-2");
        row("stored member claiming a GiB beyond the file", withMember(good, {"analog-1-5-1", floats({1, 2})}),
            "data: member analog-1-5-1 does not fit in the file", "beyond:analog-1-5-1", 1);
        row("inflates short", withMember(good, {"analog-1-4-1", floats({1, 2, 3}), true}),
            "data: member analog-1-4-1 truncated", "size:analog-1-4-1");
        row("fails its checksum", withMember(good, {"analog-1-5-1", floats({1.25f, -2.5f})}),
            "data: member analog-1-5-1 damaged", "bit:analog-1-5-1", 1);
        // Each core stops at a bad member; the first one is named, whichever core met it.
        row("damage late in a long read", manyChunks(), "data: member analog-1-4-40 damaged", "bit:analog-1-4-40");
        row("two members in the same bytes", good, "open: damaged zip archive: members overlap", "alias:analog-1-5-1");
        row("bzip2 analog member", good, "data: member analog-1-5-1 uses an unsupported compression method",
            "bzip2:analog-1-5-1", 1);
        row("bzip2 notes nobody reads", withMember(good, {"notes.txt", "hello"}), "none", "bzip2:notes.txt");
        row("non-UTF-8 value in [global]",
            withMember(good, {"metadata", QByteArray(good[1].data).replace("0.5.2", "0.5.2\nowner=M\xfcller")}), "none");
        QTest::newRow("more samples than there are") << good << QByteArray() << 0 << 5
                                                     << "data: asked for 5 samples of a waveform of 4";
        row("no such waveform", good, "info: no waveform 4", {}, 4);
    }
    void refusesBadFilesWithAReason()
    {
        QFETCH(std::vector<ZipMember>, members);
        QFETCH(QByteArray, damage);
        QFETCH(int, index);
        QFETCH(int, count);
        QFETCH(QString, reason);
        const QString path = m_dir.filePath(QTest::currentDataTag() + QStringLiteral(".sr"));
        QVERIFY(members.empty() ? writeFile(path, "text") : writeZip(path, members));
        QVERIFY(damage.isEmpty() || damageMember(path, damage));
        const QByteArray p = path.toUtf8();
        int32_t waveforms = 0;
        SigrokWaveformInfo info;
        QString failed = "open: ";
        if (sigrok_read_waveform_count(p, &waveforms) == 0) {
            failed = "info: ";
            if (sigrok_read_waveform_info_by_index(p, index, &info) == 0) {
                std::vector<double> samples(count ? uint64_t(count) : info.sampleCount);
                failed = sigrok_read_waveform_data_by_index(p, index, samples.data(), samples.size()) ? "data: " : "none";
            }
        }
        failed += QString::fromUtf8(sigrok_get_last_error());
        QVERIFY2(failed.startsWith(reason), qPrintable(failed));
        // What is known to be unreadable offers nothing to allocate, whatever sizes it claims.
        if (failed.contains(QRegularExpression("^data: .*(missing|size|fit|method)")))
            QCOMPARE(info.sampleCount, uint64_t(0));
        // The damage stays with the waveform that needs it; the logic channels share their members.
        for (int i = 0; (reason.startsWith("data") || reason == "none") && i < waveforms; ++i) {
            if (i != index && (i < 2 || index < 2))
                QVERIFY(sigrok_read_waveform_info_by_index(p, i, &info) == 0 && !readAll(p, i, info.sampleCount).isEmpty());
        }
    }

    // A member may inflate to a thousand times its size: the first samples must not cost it all.
    void firstSamplesInflateNoMoreThanNeeded()
    {
        QByteArray zeros(256 << 20, '\0');
        zeros.replace(0, 8, floats({1.5f, -2.5f}));
        const QByteArray path = write("inflates", withMember(withMetadata("samplerate=1 kHz\ntotal analog=1\nanalog1=A0\n"),
                                                            {"analog-1-1-1", zeros, true}));
        const pid_t child = fork();
        if (child == 0) {
            struct rusage before, after;
            getrusage(RUSAGE_SELF, &before);
            const QList<double> samples = readAll(path, 0, 2);
            getrusage(RUSAGE_SELF, &after);
            _exit(samples == QList<double>{1.5, -2.5} && after.ru_maxrss - before.ru_maxrss < 32 * 1024 ? 0 : 1);
        }
        int status = -1;
        QVERIFY(waitpid(child, &status, 0) == child && status == 0);
    }

private:
    QByteArray write(const QString &name, const std::vector<ZipMember> &members)
    {
        const QString path = m_dir.filePath(name + ".sr");
        return writeZip(path, members) ? path.toUtf8() : QByteArray();
    }

    QTemporaryDir m_dir;
};

QTEST_APPLESS_MAIN(TstSrReader)
#include "tst_srreader.moc"
