#ifndef CHECKAGAINST_H
#define CHECKAGAINST_H

#include <QObject>
#include <QPointer>

class QAction;
class QDockWidget;
class QLabel;
class QMainWindow;
class ViolationList;
class WaveformWindow;

// File ▸ Check Against… for one open capture: takes a golden capture's envelopes, aligned as the
// user asks, and lists the runs of violations in a dock; F3 and Shift+F3 step through them.
// Lives as long as the capture's window.
class CheckAgainst : public QObject
{
    Q_OBJECT

public:
    CheckAgainst(QMainWindow *window, WaveformWindow *document);

    QAction *action() const { return m_action; }
    ViolationList *violationList() const { return m_list; }
    // Takes the dock out of the window now rather than with the capture, which goes later: the
    // next capture must lay itself out in the room the dock leaves.
    void removeDock();

signals:
    void checkedAgainst(const QString &goldenPath);

private:
    void onTriggered();

    QMainWindow *m_window;
    WaveformWindow *m_document;
    QAction *m_action;
    QPointer<QDockWidget> m_dock;
    QLabel *m_shifts;
    ViolationList *m_list;
};

#endif
