#include "envelopedialogs.h"

#include "waveform_sigrok.h"

#include <QDialogButtonBox>
#include <QFileInfo>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>

ValuesDialog::ValuesDialog(const QString &title, const QStringList &labels, const QStringList &texts, Check check,
                           QWidget *parent)
    : QDialog(parent)
    , m_error(new QLabel(this))
    , m_check(std::move(check))
{
    setWindowTitle(title);
    auto *form = new QFormLayout(this);
    for (int i = 0; i < labels.size(); ++i) {
        auto *field = new QLineEdit(texts.value(i), this);
        m_fields.append(field);
        form->addRow(labels.at(i), field);
    }
    m_error->setStyleSheet(QStringLiteral("color: #c00000;"));
    m_error->setWordWrap(true);
    m_error->hide();
    form->addRow(m_error);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    form->addRow(buttons);
}

QStringList ValuesDialog::texts() const
{
    QStringList texts;
    for (const QLineEdit *field : m_fields)
        texts.append(field->text());
    return texts;
}

QString ValuesDialog::error() const
{
    return m_error->isVisible() ? m_error->text() : QString();
}

void ValuesDialog::accept()
{
    const QString problem = m_check ? m_check(texts()) : QString();
    if (problem.isEmpty()) {
        QDialog::accept();
        return;
    }
    m_error->setText(problem);
    m_error->show();
    adjustSize();
}

WaveformData loadCaptureWaveform(const QString &path, const QString &name, QString *error)
{
    const QByteArray file = QFile::encodeName(path);
    const auto fail = [&](const QString &reason) {
        if (error)
            *error = QStringLiteral("%1: %2").arg(QFileInfo(path).fileName(), reason);
        return WaveformData();
    };
    int32_t count = 0;
    if (sigrok_read_waveform_count(file.constData(), &count) != 0)
        return fail(QString::fromUtf8(sigrok_get_last_error()));
    for (int32_t i = 0; i < count; ++i) {
        SigrokWaveformInfo info{};
        if (sigrok_read_waveform_info_by_index(file.constData(), i, &info) != 0)
            return fail(QString::fromUtf8(sigrok_get_last_error()));
        if (QString::fromUtf8(info.name) != name)
            continue;
        WaveformData waveform;
        waveform.name = name;
        waveform.unit = QString::fromUtf8(info.unit);
        waveform.sampleInterval = info.sampleInterval;
        waveform.startTime = info.startTime;
        if (!allocateSamples(waveform.samples.writable(), info.sampleCount))
            return fail(QObject::tr("not enough memory for %1 samples").arg(info.sampleCount));
        if (sigrok_read_waveform_data_by_index(file.constData(), i, waveform.samples.writable().data(),
                                               info.sampleCount) != 0)
            return fail(QString::fromUtf8(sigrok_get_last_error()));
        return waveform;
    }
    return fail(QObject::tr("no waveform named %1").arg(name));
}
