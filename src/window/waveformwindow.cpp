#include "waveformwindow.h"

#include "vorngraph.h"

#include <QCloseEvent>
#include <QEventLoop>
#include <QKeyEvent>
#include <QMenuBar>
#include <QMessageBox>
#include <QVBoxLayout>

WaveformWindow::WaveformWindow(const QString &filePath, const QString &title, QWidget *parent)
    : WaveformWindow(filePath, title, parent, {})
{
}

WaveformWindow::WaveformWindow(const QString &filePath, const QString &title, QWidget *parent,
                               const std::function<void(VornGraph *)> &prepareGraph)
    : QWidget(parent)
    , m_graph(new VornGraph(this))
    , m_filePath(filePath)
{
    setupWindow(title);
    if (prepareGraph)
        prepareGraph(m_graph);
    loadWaveforms(filePath);
    m_graph->displayGraph();
}

WaveformWindow::WaveformWindow(const CaptureContents &capture, const QString &title, QWidget *parent,
                               const std::function<void(VornGraph *)> &prepareGraph)
    : QWidget(parent)
    , m_graph(new VornGraph(this))
    , m_filePath(capture.path)
{
    setupWindow(title);
    if (prepareGraph)
        prepareGraph(m_graph);
    m_fileIdentity = capture.identity;
    // The copies share the samples with the host's.
    QVector<WaveformData> waveforms = capture.waveforms;
    processWaveformsAndEnvelopes(waveforms);
    storeOriginalEnvelopes();
    m_graph->displayGraph();
}

void WaveformWindow::setupWindow(const QString &title)
{
    setWindowTitle(title);
    resize(1920, 1080);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    setupMenuBar();
    layout->setMenuBar(m_menuBar);
    layout->addWidget(m_graph);

    connect(m_graph, &VornGraph::envelopeEditorStateChanged, this, &WaveformWindow::envelopeEditorStateChanged);
    connect(m_graph, &VornGraph::envelopeEditorStateChanged, this, &WaveformWindow::onEnvelopeStateChanged);
    connect(m_graph, &VornGraph::editEnvelopeRequested, this, &WaveformWindow::onEditEnvelopeRequested);
    connect(m_graph, &VornGraph::deleteEnvelopeRequested, this, &WaveformWindow::onDeleteEnvelopeRequested);
    connect(m_graph, &VornGraph::waveformSelectionChanged, this, &WaveformWindow::onWaveformSelectionChanged);
    setupEnvelopeCheck();
}

WaveformWindow::~WaveformWindow() = default;

void WaveformWindow::setupMenuBar()
{
    m_menuBar = new QMenuBar(this);
    m_fileMenu = m_menuBar->addMenu(tr("File"));
    m_saveAction = m_fileMenu->addAction(tr("Save"), this, &WaveformWindow::onSaveTriggered);
    m_closeAction = m_fileMenu->addAction(tr("Close"), this, &WaveformWindow::onCloseTriggered);
    m_envelopeMenu = m_menuBar->addMenu(tr("Envelope"));
    m_editEnvelopeAction = m_envelopeMenu->addAction(tr("Edit"), this, &WaveformWindow::onEditEnvelopeTriggered);
    m_deleteEnvelopeAction = m_envelopeMenu->addAction(tr("Delete"), this, &WaveformWindow::onDeleteEnvelopeTriggered);
    m_editEnvelopeAction->setEnabled(false);
    m_deleteEnvelopeAction->setEnabled(false);
}

void WaveformWindow::showModal()
{
    setWindowFlags(Qt::Window | Qt::WindowMaximizeButtonHint | Qt::WindowCloseButtonHint);
    setWindowModality(Qt::ApplicationModal);
    show();
}

void WaveformWindow::showNonModal()
{
    setWindowFlags(Qt::Window | Qt::WindowMinimizeButtonHint | Qt::WindowMaximizeButtonHint
                   | Qt::WindowCloseButtonHint);
    show();
}

