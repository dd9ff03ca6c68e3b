#include "vorngraph.h"

#include "chartbatch.h"
#include "samplesummary.h"
#include "traceitem.h"
#include "waveformitemdelegate.h"

#include <QAction>
#include <QChart>
#include <QDoubleSpinBox>
#include <QEvent>
#include <QLineSeries>
#include <QMenu>
#include <QScrollBar>
#include <QSignalBlocker>
#include <QTreeWidget>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>

namespace {

// A spin box costs tens of kilobytes and a good part of a millisecond to make: past this many
// waveforms, only the rows in view carry theirs.
constexpr int CONTROLS_FOR_ALL_UP_TO = 64;
// The waveform a top-level row shows.
constexpr int WAVEFORM_INDEX_ROLE = Qt::UserRole + 1;
// The rows of a waveform that carry a box.
constexpr int DIVISION_ROW = 0;
constexpr int OFFSET_ROW = 2;

// Calls back whenever the watched widget changes size.
class ResizeWatcher : public QObject
{
public:
    ResizeWatcher(QObject *parent, std::function<void()> resized)
        : QObject(parent)
        , m_resized(std::move(resized))
    {
    }

protected:
    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == QEvent::Resize)
            m_resized();
        return false;
    }

private:
    std::function<void()> m_resized;
};

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
    m_rowControlsInViewOnly = false;
    m_rowsWithControls.clear();
    m_infoTree->clear();
    m_rangePlusItems.clear();
    m_rangeMinusItems.clear();
    m_shownRanges.clear();
    m_waveformItems.clear();
    m_offsetSpinBoxes.clear();

    addTimeRows();
    const bool inViewOnly = m_waveforms.size() > CONTROLS_FOR_ALL_UP_TO;
    for (int i = 0; i < m_waveforms.size() && i < m_series.size(); ++i) {
        addWaveformRows(i);
        if (!inViewOnly)
            addRowControls(i);
    }
    fitRowHeights(m_infoTree, m_timeDivisionSpinBox, m_waveforms.size());
    if (inViewOnly) {
        m_rowControlsInViewOnly = true;
        if (!m_treeViewportWatcher) {
            m_treeViewportWatcher = new ResizeWatcher(this, [this] { placeRowControls(); });
            m_infoTree->viewport()->installEventFilter(m_treeViewportWatcher);
            connect(m_infoTree->verticalScrollBar(), &QScrollBar::valueChanged, this, &VornGraph::placeRowControls);
            connect(m_infoTree, &QTreeWidget::itemExpanded, this, &VornGraph::placeRowControls);
            connect(m_infoTree, &QTreeWidget::itemCollapsed, this, &VornGraph::placeRowControls);
        }
        // Before the columns are sized, so that the boxes' width counts.
        placeRowControls();
    }
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
    row->setData(0, WAVEFORM_INDEX_ROLE, index);
    m_waveformItems.append(row);
    m_offsetSpinBoxes.append(nullptr);

    addRow(row, tr("/ Div"));
    m_rangePlusItems.append(addRow(row, tr("Range+")));
    addRow(row, tr("Offset"));
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

// The boxes show the waveform's scale as it is now: one made later shows what the keys or a
// layout set meanwhile.
void VornGraph::addRowControls(int index)
{
    QTreeWidgetItem *row = m_waveformItems.value(index);
    if (!row || m_offsetSpinBoxes.value(index))
        return;
    const auto i = static_cast<size_t>(index);
    m_infoTree->setItemWidget(row->child(DIVISION_ROW), 1,
                              createDivisionSpinBox(i, m_divisionSizes.at(index), m_waveforms.at(index).unit));
    QDoubleSpinBox *offset = createWaveformOffsetSpinBox(i);
    m_offsetSpinBoxes[index] = offset;
    m_infoTree->setItemWidget(row->child(OFFSET_ROW), 1, offset);
    m_rowsWithControls.append(index);
}

void VornGraph::removeRowControls(int index)
{
    QTreeWidgetItem *row = m_waveformItems.value(index);
    if (!row)
        return;
    for (int child : {DIVISION_ROW, OFFSET_ROW}) {
        // The tree deletes the box later; until then it must not show where the row was.
        if (QWidget *box = m_infoTree->itemWidget(row->child(child), 1))
            box->hide();
        m_infoTree->removeItemWidget(row->child(child), 1);
    }
    m_offsetSpinBoxes[index] = nullptr;
    m_rowsWithControls.removeOne(index);
}

// Gives the waveforms with a row in view their boxes and takes them from the rest, except from a
// box the user is typing in.
void VornGraph::placeRowControls()
{
    if (!m_rowControlsInViewOnly)
        return;
    QVector<int> inView;
    const int bottom = m_infoTree->viewport()->height();
    for (QTreeWidgetItem *item = m_infoTree->itemAt(0, 0); item; item = m_infoTree->itemBelow(item)) {
        if (m_infoTree->visualItemRect(item).top() >= bottom)
            break;
        const QVariant index = (item->parent() ? item->parent() : item)->data(0, WAVEFORM_INDEX_ROLE);
        if (index.isValid() && !inView.contains(index.toInt()))
            inView.append(index.toInt());
    }
    const QVector<int> placed = m_rowsWithControls;
    for (int index : placed) {
        QDoubleSpinBox *division = divisionSpinBox(index);
        QDoubleSpinBox *offset = m_offsetSpinBoxes.value(index);
        const bool typing = (division && division->hasFocus()) || (offset && offset->hasFocus());
        if (!inView.contains(index) && !typing)
            removeRowControls(index);
    }
    for (int index : qAsConst(inView))
        addRowControls(index);
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

// Closing: nothing the graph listens to answers any more, and the chart lets go of its series and
// axes together rather than one at a time.
void VornGraph::releaseForClosing()
{
    m_rowControlsInViewOnly = false;
    if (m_infoTree) {
        m_infoTree->verticalScrollBar()->disconnect(this);
        m_infoTree->disconnect(this);
    }
    delete m_layoutPassFilter;
    m_layoutPassFilter = nullptr;
    if (m_chart) {
        m_chart->disconnect(this);
        m_traces->setTraces({});
        removeAllTogether(m_chart);
    }
}
