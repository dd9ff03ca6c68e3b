#ifndef WAVEFORMWINDOW_H
#define WAVEFORMWINDOW_H

#include "vorngraph_export.h"
#include "vornwaveform.h"

#include <QVector>
#include <QWidget>

class QAction;
class QLabel;
class QMenu;
class QMenuBar;
class VornGraph;
struct AlignmentOptions;

// A ready-made top-level window: shows the waveforms of one sigrok session file, edits and
// deletes their envelopes, and writes them back on Save.
class VORNGRAPH_EXPORT WaveformWindow : public QWidget
{
    Q_OBJECT

public:
    explicit WaveformWindow(const QString &filePath, const QString &title, QWidget *parent = nullptr);
    ~WaveformWindow() override;

    void showModal();
    void showNonModal();
    // Shows the window application-modal and returns once it was closed.
    void execModal();

    void setEnvelopeEditingEnabled(bool enabled);
    void setEnvelopeEditorPointCount(int count);
    void startEnvelopeEditing(int index);
    void finishEnvelopeEditing();
    void cancelEnvelopeEditing();
    bool isEnvelopeEditing() const;
    bool canFinishEnvelopeEditing() const;

    VornGraph *graph() const { return m_graph; }
    // For hosts that extend the menus or give the actions keys.
    QMenuBar *menuBar() const { return m_menuBar; }
    QMenu *fileMenu() const { return m_fileMenu; }
    QMenu *envelopeMenu() const { return m_envelopeMenu; }
    QAction *nextViolationAction() const { return m_nextViolationAction; }
    QAction *previousViolationAction() const { return m_previousViolationAction; }
    QAction *saveAction() const { return m_saveAction; }
    QAction *closeAction() const { return m_closeAction; }

    // Writes the envelope of every waveform whose envelope the user changed, added or deleted
    // since the file was read or last saved here, and touches no other. Refuses, keeping the
    // edits, when the file on disk is no longer the one that was read. False, with
    // lastSaveError() and saveFailed(), when it refused or a write failed.
    bool saveChangedEnvelopes();
    // Whether the file on disk is still the one read (or last written) by this window.
    bool fileUnchangedSinceRead() const;
    // Whether waveform index's envelope differs from the file as read or last saved here.
    bool isEnvelopeChanged(int index) const;

    // True while the envelopes differ from what the file holds, and after a save that failed.
    bool hasUnsavedChanges() const;
    // Why the last save failed; empty once a save succeeded.
    QString lastSaveError() const { return m_lastSaveError; }

    // "A1: fail, 3 violations, first at 12.5 ms", one line per waveform with an envelope.
    QString envelopeCheckSummary() const;
    void showNextViolation();
    void showPreviousViolation();

    // Takes the envelopes of a golden capture for the waveforms of the same name, each aligned as
    // asked and drawn at its shift; they reach the file on Save. One line per waveform ("A1: shift
    // 312 µs", or why it could not be aligned); empty, with error set, when the golden capture
    // cannot be read or matches no waveform (waveformwindow_golden.cpp).
    QStringList checkAgainst(const QString &goldenPath, const AlignmentOptions &options, QString *error = nullptr);

signals:
    void closed();
    void envelopeEditingFinished(int waveformIndex);
    void envelopeEditorStateChanged();
    // The window reports nothing itself; these let a host tell the user.
    void saveFailed(const QString &reason);
    void modificationChanged(bool modified);

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void closeEvent(QCloseEvent *event) override;

private slots:
    void onSaveTriggered();
    void onCloseTriggered();
    void onEditEnvelopeTriggered();
    void onEditEnvelopeRequested(int waveformIndex);
    void onDeleteEnvelopeTriggered();
    void onDeleteEnvelopeRequested(int waveformIndex);
    void onEnvelopeStateChanged();
    void onWaveformSelectionChanged(int index);
    void onEnvelopeChecked();

private:
    void setupMenuBar();
    void updateEnvelopeActions(int index);
    void showEnvelopeEditorDialog(int index);
    void showError(const QString &text);

    // The envelope check: summary and violation navigation (waveformwindow_check.cpp)
    void setupEnvelopeCheck();
    int violationWaveformIndex() const;

    // Loading (waveformwindow_loading.cpp)
    void loadWaveforms(const QString &filePath);
    void processWaveformsAndEnvelopes(QVector<WaveformData> &waveforms);

    // Change tracking and persistence (waveformwindow_persistence.cpp)
    void storeOriginalEnvelopes();
    bool hasEnvelopeChanges() const;
    bool envelopesDifferFrom(const QVector<EnvelopeData> &snapshot) const;
    void deleteEnvelopeWithConfirmation(int waveformIndex);
    void updateModification();
    void failSave(const QString &reason);
    static QByteArray captureIdentity(const QString &path);

    VornGraph *m_graph = nullptr;
    QMenuBar *m_menuBar = nullptr;
    QMenu *m_fileMenu = nullptr;
    QAction *m_saveAction = nullptr;
    QAction *m_closeAction = nullptr;
    QMenu *m_envelopeMenu = nullptr;
    QAction *m_editEnvelopeAction = nullptr;
    QAction *m_deleteEnvelopeAction = nullptr;
    QString m_filePath;
    QVector<EnvelopeData> m_originalEnvelopes;
    bool m_envelopeEditingEnabled = true;
    QVector<EnvelopeData> m_fileEnvelopes;
    QString m_lastSaveError;
    bool m_modified = false;
    QByteArray m_fileIdentity; // of the file as read or last written here
    QAction *m_nextViolationAction = nullptr;
    QAction *m_previousViolationAction = nullptr;
    QLabel *m_checkSummaryLabel = nullptr;
};

#endif
