#include "measurementsdock.h"

#include "vorngraph.h"
#include "waveformwindow.h"

#include <QAction>
#include <QBrush>
#include <QDialog>
#include <QDialogButtonBox>
#include <QDockWidget>
#include <QFormLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMainWindow>
#include <QMenu>
#include <QMessageBox>
#include <QThread>
#include <QThreadPool>
#include <QTimer>
#include <QTreeWidget>

#include <algorithm>
#include <cmath>

namespace {

const QColor PASS_COLOUR(0, 128, 0);
const QColor FAIL_COLOUR(200, 0, 0);
constexpr int MEASURE_ROLE = Qt::UserRole;
constexpr int WAVEFORM_ROLE = Qt::UserRole + 1;

// The times and levels that show where measurement m was taken.
void marksOf(const PulseMeasurements &p, Measure m, QVector<double> &times, QVector<double> &levels)
{
    const auto each = [&](auto pick) {
        for (const Transition &t : p.transitions)
            pick(t);
    };
    switch (m) {
    case Measure::RiseTime: case Measure::FallTime:
        each([&](const Transition &t) {
            if (t.rising == (m == Measure::RiseTime))
                times << t.startTime << t.endTime;
        });
        levels << p.lowRefLevel << p.highRefLevel;
        break;
    case Measure::PulseWidth: case Measure::Period: case Measure::Frequency: case Measure::DutyCycle:
        each([&](const Transition &t) { times << t.midTime; });
        levels << p.midRefLevel;
        break;
    case Measure::Overshoot: case Measure::Undershoot:
        each([&](const Transition &t) { times << t.endTime << t.postEnd; });
        levels << p.levels.low << p.levels.high;
        break;
    case Measure::SettlingTime:
        each([&](const Transition &t) {
            times << t.midTime;
            if (t.settling.valid())
                times << t.midTime + t.settling.value;
        });
        levels << p.levels.low << p.levels.high;
        break;
    case Measure::Min: case Measure::Max: case Measure::PeakToPeak:
        levels << p[Measure::Min].value << p[Measure::Max].value;
        break;
    case Measure::Mean: case Measure::Rms:
        levels << p[m].value;
        break;
    default:
        levels << p.levels.low << p.levels.high;
    }
    times.erase(std::remove_if(times.begin(), times.end(), [](double t) { return !std::isfinite(t); }), times.end());
    levels.erase(std::remove_if(levels.begin(), levels.end(), [](double v) { return !std::isfinite(v); }), levels.end());
}

// The limit typed as a lower and an upper bound, either left empty for none. False when
// cancelled; the bounds are read by the same rules as vorn limits.
bool askLimit(QWidget *parent, MeasurementLimit &limit, const QString &unit)
{
    QDialog dialog(parent);
    dialog.setWindowTitle(MeasurementsDock::tr("Set Limit"));
    const QString key = QLatin1String(measureKey(limit.measure));
    auto *minimum = new QLineEdit(&dialog);
    auto *maximum = new QLineEdit(&dialog);
    for (QLineEdit *edit : {minimum, maximum})
        edit->setPlaceholderText(MeasurementsDock::tr("none"));
    if (!std::isnan(limit.min))
        minimum->setText(formatMeasure(limit.measure, limit.min, unit));
    if (!std::isnan(limit.max))
        maximum->setText(formatMeasure(limit.measure, limit.max, unit));
    auto *problem = new QLabel(&dialog);
    problem->setWordWrap(true);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &dialog);
    auto *form = new QFormLayout(&dialog);
    form->addRow(new QLabel(MeasurementsDock::tr("%1 of %2, in %3").arg(key, limit.waveform, measureUnit(limit.measure, unit)), &dialog));
    form->addRow(MeasurementsDock::tr("At least:"), minimum);
    form->addRow(MeasurementsDock::tr("At most:"), maximum);
    form->addRow(problem);
    form->addRow(buttons);
    MeasurementLimit typed;
    QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, [&] {
        const QString low = minimum->text().trimmed(), high = maximum->text().trimmed();
        const QString text = low.isEmpty() ? key + QStringLiteral("<=") + high
                             : high.isEmpty() ? key + QStringLiteral(">=") + low
                                              : low + QStringLiteral("<=") + key + QStringLiteral("<=") + high;
        typed = MeasurementLimit{limit.waveform, limit.measure};
        QString error;
        if (low.isEmpty() && high.isEmpty())
            problem->setText(MeasurementsDock::tr("Give at least one bound, or remove the limit."));
        else if (!parseLimitExpression(text, unit, typed, &error))
            problem->setText(error);
        else
            dialog.accept();
    });
    QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    if (dialog.exec() != QDialog::Accepted)
        return false;
    limit = typed;
    return true;
}

} // namespace

