#ifndef ENVELOPEEDITOROVERLAY_H
#define ENVELOPEEDITOROVERLAY_H

#include "envelopeeditorcontroller.h"
#include "vorngraph_export.h"

#include <QFrame>
#include <QPoint>

class QLabel;
class QPushButton;
class QSpinBox;

// The floating panel over the chart during an edit: the next step, the point count, Apply and
// Cancel. The user can drag it anywhere inside its parent. It knows nothing of the controller;
// its owner feeds it the state and the count.
class VORNGRAPH_EXPORT EnvelopeEditorOverlay : public QFrame
{
    Q_OBJECT

public:
    explicit EnvelopeEditorOverlay(QWidget *parent = nullptr);

    int pointCount() const;
    void setPointCount(int count);
    void updateState(EnvelopeEditorController::State state);

    // Names the waveform whose envelope is edited at the top of the panel.
    void setWaveformName(const QString &name);
    QString title() const;

    // A knot edit has no count to choose: the count row gives way to a hint and the selected
    // knot's time and limits.
    void setKnotEditing(bool knots);
    void setKnotReadout(const QString &text);
    QString knotReadout() const;

    void clampToParent();
    bool hasUserPosition() const { return m_userPositioned; }
    void resetUserPosition() { m_userPositioned = false; }

signals:
    void pointCountChanged(int count);
    void applyClicked();
    void cancelClicked();

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;

private:
    void setupUi();
    void applyStylesheet();
    void connectSignals();

    QLabel *m_statusLabel = nullptr;
    QLabel *m_titleLabel = nullptr;
    QSpinBox *m_pointCountSpinBox = nullptr;
    QLabel *m_pointCountLabel = nullptr;
    QLabel *m_knotHintLabel = nullptr;
    QLabel *m_knotReadoutLabel = nullptr;
    QPushButton *m_applyButton = nullptr;
    QPushButton *m_cancelButton = nullptr;
    QPoint m_dragOffset;
    bool m_dragging = false;
    bool m_userPositioned = false;
};

#endif
