#ifndef WAVEFORMWINDOW_H
#define WAVEFORMWINDOW_H

#include "vorngraph_export.h"
#include "vornwaveform.h"

#include <QVector>
#include <QWidget>

class QAction;
class QMenu;
class QMenuBar;
class VornGraph;

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

signals:
    void closed();
    void envelopeEditingFinished(int waveformIndex);
    void envelopeEditorStateChanged();

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

private:
    void setupMenuBar();
    void setupViewMenu(); // waveformwindow_view.cpp
    void updateEnvelopeActions(int index);
    void showEnvelopeEditorDialog(int index);
    void showError(const QString &text);

    // Loading (waveformwindow_loading.cpp)
    void loadWaveforms(const QString &filePath);
    void processWaveformsAndEnvelopes(QVector<WaveformData> &waveforms);

    // Change tracking and persistence (waveformwindow_persistence.cpp)
    void storeOriginalEnvelopes();
    bool hasEnvelopeChanges() const;
    void deleteEnvelopeWithConfirmation(int waveformIndex);

    VornGraph *m_graph = nullptr;
    QMenuBar *m_menuBar = nullptr;
    QMenu *m_fileMenu = nullptr;
    QAction *m_saveAction = nullptr;
    QAction *m_closeAction = nullptr;
    QMenu *m_envelopeMenu = nullptr;
    QAction *m_editEnvelopeAction = nullptr;
    QAction *m_deleteEnvelopeAction = nullptr;
    QMenu *m_viewMenu = nullptr;
    QAction *m_stackedAction = nullptr;
    QAction *m_overlaidAction = nullptr;
    QAction *m_cursorsAction = nullptr;
    QString m_filePath;
    QVector<EnvelopeData> m_originalEnvelopes;
    bool m_envelopeEditingEnabled = true;
};

#endif
