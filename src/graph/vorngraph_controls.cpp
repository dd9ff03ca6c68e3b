#include "vorngraph.h"

#include "scaledspinbox.h"

#include <QSignalBlocker>
#include <QVariant>

namespace {

// One 1-2-5 step from the last accepted value, whatever was typed: the typed number only tells
// the direction.
double oneStepFrom(double last, double typed)
{
    return typed > last ? Scale125::nextUp(last) : Scale125::nextDown(last);
}

void acceptStep(QDoubleSpinBox *box, double value)
{
    box->setValue(value);
    box->setProperty("lastValue", value);
}

} // namespace

QDoubleSpinBox *VornGraph::createDivisionSpinBox(size_t waveformIndex, double initialValue, const QString &unit)
{
    auto *box = new ScaledSpinBox(unit, this);
    box->setValue(initialValue);
    box->setProperty("waveformIndex", QVariant::fromValue<quint64>(waveformIndex));
    box->setProperty("lastValue", initialValue);
    adoptTreeBox(box);
    connect(box, &QDoubleSpinBox::valueChanged, this, &VornGraph::onDivisionSpinBoxChanged);
    return box;
}

QDoubleSpinBox *VornGraph::createTimeDivisionSpinBox()
{
    auto *box = new ScaledSpinBox(QStringLiteral("s"), this);
    box->setValue(m_timePerDivision);
    box->setProperty("lastValue", m_timePerDivision);
    adoptTreeBox(box);
    connect(box, &QDoubleSpinBox::valueChanged, this, &VornGraph::onTimeDivisionSpinBoxChanged);
    return box;
}

QDoubleSpinBox *VornGraph::createTimeOffsetSpinBox()
{
    auto *box = new LinearSpinBox(QStringLiteral("s"), this);
    box->setValue(m_timeOffset);
    box->setStep(m_timePerDivision);
    adoptTreeBox(box);
    connect(box, &QDoubleSpinBox::valueChanged, this, &VornGraph::onTimeOffsetSpinBoxChanged);
    return box;
}

QDoubleSpinBox *VornGraph::createWaveformOffsetSpinBox(size_t waveformIndex)
{
    const qsizetype index = static_cast<qsizetype>(waveformIndex);
    const double initial = index < m_offsets.size() ? m_offsets[index] : 0.0;
    const QString unit = index < m_waveforms.size() ? m_waveforms.at(index).unit : QString();
    auto *box = new LinearSpinBox(unit, this);
    box->setValue(initial);
    if (index < m_divisionSizes.size())
        box->setStep(m_divisionSizes[index]);
    box->setProperty("waveformIndex", QVariant::fromValue<quint64>(waveformIndex));
    adoptTreeBox(box);
    connect(box, &QDoubleSpinBox::valueChanged, this, &VornGraph::onWaveformOffsetSpinBoxChanged);
    return box;
}

void VornGraph::onDivisionSpinBoxChanged(double value)
{
    auto *box = qobject_cast<QDoubleSpinBox *>(sender());
    if (!box)
        return;
    const int index = box->property("waveformIndex").toInt();
    if (index < 0 || index >= m_divisionSizes.size())
        return;
    const double size = oneStepFrom(box->property("lastValue").toDouble(), value);
    const QSignalBlocker blocker(box);
    acceptStep(box, size);
    m_divisionSizes[index] = size;
    updateYAxisForWaveform(index, size);
    if (index < m_offsetSpinBoxes.size()) {
        if (auto *offsetBox = qobject_cast<LinearSpinBox *>(m_offsetSpinBoxes[index]))
            offsetBox->setStep(size);
    }
}

void VornGraph::onTimeDivisionSpinBoxChanged(double value)
{
    auto *box = qobject_cast<QDoubleSpinBox *>(sender());
    if (!box)
        return;
    const double timePerDivision = oneStepFrom(box->property("lastValue").toDouble(), value);
    const QSignalBlocker blocker(box);
    acceptStep(box, timePerDivision);
    m_timePerDivision = timePerDivision;
    updateXAxis(timePerDivision);
    if (auto *offsetBox = qobject_cast<LinearSpinBox *>(m_timeOffsetSpinBox))
        offsetBox->setStep(timePerDivision);
}

void VornGraph::onTimeOffsetSpinBoxChanged(double value)
{
    m_timeOffset = value;
    updateXAxis(m_timePerDivision);
}

void VornGraph::onWaveformOffsetSpinBoxChanged(double value)
{
    auto *box = qobject_cast<QDoubleSpinBox *>(sender());
    if (!box)
        return;
    const int index = box->property("waveformIndex").toInt();
    if (index < 0 || index >= m_offsets.size())
        return;
    m_offsets[index] = value;
    updateYAxisForWaveform(index, m_divisionSizes[index]);
    updateZeroLines();
}
