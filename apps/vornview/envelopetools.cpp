#include "envelopetools.h"

#include "envelopedialogs.h"
#include "knotdragmode.h"
#include "vorngraph.h"
#include "vornmask.h"
#include "waveformwindow.h"

#include <QAction>
#include <QFileDialog>
#include <QFileInfo>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QUndoCommand>
#include <QUndoGroup>
#include <QUndoStack>

#include <algorithm>
#include <cmath>

namespace {

bool sameCurve(const WaveformData &a, const WaveformData &b)
{
    if (a.samples.sharesStorageWith(b.samples))
        return a.startTime == b.startTime && a.sampleInterval == b.sampleInterval;
    const std::vector<double> &x = *a.samples, &y = *b.samples;
    if (x.size() != y.size() || a.startTime != b.startTime || a.sampleInterval != b.sampleInterval)
        return false;
    for (size_t i = 0; i < x.size(); ++i) {
        if (!(x[i] == y[i] || (std::isnan(x[i]) && std::isnan(y[i]))))
            return false;
    }
    return true;
}

bool sameEnvelope(const EnvelopeData &a, const EnvelopeData &b)
{
    if (a.isEmpty() || b.isEmpty())
        return a.isEmpty() == b.isEmpty();
    return sameCurve(a.upper, b.upper) && sameCurve(a.lower, b.lower);
}

// Largest upper limit minus smallest lower limit: what a percentage of the band refers to.
double bandOf(const EnvelopeData &envelope)
{
    double high = -INFINITY, low = INFINITY;
    for (double v : *envelope.upper.samples)
        high = std::isnan(v) ? high : std::max(high, v);
    for (double v : *envelope.lower.samples)
        low = std::isnan(v) ? low : std::min(low, v);
    return high > low ? high - low : 0.0;
}

} // namespace

// A change of one waveform's envelope, recorded after it was made.
class EnvelopeTools::EnvelopeCommand : public QUndoCommand
{
public:
    EnvelopeCommand(EnvelopeTools *tools, int index, EnvelopeData before, EnvelopeData after, const QString &text,
                    std::optional<Backgrounds> backgrounds)
        : QUndoCommand(text)
        , m_tools(tools)
        , m_index(index)
        , m_before(std::move(before))
        , m_after(std::move(after))
        , m_backgrounds(std::move(backgrounds))
    {
    }
    void undo() override
    {
        if (m_backgrounds)
            m_tools->m_graph->setBackgroundCaptures(m_index, m_backgrounds->before);
        m_tools->applyEnvelope(m_index, m_before);
        // Obsolete once undone, the stack deletes it: no redo brings it back.
        setObsolete(m_withdrawn);
    }
    int index() const { return m_index; }
    void withdraw() { m_withdrawn = true; }
    void redo() override
    {
        if (std::exchange(m_made, false))
            return;
        if (m_backgrounds)
            m_tools->m_graph->setBackgroundCaptures(m_index, m_backgrounds->after);
        m_tools->applyEnvelope(m_index, m_after);
    }

private:
    EnvelopeTools *m_tools;
    int m_index;
    EnvelopeData m_before;
    EnvelopeData m_after;
    std::optional<Backgrounds> m_backgrounds; // only for steps that changed the captures behind
    bool m_made = true;
    bool m_withdrawn = false;
};

// One step inside a knot edit: the knots before and after it.
class EnvelopeTools::KnotCommand : public QUndoCommand
{
public:
    KnotCommand(EnvelopeTools *tools, QVector<EnvelopePoint> before, QVector<EnvelopePoint> after, const QString &text)
        : QUndoCommand(text)
        , m_tools(tools)
        , m_before(std::move(before))
        , m_after(std::move(after))
    {
    }
    void undo() override { apply(m_before); }
    void redo() override
    {
        if (!std::exchange(m_made, false))
            apply(m_after);
    }

private:
    void apply(const QVector<EnvelopePoint> &knots)
    {
        m_tools->m_knots = knots;
        m_tools->m_graph->envelopeEditor()->setKnots(knots);
    }

    EnvelopeTools *m_tools;
    QVector<EnvelopePoint> m_before;
    QVector<EnvelopePoint> m_after;
    bool m_made = true;
};

