#include "violationlist.h"

#include "vorngraph.h"

#include <QHeaderView>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <algorithm>

ViolationList::ViolationList(VornGraph *graph, QWidget *parent)
    : QWidget(parent), m_graph(graph), m_tree(new QTreeWidget(this))
{
    m_tree->setObjectName(QStringLiteral("violationRuns"));
    m_tree->setRootIsDecorated(false);
    m_tree->setUniformRowHeights(true);
    m_tree->setHeaderLabels({tr("Waveform"), tr("Start"), tr("Length"), tr("Worst excess")});
    m_tree->header()->setSectionResizeMode(QHeaderView::ResizeToContents);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_tree);
    connect(m_tree, &QTreeWidget::itemActivated, this,
            [this](QTreeWidgetItem *item) { showRun(m_tree->indexOfTopLevelItem(item)); });
    connect(m_tree, &QTreeWidget::itemClicked, this,
            [this](QTreeWidgetItem *item) { showRun(m_tree->indexOfTopLevelItem(item)); });
    connect(m_graph, &VornGraph::envelopeChecked, this, &ViolationList::refresh);
    refresh();
}

int ViolationList::waveformOfRun(int row) const
{
    return row >= 0 && row < runCount() ? m_runs[static_cast<size_t>(row)].waveform : -1;
}

ViolationRun ViolationList::run(int row) const
{
    return row >= 0 && row < runCount() ? m_runs[static_cast<size_t>(row)].run : ViolationRun();
}

void ViolationList::refresh()
{
    // Keep the place: the run last shown is found again by its waveform and start.
    const Row last = m_current >= 0 && m_current < runCount() ? m_runs[static_cast<size_t>(m_current)] : Row{-1, {}};
    m_runs.clear();
    for (int i = 0; i < m_graph->waveformCount(); ++i) {
        for (const ViolationRun &r : m_graph->violationRuns(i))
            m_runs.push_back({i, r});
    }
    std::stable_sort(m_runs.begin(), m_runs.end(), [](const Row &a, const Row &b) { return a.run.start < b.run.start; });
    m_current = -1;
    m_tree->clear();
    QList<QTreeWidgetItem *> items;
    for (size_t k = 0; k < m_runs.size(); ++k) {
        const Row &row = m_runs[k];
        const QString unit = m_graph->envelope(row.waveform).upper.unit;
        items << new QTreeWidgetItem(QStringList{m_graph->waveformName(row.waveform),
                                                 ValueFormatter::formatWithUnit(row.run.start, QStringLiteral("s")),
                                                 ValueFormatter::formatWithUnit(row.run.length, QStringLiteral("s")),
                                                 ValueFormatter::formatWithUnit(row.run.worstExcess, unit)});
        if (row.waveform == last.waveform && row.run.start == last.run.start)
            m_current = static_cast<int>(k);
    }
    m_tree->addTopLevelItems(items);
    if (m_current >= 0)
        m_tree->setCurrentItem(m_tree->topLevelItem(m_current));
}

void ViolationList::showRun(int row)
{
    if (row < 0 || row >= runCount())
        return;
    m_current = row;
    const ViolationRun &r = m_runs[static_cast<size_t>(row)].run;
    m_graph->showTimeSpan(r.start, r.start + r.length);
    m_tree->setCurrentItem(m_tree->topLevelItem(row));
}

bool ViolationList::showNextRun()
{
    return step(true);
}

bool ViolationList::showPreviousRun()
{
    return step(false);
}

bool ViolationList::step(bool forward)
{
    if (m_runs.empty()) {
        emit message(tr("no violations"));
        return false;
    }
    const int count = runCount();
    int row = m_current < 0 ? (forward ? 0 : count - 1) : m_current + (forward ? 1 : -1);
    if (row >= count || row < 0) {
        row = forward ? 0 : count - 1;
        emit message(forward ? tr("wrapped to the first violation") : tr("wrapped to the last violation"));
    } else {
        emit message(tr("violation %1 of %2").arg(row + 1).arg(count));
    }
    showRun(row);
    return true;
}
