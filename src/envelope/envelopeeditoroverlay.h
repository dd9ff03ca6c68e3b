#ifndef ENVELOPEEDITOROVERLAY_H
#define ENVELOPEEDITOROVERLAY_H

#include "envelopeeditorcontroller.h"
#include "vorngraph_export.h"

#include <QFrame>
#include <QPoint>

class QLabel;
class QPushButton;
class QSpinBox;

/// The floating panel over the chart during an edit: the next step, the point count, Apply and
/// Cancel. The user can drag it anywhere inside its parent. It knows nothing of the controller;
/// its owner feeds it the state and the count.
class VORNGRAPH_EXPORT EnvelopeEditorOverlay : public QFrame
{
    Q_OBJECT

public:
    /// The panel over parent, which bounds where the user can drag it.
    explicit EnvelopeEditorOverlay(QWidget *parent = nullptr);

    /// The count of points shown in the panel.
    int pointCount() const;
    /// Shows count without emitting pointCountChanged(); only the user's changes are reported.
    void setPointCount(int count);
    /// Shows the next step for state; the count and Apply are enabled only while points are shown.
    void updateState(EnvelopeEditorController::State state);

    /// Names the waveform whose envelope is edited at the top of the panel.
    void setWaveformName(const QString &name);
    /// The title shown at the top of the panel, empty when none is shown.
    QString title() const;

    /// A knot edit has no count to choose: the count row gives way to a hint and the selected
    /// knot's time and limits.
    void setKnotEditing(bool knots);
    /// The selected knot's time and limits as the owner formats them.
    void setKnotReadout(const QString &text);
    /// The knot readout as shown.
    QString knotReadout() const;

    /// Moves the panel back inside its parent; a panel larger than the parent sticks to its
    /// top-left corner.
    void clampToParent();
    /// Whether the user dragged the panel, so that its owner leaves it where it is.
    bool hasUserPosition() const { return m_userPositioned; }
    /// Lets the owner place the panel again.
    void resetUserPosition() { m_userPositioned = false; }

signals:
    /// The user changed the count of points.
    void pointCountChanged(int count);
    /// The user clicked Apply.
    void applyClicked();
    /// The user clicked Cancel.
    void cancelClicked();

protected:
    /// A left-button press starts dragging the panel.
    void mousePressEvent(QMouseEvent *event) override;
    /// Drags the panel, kept inside its parent.
    void mouseMoveEvent(QMouseEvent *event) override;
    /// Ends a drag of the panel.
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
