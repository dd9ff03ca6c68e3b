// vornview: shows the waveforms of a sigrok session file on one graph.

#include "vorngraph.h"
#include "waveform_sigrok.h"

#include <QApplication>
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
};

bool parseOptions(const QStringList &args, Options &options)
{
    for (int i = 1; i < args.size(); ++i) {
        if (args[i] == QLatin1String("--screenshot") && i + 1 < args.size())
            options.screenshot = args[++i];
        else if (!args[i].startsWith(QLatin1String("--")) && options.file.isEmpty())
            options.file = args[i];
        else
            return false;
    }
    return true;
}

bool isEnvelopeCurve(const QString &name)
{
    return name.endsWith(QLatin1String(" [upper]")) || name.endsWith(QLatin1String(" [lower]"));
}

bool readWaveform(const std::string &path, int32_t index, WaveformData &w)
{
    SigrokWaveformInfo info{};
    if (sigrok_read_waveform_info_by_index(path.c_str(), index, &info) != 0)
        return false;
    w.name = QString::fromUtf8(info.name);
    w.unit = QString::fromUtf8(info.unit);
    w.sampleInterval = info.sampleInterval;
    w.startTime = info.startTime;
    std::vector<double> &samples = w.samples.writable();
    samples.resize(info.sampleCount);
    return info.sampleCount == 0
        || sigrok_read_waveform_data_by_index(path.c_str(), index, samples.data(), info.sampleCount) == 0;
}

// Adds every waveform of the file except envelope curves; false with the reader's reason set.
bool loadFile(const QString &file, VornGraph &graph)
{
    const std::string path = file.toUtf8().toStdString();
    int32_t count = 0;
    if (sigrok_read_waveform_count(path.c_str(), &count) != 0)
        return false;
    for (int32_t i = 0; i < count; ++i) {
        WaveformData w;
        if (!readWaveform(path, i, w))
            return false;
        if (!isEnvelopeCurve(w.name))
            graph.addWaveform(w);
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
    QApplication app(argc, argv);
    Options options;
    if (!parseOptions(app.arguments(), options)) {
        std::fprintf(stderr, "usage: vornview [FILE.sr] [--screenshot OUT.png]\n");
        return EXIT_USAGE;
    }

    VornGraph graph;
    if (!options.file.isEmpty() && !loadFile(options.file, graph)) {
        std::fprintf(stderr, "vornview: %s\n", sigrok_get_last_error());
        return EXIT_FAILED;
    }
    graph.setWindowTitle(options.file.isEmpty()
                             ? QCoreApplication::translate("vornview", "VornView")
                             : QCoreApplication::translate("vornview", "%1 - VornView")
                                   .arg(QFileInfo(options.file).fileName()));
    graph.resize(SCREENSHOT_WIDTH, SCREENSHOT_HEIGHT);
    graph.displayGraph();
    graph.show();

    if (!options.screenshot.isEmpty()) {
        QTimer::singleShot(0, &graph, [&] { saveWhenSettled(&graph, options.screenshot, SETTLE_ATTEMPTS, QImage()); });
    }
    return app.exec();
}
