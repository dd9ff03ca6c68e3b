#ifndef MESSAGEBOXANSWERER_H
#define MESSAGEBOXANSWERER_H

// Answers the next modal message box the way a user would: waits until it is the active modal
// widget, remembers what it said, and clicks one of its buttons.

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QPointer>
#include <QTimer>

struct MessageBoxAnswerer
{
    QString title;
    QString text;
    QMessageBox::StandardButtons buttons;
    QMessageBox::StandardButton defaultButton = QMessageBox::NoButton;
    int asked = 0;

    // Answers every box that shows up until the object dies, with the answers in turn (the last
    // one repeats).
    explicit MessageBoxAnswerer(QList<QMessageBox::StandardButton> answers)
        : m_answers(std::move(answers))
    {
        QObject::connect(&m_poll, &QTimer::timeout, [this] { answer(); });
        m_poll.start(10);
    }

private:
    void answer()
    {
        auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
        if (!box || box == m_last)
            return;
        m_last = box;
        title = box->windowTitle();
        text = box->text();
        buttons = box->standardButtons();
        defaultButton = box->defaultButton() ? box->standardButton(box->defaultButton()) : QMessageBox::NoButton;
        const QMessageBox::StandardButton choice = m_answers.at(std::min<qsizetype>(asked, m_answers.size() - 1));
        ++asked;
        box->button(choice)->click();
    }

    QList<QMessageBox::StandardButton> m_answers;
    QTimer m_poll;
    QPointer<QMessageBox> m_last;
};

#endif