EnvelopeTools::EnvelopeTools(WaveformWindow *document, QWidget *dialogParent)
    : QObject(document)
    , m_document(document)
    , m_graph(document->graph())
    , m_dialogParent(dialogParent)
    , m_group(new QUndoGroup(this))
    , m_documentStack(new QUndoStack(m_group))
    , m_editStack(new QUndoStack(m_group))
{
    m_group->setActiveStack(m_documentStack);
    m_graph->setEnvelopeEditingByKnots(true);
    m_graph->setDistinctEnvelopeStyle(true);
    m_graph->setEnvelopeReduction(true);
    for (int i = 0; i < m_graph->waveformCount(); ++i)
        m_shown.append(m_graph->envelope(i));
    createActions();
    onEditorStateChanged();
    connect(m_graph, &VornGraph::envelopeChecked, this, &EnvelopeTools::onEnvelopeChecked);
    connect(m_graph, &VornGraph::envelopeEditorStateChanged, this, &EnvelopeTools::onEditorStateChanged);
    connect(m_graph, &VornGraph::envelopeEditingCancelled, this, [this] { m_regionIndex = -1; });
    EnvelopeEditorController *editor = m_graph->envelopeEditor();
    connect(editor, &EnvelopeEditorController::knotsEdited, this, &EnvelopeTools::onKnotsEdited);
    connect(editor, &EnvelopeEditorController::knotEditRequested, this, &EnvelopeTools::onEditKnotRequested);
    connect(document->saveAction(), &QAction::triggered, this, &EnvelopeTools::onSaveTriggered);
    connect(document, &WaveformWindow::modificationChanged, this, &EnvelopeTools::updateModification);
    connect(m_documentStack, &QUndoStack::cleanChanged, this, &EnvelopeTools::updateModification);
}

EnvelopeTools::~EnvelopeTools() = default;

void EnvelopeTools::createActions()
{
    m_undoAction = m_group->createUndoAction(this, tr("Undo"));
    m_undoAction->setShortcut(QKeySequence::Undo);
    m_redoAction = m_group->createRedoAction(this, tr("Redo"));
    m_redoAction->setShortcut(QKeySequence::Redo);
    auto *editMenu = new QMenu(tr("Edit"), m_document);
    editMenu->addAction(m_undoAction);
    editMenu->addAction(m_redoAction);
    m_document->menuBar()->insertMenu(m_document->envelopeMenu()->menuAction(), editMenu);

    QMenu *envelope = m_document->envelopeMenu();
    envelope->addSeparator();
    m_widenAction = envelope->addAction(tr("Widen…"), this, &EnvelopeTools::onWidenTriggered);
    m_makeFromAction = envelope->addAction(tr("Make From Captures…"), this, &EnvelopeTools::onMakeFromTriggered);
    envelope->addAction(tr("Fit to Waveform"), this, [this] {
        QString error;
        if (!fitToWaveform(targetWaveform(), &error))
            QMessageBox::warning(m_dialogParent, tr("Fit to Waveform"), error);
    });
    m_addRegionAction = envelope->addAction(tr("Add Region"), this, [this] { addRegion(targetWaveform()); });
    m_editKnotAction = envelope->addAction(tr("Edit Knot…"), this, [this] { onEditKnotRequested(-1); });
    // The one way to open a gap in a knot edit: a press on a knot only ever moves its limits.
    m_toggleKnotAction = envelope->addAction(tr("Switch Knot Off/On"), this, [this] {
        EnvelopeEditorController *editor = m_graph->envelopeEditor();
        if (!editor->toggleKnot(editor->selectedKnot()))
            QMessageBox::information(m_dialogParent, tr("Switch Knot Off/On"), tr("Select a knot first."));
    });
    m_toggleKnotAction->setShortcut(KnotDragMode::TOGGLE_KEY);
}

bool EnvelopeTools::isModified() const
{
    return !m_documentStack->isClean() || m_document->hasUnsavedChanges();
}

void EnvelopeTools::updateModification()
{
    const bool modified = isModified();
    if (modified != m_modified) {
        m_modified = modified;
        emit modificationChanged(modified);
    }
}

int EnvelopeTools::targetWaveform() const
{
    const int editing = m_graph->envelopeEditor()->waveformIndex();
    if (editing >= 0)
        return editing;
    const int selected = m_graph->selectedWaveformIndex();
    if (selected >= 0)
        return selected;
    return m_graph->waveformCount() == 1 ? 0 : -1;
}

