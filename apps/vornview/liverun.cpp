#include "liverun.h"

#include "liveacquisition.h"
#include "vorngraph.h"
#include "waveformwindow.h"

#include <QAction>
#include <QApplication>
#include <QCoreApplication>
#include <QDialog>
#include <QDialogButtonBox>
#include <QDir>
#include <QDockWidget>
#include <QFormLayout>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMainWindow>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QProcess>
#include <QPushButton>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace {

// "A1: amplitude=9; samplerate=2M": settings of a channel group or of the device.
std::vector<DeviceOptions::Setting> parseSettings(const QString &text)
{
    std::vector<DeviceOptions::Setting> settings;
    for (const QString &entry : text.split(';', Qt::SkipEmptyParts)) {
        const QString group = entry.contains(':') ? entry.section(':', 0, 0).trimmed() : QString();
        for (const QString &pair : entry.section(':', group.isEmpty() ? 0 : 1).split(',', Qt::SkipEmptyParts)) {
            if (!pair.contains('='))
                throw std::invalid_argument(QObject::tr("'%1' is not KEY=VALUE").arg(pair.trimmed()).toStdString());
            settings.push_back({group.toStdString(), pair.section('=', 0, 0).trimmed().toStdString(),
                                pair.section('=', 1).trimmed().toStdString()});
        }
    }
    return settings;
}

} // namespace

LiveRun::LiveRun(QMainWindow *window, WaveformWindow *document)
    : QObject(document), m_window(window), m_document(document), m_live(new LiveAcquisition(this))
{
    // Until the user says otherwise: the demo device, acquiring what the capture holds.
    m_device.driver = "demo";
    VornGraph *graph = document->graph();
    const WaveformData first = graph->waveformData(0);
    m_device.samples = std::max<uint64_t>(first.samples->size(), 1);
    m_device.settings = {{"", "samplerate", std::to_string(std::llround(1.0 / first.sampleInterval))}};
    for (int i = 0; i < graph->waveformCount(); ++i)
        m_device.channels.push_back(graph->waveformName(i).toStdString());
    auto *menu = new QMenu(tr("Acquire"), document->menuBar());
    menu->addAction(tr("Device…"), this, &LiveRun::onDeviceTriggered);
    menu->addSeparator();
    m_run = menu->addAction(tr("Run"), this, [this] { start(0); });
    m_single = menu->addAction(tr("Single"), this, [this] { start(1); });
    m_stop = menu->addAction(tr("Stop"), m_live, &LiveAcquisition::stop);
    menu->addSeparator();
    m_stopOnFailure = menu->addAction(tr("Stop on Failure"));
    m_saveFailures = menu->addAction(tr("Save Failures"));
    m_beep = menu->addAction(tr("Beep on Failure"));
    for (QAction *action : {m_stopOnFailure, m_saveFailures, m_beep})
        action->setCheckable(true);
    document->menuBar()->insertMenu(document->menuBar()->actions().last(), menu); // before Help
    document->envelopeMenu()->addAction(tr("Make From Acquisitions…"), this, &LiveRun::onMakeFromTriggered);

    m_dock = new QDockWidget(tr("Run"), window);
    m_dock->setObjectName(QStringLiteral("runDock"));
    auto *panel = new QWidget(m_dock);
    auto *layout = new QVBoxLayout(panel);
    m_panel = new QLabel(panel);
    m_panel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_panel->setMinimumWidth(m_panel->fontMetrics().horizontalAdvance(QStringLiteral("M")) * 22);
    m_openFailure = new QPushButton(tr("Open Last Failure"), panel);
    m_openFailure->setEnabled(false);
    layout->addWidget(m_panel);
    layout->addWidget(m_openFailure);
    layout->addStretch();
    m_dock->setWidget(panel);
    window->addDockWidget(Qt::RightDockWidgetArea, m_dock);
    m_dock->hide();
    connect(m_openFailure, &QPushButton::clicked, this, [this] {
        QProcess::startDetached(QCoreApplication::applicationFilePath(), {m_lastFailurePath});
    });
    // The dock belongs to the viewer's window, the run to this capture: both go with it.
    connect(document, &QObject::destroyed, m_dock, &QObject::deleteLater);
    connect(m_live, &LiveAcquisition::acquired, this, &LiveRun::onAcquired);
    connect(m_live, &LiveAcquisition::finished, this, &LiveRun::onFinished);
    updateActions();
}

void LiveRun::setStopOnFailure(bool stop)
{
    m_stopOnFailure->setChecked(stop);
}

