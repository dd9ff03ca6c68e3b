#include "vorngraph.h"

#include "samplesummary.h"
#include "waveformitemdelegate.h"

#include <QAction>
#include <QDoubleSpinBox>
#include <QLineSeries>
#include <QMenu>
#include <QSignalBlocker>
#include <QTreeWidget>

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

QTreeWidgetItem *addRow(QTreeWidgetItem *parent, const QString &name, const QString &value = QString())
{
    auto *row = new QTreeWidgetItem(parent);
    row->setText(0, name);
    row->setText(1, value);
    return row;
}

// Past a few dozen waveforms, placing each control would walk all the rows above it on every
// layout, which grows with the square of the rows: rows of one height are placed at once. That
// height is the first row's, so it is given the controls' height.
void fitRowHeights(QTreeWidget *tree, const QWidget *control, int waveforms)
{
    constexpr int UNIFORM_ABOVE = 32;
    const bool uniform = waveforms > UNIFORM_ABOVE;
    if (QTreeWidgetItem *first = tree->topLevelItem(0))
        first->setSizeHint(1, uniform ? QSize(1, control->sizeHint().height()) : QSize());
    tree->setUniformRowHeights(uniform);
}

} // namespace

void VornGraph::updateInfoTree()
{
    // A rebuild is no choice of the user's: nothing is reported while the rows come and go.
    const QSignalBlocker blocker(m_infoTree);
    m_infoTree->clear();
    m_rangePlusItems.clear();
    m_rangeMinusItems.clear();
    m_waveformItems.clear();

    addTimeRows();
    for (int i = 0; i < m_waveforms.size() && i < m_series.size(); ++i)
        addWaveformRows(i);
    fitRowHeights(m_infoTree, m_timeDivisionSpinBox, m_waveforms.size());
    m_infoTree->resizeColumnToContents(0);
    m_infoTree->resizeColumnToContents(1);
}

void VornGraph::addTimeRows()
{
    auto *time = new QTreeWidgetItem(m_infoTree);
    time->setText(0, tr("Time"));
    time->setData(0, WaveformItemDelegate::COLOR_ROLE, QColor(Qt::black));

    m_timeDivisionSpinBox = createTimeDivisionSpinBox();
    m_infoTree->setItemWidget(addRow(time, tr("/ Div")), 1, m_timeDivisionSpinBox);
    m_timeRangePlusItem = addRow(time, tr("Range+"));
    m_timeOffsetSpinBox = createTimeOffsetSpinBox();
    m_infoTree->setItemWidget(addRow(time, tr("Offset")), 1, m_timeOffsetSpinBox);
    m_timeRangeMinusItem = addRow(time, tr("Range-"));
    time->setExpanded(true);
}

void VornGraph::addWaveformRows(int index)
{
    const WaveformData &w = m_waveforms.at(index);
    auto *row = new QTreeWidgetItem(m_infoTree);
    row->setText(0, w.name);
    row->setFlags(row->flags() | Qt::ItemIsUserCheckable);
    row->setCheckState(1, Qt::Checked);
    row->setData(0, WaveformItemDelegate::COLOR_ROLE, m_series.at(index)->pen().color());
    m_waveformItems.append(row);

    const auto i = static_cast<size_t>(index);
    m_infoTree->setItemWidget(addRow(row, tr("/ Div")), 1, createDivisionSpinBox(i, m_divisionSizes.at(index), w.unit));
    m_rangePlusItems.append(addRow(row, tr("Range+")));
    QDoubleSpinBox *offset = createWaveformOffsetSpinBox(i);
    m_offsetSpinBoxes.append(offset);
    m_infoTree->setItemWidget(addRow(row, tr("Offset")), 1, offset);
    m_rangeMinusItems.append(addRow(row, tr("Range-")));

    const std::vector<double> &samples = *w.samples;
    addRow(row, tr("ΔSample"), ValueFormatter::formatWithUnit(w.sampleInterval, QStringLiteral("s")));
    addRow(row, tr("Samples"), QString::number(samples.size()));
    // A waveform without samples has no extremes or mean to show.
    if (!samples.empty()) {
        // Gaps (NaN) are no values; a waveform of gaps only shows NaN.
        const ShownValues shown = shownValues(summaryOf(w));
        addRow(row, tr("Max"), ValueFormatter::formatWithUnit(shown.max, w.unit));
        addRow(row, tr("Avg"), ValueFormatter::formatWithUnit(shown.mean, w.unit));
        addRow(row, tr("Min"), ValueFormatter::formatWithUnit(shown.min, w.unit));
    }
    row->setExpanded(true);
}

void VornGraph::setWaveformVisible(int index, bool visible)
{
    if (index < 0 || index >= m_waveformItems.size())
        return;
    m_waveformItems[index]->setCheckState(1, visible ? Qt::Checked : Qt::Unchecked);
}

int VornGraph::selectedWaveformIndex() const
{
    const QList<QTreeWidgetItem *> selected = m_infoTree->selectedItems();
    if (!selected.isEmpty()) {
        QTreeWidgetItem *row = selected.first();
        if (row->parent())
            row = row->parent();
        const int k = m_infoTree->indexOfTopLevelItem(row) - 1;
        if (k >= 0 && k < m_waveforms.size())
            return k;
    }
    return m_waveforms.isEmpty() ? -1 : 0;
}

void VornGraph::onTreeSelectionChanged()
{
    emit waveformSelectionChanged(selectedWaveformIndex());
    updateYAxisLabels();
    updateBandLabels();
}

void VornGraph::onTreeContextMenu(const QPoint &pos)
{
    if (!m_envelopeEditingEnabled)
        return;
    QTreeWidgetItem *item = m_infoTree->itemAt(pos);
    if (!item || item->parent())
        return;
    const int k = m_infoTree->indexOfTopLevelItem(item) - 1;
    if (k < 0 || k >= m_waveforms.size())
        return;

    QMenu menu;
    QAction *edit = menu.addAction(tr("Edit Envelope"));
    QAction *remove = menu.addAction(tr("Delete Envelope"));
    const bool editing = m_envelopeEditor->isEditing();
    edit->setEnabled(!editing);
    remove->setEnabled(!editing && hasEnvelope(k));
    // The graph may change while the menu runs its own event loop: only the chosen action counts.
    QAction *chosen = menu.exec(m_infoTree->viewport()->mapToGlobal(pos));
    if (chosen == edit)
        emit editEnvelopeRequested(k);
    else if (chosen == remove)
        emit deleteEnvelopeRequested(k);
}

// Any change of a waveform's row re-applies its switch, which is harmless.
void VornGraph::onWaveformVisibilityChanged(QTreeWidgetItem *item, int)
{
    const int k = m_waveformItems.indexOf(item);
    if (k < 0 || k >= m_series.size())
        return;
    const bool visible = item->checkState(1) == Qt::Checked;
    m_series[k]->setVisible(visible);
    setEnvelopeVisible(k, visible);
    updateZeroLines();
    if (m_stacked)
        applyStackedLayout();
}