void EnvelopeTools::applyEnvelope(int index, const EnvelopeData &envelope)
{
    m_lastStep = nullptr;
    m_replaying = true;
    if (envelope.isEmpty())
        m_graph->clearEnvelope(index);
    else
        m_graph->setEnvelope(index, envelope);
    if (index < m_shown.size())
        m_shown[index] = envelope;
    m_replaying = false;
    updateModification();
}

// Every change of an envelope, whoever made it (Apply, Delete, the host), becomes one step.
void EnvelopeTools::onEnvelopeChecked(int index)
{
    if (m_replaying || index < 0 || index >= m_shown.size())
        return;
    m_lastStep = nullptr;
    const EnvelopeData before = m_shown.at(index);
    EnvelopeData after = m_graph->hasEnvelope(index) ? m_graph->envelope(index) : EnvelopeData();
    if (index == std::exchange(m_regionIndex, -1) && !after.isEmpty()) {
        // The region's edit delivered the region alone; the envelope gets it beside what it had.
        after = addEnvelopeRegion(m_regionBase, after);
        m_nextStepName = tr("Add Region");
        m_replaying = true;
        m_graph->setEnvelope(index, after);
        m_replaying = false;
    }
    // Made from captures, the step holds the captures behind the trace too, even where the
    // envelope came out the same.
    std::optional<Backgrounds> backgrounds = std::exchange(m_nextBackgrounds, std::nullopt);
    if (sameEnvelope(before, after) && !backgrounds)
        return;
    QString name = std::exchange(m_nextStepName, QString());
    if (name.isEmpty())
        name = after.isEmpty() ? tr("Delete Envelope") : before.isEmpty() ? tr("New Envelope") : tr("Apply Edit");
    m_shown[index] = after;
    m_lastStep = new EnvelopeCommand(this, index, before, after, name, std::move(backgrounds));
    m_documentStack->push(m_lastStep);
    updateModification();
}

bool EnvelopeTools::withdrawLastStep(int index)
{
    const int top = m_documentStack->index();
    if (!m_lastStep || top == 0 || m_documentStack->command(top - 1) != m_lastStep || m_lastStep->index() != index)
        return false;
    std::exchange(m_lastStep, nullptr)->withdraw();
    m_documentStack->undo();
    return true;
}

// A running edit has its own history, of knot steps; Apply or Cancel closes it.
void EnvelopeTools::onEditorStateChanged()
{
    const bool editing = m_graph->isEnvelopeEditing();
    if (editing && m_group->activeStack() != m_editStack) {
        m_editStack->clear();
        m_knots = m_graph->envelopeEditor()->points();
        m_group->setActiveStack(m_editStack);
    } else if (!editing && m_group->activeStack() != m_documentStack) {
        m_group->setActiveStack(m_documentStack);
        m_editStack->clear();
    }
    m_widenAction->setEnabled(!editing);
    m_makeFromAction->setEnabled(!editing);
    m_addRegionAction->setEnabled(!editing);
    m_editKnotAction->setEnabled(editing && m_graph->envelopeEditor()->isKnotEditing());
    m_toggleKnotAction->setEnabled(m_editKnotAction->isEnabled());
}

void EnvelopeTools::onKnotsEdited(const QString &step)
{
    const QVector<EnvelopePoint> after = m_graph->envelopeEditor()->points();
    m_editStack->push(new KnotCommand(this, std::exchange(m_knots, after), after, step));
}

void EnvelopeTools::onSaveTriggered()
{
    if (m_document->lastSaveError().isEmpty())
        m_documentStack->setClean();
    updateModification();
}

bool EnvelopeTools::widen(int index, double dx, double dy, double fraction, QString *error)
{
    const auto fail = [&](const QString &reason) {
        if (error)
            *error = reason;
        return false;
    };
    if (!m_graph->hasEnvelope(index))
        return fail(tr("%1 has no envelope to widen.").arg(m_graph->waveformName(index)));
    if (m_graph->isEnvelopeEditing())
        return fail(tr("Apply or cancel the running edit first."));
    for (double amount : {dx, dy, fraction}) {
        if (!(amount >= 0.0) || !std::isfinite(amount))
            return fail(tr("Widen by amounts of zero or more."));
    }
    m_nextStepName = tr("Widen Envelope");
    m_graph->setEnvelope(index, widenEnvelope(m_graph->envelope(index), dx, dy, fraction));
    m_nextStepName.clear();
    return true;
}

