#include "vornmask.h"

#include <cmath>

void BatchTally::add(const QString &file, const EnvelopeCheckResult &result)
{
    ++m_tested;
    m_passed += result.passed();
    // A capture that could not be judged has no margin, but it is the worst of all.
    const double margin = result.failure.isEmpty() ? result.minMargin : -INFINITY;
    if (!std::isnan(margin) && (std::isnan(m_worstMargin) || margin < m_worstMargin)) {
        m_worstMargin = margin;
        m_worstFile = file;
    }
}

QString BatchTally::line() const
{
    const double rate = m_tested ? 100.0 * failed() / m_tested : 0.0;
    QString text = QStringLiteral("%1: %2 tested, %3 passed, %4 failed (%5 %)")
                       .arg(m_waveform)
                       .arg(m_tested)
                       .arg(m_passed)
                       .arg(failed())
                       .arg(rate, 0, 'f', 1);
    if (std::isinf(m_worstMargin))
        text += QStringLiteral(", worst %1 (not judged)").arg(m_worstFile);
    else if (!std::isnan(m_worstMargin))
        text += QStringLiteral(", worst margin %1 in %2").arg(marginText(m_worstMargin), m_worstFile);
    return text;
}

QString marginText(double margin)
{
    // Three digits, without an exponent for the large margins of a capture far outside.
    const double percent = margin * 100;
    return std::fabs(percent) >= 100 ? QStringLiteral("%1 %").arg(percent, 0, 'f', 0)
                                     : QStringLiteral("%1 %").arg(percent, 0, 'g', 3);
}
