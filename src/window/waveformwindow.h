#ifndef WAVEFORMWINDOW_H
#define WAVEFORMWINDOW_H

#include "vorngraph_export.h"
#include "vornwaveform.h"

#include <QVector>
#include <QWidget>

#include <functional>

class QAction;
class QLabel;
class QMenu;
class QMenuBar;
class VornGraph;
struct AlignmentOptions;

/// A ready-made top-level window: shows the waveforms of one sigrok session file, edits and
/// deletes their envelopes, and writes them back on Save.
class VORNGRAPH_EXPORT WaveformWindow : public QWidget
{
    Q_OBJECT

public:
    /// Reads the waveforms and envelopes of the session file filePath and shows them under title.
    /// A file that cannot be read gets a message box and leaves the chart empty; the file is not
    /// touched.
    explicit WaveformWindow(const QString &filePath, const QString &title, QWidget *parent = nullptr);
    /// The same, calling prepareGraph on graph() before the waveforms are displayed, for what
    /// must be set before VornGraph::displayGraph() (VornGraph::setUseOpenGL()).
    WaveformWindow(const QString &filePath, const QString &title, QWidget *parent,
                   const std::function<void(VornGraph *)> &prepareGraph);
    /// Shows a capture the host read itself with readCapture(), off the GUI thread if it likes, as
    /// the constructor above shows one it reads: envelopes paired, checked, and saved to
    /// capture.path. A capture that failed or was cancelled holds no waveform and leaves the chart
    /// empty; telling the user is the host's part. prepareGraph is called as in the constructor
    /// above.
    WaveformWindow(const CaptureContents &capture, const QString &title, QWidget *parent = nullptr,
                   const std::function<void(VornGraph *)> &prepareGraph = {});
    /// Closes without asking; unsaved envelope changes are lost.
    ~WaveformWindow() override;

    /// Shows the window application-modal and returns at once; closed() reports the end.
    void showModal();
    /// Shows the window as an ordinary top-level window and returns at once.
    void showNonModal();
    /// Shows the window application-modal and returns once it was closed.
    void execModal();

    /// Allows envelope edits, the default. Off, the window is a viewer: no Save, no Envelope menu,
    /// no edit, and no question on closing.
    void setEnvelopeEditingEnabled(bool enabled);
    /// Points a new envelope starts with (at least 2).
    void setEnvelopeEditorPointCount(int count);
    /// Starts editing waveform index's envelope, a new one by region if it has none; ignored while
    /// editing is disabled.
    void startEnvelopeEditing(int index);
    /// Apply: ends the running edit and keeps its envelope (unsaved until Save); ignored when none
    /// runs.
    void finishEnvelopeEditing();
    /// Ends the running edit and drops it; ignored when none runs.
    void cancelEnvelopeEditing();
    /// Whether an envelope edit runs.
    bool isEnvelopeEditing() const;
    /// Whether Apply would deliver an envelope now.
    bool canFinishEnvelopeEditing() const;

    /// The chart the window shows, owned by the window.
    VornGraph *graph() const { return m_graph; }
    /// For hosts that extend the menus or give the actions keys.
    QMenuBar *menuBar() const { return m_menuBar; }
    /// The File menu (Save, Close).
    QMenu *fileMenu() const { return m_fileMenu; }
    /// The Envelope menu (Edit, Delete).
    QMenu *envelopeMenu() const { return m_envelopeMenu; }
    /// Centres the next violation of the selected waveform, or of the first failing one.
    QAction *nextViolationAction() const { return m_nextViolationAction; }
    /// Centres the previous violation of the selected waveform, or of the first failing one.
    QAction *previousViolationAction() const { return m_previousViolationAction; }
    /// File ▸ Save: saveChangedEnvelopes().
    QAction *saveAction() const { return m_saveAction; }
    /// File ▸ Close: closes the window, asking about unsaved changes first.
    QAction *closeAction() const { return m_closeAction; }

    /// Writes the envelope of every waveform whose envelope the user changed, added or deleted
    /// since the file was read or last saved here, and touches no other. Refuses, keeping the
    /// edits, when the file on disk is no longer the one that was read. False, with
    /// lastSaveError() and saveFailed(), when it refused or a write failed.
    bool saveChangedEnvelopes();
    /// Whether the file on disk is still the one read (or last written) by this window.
    bool fileUnchangedSinceRead() const;
    /// Runs write on the file, a change the host makes itself (such as members of its own beside
    /// the envelopes), as the window's own saves run: refused, false with error, when the file on
    /// disk is no longer the one read; once write succeeded, the file as written is the one read,
    /// so that the next Save does not take it for a change made elsewhere. Envelope edits not yet
    /// saved stay as they are. write gets the file's path and returns false with a reason.
    bool rewriteFile(const std::function<bool(const QString &path, QString *error)> &write, QString *error = nullptr);
    /// Whether waveform index's envelope differs from the file as read or last saved here.
    bool isEnvelopeChanged(int index) const;

    /// True while the envelopes differ from what the file holds, and after a save that failed.
    bool hasUnsavedChanges() const;
    /// Why the last save failed; empty once a save succeeded.
    QString lastSaveError() const { return m_lastSaveError; }

    /// "A1: fail, 3 violations, first at 12.5 ms", one line per waveform with an envelope.
    QString envelopeCheckSummary() const;
    /// Centres the time base on the next violation of the selected waveform, or of the first
    /// failing one.
    void showNextViolation();
    /// Centres the time base on the previous violation of the selected waveform, or of the first
    /// failing one.
    void showPreviousViolation();

    /// Takes the envelopes of a golden capture for the waveforms of the same name, each aligned as
    /// asked and drawn at its shift; they reach the file on Save. One line per waveform ("A1: shift
    /// 312 µs", or why it could not be aligned); empty, with error set, when the golden capture
    /// cannot be read or matches no waveform (waveformwindow_golden.cpp).
    QStringList checkAgainst(const QString &goldenPath, const AlignmentOptions &options, QString *error = nullptr);

signals:
    /// The window closed (the user did not cancel the question about unsaved changes).
    void closed();
    /// Not emitted by the window itself; VornGraph::envelopeEditingFinished() on graph() reports an
    /// applied edit.
    void envelopeEditingFinished(int waveformIndex);
    /// An envelope edit started, moved on to its points, or ended.
    void envelopeEditorStateChanged();
    /// The window reports nothing itself; these let a host tell the user.
    void saveFailed(const QString &reason);
    /// hasUnsavedChanges() turned to modified.
    void modificationChanged(bool modified);

protected:
    /// Return or Enter closes the window unless an envelope edit runs.
    void keyPressEvent(QKeyEvent *event) override;
    /// Asks whether to save changed envelopes (Yes, No, Cancel); Cancel keeps the window open.
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
    void setupWindow(const QString &title);
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
