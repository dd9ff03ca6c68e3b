#include "checkagainst.h"

#include "violationlist.h"
#include "vorngraph.h"
#include "waveformwindow.h"

#include <QAction>
#include <QComboBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QDockWidget>
#include <QFileDialog>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMainWindow>
#include <QMenu>
#include <QMessageBox>
#include <QStatusBar>
#include <QVBoxLayout>

#include <cmath>

namespace {

// How to align: nothing, a search within +-MAXSHIFT, or a trigger crossing. False when cancelled.
bool askAlignment(QWidget *parent, AlignmentOptions &options)
{
    QDialog dialog(parent);
    dialog.setWindowTitle(CheckAgainst::tr("Check Against"));
    auto *mode = new QComboBox(&dialog);
    mode->addItems({CheckAgainst::tr("None"), CheckAgainst::tr("Best fit within"), CheckAgainst::tr("Trigger crossing")});
    mode->setCurrentIndex(1);
    auto *maxShift = new QLineEdit(QStringLiteral("1 ms"), &dialog);
    auto *level = new QLineEdit(QStringLiteral("1.65 V"), &dialog);
    auto *edge = new QComboBox(&dialog);
    edge->addItems({CheckAgainst::tr("rising"), CheckAgainst::tr("falling")});
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &dialog);
    auto *form = new QFormLayout(&dialog);
    form->addRow(CheckAgainst::tr("Alignment:"), mode);
    form->addRow(CheckAgainst::tr("Largest shift:"), maxShift);
    form->addRow(CheckAgainst::tr("Trigger level:"), level);
    form->addRow(CheckAgainst::tr("Edge:"), edge);
    form->addRow(buttons);
    const auto enable = [=](int m) {
        maxShift->setEnabled(m == 1);
        level->setEnabled(m == 2);
        edge->setEnabled(m == 2);
    };
    QObject::connect(mode, &QComboBox::currentIndexChanged, &dialog, enable);
    enable(mode->currentIndex());
    QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, [&] {
        const double shift = parseScaledValue(maxShift->text(), QStringLiteral("s"));
        const double value = parseScaledValue(level->text(), QStringLiteral("V"));
        if (mode->currentIndex() == 1 && !(shift > 0.0 && std::isfinite(shift)))
            QMessageBox::warning(&dialog, dialog.windowTitle(), CheckAgainst::tr("The largest shift must be a time above zero."));
        else if (mode->currentIndex() == 2 && !std::isfinite(value))
            QMessageBox::warning(&dialog, dialog.windowTitle(), CheckAgainst::tr("The trigger level must be a number."));
        else
            dialog.accept();
    });
    if (dialog.exec() != QDialog::Accepted)
        return false;
    options = AlignmentOptions();
    options.maxShift = mode->currentIndex() == 1 ? parseScaledValue(maxShift->text(), QStringLiteral("s")) : 0.0;
    options.trigger = mode->currentIndex() == 2;
    options.level = parseScaledValue(level->text(), QStringLiteral("V"));
    options.edge = edge->currentIndex() == 0 ? TriggerEdge::Rising : TriggerEdge::Falling;
    return true;
}

} // namespace

CheckAgainst::CheckAgainst(QMainWindow *window, WaveformWindow *document)
    : QObject(document), m_window(window), m_document(document)
{
    m_action = new QAction(tr("Check Against…"), this);
    connect(m_action, &QAction::triggered, this, &CheckAgainst::onTriggered);
    // After the capture's own entries, before the closing separator and Quit.
    QMenu *file = document->fileMenu();
    QAction *closing = nullptr;
    for (QAction *a : file->actions())
        closing = a->isSeparator() ? a : closing;
    file->insertAction(closing, m_action);

    m_dock = new QDockWidget(tr("Violations"), window);
    m_dock->setObjectName(QStringLiteral("violationsDock"));
    auto *panel = new QWidget(m_dock);
    auto *layout = new QVBoxLayout(panel);
    layout->setContentsMargins(4, 4, 4, 4);
    m_shifts = new QLabel(panel);
    m_shifts->hide();
    m_list = new ViolationList(document->graph(), panel);
    layout->addWidget(m_shifts);
    layout->addWidget(m_list);
    m_dock->setWidget(panel);
    window->addDockWidget(Qt::BottomDockWidgetArea, m_dock);
    connect(document, &QObject::destroyed, m_dock, &QObject::deleteLater);
    // An empty list would only take room from the chart: it shows while there is something in it.
    const auto showWhenFilled = [this] { m_dock->setVisible(m_list->runCount() > 0 || !m_shifts->text().isEmpty()); };
    connect(document->graph(), &VornGraph::envelopeChecked, m_dock, showWhenFilled);
    showWhenFilled();

    // F3 and Shift+F3 walk the list from the run last shown, not from the screen's centre.
    for (QAction *key : {document->nextViolationAction(), document->previousViolationAction()}) {
        disconnect(key, &QAction::triggered, document, nullptr);
        connect(key, &QAction::triggered, m_list,
                key == document->nextViolationAction() ? &ViolationList::showNextRun : &ViolationList::showPreviousRun);
    }
    connect(m_list, &ViolationList::message, window, [window](const QString &text) { window->statusBar()->showMessage(text, 5000); });
}

void CheckAgainst::removeDock()
{
    if (!m_dock)
        return;
    m_window->removeDockWidget(m_dock);
    delete m_dock;
}

void CheckAgainst::onTriggered()
{
    const QString golden = QFileDialog::getOpenFileName(m_window, tr("Check Against"), QString(),
                                                        tr("sigrok session files (*.sr);;All files (*)"));
    AlignmentOptions options;
    if (golden.isEmpty() || !askAlignment(m_window, options))
        return;
    QString error;
    const QStringList lines = m_document->checkAgainst(golden, options, &error);
    if (lines.isEmpty()) {
        QMessageBox::warning(m_window, tr("Check Against"), tr("Could not check against %1: %2").arg(golden, error));
        return;
    }
    m_shifts->setText(lines.join(QLatin1Char('\n')));
    m_shifts->show();
    m_dock->show();
    emit checkedAgainst(golden);
    m_window->statusBar()->showMessage(lines.join(QStringLiteral("; ")), 8000);
}
