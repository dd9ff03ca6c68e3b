// vornview: opens sigrok session files in the library's waveform window.

#include "translators.h"
#include "viewerwindow.h"
#include "vorngraph.h"
#include "waveform_sigrok.h"
#include "waveformwindow.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QElapsedTimer>
#include <QGraphicsView>
#include <QImage>
#include <QPixmap>
#include <QTimer>

#include <cstdio>

namespace {

constexpr int EXIT_USAGE = 1;
constexpr int EXIT_FAILED = 2;
constexpr int WINDOW_WIDTH = 1600;
constexpr int WINDOW_HEIGHT = 900;
constexpr int SETTLE_INTERVAL_MS = 50;
constexpr int SETTLE_ATTEMPTS = 100;

// Reports how long the user waited for the first painted frame of the chart.
class FirstPaintTimer : public QObject
{
public:
    explicit FirstPaintTimer(const QElapsedTimer &sinceStart)
        : m_sinceStart(sinceStart)
    {
    }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::Paint) {
            std::fprintf(stderr, "vornview: first frame after %lld ms\n", static_cast<long long>(m_sinceStart.elapsed()));
            watched->removeEventFilter(this);
        }
        return false;
    }

private:
    const QElapsedTimer &m_sinceStart;
};

// The graph lays itself out over several passes of the event loop; the picture is taken once
// two grabs in a row come out the same.
void saveWhenSettled(QWidget *window, const QString &out, int attemptsLeft, const QImage &previous)
{
    const QImage current = window->grab().toImage();
    if (current != previous && attemptsLeft > 0) {
        QTimer::singleShot(SETTLE_INTERVAL_MS, window, [=] { saveWhenSettled(window, out, attemptsLeft - 1, current); });
        return;
    }
    if (!current.save(out, "PNG")) {
        std::fprintf(stderr, "vornview: cannot write %s\n", qPrintable(out));
        QCoreApplication::exit(EXIT_FAILED);
        return;
    }
    QCoreApplication::exit(0);
}

int fail(const QString &reason, int code)
{
    std::fprintf(stderr, "vornview: %s\n", qPrintable(reason));
    return code;
}

} // namespace

int main(int argc, char *argv[])
{
    QElapsedTimer sinceStart;
    sinceStart.start();
    QApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("VornGraph"));
    QCoreApplication::setApplicationName(QStringLiteral("vornview"));
    QCoreApplication::setApplicationVersion(QStringLiteral(VORNVIEW_VERSION));
    installTranslators(app);

    QCommandLineParser parser;
    parser.setApplicationDescription(QCoreApplication::translate("vornview", "Shows sigrok captures and edits their tolerance envelopes."));
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addPositionalArgument(QStringLiteral("file"), QCoreApplication::translate("vornview", "The capture to open (.sr)."),
                                 QStringLiteral("[FILE.sr]"));
    const QCommandLineOption editOption(QStringLiteral("edit"), QCoreApplication::translate("vornview", "Start editing the envelope of waveform <n>."), QStringLiteral("n"));
    const QCommandLineOption screenshotOption(QStringLiteral("screenshot"),
                                              QCoreApplication::translate("vornview", "Write the window to <png> and exit."), QStringLiteral("png"));
    const QCommandLineOption timingOption(QStringLiteral("timing"), QCoreApplication::translate("vornview", "Print when the chart is first painted."));
    parser.addOptions({editOption, screenshotOption, timingOption});
    if (!parser.parse(app.arguments()))
        return fail(parser.errorText(), EXIT_USAGE);
    if (parser.isSet(QStringLiteral("help")))
        parser.showHelp(0);
    if (parser.isSet(QStringLiteral("version")))
        parser.showVersion();
    const QString file = parser.positionalArguments().value(0);
    const QString screenshot = parser.value(screenshotOption);
    bool editOk = true;
    const int edit = parser.isSet(editOption) ? parser.value(editOption).toInt(&editOk) : -1;
    if (parser.positionalArguments().size() > 1 || !editOk || (parser.isSet(editOption) && edit < 0))
        return fail(QCoreApplication::translate("vornview", "bad arguments; see --help"), EXIT_USAGE);
    // Nobody is there to read a message box while a screenshot is taken: fail with the reason.
    int32_t count = 0;
    if (!screenshot.isEmpty() && !file.isEmpty() && sigrok_read_waveform_count(file.toUtf8().constData(), &count) != 0)
        return fail(QString::fromUtf8(sigrok_get_last_error()), EXIT_FAILED);

    ViewerWindow window;
    window.resize(WINDOW_WIDTH, WINDOW_HEIGHT);
    // Shown first, so that a file that cannot be read is reported over the window.
    window.show();
    if (!file.isEmpty())
        window.openFile(file);
    FirstPaintTimer firstPaint(sinceStart);
    if (parser.isSet(timingOption) && window.document()) {
        if (auto *chartView = window.document()->findChild<QGraphicsView *>())
            chartView->viewport()->installEventFilter(&firstPaint);
    }
    if (edit >= 0) {
        if (!window.document() || edit >= window.document()->graph()->waveformCount())
            return fail(QCoreApplication::translate("vornview", "there is no waveform %1").arg(edit), EXIT_USAGE);
        QTimer::singleShot(0, &window, [&] { window.document()->startEnvelopeEditing(edit); });
    }
    if (!screenshot.isEmpty())
        QTimer::singleShot(0, &window, [&] { saveWhenSettled(&window, screenshot, SETTLE_ATTEMPTS, QImage()); });
    return app.exec();
}