MeasurementsDock::MeasurementsDock(QMainWindow *window, WaveformWindow *document, const QString &path)
    : QObject(document), m_window(window), m_document(document), m_settle(new QTimer(this)),
      m_setLimit(new QAction(tr("Set Limit…"), this)), m_removeLimit(new QAction(tr("Remove Limit"), this)),
      m_worker(new QThreadPool(this))
{
    m_worker->setMaxThreadCount(1);
    // Drawing the view comes first on a busy machine.
    m_worker->setThreadPriority(QThread::IdlePriority);
    QString error;
    if (!loadLimits(path, m_limits, &error))
        m_limits.clear(); // the capture still opens; its limits simply judge nothing here
    m_dock = new QDockWidget(tr("Measurements"), window);
    m_dock->setObjectName(QStringLiteral("measurementsDock"));
    m_table = new QTreeWidget(m_dock);
    m_table->setColumnCount(3);
    m_table->setHeaderLabels({tr("Measurement"), tr("Value"), tr("Limit")});
    m_table->header()->setSectionResizeMode(QHeaderView::ResizeToContents);
    m_dock->setWidget(m_table);
    window->addDockWidget(Qt::RightDockWidgetArea, m_dock);
    connect(document, &QObject::destroyed, m_dock, &QObject::deleteLater);

    // A pan or a wheel step moves the view many times a second; measure once it rests, and not
    // between the moves of a drag or the notches of a wheel turn.
    m_settle->setSingleShot(true);
    m_settle->setInterval(250);
    connect(m_settle, &QTimer::timeout, this, &MeasurementsDock::refresh);
    VornGraph *graph = document->graph();
    connect(graph, &VornGraph::viewChanged, this, &MeasurementsDock::viewMoved);
    connect(graph, &VornGraph::waveformSelectionChanged, this, &MeasurementsDock::viewMoved);
    connect(graph, &VornGraph::cursorsVisibleChanged, this, &MeasurementsDock::viewMoved);
    // A dock tabified behind another one stays visible to Qt; only this signal tells.
    connect(m_dock, &QDockWidget::visibilityChanged, this, [this](bool visible) {
        m_inSight = visible;
        if (visible && m_stale)
            refresh();
    });
    connect(m_table, &QTreeWidget::currentItemChanged, this, &MeasurementsDock::onCurrentItemChanged);
    m_table->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(m_table, &QWidget::customContextMenuRequested, this, &MeasurementsDock::onContextMenuRequested);
    connect(m_table, &QTreeWidget::itemDoubleClicked, m_setLimit, &QAction::trigger);
    connect(m_setLimit, &QAction::triggered, this, &MeasurementsDock::onSetLimitTriggered);
    connect(m_removeLimit, &QAction::triggered, this, &MeasurementsDock::onRemoveLimitTriggered);
    refresh();
}

bool MeasurementsDock::setLimit(const MeasurementLimit &limit, QString *error)
{
    std::vector<MeasurementLimit> limits = m_limits;
    const auto same = [&](const MeasurementLimit &l) { return l.waveform == limit.waveform && l.measure == limit.measure; };
    const auto it = std::find_if(limits.begin(), limits.end(), same);
    if (it != limits.end())
        *it = limit;
    else
        limits.push_back(limit);
    return storeLimits(limits, error);
}

bool MeasurementsDock::removeLimit(const QString &waveform, Measure measure, QString *error)
{
    std::vector<MeasurementLimit> limits = m_limits;
    limits.erase(std::remove_if(limits.begin(), limits.end(),
                                [&](const MeasurementLimit &l) { return l.waveform == waveform && l.measure == measure; }),
                 limits.end());
    return storeLimits(limits, error);
}

// Written as the window's own saves are, so that its next Save knows the file as written here.
bool MeasurementsDock::storeLimits(const std::vector<MeasurementLimit> &limits, QString *error)
{
    if (!m_document->rewriteFile([&](const QString &path, QString *why) { return saveLimits(path, limits, why); }, error))
        return false;
    m_limits = limits;
    fillTable(); // a limit changes verdicts, not values
    return true;
}

bool MeasurementsDock::chosenRow(QString &waveform, Measure &measure, QString &unit) const
{
    const QTreeWidgetItem *row = m_table->currentItem();
    if (!row || !row->data(0, MEASURE_ROLE).isValid())
        return false;
    const int index = row->data(0, WAVEFORM_ROLE).toInt();
    waveform = m_document->graph()->waveformName(index);
    unit = m_document->graph()->waveformData(index).unit;
    measure = static_cast<Measure>(row->data(0, MEASURE_ROLE).toInt());
    return true;
}

