#include "envelopeeditoroverlay.h"
#include "interactivechartview.h"

#include <QApplication>
#include <QChart>
#include <QLabel>
#include <QMouseEvent>
#include <QPushButton>
#include <QSpinBox>
#include <QtTest>

#include <memory>

// The panel at (100, 100) on an 800 x 500 chart view.
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
    void draggingStaysInsideTheView_data();
    void draggingStaysInsideTheView();
    void draggedPlaceIsClampedIntoAResizedView();

private:
    void drag(const QPoint &by, Qt::MouseButton button);

    std::unique_ptr<QWidget> m_view;
    EnvelopeEditorOverlay *m_overlay = nullptr;
};

void TstEnvelopeEditorOverlay::init()
{
    // The panel lives on the chart view, a scroll area whose own children sit beside the viewport.
    m_view = std::make_unique<InteractiveChartView>(new QChart);
    m_view->resize(800, 500);
    m_overlay = new EnvelopeEditorOverlay(m_view.get());
    m_overlay->move(100, 100);
    m_view->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_view.get()));
}

void TstEnvelopeEditorOverlay::cleanup()
{
    m_view.reset();
}

// Sent as events with global positions, which is what the panel follows.
void TstEnvelopeEditorOverlay::drag(const QPoint &by, Qt::MouseButton button)
{
    const QPoint from(10, 10);
    const auto send = [this](QEvent::Type type, const QPoint &pos, Qt::MouseButton b, Qt::MouseButtons held) {
        QMouseEvent event(type, QPointF(pos), QPointF(m_overlay->mapToGlobal(pos)), b, held, Qt::NoModifier);
        QApplication::sendEvent(m_overlay, &event);
    };
    send(QEvent::MouseButtonPress, from, button, button);
    send(QEvent::MouseMove, from + by, Qt::NoButton, button);
    // The panel has moved under the mouse, so the release lands where the press did.
    send(QEvent::MouseButtonRelease, from, button, Qt::NoButton);
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
    const QList<QPushButton *> buttons = m_overlay->findChildren<QPushButton *>();
    QCOMPARE(buttons.size(), 2);
    for (QPushButton *button : buttons)
        QCOMPARE(button->isEnabled(), button->text() == "Cancel" || editable);
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

void TstEnvelopeEditorOverlay::draggingStaysInsideTheView_data()
{
    QTest::addColumn<QPoint>("by");
    QTest::addColumn<Qt::MouseButton>("button");
    QTest::addColumn<QPoint>("expected"); // -1 stands for the far edge
    QTest::newRow("inside") << QPoint(50, 30) << Qt::LeftButton << QPoint(150, 130);
    QTest::newRow("beyond the right edge") << QPoint(2000, 0) << Qt::LeftButton << QPoint(-1, 100);
    QTest::newRow("beyond the bottom") << QPoint(0, 2000) << Qt::LeftButton << QPoint(100, -1);
    QTest::newRow("beyond the top left") << QPoint(-500, -500) << Qt::LeftButton << QPoint(0, 0);
    QTest::newRow("right button") << QPoint(50, 30) << Qt::RightButton << QPoint(100, 100);
}

void TstEnvelopeEditorOverlay::draggingStaysInsideTheView()
{
    QFETCH(QPoint, by);
    QFETCH(Qt::MouseButton, button);
    QFETCH(QPoint, expected);
    drag(by, button);
    QCOMPARE(m_overlay->hasUserPosition(), button == Qt::LeftButton);
    const int right = m_view->width() - m_overlay->width();
    const int bottom = m_view->height() - m_overlay->height();
    QCOMPARE(m_overlay->pos(), QPoint(expected.x() < 0 ? right : expected.x(), expected.y() < 0 ? bottom : expected.y()));
    m_overlay->resetUserPosition();
    QVERIFY(!m_overlay->hasUserPosition());
}

void TstEnvelopeEditorOverlay::draggedPlaceIsClampedIntoAResizedView()
{
    drag(QPoint(300, 200), Qt::LeftButton);
    QCOMPARE(m_overlay->pos(), QPoint(400, 300));
    m_view->resize(400, 350);
    m_overlay->clampToParent();
    QCOMPARE(m_overlay->pos(), QPoint(400 - m_overlay->width(), 350 - m_overlay->height()));
    QVERIFY(m_overlay->hasUserPosition());
    // Smaller than the panel: it sticks to the top-left corner rather than leaving it.
    m_view->resize(100, 40);
    m_overlay->clampToParent();
    QCOMPARE(m_overlay->pos(), QPoint(0, 0));
}

QTEST_MAIN(TstEnvelopeEditorOverlay)
#include "tst_envelopeeditoroverlay.moc"
