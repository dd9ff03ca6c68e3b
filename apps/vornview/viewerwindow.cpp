#include "viewerwindow.h"

#include "capturecheck.h"
#include "captureopening.h"
#include "checkagainst.h"
#include "exportactions.h"
#include "liverun.h"
#include "envelopetools.h"
#include "measurementsdock.h"

#include "vorngraph.h"
#include "waveformwindow.h"

#include <QAction>
#include <QActionGroup>
#include <QApplication>
#include <QCloseEvent>
#include <QDir>
#include <QDropEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QKeyEvent>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QMimeData>
#include <QSettings>
#include <QStackedWidget>
#include <QTemporaryFile>
#include <QTimer>
#include <QUrl>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace {

const QString RECENT_FILES_KEY = QStringLiteral("recentFiles");
const QString OPEN_FOLDER_KEY = QStringLiteral("openFolder");
constexpr int MAX_RECENT_FILES = 8;

// The first local .sr file among the dragged URLs, or an empty string.
QString droppedCapture(const QMimeData *mime)
{
    for (const QUrl &url : mime->urls()) {
        if (url.isLocalFile() && QFileInfo(url.toLocalFile()).suffix().compare(QLatin1String("sr"), Qt::CaseInsensitive) == 0)
            return url.toLocalFile();
    }
    return QString();
}

} // namespace

ViewerWindow::ViewerWindow(QWidget *parent)
    : QMainWindow(parent)
    , m_stack(new QStackedWidget(this))
    , m_placeholder(new QLabel(this))
    , m_opening(new CaptureOpening(this))
{
    connect(m_opening, &CaptureOpening::started, this, &ViewerWindow::openingStarted);
    m_placeholder->setAlignment(Qt::AlignCenter);
    m_placeholder->setText(tr("Open a capture with File ▸ Open…, or drop a .sr file here."));
    m_stack->addWidget(m_placeholder);
    setCentralWidget(m_stack);
    setAcceptDrops(true);
    createActions();
    updateTitle();
}

void ViewerWindow::createActions()
{
    m_openAction = new QAction(tr("Open…"), this);
    m_openAction->setShortcut(QKeySequence::Open);
    connect(m_openAction, &QAction::triggered, this, &ViewerWindow::onOpenTriggered);
    m_recentMenu = new QMenu(tr("Open Recent"), this);
    connect(m_recentMenu, &QMenu::aboutToShow, this, &ViewerWindow::onRecentMenuAboutToShow);
    m_saveAction = new QAction(tr("Save"), this);
    m_saveAction->setShortcut(QKeySequence::Save);
    connect(m_saveAction, &QAction::triggered, this, &ViewerWindow::onSaveTriggered);
    m_saveAsAction = new QAction(tr("Save As…"), this);
    m_saveAsAction->setShortcut(QKeySequence::SaveAs);
    connect(m_saveAsAction, &QAction::triggered, this, &ViewerWindow::onSaveAsTriggered);
    m_reloadAction = new QAction(tr("Reload"), this);
    m_reloadAction->setShortcut(QKeySequence::Refresh);
    connect(m_reloadAction, &QAction::triggered, this, &ViewerWindow::onReloadTriggered);
    m_quitAction = new QAction(tr("Quit"), this);
    m_quitAction->setShortcut(QKeySequence::Quit);
    m_quitAction->setMenuRole(QAction::QuitRole);
    connect(m_quitAction, &QAction::triggered, this, &QWidget::close);
    m_helpMenu = new QMenu(tr("Help"), this);
    m_helpMenu->addAction(tr("About VornView"), this, &ViewerWindow::onAboutTriggered);
    m_helpMenu->addAction(tr("About Qt"), qApp, &QApplication::aboutQt);
    // Keys work whichever menu bar shows the actions.
    addActions({m_openAction, m_saveAction, m_saveAsAction, m_reloadAction, m_quitAction});

    QMenu *fileMenu = menuBar()->addMenu(tr("File"));
    fileMenu->addAction(m_openAction);
    fileMenu->addMenu(m_recentMenu);
    fileMenu->addSeparator();
    fileMenu->addAction(m_quitAction);
    menuBar()->addMenu(m_helpMenu);
}

