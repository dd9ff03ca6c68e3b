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
#include <QMessageBox>
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

// Reports how long the user waited for the first painted frame of the chart: until that paint
// has ended.
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
        if (event->type() != QEvent::Paint)
            return false;
        // Painted through the filters installed before this one (the view's own), then stamped;
        // this filter is gone by then, so the paint is not sent twice.
        watched->removeEventFilter(this);
        QCoreApplication::sendEvent(watched, event);
        std::fprintf(stderr, "vornview: first frame after %lld ms\n", static_cast<long long>(m_sinceStart.elapsed()));
        return true;
    }

private:
    const QElapsedTimer &m_sinceStart;
};

// Reports how long closing took, from the end of the event loop until the window is gone; made
// before the window, so that it is destroyed after it.
class CloseTimer
{
public:
    void start() { m_clock.start(); }
    ~CloseTimer()
    {
        if (m_clock.isValid())
            std::fprintf(stderr, "vornview: closed after %lld ms\n", static_cast<long long>(m_clock.elapsed()));
    }

private:
    QElapsedTimer m_clock;
};

// With nobody to click a message box away, a screenshot run says what went wrong on stderr and
// ends: every box is answered at once and the run fails.
class BatchErrors : public QObject
{
public:
    bool failed = false;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        auto *box = qobject_cast<QMessageBox *>(watched);
        if (box && event->type() == QEvent::Show) {
            std::fprintf(stderr, "vornview: %s\n", qPrintable(box->text()));
            failed = true;
            QMetaObject::invokeMethod(box, &QDialog::reject, Qt::QueuedConnection);
            QCoreApplication::exit(EXIT_FAILED);
        }
        return false;
    }
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

// Texts of the command line, translated in the context "vornview".
class Cli
{
    Q_DECLARE_TR_FUNCTIONS(vornview)
};

struct Options
{
    QString file;
    QString screenshot;
    int edit = -1; // waveform whose envelope is edited once the window is up
    bool timing = false;
};

// Exits for --help and --version; false for arguments that make no sense.
bool parseOptions(const QStringList &arguments, Options &options)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(Cli::tr("Shows sigrok captures and edits their tolerance envelopes."));
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addPositionalArgument(QStringLiteral("file"), Cli::tr("The capture to open (.sr)."), QStringLiteral("[FILE.sr]"));
    const QCommandLineOption edit(QStringLiteral("edit"), Cli::tr("Start editing the envelope of waveform <n>."), QStringLiteral("n"));
    const QCommandLineOption screenshot(QStringLiteral("screenshot"), Cli::tr("Write the window to <png> and exit."), QStringLiteral("png"));
    const QCommandLineOption timing(QStringLiteral("timing"), Cli::tr("Print when the chart is first painted."));
    parser.addOptions({edit, screenshot, timing});
    if (!parser.parse(arguments))
        return false;
    if (parser.isSet(QStringLiteral("help")))
        parser.showHelp(0);
    if (parser.isSet(QStringLiteral("version")))
        parser.showVersion();
    options.file = parser.positionalArguments().value(0);
    options.screenshot = parser.value(screenshot);
    options.timing = parser.isSet(timing);
    bool editOk = true;
    if (parser.isSet(edit))
        options.edit = parser.value(edit).toInt(&editOk);
    return parser.positionalArguments().size() <= 1 && editOk && (!parser.isSet(edit) || options.edit >= 0);
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

    Options options;
    if (!parseOptions(app.arguments(), options))
        return fail(Cli::tr("bad arguments; see --help"), EXIT_USAGE);
    // Nobody is there to read a message box while a screenshot is taken: fail with the reason.
    int32_t count = 0;
    if (!options.screenshot.isEmpty() && !options.file.isEmpty()
        && sigrok_read_waveform_count(options.file.toUtf8().constData(), &count) != 0)
        return fail(QString::fromUtf8(sigrok_get_last_error()), EXIT_FAILED);

    BatchErrors batchErrors;
    CloseTimer closeTimer;
    if (!options.screenshot.isEmpty())
        app.installEventFilter(&batchErrors);
    ViewerWindow window;
    window.resize(WINDOW_WIDTH, WINDOW_HEIGHT);
    // Shown first, so that a file that cannot be read is reported over the window.
    window.show();
    if (!options.file.isEmpty())
        window.openFile(options.file);
    if (batchErrors.failed)
        return EXIT_FAILED;
    FirstPaintTimer firstPaint(sinceStart);
    if (options.timing && window.document()) {
        if (auto *chartView = window.document()->findChild<QGraphicsView *>())
            chartView->viewport()->installEventFilter(&firstPaint);
    }
    if (options.edit >= 0) {
        if (!window.document() || options.edit >= window.document()->graph()->waveformCount())
            return fail(Cli::tr("there is no waveform %1").arg(options.edit), EXIT_USAGE);
        QTimer::singleShot(0, &window, [&] { window.document()->startEnvelopeEditing(options.edit); });
    }
    if (!options.screenshot.isEmpty())
        QTimer::singleShot(0, &window, [&] { saveWhenSettled(&window, options.screenshot, SETTLE_ATTEMPTS, QImage()); });
    const int code = app.exec();
    if (options.timing)
        closeTimer.start();
    return code;
}
