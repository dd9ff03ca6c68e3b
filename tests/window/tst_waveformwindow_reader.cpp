// The window's handling of reader failures that a real file cannot produce on demand: this
// executable defines the reader's four functions itself, and they take the place of the library's.

#include "messageboxanswerer.h"
#include "vorngraph.h"
#include "waveform_sigrok.h"
#include "waveformwindow.h"

#include <QProgressDialog>
#include <QTest>
#include <QThread>

#include <cstring>

namespace {

struct Script
{
    int32_t count = 5;
    int failInfoAt = -1;
    int failDataAt = -1;
    int infoCalls = 0;
    uint64_t longSamples = 0;  // waveform 2 has this many samples when set
    bool longReadOffGuiThread = false;
} script;

} // namespace

extern "C" {

int sigrok_read_waveform_count(const char *, int32_t *count)
{
    *count = script.count;
    return 0;
}

int sigrok_read_waveform_info_by_index(const char *, int32_t index, SigrokWaveformInfo *info)
{
    ++script.infoCalls;
    if (index == script.failInfoAt)
        return -1;
    std::memset(info, 0, sizeof *info);
    std::snprintf(info->name, sizeof info->name, "W%d", index + 1);
    std::strcpy(info->unit, "V");
    info->sampleCount = index == 1 && script.longSamples ? script.longSamples : 4;
    info->sampleInterval = 1e-3;
    return 0;
}

int sigrok_read_waveform_data_by_index(const char *, int32_t index, double *samples, uint64_t count)
{
    if (index == script.failDataAt)
        return -1;
    if (count == script.longSamples) {
        script.longReadOffGuiThread = QThread::currentThread() != qApp->thread();
        QThread::msleep(200); // a read that takes long enough to be seen
    }
    for (uint64_t i = 0; i < count; ++i)
        samples[i] = double(index * 10 + int(i));
    return 0;
}

const char *sigrok_get_last_error(void)
{
    return script.failInfoAt >= 0 ? "disk went away" : "member analog-1-3-1 truncated";
}

} // extern "C"

class TstWaveformWindowReader : public QObject
{
    Q_OBJECT

private slots:
    void failureAddsNothingAndSaysWhich_data();
    void failureAddsNothingAndSaysWhich();
    void readsEveryWaveformInOrder();
    void readsLongWaveformsBehindAProgressDialog();
};

void TstWaveformWindowReader::failureAddsNothingAndSaysWhich_data()
{
    QTest::addColumn<int>("failInfoAt");
    QTest::addColumn<int>("failDataAt");
    QTest::addColumn<QString>("message");
    QTest::newRow("info of the third") << 2 << -1 << "Could not read info of waveform 3/5: disk went away";
    QTest::newRow("data of the third") << -1 << 2 << "Could not read data of waveform 3/5: member analog-1-3-1 truncated";
}

void TstWaveformWindowReader::failureAddsNothingAndSaysWhich()
{
    QFETCH(int, failInfoAt);
    QFETCH(int, failDataAt);
    QFETCH(QString, message);
    script = Script{5, failInfoAt, failDataAt, 0};
    MessageBoxAnswerer answerer({QMessageBox::Ok});
    WaveformWindow window("any.sr", "t");
    QCOMPARE(answerer.asked, 1);
    QCOMPARE(answerer.title, QStringLiteral("Reading waveform file failed"));
    QCOMPARE(answerer.text, message);
    QCOMPARE(window.graph()->waveformCount(), 0);
    QCOMPARE(script.infoCalls, 3); // the load stops at the failure
}

void TstWaveformWindowReader::readsEveryWaveformInOrder()
{
    script = Script{};
    WaveformWindow window("any.sr", "t");
    QCOMPARE(window.graph()->waveformCount(), 5);
    QCOMPARE(window.graph()->waveformName(4), QStringLiteral("W5"));
    script = Script{0};
    WaveformWindow empty("any.sr", "t");
    QCOMPARE(empty.graph()->waveformCount(), 0);
}

void TstWaveformWindowReader::readsLongWaveformsBehindAProgressDialog()
{
    script = Script{};
    script.longSamples = 5'000'000;
    // Looks from the GUI thread, whose event loop must keep running during the read.
    bool progressShown = false;
    QTimer look;
    connect(&look, &QTimer::timeout, [&] {
        for (QWidget *w : QApplication::topLevelWidgets())
            progressShown |= qobject_cast<QProgressDialog *>(w) && w->isVisible();
    });
    look.start(10);
    WaveformWindow window("any.sr", "t");
    QVERIFY(script.longReadOffGuiThread);
    QVERIFY(progressShown);
    QCOMPARE(window.graph()->waveformCount(), 5);
    QCOMPARE(window.graph()->waveformName(1), QStringLiteral("W2"));
    for (QWidget *w : QApplication::topLevelWidgets())
        QVERIFY(!qobject_cast<QProgressDialog *>(w) || !w->isVisible());
}

QTEST_MAIN(TstWaveformWindowReader)
#include "tst_waveformwindow_reader.moc"
