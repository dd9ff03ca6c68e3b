#include "envelopeeditoroverlay.h"
#include "interactivechartview.h"

#include <QApplication>
#include <QChart>
#include <QLabel>
#include <QMouseEvent>
#include <QPushButton>
#include <QSignalSpy>
#include <QSpinBox>
#include <QtTest>

#include <memory>

class TstEnvelopeEditorOverlay : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void stateDecidesWhatCanBeUsed_data();
    void stateDecidesWhatCanBeUsed();
    void spinBoxRefusesCountsOutOfRange_data();
    void spinBoxRefusesCountsOutOfRange();
    void buttonsAndCountReachTheSignals();
    void draggingStaysInsideTheParent_data();
    void draggingStaysInsideTheParent();
    void rightDragLeavesThePanelInPlace();
    void draggedPlaceSurvivesAShrinkingParent();
    void panelLargerThanParentSticksToTheCorner();

private:
    void drag(const QPoint &from, const QPoint &by, Qt::MouseButton button = Qt::LeftButton);
    QPushButton *button(const QString &text) const;

    std::unique_ptr<QWidget> m_parent;
    EnvelopeEditorOverlay *m_overlay = nullptr;
};

void TstEnvelopeEditorOverlay::init()
{
    // The panel lives on the chart view, a scroll area whose own children sit beside the viewport.
    m_parent = std::make_unique<InteractiveChartView>(new QChart);
    m_parent->resize(800, 500);
    m_overlay = new EnvelopeEditorOverlay(m_parent.get());
    m_overlay->move(100, 100);
    m_parent->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_parent.get()));
}

void TstEnvelopeEditorOverlay::cleanup()
{
    m_parent.reset();
}

// Sent as events with global positions, which is what the panel follows.
void TstEnvelopeEditorOverlay::drag(const QPoint &from, const QPoint &by, Qt::MouseButton button)
{
    const auto send = [this](QEvent::Type type, const QPoint &pos, Qt::MouseButton b, Qt::MouseButtons held) {
        QMouseEvent event(type, QPointF(pos), QPointF(m_overlay->mapToGlobal(pos)), b, held, Qt::NoModifier);
        QApplication::sendEvent(m_overlay, &event);
    };
    send(QEvent::MouseButtonPress, from, button, button);
    send(QEvent::MouseMove, from + by, Qt::NoButton, button);
    // The panel has moved under the mouse, so the release lands where the press did.
    send(QEvent::MouseButtonRelease, from, button, Qt::NoButton);
}

QPushButton *TstEnvelopeEditorOverlay::button(const QString &text) const
{
    for (QPushButton *b : m_overlay->findChildren<QPushButton *>())
        if (b->text() == text)
            return b;
    return nullptr;
}

void TstEnvelopeEditorOverlay::stateDecidesWhatCanBeUsed_data()
{
    QTest::addColumn<EnvelopeEditorController::State>("state");
    QTest::addColumn<bool>("editable");
    QTest::addColumn<QString>("hint");
    QTest::newRow("selecting") << EnvelopeEditorController::SelectingRegion << false << "Select region on chart...";
    QTest::newRow("editing") << EnvelopeEditorController::EditingPoints << true << "Adjust envelope points";
    QTest::newRow("idle keeps the hint") << EnvelopeEditorController::Idle << false << "Adjust envelope points";
}

void TstEnvelopeEditorOverlay::stateDecidesWhatCanBeUsed()
{
    QFETCH(EnvelopeEditorController::State, state);
    QFETCH(bool, editable);
    QFETCH(QString, hint);
    m_overlay->updateState(EnvelopeEditorController::EditingPoints);
    m_overlay->updateState(state);
    QCOMPARE(m_overlay->findChild<QSpinBox *>()->isEnabled(), editable);
    QCOMPARE(button("Apply")->isEnabled(), editable);
    QVERIFY(button("Cancel")->isEnabled());
    QCOMPARE(m_overlay->findChildren<QLabel *>().first()->text(), hint);
}

void TstEnvelopeEditorOverlay::spinBoxRefusesCountsOutOfRange_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<int>("count");
    QTest::newRow("1 is below the range") << "1" << 10;
    QTest::newRow("101 stops at 10") << "101" << 10;
    QTest::newRow("100 is the top") << "100" << 100;
    QTest::newRow("2 is the bottom") << "2" << 2;
}

