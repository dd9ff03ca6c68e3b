// vornview: opens a sigrok session file in the library's waveform window.
//   vornview FILE.sr [--edit N] [--screenshot OUT.png] [--timing]

#include "vorngraph.h"
#include "waveform_sigrok.h"
#include "waveformwindow.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QGraphicsView>
#include <QFileInfo>
#include <QImage>
#include <QPixmap>
#include <QStringList>
#include <QTimer>

#include <cstdio>
#include <string>

namespace {

constexpr int EXIT_USAGE = 1;
constexpr int EXIT_FAILED = 2;
constexpr int SCREENSHOT_WIDTH = 1600;
constexpr int SCREENSHOT_HEIGHT = 900;
constexpr int SETTLE_INTERVAL_MS = 50;
constexpr int SETTLE_ATTEMPTS = 100;

struct Options
{
    QString file;
    QString screenshot;
    int edit = -1; // waveform whose envelope is edited once the window is up
    bool timing = false;
};

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

bool parseOptions(const QStringList &args, Options &options)
{
    for (int i = 1; i < args.size(); ++i) {
        const bool hasValue = i + 1 < args.size();
        if (args[i] == QLatin1String("--screenshot") && hasValue) {
            options.screenshot = args[++i];
        } else if (args[i] == QLatin1String("--edit") && hasValue) {
            bool ok = false;
            options.edit = args[++i].toInt(&ok);
            if (!ok || options.edit < 0)
                return false;
        } else if (args[i] == QLatin1String("--timing")) {
            options.timing = true;
        } else if (!args[i].startsWith(QLatin1String("--")) && options.file.isEmpty()) {
            options.file = args[i];
        } else {
            return false;
        }
    }
    return true;
}

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

} // namespace

int main(int argc, char *argv[])
{
    QElapsedTimer sinceStart;
    sinceStart.start();
    QApplication app(argc, argv);
    Options options;
    if (!parseOptions(app.arguments(), options) || options.file.isEmpty()) {
        std::fprintf(stderr, "usage: vornview FILE.sr [--edit N] [--screenshot OUT.png] [--timing]\n");
        return EXIT_USAGE;
    }
    // An unreadable file ends here with the reader's reason, before any window asks about it.
    int32_t count = 0;
    if (sigrok_read_waveform_count(options.file.toUtf8().constData(), &count) != 0) {
        std::fprintf(stderr, "vornview: %s\n", sigrok_get_last_error());
        return EXIT_FAILED;
    }

    const QString title = QCoreApplication::translate("vornview", "%1 - VornView").arg(QFileInfo(options.file).fileName());
    WaveformWindow window(options.file, title);
    if (window.graph()->waveformCount() > 1)
        window.graph()->setStacked(true);
    FirstPaintTimer firstPaint(sinceStart);
    if (options.timing) {
        if (auto *chartView = window.findChild<QGraphicsView *>())
            chartView->viewport()->installEventFilter(&firstPaint);
    }
    window.resize(SCREENSHOT_WIDTH, SCREENSHOT_HEIGHT);
    window.showNonModal();
    if (options.edit >= 0) {
        if (options.edit >= window.graph()->waveformCount()) {
            std::fprintf(stderr, "vornview: there is no waveform %d\n", options.edit);
            return EXIT_USAGE;
        }
        QTimer::singleShot(0, &window, [&] { window.startEnvelopeEditing(options.edit); });
    }
    if (!options.screenshot.isEmpty())
        QTimer::singleShot(0, &window, [&] { saveWhenSettled(&window, options.screenshot, SETTLE_ATTEMPTS, QImage()); });
    return app.exec();
}