// The capture's own menu bar takes the viewer's actions, so there is one bar with one File menu.
// The window's own Save writes every waveform's envelope; the viewer's writes only what changed.
void ViewerWindow::extendDocumentMenus(WaveformWindow *document)
{
    QMenu *fileMenu = document->fileMenu();
    QAction *first = fileMenu->actions().value(0);
    fileMenu->insertAction(first, m_openAction);
    fileMenu->insertMenu(first, m_recentMenu);
    fileMenu->insertSeparator(first);
    fileMenu->insertActions(first, {m_saveAction, m_saveAsAction, m_reloadAction});
    document->saveAction()->setVisible(false);
    fileMenu->addSeparator();
    fileMenu->addAction(m_quitAction);
    QMenu *envelopeMenu = document->envelopeMenu();
    envelopeMenu->addSeparator();
    envelopeMenu->addActions({document->nextViolationAction(), document->previousViolationAction()});
    addViewMenu(document);
    document->menuBar()->addMenu(m_helpMenu);
    document->closeAction()->setShortcut(QKeySequence::Close);
}

void ViewerWindow::addViewMenu(WaveformWindow *document)
{
    VornGraph *graph = document->graph();
    auto *view = new QMenu(tr("View"), document->menuBar());
    auto *layouts = new QActionGroup(view);
    QAction *stacked = view->addAction(tr("Stacked"), graph, [graph] { graph->setStacked(true); });
    QAction *overlaid = view->addAction(tr("Overlaid"), graph, [graph] { graph->setStacked(false); });
    for (QAction *action : {stacked, overlaid}) {
        action->setCheckable(true);
        layouts->addAction(action);
    }
    (graph->isStacked() ? stacked : overlaid)->setChecked(true);
    view->addSeparator();
    QAction *cursors = view->addAction(tr("Cursors"));
    cursors->setCheckable(true);
    cursors->setChecked(graph->cursorsVisible());
    connect(cursors, &QAction::toggled, graph, &VornGraph::setCursorsVisible);
    // The graph's own keys change both too: the menu follows it.
    connect(graph, &VornGraph::cursorsVisibleChanged, cursors, &QAction::setChecked);
    connect(graph, &VornGraph::stackedChanged, view, [stacked, overlaid](bool isStacked) {
        (isStacked ? stacked : overlaid)->setChecked(true);
    });
    document->menuBar()->addMenu(view);
}

bool ViewerWindow::openFile(const QString &path)
{
    return maybeLeaveDocument() && loadFile(path);
}

bool ViewerWindow::loadFile(const QString &path)
{
    const QString absolute = QFileInfo(path).absoluteFilePath();
    QStringList recent = recentFiles();
    recent.removeAll(absolute);
    // Read off the GUI thread; a cancelled reading leaves the capture open now as it was.
    QString problem;
    const CaptureContents capture = m_opening->read(absolute, problem);
    if (capture.cancelled)
        return false;
    const QString file = QFileInfo(absolute).fileName();
    if (problem.isEmpty() && !capture.error.isEmpty())
        problem = capture.failedWaveform < 0 ? tr("Could not read %1: %2").arg(file, capture.error)
                                             : tr("Could not read waveform %1/%2 of %3: %4")
                                                   .arg(capture.failedWaveform + 1)
                                                   .arg(capture.waveformCount)
                                                   .arg(file, capture.error);
    if (!problem.isEmpty())
        QMessageBox::critical(this, tr("Reading waveform file failed"), problem, QMessageBox::Ok);
    // The chart's OpenGL widget would make the whole window compose through OpenGL, in software
    // where there is no GPU; the graph draws its traces itself.
    const auto withoutOpenGL = [](VornGraph *graph) { graph->setUseOpenGL(false); };
    auto *document = problem.isEmpty() ? new WaveformWindow(capture, file, this, withoutOpenGL) : nullptr;
    if (!document || document->graph()->waveformCount() == 0) {
        delete document;
        storeRecentFiles(recent);
        return false;
    }
    // One band per waveform, so that a capture of several channels is readable at first sight.
    if (document->graph()->waveformCount() > 1)
        document->graph()->setStacked(true);
    // Time labels read across even where divisions are too narrow for one on each.
    document->graph()->setHorizontalTimeLabels(true);
    recent.prepend(absolute);
    storeRecentFiles(recent);
    setDocument(document, absolute);
    const QString unreadable = unreadableCurvesOf(absolute);
    if (!unreadable.isEmpty())
        QMessageBox::warning(this, tr("Envelope curves not read"),
                             tr("These envelope curves in %1 could not be read; their waveforms are shown "
                                "without them:\n%2")
                                 .arg(QFileInfo(absolute).fileName(), unreadable));
    return true;
}