void MeasurementsDock::onContextMenuRequested(const QPoint &position)
{
    QString waveform, unit;
    Measure measure;
    if (!chosenRow(waveform, measure, unit))
        return;
    m_removeLimit->setEnabled(limitFor(waveform, measure) != nullptr);
    QMenu menu(m_table);
    menu.addActions({m_setLimit, m_removeLimit});
    menu.exec(m_table->viewport()->mapToGlobal(position));
}

void MeasurementsDock::onSetLimitTriggered()
{
    QString waveform, unit, error;
    Measure measure;
    if (!chosenRow(waveform, measure, unit))
        return;
    const MeasurementLimit *old = limitFor(waveform, measure);
    MeasurementLimit limit = old ? *old : MeasurementLimit{waveform, measure};
    if (askLimit(m_table, limit, unit) && !setLimit(limit, &error))
        QMessageBox::warning(m_table, tr("Set Limit"), tr("The limit was not stored: %1").arg(error));
}

void MeasurementsDock::onRemoveLimitTriggered()
{
    QString waveform, unit, error;
    Measure measure;
    if (chosenRow(waveform, measure, unit) && limitFor(waveform, measure) && !removeLimit(waveform, measure, &error))
        QMessageBox::warning(m_table, tr("Remove Limit"), tr("The limit was not removed: %1").arg(error));
}

const MeasurementLimit *MeasurementsDock::limitFor(const QString &waveform, Measure measure) const
{
    const auto it = std::find_if(m_limits.begin(), m_limits.end(),
                                 [&](const MeasurementLimit &l) { return l.waveform == waveform && l.measure == measure; });
    return it == m_limits.end() ? nullptr : &*it;
}

MeasurementsDock::~MeasurementsDock()
{
    // A measurement still running posts its result to this object: let it finish first.
    m_worker->waitForDone();
}

// Closed, or tabified behind another dock, the dock is not measured for. A window not yet on
// screen still gets its table.
bool MeasurementsDock::isSeen() const
{
    return m_window->isVisible() ? m_inSight && m_dock->isVisible() : !m_dock->isHidden();
}

void MeasurementsDock::viewMoved()
{
    ++m_generation;
    m_settle->start();
}

void MeasurementsDock::refresh()
{
    m_settle->stop();
    if (m_running) {
        m_again = true;
        return;
    }
    if (!isSeen()) {
        m_stale = true;
        return;
    }
    m_stale = false;
    VornGraph *graph = m_document->graph();
    const int selected = graph->selectedWaveformIndex();
    double from = graph->visibleTimeRange().first, to = graph->visibleTimeRange().second;
    if (graph->cursorsVisible()) {
        from = std::min(graph->cursorTime(0), graph->cursorTime(1));
        to = std::max(graph->cursorTime(0), graph->cursorTime(1));
    }
    // The samples are shared with the graph, not copied; the worker only reads them.
    std::vector<WaveformData> waveforms;
    std::vector<int> indexes;
    for (int i = 0; i < graph->waveformCount(); ++i) {
        if (selected >= 0 ? i == selected : graph->isWaveformVisible(i)) {
            // Measured where it is drawn: an aligned capture is shown moved back by its shift.
            WaveformData w = graph->waveformData(i);
            w.startTime -= graph->waveformShift(i);
            waveforms.push_back(std::move(w));
            indexes.push_back(i);
        }
    }
    m_running = true;
    const std::uint64_t generation = m_generation;
    m_worker->start([this, generation, waveforms = std::move(waveforms), indexes = std::move(indexes), from, to] {
        Measured measured;
        for (size_t k = 0; k < waveforms.size(); ++k)
            measured.push_back({indexes[k], waveforms[k].name, waveforms[k].unit, measurePulses(waveforms[k], from, to)});
        QMetaObject::invokeMethod(
            this, [this, generation, measured = std::move(measured)] { onMeasured(generation, measured); }, Qt::QueuedConnection);
    });
}

void MeasurementsDock::onMeasured(std::uint64_t generation, const Measured &measured)
{
    m_running = false;
    // Once the view has moved on, this result is of a span no longer shown.
    const bool again = m_again || generation != m_generation;
    m_again = false;
    if (generation == m_generation) {
        m_measured = measured;
        fillTable();
    }
    if (again)
        refresh();
}