void TstEnvelopeEditorOverlay::spinBoxRefusesCountsOutOfRange()
{
    QFETCH(QString, typed);
    QFETCH(int, count);
    m_overlay->updateState(EnvelopeEditorController::EditingPoints);
    auto *spinBox = m_overlay->findChild<QSpinBox *>();
    spinBox->selectAll();
    QTest::keyClicks(spinBox, typed);
    QTest::keyClick(spinBox, Qt::Key_Return);
    QCOMPARE(m_overlay->pointCount(), count);
}

void TstEnvelopeEditorOverlay::buttonsAndCountReachTheSignals()
{
    m_overlay->updateState(EnvelopeEditorController::EditingPoints);
    QSignalSpy applied(m_overlay, &EnvelopeEditorOverlay::applyClicked);
    QSignalSpy cancelled(m_overlay, &EnvelopeEditorOverlay::cancelClicked);
    QSignalSpy counted(m_overlay, &EnvelopeEditorOverlay::pointCountChanged);
    QTest::mouseClick(button("Apply"), Qt::LeftButton);
    QTest::mouseClick(button("Cancel"), Qt::LeftButton);
    m_overlay->setPointCount(10);
    m_overlay->setPointCount(42);
    QCOMPARE(applied.size(), 1);
    QCOMPARE(cancelled.size(), 1);
    QCOMPARE(counted.size(), 1);
    QCOMPARE(counted.at(0).at(0).toInt(), 42);
}

void TstEnvelopeEditorOverlay::draggingStaysInsideTheParent_data()
{
    QTest::addColumn<QPoint>("by");
    QTest::addColumn<QPoint>("expected"); // (-1, -1) stands for the far edge
    QTest::newRow("inside") << QPoint(50, 30) << QPoint(150, 130);
    QTest::newRow("beyond the right edge") << QPoint(2000, 0) << QPoint(-1, 100);
    QTest::newRow("beyond the bottom") << QPoint(0, 2000) << QPoint(100, -1);
    QTest::newRow("beyond the top left") << QPoint(-500, -500) << QPoint(0, 0);
}

void TstEnvelopeEditorOverlay::draggingStaysInsideTheParent()
{
    QFETCH(QPoint, by);
    QFETCH(QPoint, expected);
    QVERIFY(!m_overlay->hasUserPosition());
    drag(QPoint(10, 10), by);
    QVERIFY(m_overlay->hasUserPosition());
    const int right = m_parent->width() - m_overlay->width();
    const int bottom = m_parent->height() - m_overlay->height();
    QCOMPARE(m_overlay->pos(), QPoint(expected.x() < 0 ? right : expected.x(),
                                      expected.y() < 0 ? bottom : expected.y()));
    m_overlay->resetUserPosition();
    QVERIFY(!m_overlay->hasUserPosition());
}

void TstEnvelopeEditorOverlay::rightDragLeavesThePanelInPlace()
{
    drag(QPoint(10, 10), QPoint(80, 80), Qt::RightButton);
    QCOMPARE(m_overlay->pos(), QPoint(100, 100));
    QVERIFY(!m_overlay->hasUserPosition());
}

void TstEnvelopeEditorOverlay::draggedPlaceSurvivesAShrinkingParent()
{
    drag(QPoint(10, 10), QPoint(500, 200));
    QCOMPARE(m_overlay->pos(), QPoint(m_parent->width() - m_overlay->width(), 300));
    m_parent->resize(400, 350);
    m_overlay->clampToParent();
    QCOMPARE(m_overlay->pos(), QPoint(400 - m_overlay->width(), 350 - m_overlay->height()));
    QVERIFY(m_overlay->hasUserPosition());
}

void TstEnvelopeEditorOverlay::panelLargerThanParentSticksToTheCorner()
{
    m_parent->resize(100, 40);
    m_overlay->clampToParent();
    QCOMPARE(m_overlay->pos(), QPoint(0, 0));
}

QTEST_MAIN(TstEnvelopeEditorOverlay)
#include "tst_envelopeeditoroverlay.moc"
