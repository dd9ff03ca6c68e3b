#ifndef ENVELOPETOOLS_H
#define ENVELOPETOOLS_H

#include "vornwaveform.h"

#include <QObject>
#include <QVector>

#include <optional>

class QAction;
class QMenu;
class QUndoGroup;
class QUndoStack;
class QWidget;
class VornGraph;
class WaveformWindow;

// The viewer's envelope work on one open capture: undo and redo of every envelope change (and of
// every step inside a knot edit), widening, envelopes made from good captures, typed knot values.
// It adds an Edit menu and entries of the Envelope menu to the capture's menu bar.
class EnvelopeTools : public QObject
{
    Q_OBJECT

public:
    EnvelopeTools(WaveformWindow *document, QWidget *dialogParent);
    ~EnvelopeTools() override;

    QUndoStack *undoStack() const { return m_documentStack; }
    QAction *undoAction() const { return m_undoAction; }
    QAction *redoAction() const { return m_redoAction; }
    QAction *widenAction() const { return m_widenAction; }
    QAction *makeFromCapturesAction() const { return m_makeFromAction; }
    // True while the envelopes differ from the last save (or open) by the undo history, or a
    // save failed.
    bool isModified() const;

    // The operations behind the menu entries, without their dialogs. Each is one undo step;
    // false, with the reason, when nothing was changed.
    // fraction widens each limit further by that part of its own value (0.05 for 5 %).
    bool widen(int index, double dx, double dy, double fraction = 0.0, QString *error = nullptr);
    bool makeFromCaptures(int index, const QStringList &paths, QString *error = nullptr);
    // The envelope the knot construction makes from index's own samples: tight where the trace
    // bends, past what the editor's point count can hold.
    bool fitToWaveform(int index, QString *error = nullptr);
    // The envelopes as they are now are the saved ones.
    void markSaved();
    // Takes back the step that just changed index's envelope (an Apply the viewer refuses): the
    // envelope before it returns and the step is gone from undo and redo. False when that change
    // made no step, or other steps came after it.
    bool withdrawLastStep(int index);
    // Starts selecting a second region of index's envelope; Apply adds it, gaps stay gaps.
    void addRegion(int index);

signals:
    void modificationChanged(bool modified);

private:
    class EnvelopeCommand;
    class KnotCommand;
    friend class EnvelopeCommand;
    friend class KnotCommand;

    void createActions();
    int targetWaveform() const;
    void onEnvelopeChecked(int index);
    void onEditorStateChanged();
    void onKnotsEdited(const QString &step);
    void onWidenTriggered();
    void onMakeFromTriggered();
    void onEditKnotRequested(int knot);
    void onSaveTriggered();
    void applyEnvelope(int index, const EnvelopeData &envelope);
    void updateModification();

    WaveformWindow *m_document;
    VornGraph *m_graph;
    QWidget *m_dialogParent;
    QUndoGroup *m_group;
    QUndoStack *m_documentStack;
    QUndoStack *m_editStack;
    QAction *m_undoAction = nullptr;
    QAction *m_redoAction = nullptr;
    QAction *m_widenAction = nullptr;
    QAction *m_makeFromAction = nullptr;
    QAction *m_toggleKnotAction = nullptr;
    QAction *m_editKnotAction = nullptr;
    QAction *m_addRegionAction = nullptr;
    int m_regionIndex = -1; // the waveform whose region edit runs
    EnvelopeData m_regionBase;
    QVector<EnvelopeData> m_shown; // what the graph held after the last recorded step
    QVector<EnvelopePoint> m_knots; // the knots after the last recorded step of the running edit
    EnvelopeCommand *m_lastStep = nullptr; // pushed by the latest envelope change, if any
    QString m_nextStepName;
    // Captures drawn behind the waveform before and after the next step, when it changes them.
    struct Backgrounds
    {
        QList<QVector<QPointF>> before, after;
    };
    std::optional<Backgrounds> m_nextBackgrounds;
    bool m_replaying = false;
    bool m_modified = false;
};

#endif