void MeasurementsDock::fillTable()
{
    // Keep the chosen row across the update, so that its marks follow the view.
    QTreeWidgetItem *current = m_table->currentItem();
    const QVariant currentMeasure = current ? current->data(0, MEASURE_ROLE) : QVariant();
    const QVariant currentWaveform = current ? current->data(0, WAVEFORM_ROLE) : QVariant();
    const QSignalBlocker blocker(m_table);
    // The same waveforms with the same rows after a move of the view: their texts change in
    // place, which spares the table a new layout of every row.
    std::vector<Rows> tables;
    for (const Measurement &measured : m_measured)
        tables.push_back(rowsOf(measured));
    bool same = m_table->topLevelItemCount() == int(tables.size());
    for (int i = 0; same && i < int(tables.size()); ++i) {
        const QTreeWidgetItem *top = m_table->topLevelItem(i);
        same = top->text(0) == m_measured[i].name && top->childCount() == int(tables[i].size());
        for (int k = 0; same && k < top->childCount(); ++k)
            same = top->child(k)->data(0, MEASURE_ROLE).toInt() == tables[i][k].measure
                && top->child(k)->data(0, WAVEFORM_ROLE).toInt() == m_measured[i].index;
    }
    if (!same) {
        m_table->clear();
        for (size_t i = 0; i < tables.size(); ++i) {
            auto *top = new QTreeWidgetItem(m_table, {m_measured[i].name});
            for (const Row &r : tables[i]) {
                auto *row = new QTreeWidgetItem(top, {QLatin1String(measureKey(static_cast<Measure>(r.measure)))});
                row->setData(0, MEASURE_ROLE, r.measure);
                row->setData(0, WAVEFORM_ROLE, m_measured[i].index);
            }
            top->setExpanded(true);
        }
    }
    for (int i = 0; i < int(tables.size()); ++i) {
        QTreeWidgetItem *top = m_table->topLevelItem(i);
        const QString &note = m_measured[i].p.levels.note;
        if (top->text(1) != note)
            top->setText(1, note);
        for (int k = 0; k < top->childCount(); ++k) {
            QTreeWidgetItem *row = top->child(k);
            const Row &r = tables[i][k];
            if (row->text(1) != r.value)
                row->setText(1, r.value);
            if (row->text(2) != r.limit)
                row->setText(2, r.limit);
            if (row->toolTip(1) != r.reason)
                row->setToolTip(1, r.reason);
            for (int c = 1; c < 3; ++c) {
                if (row->data(c, Qt::ForegroundRole) != r.colour)
                    row->setData(c, Qt::ForegroundRole, r.colour);
            }
            if (!same && row->data(0, WAVEFORM_ROLE) == currentWaveform && row->data(0, MEASURE_ROLE) == currentMeasure)
                m_table->setCurrentItem(row);
        }
    }
    onCurrentItemChanged(m_table->currentItem());
}

MeasurementsDock::Rows MeasurementsDock::rowsOf(const Measurement &measured) const
{
    const PulseMeasurements &p = measured.p;
    Rows rows;
    for (int k = 0; k < MEASURE_COUNT; ++k) {
        const Measure m = static_cast<Measure>(k);
        const MeasureValue &v = p[m];
        const MeasurementLimit *limit = limitFor(measured.name, m);
        if (!v.valid() && !limit && v.reason == p[Measure::Low].reason && p.logic)
            continue; // a logic probe has no levels, edges or aberrations to list
        Row row{k, v.valid() ? formatMeasure(m, v.value, measured.unit) : tr("none"),
                limit ? describeLimit(*limit, measured.unit) : QString(), v.valid() ? QString() : v.reason, QVariant()};
        if (limit) {
            const bool passed = v.valid() && !(v.value > limit->max) && !(v.value < limit->min);
            row.colour = QBrush(passed ? PASS_COLOUR : FAIL_COLOUR);
        }
        rows.push_back(row);
    }
    return rows;
}

void MeasurementsDock::onCurrentItemChanged(QTreeWidgetItem *item)
{
    VornGraph *graph = m_document->graph();
    if (!item || !item->data(0, MEASURE_ROLE).isValid()) {
        graph->clearMeasurementMarks();
        return;
    }
    const int index = item->data(0, WAVEFORM_ROLE).toInt();
    for (const Measurement &measured : m_measured) {
        if (measured.index != index)
            continue;
        QVector<double> times, levels;
        marksOf(measured.p, static_cast<Measure>(item->data(0, MEASURE_ROLE).toInt()), times, levels);
        // Marks are drawn at screen times; the waveform's shift was already taken into account.
        graph->setMeasurementMarks(index, times, levels);
    }
}
