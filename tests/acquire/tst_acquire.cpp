// Acquisitions from sigrok's demo driver: the records the file reader gives, and clear refusals.

#include "vornacquire.h"
#include "waveform_sigrok.h"

#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>

namespace {

DeviceOptions demo(std::vector<std::string> channels, uint64_t samples)
{
    DeviceOptions o;
    o.driver = "demo";
    o.settings = {{"", "samplerate", "1M"}};
    o.channels = std::move(channels);
    o.samples = samples;
    return o;
}

} // namespace

class TstAcquire : public QObject
{
    Q_OBJECT

private slots:
    // Saved and read back, an acquisition is the same records, sample for sample, and sigrok-cli
    // opens the file with every channel.
    void acquisitionIsWhatTheReaderReadsBack()
    {
        SigrokDevice device;
        QVERIFY2(device.open(demo({"A0", "A1", "D0", "D3"}, 3000)), device.error().c_str());
        Acquisition a;
        QVERIFY2(device.acquire(a), device.error().c_str());
        QCOMPARE(a.samplerate, uint64_t(1000000));
        QCOMPARE(a.analogCount, size_t(2));
        QCOMPARE(a.waveforms.size(), size_t(4));
        const char *names[] = {"A0", "A1", "D0", "D3"};
        for (size_t k = 0; k < 4; ++k) {
            QCOMPARE(a.waveforms[k].name, QString(names[k]));
            QCOMPARE(a.waveforms[k].samples->size(), size_t(3000));
        }
        // The demo's D0 toggles and A0 is a square wave of +-10 V.
        QCOMPARE(*std::max_element(a.waveforms[2].samples->begin(), a.waveforms[2].samples->end()), 1.0);
        QCOMPARE(*std::min_element(a.waveforms[2].samples->begin(), a.waveforms[2].samples->end()), 0.0);
        QVERIFY(*std::max_element(a.waveforms[0].samples->begin(), a.waveforms[0].samples->end()) > 5.0);

        QTemporaryDir dir;
        const std::string path = dir.filePath(QStringLiteral("a.sr")).toStdString();
        std::string error;
        QVERIFY2(saveAcquisition(path, a, {}, &error), error.c_str());
        int32_t count = 0;
        QCOMPARE(sigrok_read_waveform_count(path.c_str(), &count), 0);
        QCOMPARE(count, 4);
        for (int32_t k = 0; k < count; ++k) {
            SigrokWaveformInfo info;
            QCOMPARE(sigrok_read_waveform_info_by_index(path.c_str(), k, &info), 0);
            const WaveformData &w = a.waveforms[size_t(k)];
            QCOMPARE(QString(info.name), w.name);
            QCOMPARE(QString(info.unit), w.unit);
            QCOMPARE(info.sampleInterval, w.sampleInterval);
            QCOMPARE(info.startTime, w.startTime);
            std::vector<double> samples(info.sampleCount);
            QCOMPARE(sigrok_read_waveform_data_by_index(path.c_str(), k, samples.data(), samples.size()), 0);
            QVERIFY(samples == *w.samples);
        }
        const QString sigrok = QStandardPaths::findExecutable(QStringLiteral("sigrok-cli"));
        if (sigrok.isEmpty())
            return;
        QProcess show;
        show.start(sigrok, {"-i", QString::fromStdString(path), "--show"});
        QVERIFY(show.waitForFinished());
        const QByteArray out = show.readAllStandardOutput();
        QCOMPARE(show.exitCode(), 0);
        for (const char *name : names)
            QVERIFY2(out.contains(name), out.constData());
    }

    void refusesWhatTheDeviceCannotDo_data()
    {
        QTest::addColumn<QString>("driver");
        QTest::addColumn<QString>("group");
        QTest::addColumn<QString>("setting"); // key=value
        QTest::addColumn<QString>("channel");
        QTest::addColumn<QString>("message");
        QTest::newRow("no such driver") << "nodriver" << "" << "" << "" << "no sigrok driver named 'nodriver'";
        QTest::newRow("unknown key") << "demo" << "" << "bogus=1" << "" << "demo does not take 'bogus'";
        QTest::newRow("key of another device") << "demo" << "" << "coupling=AC" << "" << "demo does not take 'coupling'";
        QTest::newRow("unknown group") << "demo" << "A9" << "amplitude=1" << "" << "demo has no channel group 'A9'";
        QTest::newRow("bad value") << "demo" << "" << "samplerate=fast" << "" << "'fast' is no value for samplerate";
        QTest::newRow("unknown channel") << "demo" << "" << "" << "Z9" << "demo has no channel 'Z9'";
        QTest::newRow("scan option") << "demo:conn=usb" << "" << "" << "" << "demo does not take 'conn'";
    }

    void refusesWhatTheDeviceCannotDo()
    {
        QFETCH(QString, driver);
        QFETCH(QString, group);
        QFETCH(QString, setting);
        QFETCH(QString, channel);
        QFETCH(QString, message);
        DeviceOptions o = demo(channel.isEmpty() ? std::vector<std::string>{} : std::vector<std::string>{channel.toStdString()}, 100);
        o.driver = driver.toStdString();
        if (!setting.isEmpty())
            o.settings.push_back({group.toStdString(), setting.section('=', 0, 0).toStdString(),
                                  setting.section('=', 1).toStdString()});
        SigrokDevice device;
        QVERIFY(!device.open(o));
        QCOMPARE(QString::fromStdString(device.error()), message);
    }

    // Stop ends a loop that would run forever; what was acquired before it is handed out or
    // dropped, never half.
    void stopEndsAnEndlessLoop()
    {
        AcquisitionLoop loop;
        QVERIFY2(loop.start(demo({"A1"}, 1000), 0), loop.error().c_str());
        Acquisition a;
        QVERIFY(loop.next(a));
        QVERIFY(loop.next(a));
        loop.stop();
        while (loop.next(a))
            QCOMPARE(a.waveforms.front().samples->size(), size_t(1000));
        QCOMPARE(QString::fromStdString(loop.error()), QString());
    }
};

QTEST_GUILESS_MAIN(TstAcquire)
#include "tst_acquire.moc"
