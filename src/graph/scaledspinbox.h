#ifndef SCALEDSPINBOX_H
#define SCALEDSPINBOX_H

#include "vorngraph_export.h"

#include <QDoubleSpinBox>

// Steps through 1, 2, 5, 10, ... and reads and writes values with an SI prefix and a unit
// ("2 ms", "500 mV").
class VORNGRAPH_EXPORT ScaledSpinBox : public QDoubleSpinBox
{
    Q_OBJECT

public:
    explicit ScaledSpinBox(const QString &unit, QWidget *parent = nullptr);
    ~ScaledSpinBox() override;

    QValidator::State validate(QString &input, int &pos) const override;
    void stepBy(int steps) override;
    double valueFromText(const QString &text) const override;
    QString textFromValue(double value) const override;

    QString unit() const { return m_unit; }

private:
    QString m_unit;
};

// Reads and writes like ScaledSpinBox but steps by a fixed amount, which the graph keeps equal
// to one division so that a step moves the trace by one division.
class VORNGRAPH_EXPORT LinearSpinBox : public ScaledSpinBox
{
    Q_OBJECT

public:
    explicit LinearSpinBox(const QString &unit, QWidget *parent = nullptr);
    ~LinearSpinBox() override;

    void stepBy(int steps) override;

    void setStep(double step) { m_step = step; }
    double step() const { return m_step; }

private:
    double m_step = 1.0;
};

#endif
