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
    int32_t count = 5; // -1: the count fails
    int failInfoAt = -1;
    int failDataAt = -1;
    int infoCalls = 0;
    uint64_t longSamples = 0; // waveform 2 has this many samples when set
    bool longReadOffGuiThread = false;
} script;

} // namespace

extern "C" {

int sigrok_read_waveform_count(const char *, int32_t *count)
{
    *count = script.count;
    return script.count < 0 ? -1 : 0;
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
    return script.count < 0 ? "not a zip archive" : script.failInfoAt >= 0 ? "disk went away" : "member analog-1-3-1 truncated";
}

} // extern "C"

class TstWaveformWindowReader : public QObject
{
    Q_OBJECT

private slots:
    void failureAddsNothingAndSaysWhich_data()
    {
        QTest::addColumn<QList<int>>("fail"); // the count, the info and the data index that fail, -1: none
        QTest::addColumn<QString>("message");
        QTest::newRow("not a capture") << QList<int>{-1, -1, -1} << "Could not read from waveform file: not a zip archive";
        QTest::newRow("info of the third") << QList<int>{5, 2, -1} << "Could not read info of waveform 3/5: disk went away";
        QTest::newRow("data of the third") << QList<int>{5, -1, 2}
                                           << "Could not read data of waveform 3/5: member analog-1-3-1 truncated";
    }
    void failureAddsNothingAndSaysWhich()
    {
        QFETCH(QList<int>, fail);
        QFETCH(QString, message);
        script = Script{fail[0], fail[1], fail[2]};
        MessageBoxAnswerer answerer({QMessageBox::Ok});
        WaveformWindow window("any.sr", "t");
        QCOMPARE(QStringList({QString::number(answerer.asked), answerer.title, answerer.text}),
                 QStringList({"1", "Reading waveform file failed", message}));
        QCOMPARE(answerer.buttons, QMessageBox::StandardButtons(QMessageBox::Ok));
        // The load stops at the failure.
        QCOMPARE(QList<int>({window.graph()->waveformCount(), script.infoCalls}), QList<int>({0, fail[0] < 0 ? 0 : 3}));
    }

    void readsLongWaveformsBehindAProgressDialog()
    {
        script = Script{};
        script.longSamples = 5'000'000;
        // Looks from the GUI thread, whose event loop must keep running during the read.
        const auto progressShown = [] {
            const QWidgetList widgets = QApplication::topLevelWidgets();
            return std::any_of(widgets.begin(), widgets.end(),
                               [](QWidget *w) { return qobject_cast<QProgressDialog *>(w) && w->isVisible(); });
        };
        bool shown = false;
        QTimer look;
        connect(&look, &QTimer::timeout, [&] { shown |= progressShown(); });
        look.start(10);
        WaveformWindow window("any.sr", "t");
        QVERIFY(script.longReadOffGuiThread && shown && !progressShown());
        QCOMPARE(window.graph()->waveformCount(), 5);
        QCOMPARE(window.graph()->waveformName(1) + window.graph()->waveformName(4), QStringLiteral("W2W5"));
        script = Script{0};
        QCOMPARE(WaveformWindow("any.sr", "t").graph()->waveformCount(), 0);
    }
};

QTEST_MAIN(TstWaveformWindowReader)
#include "tst_waveformwindow_reader.moc"
