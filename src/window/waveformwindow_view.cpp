#include "waveformwindow.h"

#include "vorngraph.h"

#include <QActionGroup>
#include <QMenu>
#include <QMenuBar>

void WaveformWindow::setupViewMenu()
{
    m_viewMenu = m_menuBar->addMenu(tr("View"));
    auto *layouts = new QActionGroup(this);
    m_stackedAction = m_viewMenu->addAction(tr("Stacked"), this, [this] { m_graph->setStacked(true); });
    m_overlaidAction = m_viewMenu->addAction(tr("Overlaid"), this, [this] { m_graph->setStacked(false); });
    for (QAction *action : {m_stackedAction, m_overlaidAction}) {
        action->setCheckable(true);
        layouts->addAction(action);
    }
    m_overlaidAction->setChecked(true);
    m_viewMenu->addSeparator();
    m_cursorsAction = m_viewMenu->addAction(tr("Cursors"));
    m_cursorsAction->setCheckable(true);
    connect(m_cursorsAction, &QAction::toggled, m_graph, &VornGraph::setCursorsVisible);
    // The graph's own keys change both too: the menu follows it.
    connect(m_graph, &VornGraph::cursorsVisibleChanged, m_cursorsAction, &QAction::setChecked);
    connect(m_graph, &VornGraph::stackedChanged, this, [this](bool stacked) {
        (stacked ? m_stackedAction : m_overlaidAction)->setChecked(true);
    });
}