void WaveformWindow::execModal()
{
    QEventLoop loop;
    connect(this, &WaveformWindow::closed, &loop, &QEventLoop::quit);
    showModal();
    loop.exec();
}

void WaveformWindow::setEnvelopeEditingEnabled(bool enabled)
{
    m_envelopeEditingEnabled = enabled;
    m_saveAction->setVisible(enabled);
    m_envelopeMenu->menuAction()->setVisible(enabled);
    m_graph->setEnvelopeEditingEnabled(enabled);
}

void WaveformWindow::setEnvelopeEditorPointCount(int count)
{
    m_graph->setEnvelopeEditorPointCount(count);
}

void WaveformWindow::startEnvelopeEditing(int index)
{
    if (m_envelopeEditingEnabled)
        m_graph->startEnvelopeEditing(index);
}

void WaveformWindow::finishEnvelopeEditing()
{
    m_graph->finishEnvelopeEditing();
}

void WaveformWindow::cancelEnvelopeEditing()
{
    m_graph->cancelEnvelopeEditing();
}

bool WaveformWindow::isEnvelopeEditing() const
{
    return m_graph->isEnvelopeEditing();
}

bool WaveformWindow::canFinishEnvelopeEditing() const
{
    return m_graph->canFinishEnvelopeEditing();
}

void WaveformWindow::onCloseTriggered()
{
    close();
}

void WaveformWindow::onEditEnvelopeTriggered()
{
    const int index = m_graph->selectedWaveformIndex();
    if (index >= 0)
        showEnvelopeEditorDialog(index);
}

void WaveformWindow::onEditEnvelopeRequested(int waveformIndex)
{
    if (m_envelopeEditingEnabled)
        showEnvelopeEditorDialog(waveformIndex);
}

void WaveformWindow::onDeleteEnvelopeTriggered()
{
    const int index = m_graph->selectedWaveformIndex();
    if (index >= 0)
        deleteEnvelopeWithConfirmation(index);
}

void WaveformWindow::onDeleteEnvelopeRequested(int waveformIndex)
{
    if (m_envelopeEditingEnabled)
        deleteEnvelopeWithConfirmation(waveformIndex);
}

void WaveformWindow::onEnvelopeStateChanged()
{
    updateEnvelopeActions(m_graph->selectedWaveformIndex());
    updateModification();
}

void WaveformWindow::onWaveformSelectionChanged(int index)
{
    updateEnvelopeActions(index);
}

void WaveformWindow::updateEnvelopeActions(int index)
{
    const bool usable = index >= 0 && !m_graph->isEnvelopeEditing();
    m_editEnvelopeAction->setEnabled(usable);
    m_deleteEnvelopeAction->setEnabled(usable && m_graph->hasEnvelope(index));
}

void WaveformWindow::showEnvelopeEditorDialog(int index)
{
    if (!m_graph->isEnvelopeEditing())
        m_graph->startEnvelopeEditing(index);
}

void WaveformWindow::showError(const QString &text)
{
    QMessageBox::critical(this, tr("Reading waveform file failed"), text, QMessageBox::Ok);
}

void WaveformWindow::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
        // While an edit runs, Return belongs to the edit, not to the window.
        if (!m_graph->isEnvelopeEditing())
            close();
        return;
    }
    QWidget::keyPressEvent(event);
}

void WaveformWindow::closeEvent(QCloseEvent *event)
{
    if (m_envelopeEditingEnabled && hasEnvelopeChanges()) {
        const auto answer = QMessageBox::question(this, tr("Unsaved Changes"),
                                                  tr("Envelope curves have been changed. Save changes?"),
                                                  QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel,
                                                  QMessageBox::Yes);
        // Cancel, Escape and the dialog's close button all keep the window open.
        if (answer != QMessageBox::Yes && answer != QMessageBox::No) {
            event->ignore();
            return;
        }
        if (answer == QMessageBox::Yes)
            onSaveTriggered();
    }
    emit closed();
    QWidget::closeEvent(event);
}