bool EnvelopeTools::fitToWaveform(int index, QString *error)
{
    if (index < 0 || index >= m_graph->waveformCount() || m_graph->isEnvelopeEditing()) {
        if (error)
            *error = index < 0 ? tr("Select the waveform the envelope is for.") : tr("Apply or cancel the running edit first.");
        return false;
    }
    SourceHull hull;
    QString reason;
    EnvelopeData envelope;
    if (hull.add(m_graph->waveformData(index), &reason))
        envelope = hull.build({}, nullptr, &reason);
    if (envelope.isEmpty()) {
        if (error)
            *error = reason;
        return false;
    }
    m_nextStepName = tr("Fit to Waveform");
    m_graph->setEnvelope(index, envelope);
    m_nextStepName.clear();
    return true;
}

void EnvelopeTools::markSaved()
{
    m_documentStack->setClean();
    updateModification();
}

bool EnvelopeTools::makeFromCaptures(int index, const QStringList &paths, QString *error)
{
    const auto fail = [&](const QString &reason) {
        if (error)
            *error = reason;
        return false;
    };
    if (index < 0 || index >= m_graph->waveformCount())
        return fail(tr("Select the waveform the envelope is for."));
    if (m_graph->isEnvelopeEditing())
        return fail(tr("Apply or cancel the running edit first."));
    if (paths.isEmpty())
        return fail(tr("Choose at least one capture."));
    // One capture in memory at a time: each goes into the hull and, as a bounded min/max index,
    // behind the trace, where the captures read as a persistence image.
    SourceHull hull;
    Backgrounds backgrounds{m_graph->backgroundCaptures(index), {}};
    m_graph->clearBackgroundCaptures(index);
    const auto failAndClear = [&](const QString &reason) {
        m_graph->setBackgroundCaptures(index, backgrounds.before);
        return fail(reason);
    };
    for (const QString &path : paths) {
        QString reason;
        const WaveformData capture = loadCaptureWaveform(path, m_graph->waveformName(index), &reason);
        if (capture.samples->empty() && !reason.isEmpty())
            return failAndClear(reason);
        if (!hull.add(capture, &reason))
            return failAndClear(QStringLiteral("%1: %2").arg(QFileInfo(path).fileName(), reason));
        m_graph->addBackgroundCapture(index, capture);
    }
    QString reason;
    EnvelopeData envelope = hull.build({}, nullptr, &reason);
    if (envelope.isEmpty())
        return failAndClear(reason);
    const QString name = m_graph->waveformName(index);
    envelope.upper.name = name + QStringLiteral(" [upper]");
    envelope.lower.name = name + QStringLiteral(" [lower]");
    // The undo menu reads in English without a plural catalogue.
    m_nextStepName = paths.size() == 1 ? tr("Make From One Capture") : tr("Make From %1 Captures").arg(paths.size());
    backgrounds.after = m_graph->backgroundCaptures(index);
    m_nextBackgrounds = std::move(backgrounds);
    m_graph->setEnvelope(index, envelope);
    m_nextStepName.clear();
    return true;
}

void EnvelopeTools::addRegion(int index)
{
    if (index < 0 || m_graph->isEnvelopeEditing())
        return;
    m_regionIndex = m_graph->hasEnvelope(index) ? index : -1;
    m_regionBase = m_graph->envelope(index);
    m_graph->startEnvelopeRegionEditing(index);
}