void ViewerWindow::cancelOpening()
{
    m_opening->cancel();
}

void ViewerWindow::setDocument(WaveformWindow *document, const QString &path)
{
    closeDocument();
    m_document = document;
    m_filePath = path;
    extendDocumentMenus(document);
    auto *check = new CheckAgainst(this, document);
    new MeasurementsDock(this, document, path);
    auto *exporter = new ExportActions(this, document, path);
    connect(check, &CheckAgainst::checkedAgainst, exporter, &ExportActions::setReference);
    document->installEventFilter(this);
    connect(document, &WaveformWindow::saveFailed, this, &ViewerWindow::onSaveFailed);
    connect(document->graph(), &VornGraph::envelopeEditingStarted, this, &ViewerWindow::onEnvelopeEditingStarted);
    connect(document->graph(), &VornGraph::envelopeEditingFinished, this, &ViewerWindow::onEnvelopeApplied);
    // The mark follows the undo history of the capture's envelopes.
    m_envelopeTools = new EnvelopeTools(document, this);
    connect(m_envelopeTools, &EnvelopeTools::modificationChanged, this, &QWidget::setWindowModified);
    new LiveRun(this, document);
    m_stack->addWidget(document);
    m_stack->setCurrentWidget(document);
    menuBar()->hide();
    updateTitle();
}

void ViewerWindow::closeDocument()
{
    if (!m_document)
        return;
    // Deferred: this may run inside the document's own close handling.
    m_document->removeEventFilter(this);
    if (auto *check = m_document->findChild<CheckAgainst *>())
        check->removeDock();
    m_document->disconnect(this);
    m_document->graph()->disconnect(this);
    m_stack->removeWidget(m_document);
    m_document->deleteLater();
    m_document = nullptr;
    m_envelopeTools = nullptr;
    m_filePath.clear();
    menuBar()->show();
    updateTitle();
}

void ViewerWindow::updateTitle()
{
    // The mark follows the history, as the tools' own signal does.
    setWindowModified(m_envelopeTools && m_envelopeTools->isModified());
    setWindowTitle(m_filePath.isEmpty() ? tr("VornView")
                                        : tr("%1[*] - VornView").arg(QFileInfo(m_filePath).fileName()));
}

// Asks about unsaved envelopes; true when the capture may be left. A save that fails keeps it.
bool ViewerWindow::maybeLeaveDocument()
{
    if (!m_document || !m_document->hasUnsavedChanges())
        return true;
    const auto answer = QMessageBox::question(this, tr("Unsaved Changes"),
                                              tr("Envelope curves have been changed. Save changes?"),
                                              QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel,
                                              QMessageBox::Yes);
    if (answer == QMessageBox::No)
        return true;
    if (answer != QMessageBox::Yes)
        return false;
    return saveDocument();
}

// A save that went through is where the undo history is clean.
bool ViewerWindow::saveDocument()
{
    if (!m_document->saveChangedEnvelopes())
        return false;
    m_envelopeTools->markSaved();
    return true;
}

bool ViewerWindow::eventFilter(QObject *watched, QEvent *event)
{
    // File ▸ Close and Return close the capture, not the viewer; the viewer asks, so that the
    // window's own question cannot let a failed save through.
    if (watched == m_document && event->type() == QEvent::Close) {
        event->ignore();
        if (maybeLeaveDocument())
            closeDocument();
        return true;
    }
    // Enter confirms a value typed into the tree; in a viewer it must not close the capture.
    if (watched == m_document && event->type() == QEvent::KeyPress) {
        const int key = static_cast<QKeyEvent *>(event)->key();
        return key == Qt::Key_Return || key == Qt::Key_Enter;
    }
    return QMainWindow::eventFilter(watched, event);
}

