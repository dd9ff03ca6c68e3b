#include "scaledspinbox.h"

#include "vornwaveform.h"

#include <cmath>

namespace {

// What may be typed on the way to a prefixed value. It differs from what parses on purpose:
// "f" and the micro sign U+00B5 are let through while typing but never parse, and the Greek mu
// U+03BC parses without being typeable on its own.
const QString &prefixCharacters()
{
    static const QString characters = QStringLiteral(u"TtGgMmKku\u00b5npf");
    return characters;
}

bool isTypeable(QChar c, const QString &unit)
{
    return c.isDigit() || c == u'+' || c == u'-' || c == u'.' || c == u',' || c.isSpace()
        || prefixCharacters().contains(c) || unit.contains(c);
}

} // namespace

ScaledSpinBox::ScaledSpinBox(const QString &unit, QWidget *parent)
    : QDoubleSpinBox(parent)
    , m_unit(unit)
{
    setRange(1e-12, 1e12);
    setDecimals(15);
    setSingleStep(1e-12);
}

ScaledSpinBox::~ScaledSpinBox() = default;

QValidator::State ScaledSpinBox::validate(QString &input, int &pos) const
{
    Q_UNUSED(pos);
    if (input.isEmpty())
        return QValidator::Intermediate;
    if (!std::isnan(parseScaledValue(input, m_unit)))
        return QValidator::Acceptable;
    for (const QChar c : input) {
        if (!isTypeable(c, m_unit))
            return QValidator::Invalid;
    }
    return QValidator::Intermediate;
}

void ScaledSpinBox::stepBy(int steps)
{
    double v = value();
    for (int i = 0; i < steps; ++i)
        v = Scale125::nextUp(v);
    for (int i = 0; i > steps; --i)
        v = Scale125::nextDown(v);
    setValue(v);
}

double ScaledSpinBox::valueFromText(const QString &text) const
{
    const double parsed = parseScaledValue(text, m_unit);
    return std::isnan(parsed) ? value() : parsed;
}

QString ScaledSpinBox::textFromValue(double value) const
{
    return ValueFormatter::formatWithUnit(value, m_unit);
}

LinearSpinBox::LinearSpinBox(const QString &unit, QWidget *parent)
    : ScaledSpinBox(unit, parent)
{
    setRange(-1e12, 1e12);
    setDecimals(15);
}

LinearSpinBox::~LinearSpinBox() = default;

void LinearSpinBox::stepBy(int steps)
{
    setValue(value() + steps * m_step);
}