void EnvelopeTools::onWidenTriggered()
{
    const int index = targetWaveform();
    if (!m_graph->hasEnvelope(index)) {
        QMessageBox::information(m_dialogParent, tr("Widen Envelope"), tr("Select a waveform with an envelope first."));
        return;
    }
    const QString unit = m_graph->envelope(index).upper.unit;
    const double band = bandOf(m_graph->envelope(index));
    double dx = 0.0, dy = 0.0, fraction = 0.0;
    ValuesDialog dialog(tr("Widen Envelope"),
                        {tr("Time (±dx):"), tr("Value (±dy, or % of the band):"), tr("Plus % of the value:")},
                        {ValueFormatter::formatWithUnit(0.0, QStringLiteral("s")), ValueFormatter::formatWithUnit(0.0, unit),
                         QStringLiteral("0 %")},
                        [&](const QStringList &texts) {
                            dx = parseScaledValue(texts.value(0), QStringLiteral("s"));
                            QString dyText = texts.value(1).trimmed();
                            if (dyText.endsWith('%')) {
                                dyText.chop(1);
                                dy = parseScaledValue(dyText, QString()) / 100.0 * band;
                            } else {
                                dy = parseScaledValue(dyText, unit);
                            }
                            QString percentText = texts.value(2).trimmed();
                            if (percentText.endsWith('%'))
                                percentText.chop(1);
                            fraction = parseScaledValue(percentText, QString()) / 100.0;
                            if (!(dx >= 0.0) || !std::isfinite(dx))
                                return tr("The time must be zero or more, such as 20 us.");
                            if (!(dy >= 0.0) || !std::isfinite(dy))
                                return tr("The value must be zero or more, such as 50 m%1 or 5 %.").arg(unit);
                            if (!(fraction >= 0.0) || !std::isfinite(fraction))
                                return tr("The percentage of the value must be zero or more, such as 5 %.");
                            return QString();
                        },
                        m_dialogParent);
    if (dialog.exec() != QDialog::Accepted)
        return;
    QString error;
    if (!widen(index, dx, dy, fraction, &error))
        QMessageBox::warning(m_dialogParent, tr("Widen Envelope"), error);
}

void EnvelopeTools::onMakeFromTriggered()
{
    const int index = targetWaveform();
    if (index < 0) {
        QMessageBox::information(m_dialogParent, tr("Make From Captures"), tr("Select the waveform the envelope is for."));
        return;
    }
    const QStringList paths = QFileDialog::getOpenFileNames(
        m_dialogParent, tr("Choose Good Captures of %1").arg(m_graph->waveformName(index)), QString(),
        tr("sigrok sessions (*.sr);;All files (*)"));
    if (paths.isEmpty())
        return;
    QString error;
    if (!makeFromCaptures(index, paths, &error))
        QMessageBox::warning(m_dialogParent, tr("Make From Captures"), error);
}

void EnvelopeTools::onEditKnotRequested(int knot)
{
    EnvelopeEditorController *editor = m_graph->envelopeEditor();
    if (knot < 0)
        knot = editor->selectedKnot();
    const QVector<EnvelopePoint> &knots = editor->points();
    if (!editor->isKnotEditing() || knot < 0 || knot >= knots.size()) {
        QMessageBox::information(m_dialogParent, tr("Edit Knot"), tr("Select a knot first."));
        return;
    }
    const QString unit = m_graph->envelope(editor->waveformIndex()).upper.unit;
    const EnvelopePoint point = knots.at(knot);
    const auto format = [](double v, const QString &u) { return ValueFormatter::formatWithUnit(v, u); };
    const double earliest = knot > 0 ? knots.at(knot - 1).time + editor->knotGridInterval() : editor->knotGridStart();
    const double latest = knot + 1 < knots.size() ? knots.at(knot + 1).time - editor->knotGridInterval() : NAN;
    ValuesDialog dialog(
        tr("Knot %1").arg(knot + 1), {tr("Time:"), tr("Upper:"), tr("Lower:")},
        {format(point.time, QStringLiteral("s")), format(point.upperValue, unit), format(point.lowerValue, unit)},
        [&](const QStringList &texts) {
            const double time = parseScaledValue(texts.value(0), QStringLiteral("s"));
            const double upper = parseScaledValue(texts.value(1), unit);
            const double lower = parseScaledValue(texts.value(2), unit);
            if (std::isnan(time) || std::isnan(upper) || std::isnan(lower))
                return tr("Type numbers with an optional prefix and unit, such as 2.5 ms or 3.3 %1.").arg(unit);
            if (!editor->setKnot(knot, time, upper, lower)) {
                return std::isnan(latest) ? tr("The time must be %1 or later.").arg(format(earliest, QStringLiteral("s")))
                                          : tr("The time must lie between %1 and %2.")
                                                .arg(format(earliest, QStringLiteral("s")), format(latest, QStringLiteral("s")));
            }
            return QString();
        },
        m_dialogParent);
    dialog.exec();
}