void ViewerWindow::closeEvent(QCloseEvent *event)
{
    if (maybeLeaveDocument())
        event->accept();
    else
        event->ignore();
}

void ViewerWindow::dragEnterEvent(QDragEnterEvent *event)
{
    if (!droppedCapture(event->mimeData()).isEmpty())
        event->acceptProposedAction();
}

void ViewerWindow::dropEvent(QDropEvent *event)
{
    const QString path = droppedCapture(event->mimeData());
    if (path.isEmpty())
        return;
    event->acceptProposedAction();
    openFile(path);
}

void ViewerWindow::onOpenTriggered()
{
    QSettings settings;
    const QString folder = m_filePath.isEmpty() ? settings.value(OPEN_FOLDER_KEY).toString()
                                                : QFileInfo(m_filePath).absolutePath();
    const QString path = QFileDialog::getOpenFileName(this, tr("Open Capture"), folder,
                                                      tr("sigrok sessions (*.sr);;All files (*)"));
    if (path.isEmpty())
        return;
    settings.setValue(OPEN_FOLDER_KEY, QFileInfo(path).absolutePath());
    openFile(path);
}

void ViewerWindow::onRecentMenuAboutToShow()
{
    m_recentMenu->clear();
    const QStringList files = recentFiles();
    for (int i = 0; i < files.size(); ++i) {
        const QString path = files.at(i);
        QAction *action = m_recentMenu->addAction(tr("&%1 %2").arg(i + 1).arg(QFileInfo(path).fileName()),
                                                  this, [this, path] { openFile(path); });
        action->setToolTip(QDir::toNativeSeparators(path));
        action->setStatusTip(QDir::toNativeSeparators(path));
    }
    if (files.isEmpty())
        m_recentMenu->addAction(tr("No Recent Files"))->setEnabled(false);
    else
        m_recentMenu->addAction(tr("Clear Menu"), this, [this] { storeRecentFiles({}); });
}

QStringList ViewerWindow::recentFiles()
{
    return QSettings().value(RECENT_FILES_KEY).toStringList();
}

void ViewerWindow::storeRecentFiles(QStringList files)
{
    files.removeDuplicates();
    while (files.size() > MAX_RECENT_FILES)
        files.removeLast();
    QSettings().setValue(RECENT_FILES_KEY, files);
}

void ViewerWindow::onAboutTriggered()
{
    QMessageBox::about(this, tr("About VornView"),
                       tr("<h3>VornView %1</h3><p>Shows sigrok captures and edits their tolerance envelopes.</p>")
                           .arg(QCoreApplication::applicationVersion()));
}

void ViewerWindow::onSaveFailed(const QString &reason)
{
    QMessageBox::critical(this, tr("Saving failed"),
                          tr("The envelopes could not be saved in %1.\n\n%2")
                              .arg(QDir::toNativeSeparators(m_filePath), reason));
}

void ViewerWindow::onSaveTriggered()
{
    if (m_document)
        saveDocument();
}

void ViewerWindow::onSaveAsTriggered()
{
    if (!m_document)
        return;
    // The dialog adds the suffix itself, so that it asks about overwriting the file really meant.
    QFileDialog dialog(this, tr("Save Capture As"), QFileInfo(m_filePath).absolutePath(), tr("sigrok sessions (*.sr)"));
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setDefaultSuffix(QStringLiteral("sr"));
    if (dialog.exec() == QDialog::Accepted && !dialog.selectedFiles().isEmpty())
        saveAs(dialog.selectedFiles().constFirst());
}

bool ViewerWindow::saveAs(const QString &typed)
{
    if (!m_document)
        return false;
    // A name without a suffix is a capture all the same; other programs look for .sr.
    const QString path = QFileInfo(typed).suffix().isEmpty() ? typed + QStringLiteral(".sr") : typed;
    if (QFileInfo(path).absoluteFilePath() == m_filePath) {
        onSaveTriggered();
        return m_document->lastSaveError().isEmpty();
    }
    QString error;
    if (!writeCopy(path, error)) {
        QMessageBox::critical(this, tr("Saving failed"),
                              tr("The envelopes could not be saved in %1.\n\n%2").arg(QDir::toNativeSeparators(path), error));
        return false;
    }
    // The copy holds every edit: the capture left behind has nothing unsaved.
    return loadFile(path);
}

