#ifndef VIOLATIONLIST_H
#define VIOLATIONLIST_H

#include "vorngraph_export.h"
#include "vornmask.h"

#include <QWidget>

class QTreeWidget;
class VornGraph;

// One row per run of samples outside an envelope, over every waveform of a graph, in time order:
// waveform, start, length, worst excess. Activating a row, or stepping to the next or previous
// run from the one last shown, centres the graph on it and zooms so that the run and its
// neighbourhood fill about a third of the screen.
class VORNGRAPH_EXPORT ViolationList : public QWidget
{
    Q_OBJECT

public:
    explicit ViolationList(VornGraph *graph, QWidget *parent = nullptr);

    int runCount() const { return static_cast<int>(m_runs.size()); }
    int waveformOfRun(int row) const;
    ViolationRun run(int row) const;
    // The run last shown; -1 before any.
    int currentRun() const { return m_current; }

    void showRun(int row);
    // From the run last shown (before the first one when none was), wrapping at the ends; false
    // when there is no run at all. Each tells what happened through message().
    bool showNextRun();
    bool showPreviousRun();

public slots:
    // Rebuilds the rows from the graph's check results; the graph's envelopeChecked calls it.
    void refresh();

signals:
    // For a status bar: "wrapped to the first violation", "no violations", ...
    void message(const QString &text);

private:
    struct Row
    {
        int waveform;
        ViolationRun run;
    };

    bool step(bool forward);

    VornGraph *m_graph;
    QTreeWidget *m_tree;
    std::vector<Row> m_runs;
    int m_current = -1;
};

#endif
