#ifndef VIEWERWINDOW_H
#define VIEWERWINDOW_H

#include "vornwaveform.h"

#include <QMainWindow>

class QAction;
class QLabel;
class QMenu;
class QStackedWidget;
class CaptureOpening;
class EnvelopeTools;
class WaveformWindow;

// The viewer's top-level window: holds at most one capture in a WaveformWindow, opens others
// (dialog, recent files, drop), and makes sure no edit is lost without the user's word.
class ViewerWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit ViewerWindow(QWidget *parent = nullptr);

    // Opens path in place of the current capture once the user agreed to leave it. A capture that
    // cannot be read leaves the current one open; returns whether path is open now.
    bool openFile(const QString &path);
    // Writes a copy of the capture as it is on disk, with the envelopes the user changed, to path
    // and opens the copy; the capture itself stays as it is. Returns whether the copy is open now.
    // A name without a suffix gets .sr.
    bool saveAs(const QString &path);
    WaveformWindow *document() const { return m_document; }
    static QStringList recentFiles();

signals:
    // The reading of path began; cancelOpening() stops it.
    void openingStarted(const QString &path);

public slots:
    // Stops the capture being read; the capture open before stays open as it was.
    void cancelOpening();

protected:
    void closeEvent(QCloseEvent *event) override;
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dropEvent(QDropEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private slots:
    void onOpenTriggered();
    void onRecentMenuAboutToShow();
    void onAboutTriggered();
    void onSaveFailed(const QString &reason);
    void onSaveTriggered();
    void onSaveAsTriggered();
    void onReloadTriggered();
    void onEnvelopeEditingStarted(int waveformIndex);
    void onEnvelopeApplied(int waveformIndex, const EnvelopeData &envelope);

private:
    void createActions();
    bool loadFile(const QString &path);
    bool writeCopy(const QString &path, QString &error) const;
    void addViewMenu(WaveformWindow *document);
    QString unusableEnvelopeReason(int waveformIndex, const EnvelopeData &envelope) const;
    void setDocument(WaveformWindow *document, const QString &path);
    void extendDocumentMenus(WaveformWindow *document);
    bool maybeLeaveDocument();
    bool saveDocument();
    void closeDocument();
    void storeRecentFiles(QStringList files);
    void updateTitle();

    QAction *m_openAction = nullptr;
    QAction *m_saveAction = nullptr;
    QAction *m_saveAsAction = nullptr;
    QAction *m_reloadAction = nullptr;
    QAction *m_quitAction = nullptr;
    QMenu *m_recentMenu = nullptr;
    QMenu *m_helpMenu = nullptr;
    QStackedWidget *m_stack = nullptr;
    QLabel *m_placeholder = nullptr;
    WaveformWindow *m_document = nullptr;
    EnvelopeTools *m_envelopeTools = nullptr; // the document's undo history and envelope operations
    CaptureOpening *m_opening = nullptr;
    QString m_filePath;
    EnvelopeData m_envelopeBeforeEdit; // what Apply replaces, to go back to when it is refused
};

#endif