// The capture as it is on disk, with the envelopes the user changed, written beside path under a
// temporary name and renamed over path once complete.
bool ViewerWindow::writeCopy(const QString &path, QString &error) const
{
    QFile source(m_filePath);
    QTemporaryFile copy(QFileInfo(path).absolutePath() + QStringLiteral("/.vornview-XXXXXX.sr"));
    if (!source.open(QIODevice::ReadOnly) || !copy.open()) {
        error = source.isOpen() ? copy.errorString() : source.errorString();
        return false;
    }
    while (!source.atEnd()) {
        const QByteArray block = source.read(1 << 20);
        if (block.isEmpty() || copy.write(block) != block.size()) {
            error = block.isEmpty() ? source.errorString() : copy.errorString();
            return false;
        }
    }
    copy.setPermissions(source.permissions());
    copy.close();
    const VornGraph *graph = m_document->graph();
    for (int i = 0; i < graph->waveformCount(); ++i) {
        const QString name = graph->waveformName(i);
        if (m_document->isEnvelopeChanged(i)
            && !(graph->hasEnvelope(i) ? saveEnvelope(copy.fileName(), name, graph->envelope(i))
                                    : removeEnvelope(copy.fileName(), name))) {
            error = lastEnvelopeFileError();
            return false;
        }
    }
    if (std::rename(QFile::encodeName(copy.fileName()).constData(), QFile::encodeName(path).constData()) != 0) {
        error = QString::fromLocal8Bit(std::strerror(errno));
        return false;
    }
    copy.setAutoRemove(false);
    return true;
}

void ViewerWindow::onReloadTriggered()
{
    if (!m_document)
        return;
    if (m_document->hasUnsavedChanges()
        && QMessageBox::question(this, tr("Reload"),
                                 tr("Read %1 again and discard the changed envelopes?").arg(QFileInfo(m_filePath).fileName()),
                                 QMessageBox::Yes | QMessageBox::No, QMessageBox::No)
               != QMessageBox::Yes)
        return;
    loadFile(m_filePath);
}

void ViewerWindow::onEnvelopeEditingStarted(int waveformIndex)
{
    const VornGraph *graph = m_document->graph();
    m_envelopeBeforeEdit = graph->hasEnvelope(waveformIndex) ? graph->envelope(waveformIndex) : EnvelopeData();
}

// An envelope over no time, or over a part of the time axis without samples, would pass every
// check without checking a sample. The editor lets a region shrink that far; the viewer does
// not keep what it makes of it.
QString ViewerWindow::unusableEnvelopeReason(int waveformIndex, const EnvelopeData &envelope) const
{
    const VornGraph *graph = m_document->graph();
    const QString name = graph->waveformName(waveformIndex);
    for (const WaveformData *curve : {&envelope.upper, &envelope.lower}) {
        if (!(curve->sampleInterval > 0.0) || !std::isfinite(curve->sampleInterval))
            return tr("The envelope of %1 spans no time. Drag across the part of the waveform it should limit.").arg(name);
    }
    const EnvelopeCheckResult result = graph->envelopeCheckResult(waveformIndex);
    if (result.checked + result.nanSamples == 0)
        return tr("No sample of %1 lies under the envelope, so it would check nothing. Drag across the part of the "
                  "waveform it should limit.")
            .arg(name);
    return QString();
}

void ViewerWindow::onEnvelopeApplied(int waveformIndex, const EnvelopeData &envelope)
{
    const QString reason = unusableEnvelopeReason(waveformIndex, envelope);
    if (reason.isEmpty())
        return;
    // The editor has ended its edit before it hands the envelope over: the previous one can be
    // put back at once; the message waits until the graph has finished applying.
    // The refused envelope leaves no step behind that undo or redo could bring back.
    VornGraph *graph = m_document->graph();
    if (!m_envelopeTools->withdrawLastStep(waveformIndex)) {
        if (m_envelopeBeforeEdit.isEmpty())
            graph->clearEnvelope(waveformIndex);
        else
            graph->setEnvelope(waveformIndex, m_envelopeBeforeEdit);
    }
    updateTitle();
    QTimer::singleShot(0, this, [this, reason] { QMessageBox::warning(this, tr("Envelope Not Applied"), reason); });
}
