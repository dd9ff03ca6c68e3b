#include "envelopeeditoroverlay.h"

#include <QSignalBlocker>

#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>

#include <algorithm>

namespace {

constexpr int PANEL_WIDTH = 220;
constexpr int BUTTON_MIN_WIDTH = 80;

} // namespace

EnvelopeEditorOverlay::EnvelopeEditorOverlay(QWidget *parent)
    : QFrame(parent)
{
    setupUi();
    applyStylesheet();
    connectSignals();
}

void EnvelopeEditorOverlay::setupUi()
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(12, 8, 12, 8);

    m_statusLabel = new QLabel(tr("Select region on chart..."), this);
    layout->addWidget(m_statusLabel);

    auto *countRow = new QHBoxLayout;
    m_pointCountLabel = new QLabel(tr("Points:"), this);
    countRow->addWidget(m_pointCountLabel);
    m_pointCountSpinBox = new QSpinBox(this);
    m_pointCountSpinBox->setRange(2, 100);
    m_pointCountSpinBox->setValue(10);
    m_pointCountSpinBox->setEnabled(false);
    countRow->addWidget(m_pointCountSpinBox);
    layout->addLayout(countRow);

    auto *buttonRow = new QHBoxLayout;
    buttonRow->setSpacing(8);
    m_applyButton = new QPushButton(tr("Apply"), this);
    m_applyButton->setEnabled(false);
    m_applyButton->setMinimumWidth(BUTTON_MIN_WIDTH);
    m_cancelButton = new QPushButton(tr("Cancel"), this);
    m_cancelButton->setMinimumWidth(BUTTON_MIN_WIDTH);
    buttonRow->addWidget(m_applyButton);
    buttonRow->addWidget(m_cancelButton);
    layout->addLayout(buttonRow);

    // Made last so that the step hint stays the panel's first label.
    m_titleLabel = new QLabel(this);
    m_titleLabel->setStyleSheet(QStringLiteral("font-weight: bold;"));
    m_titleLabel->hide();
    layout->insertWidget(0, m_titleLabel);
    m_knotHintLabel = new QLabel(tr("Drag: move the nearer limit\nShift+drag: move in time\n"
                                     "Double-click: add a knot\nDelete: remove\nEnter: type values\n"
                                     "G: switch off (a gap) or on"), this);
    m_knotHintLabel->hide();
    m_knotReadoutLabel = new QLabel(this);
    m_knotReadoutLabel->hide();
    layout->insertWidget(2, m_knotHintLabel);
    layout->insertWidget(3, m_knotReadoutLabel);

    setFixedWidth(PANEL_WIDTH);
}

void EnvelopeEditorOverlay::setWaveformName(const QString &name)
{
    m_titleLabel->setText(tr("Envelope of %1").arg(name));
    m_titleLabel->setVisible(!name.isEmpty());
}

void EnvelopeEditorOverlay::setKnotEditing(bool knots)
{
    m_pointCountLabel->setVisible(!knots);
    m_pointCountSpinBox->setVisible(!knots);
    m_knotHintLabel->setVisible(knots);
    m_knotReadoutLabel->setVisible(knots && !m_knotReadoutLabel->text().isEmpty());
    layout()->activate();
    adjustSize();
}

void EnvelopeEditorOverlay::setKnotReadout(const QString &text)
{
    // Asked again on every view step; a relayout only when the text changes.
    if (text == m_knotReadoutLabel->text())
        return;
    m_knotReadoutLabel->setText(text);
    m_knotReadoutLabel->setVisible(!m_knotHintLabel->isHidden() && !text.isEmpty());
    layout()->activate();
    adjustSize();
}

QString EnvelopeEditorOverlay::knotReadout() const
{
    return m_knotReadoutLabel->text();
}

QString EnvelopeEditorOverlay::title() const
{
    return m_titleLabel->isVisible() ? m_titleLabel->text() : QString();
}

void EnvelopeEditorOverlay::applyStylesheet()
{
    setStyleSheet(QStringLiteral(
        "\n"
        "        EnvelopeEditorOverlay {\n"
        "            background: rgba(50, 50, 50, 220);\n"
        "            border: 1px solid rgba(100, 100, 100, 200);\n"
        "            border-radius: 8px;\n"
        "        }\n"
        "        QLabel { color: white; }\n"
        "        QSpinBox {\n"
        "            background: rgba(70, 70, 70, 255);\n"
        "            border: 1px solid rgba(100, 100, 100, 255);\n"
        "            border-radius: 3px;\n"
        "            color: white;\n"
        "            padding: 2px;\n"
        "        }\n"
        "        QPushButton {\n"
        "            background: rgba(80, 80, 80, 255);\n"
        "            border: 1px solid rgba(120, 120, 120, 255);\n"
        "            border-radius: 4px;\n"
        "            padding: 6px 20px;\n"
        "            color: white;\n"
        "        }\n"
        "        QPushButton:hover { background: rgba(100, 100, 100, 255); }\n"
        "        QPushButton:disabled { color: rgba(120, 120, 120, 255); }\n"
        "    "));
}

void EnvelopeEditorOverlay::connectSignals()
{
    connect(m_pointCountSpinBox, &QSpinBox::valueChanged, this, &EnvelopeEditorOverlay::pointCountChanged);
    connect(m_applyButton, &QPushButton::clicked, this, &EnvelopeEditorOverlay::applyClicked);
    connect(m_cancelButton, &QPushButton::clicked, this, &EnvelopeEditorOverlay::cancelClicked);
}

int EnvelopeEditorOverlay::pointCount() const
{
    return m_pointCountSpinBox->value();
}

void EnvelopeEditorOverlay::setPointCount(int count)
{
    // Only the user's changes are reported back; the controller already knows its own count.
    const QSignalBlocker blocker(m_pointCountSpinBox);
    m_pointCountSpinBox->setValue(count);
}

void EnvelopeEditorOverlay::updateState(EnvelopeEditorController::State state)
{
    const bool editingPoints = state == EnvelopeEditorController::EditingPoints;
    m_pointCountSpinBox->setEnabled(editingPoints);
    m_applyButton->setEnabled(editingPoints);
    if (state == EnvelopeEditorController::SelectingRegion)
        m_statusLabel->setText(tr("Select region on chart..."));
    else if (editingPoints)
        m_statusLabel->setText(tr("Adjust envelope points"));
}

void EnvelopeEditorOverlay::clampToParent()
{
    const QWidget *parent = parentWidget();
    if (!parent)
        return;
    const QRect area = parent->rect();
    // The lower bound last: a panel larger than its parent sticks to the top-left corner.
    const int x = std::max(std::min(area.width() - width(), pos().x()), 0);
    const int y = std::max(std::min(area.height() - height(), pos().y()), 0);
    move(x, y);
}

void EnvelopeEditorOverlay::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton) {
        QFrame::mousePressEvent(event);
        return;
    }
    m_dragging = true;
    m_dragOffset = event->globalPosition().toPoint() - frameGeometry().topLeft();
    m_userPositioned = true;
}

void EnvelopeEditorOverlay::mouseMoveEvent(QMouseEvent *event)
{
    if (!m_dragging) {
        QFrame::mouseMoveEvent(event);
        return;
    }
    move(event->globalPosition().toPoint() - m_dragOffset);
    clampToParent();
}

void EnvelopeEditorOverlay::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton) {
        QFrame::mouseReleaseEvent(event);
        return;
    }
    m_dragging = false;
}
