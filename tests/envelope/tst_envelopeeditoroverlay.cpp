#include "../interaction/charttestharness.h"
#include "envelopeeditoroverlay.h"

#include <QPushButton>
#include <QSignalSpy>
#include <QSpinBox>
#include <QtTest>

// The panel at (100, 100) on an 800 x 500 chart view.
class TstEnvelopeEditorOverlay : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        // The panel lives on the chart view, a scroll area whose own children sit beside the viewport.
        m_view = std::make_unique<InteractiveChartView>(new QChart);
        m_view->resize(800, 500);
        m_overlay = new EnvelopeEditorOverlay(m_view.get());
        m_overlay->move(100, 100);
        m_view->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_view.get()));
    }
    void cleanup() { m_view.reset(); }

    // Cancel always answers; Apply and the count only while there are points to edit.
    void stateDecidesWhatCanBeUsed_data()
    {
        QTest::addColumn<EnvelopeEditorController::State>("state");
        QTest::addColumn<bool>("editable");
        QTest::newRow("selecting") << EnvelopeEditorController::SelectingRegion << false;
        QTest::newRow("editing") << EnvelopeEditorController::EditingPoints << true;
        QTest::newRow("idle") << EnvelopeEditorController::Idle << false;
    }
    void stateDecidesWhatCanBeUsed()
    {
        QFETCH(EnvelopeEditorController::State, state);
        QFETCH(bool, editable);
        m_overlay->updateState(EnvelopeEditorController::EditingPoints);
        m_overlay->updateState(state);
        QSignalSpy applied(m_overlay, &EnvelopeEditorOverlay::applyClicked);
        QSignalSpy cancelled(m_overlay, &EnvelopeEditorOverlay::cancelClicked);
        for (QPushButton *button : m_overlay->findChildren<QPushButton *>())
            QTest::mouseClick(button, Qt::LeftButton);
        QCOMPARE(QList<int>({m_overlay->findChild<QSpinBox *>()->isEnabled(), int(applied.size()), int(cancelled.size())}),
                 QList<int>({editable, editable, 1}));
    }

    // Sent as events with global positions, which is what the panel follows.
    void draggingStaysInsideTheView_data()
    {
        QTest::addColumn<QPoint>("by");
        QTest::addColumn<Qt::MouseButton>("button");
        QTest::addColumn<QSize>("viewSize"); // the view shrinks to it after the drag
        QTest::addColumn<QPoint>("expected");
        QTest::newRow("inside") << QPoint(50, 30) << Qt::LeftButton << QSize() << QPoint(150, 130);
        QTest::newRow("beyond the top left") << QPoint(-500, -500) << Qt::LeftButton << QSize() << QPoint(0, 0);
        QTest::newRow("right button") << QPoint(50, 30) << Qt::RightButton << QSize() << QPoint(100, 100);
        // Smaller than the panel: it sticks to the top-left corner rather than leaving it.
        QTest::newRow("view smaller than the panel") << QPoint(300, 200) << Qt::LeftButton << QSize(100, 40) << QPoint(0, 0);
    }
    void draggingStaysInsideTheView()
    {
        QFETCH(QPoint, by);
        QFETCH(Qt::MouseButton, button);
        QFETCH(QSize, viewSize);
        QFETCH(QPoint, expected);
        struct : ViewportMouse {
            QWidget *panel;
            QWidget *viewport() const override { return panel; }
        } mouse;
        mouse.panel = m_overlay;
        mouse.press({10, 10}, button);
        mouse.move(QPoint(10, 10) + by, button);
        mouse.release({10, 10}, button); // the panel has moved under the mouse

        if (viewSize.isValid()) {
            m_view->resize(viewSize);
            m_overlay->clampToParent();
        }
        QCOMPARE(m_overlay->pos(), expected);
        QCOMPARE(m_overlay->hasUserPosition(), button == Qt::LeftButton);
    }

private:
    std::unique_ptr<QWidget> m_view;
    EnvelopeEditorOverlay *m_overlay = nullptr;
};

QTEST_MAIN(TstEnvelopeEditorOverlay)
#include "tst_envelopeeditoroverlay.moc"
