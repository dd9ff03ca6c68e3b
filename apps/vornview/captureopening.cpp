#include "captureopening.h"

#include "capturecheck.h"

#include <QEvent>
#include <QEventLoop>
#include <QFileInfo>
#include <QProgressDialog>
#include <QTimer>

#include <system_error>
#include <thread>

namespace {

constexpr int SHOW_AFTER_MS = 500;
constexpr int STEPS = 1000;
constexpr int TICK_MS = 50;

} // namespace

CaptureOpening::CaptureOpening(QWidget *parent) : QObject(parent), m_parent(parent) {}

void CaptureOpening::cancel()
{
    m_cancelled = true;
}

bool CaptureOpening::eventFilter(QObject *watched, QEvent *event)
{
    // Once the bar is up, its Cancel must take clicks and keys.
    if (event->type() == QEvent::Show && m_waiting)
        m_waiting->quit();
    return QObject::eventFilter(watched, event);
}

CaptureContents CaptureOpening::read(const QString &path, QString &problem)
{
    m_cancelled = false;
    QProgressDialog dialog(m_parent);
    dialog.setWindowTitle(tr("Opening Capture"));
    dialog.setLabelText(tr("Reading %1…").arg(QFileInfo(path).fileName()));
    dialog.setRange(0, STEPS);
    dialog.setAutoReset(false);
    dialog.setAutoClose(false);
    dialog.setWindowModality(Qt::WindowModal);
    dialog.setMinimumDuration(SHOW_AFTER_MS);
    dialog.setValue(0); // the half second counts from here
    dialog.installEventFilter(this);
    connect(&dialog, &QProgressDialog::canceled, this, &CaptureOpening::cancel);

    std::atomic<uint64_t> done{0};
    std::atomic<uint64_t> total{0};
    CaptureContents contents;
    QEventLoop loop;
    bool finished = false;
    const auto readFile = [&] {
        problem = captureOpenProblem(path);
        if (problem.isEmpty()) {
            contents = readCapture(path, [&](uint64_t d, uint64_t t) {
                done = d;
                total = t;
                return !m_cancelled;
            });
        }
        QMetaObject::invokeMethod(&loop, [&] {
            finished = true;
            loop.quit();
        }, Qt::QueuedConnection);
    };
    std::thread worker;
    try {
        worker = std::thread(readFile);
    } catch (const std::system_error &) {
        readFile(); // no thread to be had: read here, without Cancel; the loop below sees it finished
    }
    emit started(path);
    QTimer ticker;
    // Busy while the file is opened and memory is taken, then samples read of all.
    connect(&ticker, &QTimer::timeout, &dialog, [&] {
        if (done == 0) {
            dialog.setRange(0, 0);
            return;
        }
        dialog.setRange(0, STEPS);
        dialog.setValue(int(STEPS * (double(done) / double(total))));
    });
    ticker.start(TICK_MS);
    m_waiting = &loop;
    if (!finished)
        loop.exec(QEventLoop::ExcludeUserInputEvents);
    m_waiting = nullptr;
    if (!finished)
        loop.exec();
    // Left without the worker's word only when the application quits: it need not finish.
    if (!finished)
        m_cancelled = true;
    if (worker.joinable())
        worker.join();
    if (m_cancelled) {
        contents = CaptureContents();
        contents.path = path;
        contents.cancelled = true;
        problem.clear();
    }
    return contents;
}