void LiveRun::onDeviceTriggered()
{
    QDialog dialog(m_window);
    dialog.setWindowTitle(tr("Device"));
    const QString driverText = QString::fromStdString(m_device.driver);
    auto *driver = new QLineEdit(driverText.section(':', 0, 0), &dialog);
    auto *connection = new QLineEdit(driverText.section(":conn=", 1), &dialog);
    auto *channels = new QLineEdit(QString::fromStdString([&] {
        std::string text;
        for (const std::string &c : m_device.channels)
            text += (text.empty() ? "" : ",") + c;
        return text;
    }()), &dialog);
    QString rate, options;
    for (const DeviceOptions::Setting &s : m_device.settings) {
        if (s.group.empty() && s.key == "samplerate")
            rate = QString::fromStdString(s.value);
        else
            options += QStringLiteral("%1%2=%3; ").arg(s.group.empty() ? QString() : QString::fromStdString(s.group) + ": ",
                                                      QString::fromStdString(s.key), QString::fromStdString(s.value));
    }
    auto *samplerate = new QLineEdit(rate, &dialog);
    auto *samples = new QLineEdit(QString::number(m_device.samples), &dialog);
    auto *groupOptions = new QLineEdit(options, &dialog);
    groupOptions->setPlaceholderText(tr("A1: amplitude=9; A2: offset=1"));
    auto *folder = new QLineEdit(m_failureFolder, &dialog);
    auto *found = new QLabel(&dialog);
    found->setWordWrap(true);
    auto *scan = new QPushButton(tr("Scan"), &dialog);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &dialog);
    auto *form = new QFormLayout(&dialog);
    form->addRow(tr("Driver:"), driver);
    form->addRow(tr("Connection:"), connection);
    form->addRow(scan, found);
    form->addRow(tr("Channels:"), channels);
    form->addRow(tr("Sample rate:"), samplerate);
    form->addRow(tr("Samples:"), samples);
    form->addRow(tr("Options:"), groupOptions);
    form->addRow(tr("Save failures to:"), folder);
    form->addRow(buttons);
    const auto driverSpec = [=] {
        return driver->text().trimmed() + (connection->text().trimmed().isEmpty() ? QString() : ":conn=" + connection->text().trimmed());
    };
    connect(scan, &QPushButton::clicked, &dialog, [=] {
        QString text;
        try {
            for (const DeviceDescription &d : scanDevices(driverSpec().toStdString())) {
                QStringList names;
                for (const std::string &c : d.channels)
                    names << QString::fromStdString(c);
                text += tr("%1: %2").arg(QString::fromStdString(d.name), names.join(' ')) + '\n';
            }
        } catch (const std::runtime_error &e) {
            text = QString::fromStdString(e.what());
        }
        found->setText(text.isEmpty() ? tr("No device found.") : text.trimmed());
    });
    connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    connect(buttons, &QDialogButtonBox::accepted, &dialog, [&] {
        DeviceOptions o;
        o.driver = driverSpec().toStdString();
        bool ok = false;
        o.samples = samples->text().toULongLong(&ok);
        try {
            if (!ok || o.samples == 0)
                throw std::invalid_argument(tr("The number of samples must be a count above zero.").toStdString());
            if (!samplerate->text().trimmed().isEmpty())
                o.settings.push_back({"", "samplerate", samplerate->text().trimmed().toStdString()});
            for (const DeviceOptions::Setting &s : parseSettings(groupOptions->text()))
                o.settings.push_back(s);
        } catch (const std::invalid_argument &e) {
            QMessageBox::warning(&dialog, dialog.windowTitle(), QString::fromStdString(e.what()));
            return;
        }
        for (const QString &c : channels->text().split(',', Qt::SkipEmptyParts))
            o.channels.push_back(c.trimmed().toStdString());
        m_device = o;
        m_failureFolder = folder->text().trimmed();
        m_saveFailures->setChecked(!m_failureFolder.isEmpty());
        dialog.accept();
    });
    dialog.exec();
}

void LiveRun::start(uint64_t count)
{
    if (m_live->isRunning())
        return;
    if (!m_live->start(m_device, count)) {
        QMessageBox::warning(m_window, tr("Acquire"), m_live->error());
        return;
    }
    if (count != 1 && m_toGather == 0) {
        m_tested = m_failed = 0;
        m_lastFailureTime = -1.0;
        m_clock.start();
    } else if (!m_clock.isValid()) {
        m_clock.start();
    }
    m_status = tr("running");
    m_dock->show();
    updateActions();
    updatePanel();
}

void LiveRun::onAcquired(const Acquisition &acquisition)
{
    if (m_toGather > 0) {
        gather(acquisition);
        return;
    }
    judge(acquisition);
}

// Each acquired waveform takes the place of the capture's waveform of its name and is judged by
// the graph at once; the one before it joins the faint ones behind the trace.
void LiveRun::judge(const Acquisition &acquisition)
{
    VornGraph *graph = m_document->graph();
    bool judged = false, passed = true;
    for (const WaveformData &w : acquisition.waveforms) {
        int index = graph->waveformCount() - 1;
        while (index >= 0 && graph->waveformName(index) != w.name)
            --index;
        if (index < 0)
            continue;
        QList<QVector<QPointF>> behind = graph->backgroundCaptures(index);
        while (behind.size() >= PERSISTENCE)
            behind.removeFirst();
        graph->setBackgroundCaptures(index, behind);
        graph->addBackgroundCapture(index, w);
        if (!graph->replaceWaveformSamples(index, w) || !graph->hasEnvelope(index))
            continue;
        judged = true;
        passed = passed && graph->envelopeCheckResult(index).passed();
    }
    if (!judged)
        return;
    ++m_tested;
    if (!passed) {
        ++m_failed;
        m_lastFailureTime = m_clock.elapsed() / 1000.0;
        if (m_saveFailures->isChecked())
            saveFailure(acquisition);
        if (m_beep->isChecked())
            QApplication::beep();
        if (m_stopOnFailure->isChecked())
            m_live->stop();
    }
    updatePanel();
}

