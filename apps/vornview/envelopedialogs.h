#ifndef ENVELOPEDIALOGS_H
#define ENVELOPEDIALOGS_H

#include "vornwaveform.h"

#include <QDialog>
#include <QStringList>

#include <functional>

class QLabel;
class QLineEdit;

// A small dialog of labelled text fields for values with prefixes ("2.5 ms", "3.3 V"). OK (and
// Return) hands the texts to a check that says what is wrong; the dialog stays open with that
// reason shown in red until the check passes, so nothing typed is silently changed.
class ValuesDialog : public QDialog
{
    Q_OBJECT

public:
    using Check = std::function<QString(const QStringList &texts)>;

    ValuesDialog(const QString &title, const QStringList &labels, const QStringList &texts, Check check,
                 QWidget *parent = nullptr);
    QStringList texts() const;
    QLineEdit *field(int i) const { return m_fields.value(i); }
    QString error() const;

    void accept() override;

private:
    QList<QLineEdit *> m_fields;
    QLabel *m_error;
    Check m_check;
};

// The waveform of that name in a capture file; empty, with the reason, when it cannot be read.
WaveformData loadCaptureWaveform(const QString &path, const QString &name, QString *error);

#endif
