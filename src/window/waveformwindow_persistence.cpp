#include "waveformwindow.h"

#include "vorngraph.h"

#include <QFile>
#include <QFileInfo>
#include <QMessageBox>

#include <cmath>

namespace {

// NaN marks a gap: two gaps at the same place are equal, a gap against a number is not.
bool sameSamples(const std::vector<double> &a, const std::vector<double> &b)
{
    if (a.size() != b.size())
        return false;
    for (size_t i = 0; i < a.size(); ++i) {
        const bool nanA = std::isnan(a[i]);
        const bool nanB = std::isnan(b[i]);
        if (nanA != nanB || (!nanA && a[i] != b[i]))
            return false;
    }
    return true;
}

bool sameEnvelope(const EnvelopeData &a, const EnvelopeData &b)
{
    if (a.isEmpty() || b.isEmpty())
        return a.isEmpty() == b.isEmpty();
    return sameSamples(*a.upper.samples, *b.upper.samples) && sameSamples(*a.lower.samples, *b.lower.samples);
}

} // namespace

QByteArray WaveformWindow::captureIdentity(const QString &path)
{
    return captureFileIdentity(path);
}

void WaveformWindow::storeOriginalEnvelopes()
{
    const int count = m_graph->waveformCount();
    m_originalEnvelopes.resize(count);
    for (int i = 0; i < count; ++i) {
        if (m_graph->hasEnvelope(i))
            m_originalEnvelopes[i] = m_graph->envelope(i);
    }
    // What the file holds now, deletions included, for hosts that ask about unsaved changes.
    m_fileEnvelopes.resize(count);
    for (int i = 0; i < count; ++i)
        m_fileEnvelopes[i] = m_graph->hasEnvelope(i) ? m_graph->envelope(i) : EnvelopeData();
}

bool WaveformWindow::hasEnvelopeChanges() const
{
    return envelopesDifferFrom(m_originalEnvelopes);
}

// An empty element of the snapshot stands for a waveform without an envelope.
bool WaveformWindow::envelopesDifferFrom(const QVector<EnvelopeData> &snapshot) const
{
    const int count = m_graph->waveformCount();
    for (int i = 0; i < count && i < snapshot.size(); ++i) {
        const EnvelopeData &original = snapshot[i];
        const bool had = !original.isEmpty();
        const bool has = m_graph->hasEnvelope(i);
        if (had != has)
            return true;
        if (has) {
            const EnvelopeData &current = m_graph->envelope(i);
            if (!sameSamples(*original.upper.samples, *current.upper.samples)
                || !sameSamples(*original.lower.samples, *current.lower.samples))
                return true;
        }
    }
    return false;
}

void WaveformWindow::onSaveTriggered()
{
    // Every waveform is written or cleared, changed or not; a failed write is not reported here,
    // only remembered for the host.
    m_lastSaveError.clear();
    for (int i = 0; i < m_graph->waveformCount(); ++i) {
        const QString name = m_graph->waveformName(i);
        const bool saved = m_graph->hasEnvelope(i) ? saveEnvelope(m_filePath, name, m_graph->envelope(i))
                                                   : removeEnvelope(m_filePath, name);
        if (!saved && m_lastSaveError.isEmpty())
            m_lastSaveError = lastEnvelopeFileError();
    }
    // A deleted envelope stays in the snapshot on purpose: the next close asks again.
    storeOriginalEnvelopes();
    m_fileIdentity = captureIdentity(m_filePath);
    if (!m_lastSaveError.isEmpty())
        emit saveFailed(m_lastSaveError);
    updateModification();
}

bool WaveformWindow::fileUnchangedSinceRead() const
{
    return !m_fileIdentity.isEmpty() && captureIdentity(m_filePath) == m_fileIdentity;
}

bool WaveformWindow::rewriteFile(const std::function<bool(const QString &path, QString *error)> &write, QString *error)
{
    if (!fileUnchangedSinceRead()) {
        if (error)
            *error = tr("%1 was changed or replaced on disk since it was read; nothing was written. "
                        "Reload it, or save the envelopes as a new file.")
                         .arg(QFileInfo(m_filePath).fileName());
        return false;
    }
    if (!write(m_filePath, error))
        return false;
    m_fileIdentity = captureIdentity(m_filePath);
    return true;
}

bool WaveformWindow::isEnvelopeChanged(int index) const
{
    if (index < 0 || index >= m_graph->waveformCount())
        return false;
    const EnvelopeData current = m_graph->hasEnvelope(index) ? m_graph->envelope(index) : EnvelopeData();
    return !sameEnvelope(current, m_fileEnvelopes.value(index));
}

bool WaveformWindow::saveChangedEnvelopes()
{
    m_lastSaveError.clear();
    if (!fileUnchangedSinceRead()) {
        failSave(tr("%1 was changed or replaced on disk since it was read; nothing was written. "
                    "Reload it, or save the envelopes as a new file.")
                     .arg(QFileInfo(m_filePath).fileName()));
        return false;
    }
    const int count = m_graph->waveformCount();
    m_fileEnvelopes.resize(count);
    m_originalEnvelopes.resize(count);
    for (int i = 0; i < count; ++i) {
        if (!isEnvelopeChanged(i))
            continue;
        const EnvelopeData current = m_graph->hasEnvelope(i) ? m_graph->envelope(i) : EnvelopeData();
        const QString name = m_graph->waveformName(i);
        if (!(current.isEmpty() ? removeEnvelope(m_filePath, name) : saveEnvelope(m_filePath, name, current))) {
            failSave(lastEnvelopeFileError());
            return false;
        }
        // Our own write replaced the file: it is the one read from now on.
        m_fileIdentity = captureIdentity(m_filePath);
        m_fileEnvelopes[i] = current;
        if (!current.isEmpty())
            m_originalEnvelopes[i] = current;
    }
    updateModification();
    return true;
}

void WaveformWindow::failSave(const QString &reason)
{
    m_lastSaveError = reason;
    emit saveFailed(reason);
    updateModification();
}

bool WaveformWindow::hasUnsavedChanges() const
{
    return !m_lastSaveError.isEmpty() || envelopesDifferFrom(m_fileEnvelopes);
}

void WaveformWindow::updateModification()
{
    const bool modified = hasUnsavedChanges();
    if (modified != m_modified) {
        m_modified = modified;
        emit modificationChanged(modified);
    }
}

void WaveformWindow::deleteEnvelopeWithConfirmation(int waveformIndex)
{
    const auto answer = QMessageBox::question(this, tr("Delete Envelope"),
                                              tr("Do you really want to delete the envelope?"),
                                              QMessageBox::Yes | QMessageBox::No, QMessageBox::No);
    if (answer == QMessageBox::Yes) {
        m_graph->clearEnvelope(waveformIndex);
        updateModification();
    }
}
