#include "waveformwindow.h"

#include "vorngraph.h"

#include <QAction>
#include <QLabel>
#include <QLayout>
#include <QMenu>

// Next and previous violation as window actions (F3, Shift+F3), and a line per checked waveform
// under the graph, refreshed whenever the graph checks an envelope: on loading and after every
// Apply. The Envelope menu keeps its two entries; hosts place these actions where they like.
void WaveformWindow::setupEnvelopeCheck()
{
    m_nextViolationAction = new QAction(tr("Next Violation"), this);
    m_nextViolationAction->setShortcut(Qt::Key_F3);
    connect(m_nextViolationAction, &QAction::triggered, this, &WaveformWindow::showNextViolation);
    m_previousViolationAction = new QAction(tr("Previous Violation"), this);
    m_previousViolationAction->setShortcut(Qt::SHIFT | Qt::Key_F3);
    connect(m_previousViolationAction, &QAction::triggered, this, &WaveformWindow::showPreviousViolation);
    addActions({m_nextViolationAction, m_previousViolationAction});

    m_checkSummaryLabel = new QLabel(this);
    m_checkSummaryLabel->setObjectName(QStringLiteral("envelopeCheckSummary"));
    m_checkSummaryLabel->setContentsMargins(8, 2, 8, 4);
    m_checkSummaryLabel->setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    m_checkSummaryLabel->hide();
    layout()->addWidget(m_checkSummaryLabel);
    connect(m_graph, &VornGraph::envelopeChecked, this, &WaveformWindow::onEnvelopeChecked);
}

QString WaveformWindow::envelopeCheckSummary() const
{
    QStringList lines;
    for (int i = 0; i < m_graph->waveformCount(); ++i) {
        if (!m_graph->hasEnvelope(i))
            continue;
        const EnvelopeCheckResult r = m_graph->envelopeCheckResult(i);
        QString line;
        if (r.passed())
            line = tr("%1: pass").arg(m_graph->waveformName(i));
        else if (!r.failure.isEmpty())
            line = tr("%1: fail, %2").arg(m_graph->waveformName(i), r.failure);
        else if (r.violations() == 0)
            line = tr("%1: fail, %2 of the envelope without samples")
                       .arg(m_graph->waveformName(i), ValueFormatter::formatWithUnit(r.uncovered, QStringLiteral("s")));
        else
            line = tr("%1: fail, %2 violations, first at %3")
                       .arg(m_graph->waveformName(i))
                       .arg(r.violations())
                       .arg(ValueFormatter::formatWithUnit(r.firstViolation, QStringLiteral("s")));
        // A pass says what it did not judge.
        const QString notes = checkNotes(r);
        lines << (notes.isEmpty() ? line : line + QStringLiteral("; ") + notes);
    }
    return lines.join(QLatin1Char('\n'));
}

// Every envelope the graph is given or loses is checked: the modified state follows here, also
// for an Apply, whose envelope arrives after the editor reported its end.
void WaveformWindow::onEnvelopeChecked()
{
    updateModification();
    const QString summary = envelopeCheckSummary();
    m_checkSummaryLabel->setText(summary);
    m_checkSummaryLabel->setVisible(!summary.isEmpty());
    bool failing = false;
    for (int i = 0; i < m_graph->waveformCount(); ++i)
        failing = failing || !m_graph->envelopeCheckResult(i).passed();
    m_checkSummaryLabel->setStyleSheet(failing ? QStringLiteral("color: #d00000;") : QString());
}

// The selected waveform, or when that one passes (the graph names the first waveform selected
// when no row is) the first one that fails.
int WaveformWindow::violationWaveformIndex() const
{
    const int selected = m_graph->selectedWaveformIndex();
    if (!m_graph->envelopeCheckResult(selected).passed())
        return selected;
    for (int i = 0; i < m_graph->waveformCount(); ++i) {
        if (!m_graph->envelopeCheckResult(i).passed())
            return i;
    }
    return selected;
}

void WaveformWindow::showNextViolation()
{
    m_graph->showNextViolation(violationWaveformIndex());
}

void WaveformWindow::showPreviousViolation()
{
    m_graph->showPreviousViolation(violationWaveformIndex());
}