void LiveRun::saveFailure(const Acquisition &acquisition)
{
    const QString folder = m_failureFolder.isEmpty() ? QDir::tempPath() : m_failureFolder;
    const QString path = QDir(folder).filePath(QStringLiteral("fail-%1.sr").arg(m_tested, 6, 10, QChar('0')));
    VornGraph *graph = m_document->graph();
    std::vector<std::pair<QString, EnvelopeData>> envelopes;
    for (int i = 0; i < graph->waveformCount(); ++i) {
        if (graph->hasEnvelope(i))
            envelopes.emplace_back(graph->waveformName(i), graph->envelope(i));
    }
    std::string error;
    if (!saveAcquisition(path.toStdString(), acquisition, envelopes, &error)) {
        m_status = QString::fromStdString(error);
        return;
    }
    m_lastFailurePath = path;
    m_openFailure->setEnabled(true);
}

void LiveRun::onFinished(const QString &error)
{
    if (m_toGather > 0) {
        m_toGather = 0;
        m_hulls.clear();
        m_status = tr("Make From Acquisitions stopped before it had its acquisitions");
    } else {
        m_status = error.isEmpty() ? tr("stopped") : error;
    }
    updateActions();
    updatePanel();
    emit runFinished();
}

QString LiveRun::panelText() const
{
    const double seconds = m_clock.isValid() ? m_clock.elapsed() / 1000.0 : 0.0;
    QString text = tr("Tested: %1\nPassed: %2\nFailed: %3\nFail rate: %4 %\nAcquisitions/s: %5")
                       .arg(m_tested)
                       .arg(m_tested - m_failed)
                       .arg(m_failed)
                       .arg(m_tested ? 100.0 * m_failed / m_tested : 0.0, 0, 'f', 1)
                       .arg(seconds > 0 ? m_tested / seconds : 0.0, 0, 'f', 1);
    if (m_lastFailureTime >= 0)
        text += tr("\nLast failure: %1 s into the run").arg(m_lastFailureTime, 0, 'f', 2);
    return text + tr("\nDevice: %1, %2").arg(QString::fromStdString(m_device.driver), m_status);
}

void LiveRun::updatePanel()
{
    m_panel->setText(panelText());
}

void LiveRun::updateActions()
{
    const bool running = m_live->isRunning();
    m_run->setEnabled(!running);
    m_single->setEnabled(!running);
    m_stop->setEnabled(running);
}

// The next N acquisitions make the envelopes of the waveforms they share with the capture, built
// as vorn envelope --from builds them.
void LiveRun::onMakeFromTriggered()
{
    if (m_live->isRunning())
        return;
    bool ok = false;
    const int n = QInputDialog::getInt(m_window, tr("Make From Acquisitions"), tr("Acquisitions:"), 10, 1, 100000, 1, &ok);
    if (!ok)
        return;
    m_hulls.clear();
    // What is drawn behind the trace then is what the envelopes are made from.
    for (int i = 0; i < m_document->graph()->waveformCount(); ++i)
        m_document->graph()->clearBackgroundCaptures(i);
    m_toGather = n;
    start(uint64_t(n));
    if (!m_live->isRunning())
        m_toGather = 0;
}

void LiveRun::gather(const Acquisition &acquisition)
{
    VornGraph *graph = m_document->graph();
    for (const WaveformData &w : acquisition.waveforms) {
        int index = graph->waveformCount() - 1;
        while (index >= 0 && graph->waveformName(index) != w.name)
            --index;
        if (index < 0)
            continue;
        auto hull = std::find_if(m_hulls.begin(), m_hulls.end(), [&](const auto &h) { return h.first == index; });
        if (hull == m_hulls.end())
            hull = m_hulls.insert(m_hulls.end(), std::make_pair(index, SourceHull()));
        QString error;
        if (!hull->second.add(w, &error)) {
            m_status = error;
            m_live->stop();
            return;
        }
        graph->addBackgroundCapture(index, w);
    }
    m_status = tr("gathering: %1 to go").arg(--m_toGather);
    updatePanel();
    if (m_toGather > 0)
        return;
    for (const auto &[index, hull] : m_hulls) {
        QString error;
        const EnvelopeData envelope = hull.build(EnvelopeBuildOptions(), nullptr, &error);
        if (envelope.isEmpty()) {
            QMessageBox::warning(m_window, tr("Make From Acquisitions"), error);
            continue;
        }
        graph->setEnvelope(index, envelope);
    }
    m_hulls.clear();
}
