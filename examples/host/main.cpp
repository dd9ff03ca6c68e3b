// Opens a capture in the library's window and closes it again once it has been shown.
//   host FILE.sr

#include <VornGraph/waveformwindow.h>

#include <QApplication>
#include <QTimer>

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    if (argc != 2)
        return 1;
    WaveformWindow window(QString::fromLocal8Bit(argv[1]), QStringLiteral("Host"));
    QObject::connect(&window, &WaveformWindow::closed, &app, &QApplication::quit);
    window.showNonModal();
    QTimer::singleShot(200, &window, &QWidget::close);
    return app.exec();
}
