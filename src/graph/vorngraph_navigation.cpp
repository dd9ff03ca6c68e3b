#include "vorngraph.h"

#include "interactivechartview.h"
#include "scaledspinbox.h"

#include <QChart>
#include <QCoreApplication>
#include <QKeyEvent>
#include <QLineSeries>
#include <QSignalBlocker>
#include <QTimer>
#include <QTreeWidget>
#include <QValueAxis>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>
#include <utility>

namespace {

constexpr int WHEEL_NOTCH = 120;
// The range the boxes accept; a step never leaves it.
constexpr double MIN_DIVISION = 1e-12;
constexpr double MAX_DIVISION = 1e12;

double stepped(double value, int steps)
{
    for (int k = 0; k < std::abs(steps); ++k) {
        const double next = steps > 0 ? Scale125::nextUp(value) : Scale125::nextDown(value);
        if (next < MIN_DIVISION || next > MAX_DIVISION)
            break;
        value = next;
    }
    return value;
}

void showInBox(QDoubleSpinBox *box, double value)
{
    const QSignalBlocker blocker(box);
    box->setValue(value);
}

} // namespace

bool VornGraph::eventFilter(QObject *watched, QEvent *event)
{
    if (m_chartView && watched == m_chartView->viewport()) {
        switch (event->type()) {
        case QEvent::Wheel:
            return chartWheelTurned(static_cast<QWheelEvent *>(event));
        case QEvent::MouseButtonPress:
        case QEvent::MouseMove:
        case QEvent::MouseButtonRelease:
            return chartMouseEvent(static_cast<QMouseEvent *>(event));
        case QEvent::Leave:
            m_hoverX = std::numeric_limits<double>::quiet_NaN();
            updateReadouts();
            break;
        case QEvent::ChildAdded:
            // The chart makes its OpenGL widget anew when the view's antialiasing changes; it is
            // a plain widget until its constructor has run.
            QMetaObject::invokeMethod(this, &VornGraph::hideChartOpenGLWidget, Qt::QueuedConnection);
            break;
        default:
            break;
        }
    } else if (watched == m_chartView && event->type() == QEvent::KeyPress) {
        return chartKeyPressed(static_cast<QKeyEvent *>(event));
    } else if (watched == m_chartView && event->type() == QEvent::Resize && m_axisX) {
        // The next layout, when the plot area has settled, fills the series again.
        emptyWaveformSeries();
        m_laidOut = {};
    } else if (auto *box = qobject_cast<QDoubleSpinBox *>(watched)) {
        return treeBoxEvent(box, event);
    }
    return QWidget::eventFilter(watched, event);
}

double VornGraph::divisionSize(int index) const
{
    return m_divisionSizes.value(index, 0.0);
}

double VornGraph::offset(int index) const
{
    return m_offsets.value(index, 0.0);
}

void VornGraph::zoomTime(int steps, double anchorTime)
{
    if (m_timePerDivision <= 0.0)
        return;
    const double timePerDivision = stepped(m_timePerDivision, steps);
    // The anchor's time moves by half a pixel at most: a tenth of a division would move it by
    // several on a wide screen.
    const double halfPixel = m_divisionPixels > 0.0 ? timePerDivision / m_divisionPixels * 0.5 : -1.0;
    setTimeBase(timePerDivision, offsetKeepingTime(m_timeOffset, m_timePerDivision, timePerDivision, anchorTime),
                halfPixel);
}

void VornGraph::panTime(double divisions)
{
    setTimeBase(m_timePerDivision, m_timeOffset - divisions * m_timePerDivision);
}

void VornGraph::showWholeCapture()
{
    const QRectF plot = m_chart->plotArea();
    if (m_divisionPixels <= 0.0 || plot.width() <= 0.0)
        return;
    double timePerDivision = calculateDivisionSizeX(plot.width() / m_divisionPixels);
    if (!(timePerDivision > 0.0))
        timePerDivision = m_timePerDivision;
    // On a whole division, as the first layout places it, so the grid reads round times.
    setTimeBase(timePerDivision, std::round(-(m_globalXMin + m_globalXMax) * 0.5 / timePerDivision) * timePerDivision);
}

void VornGraph::stepDivisionSize(int index, int steps)
{
    // The offset keeps its number of divisions, as a scope's position knob does, so the trace
    // stays in its place on the screen (and in its band when stacked).
    if (index >= 0 && index < m_divisionSizes.size()) {
        const double size = stepped(m_divisionSizes[index], steps);
        setWaveformScale(index, size, m_offsets[index] / m_divisionSizes[index] * size);
    }
}

void VornGraph::stepOffset(int index, int divisions)
{
    if (index >= 0 && index < m_divisionSizes.size())
        setWaveformScale(index, m_divisionSizes[index], m_offsets[index] + divisions * m_divisionSizes[index]);
}

// The boxes show what the graph chose, as when it lays itself out: no change signal, and the
// 1-2-5 boxes remember the value as the reference for their next step.
void VornGraph::setTimeBase(double timePerDivision, double timeOffset, double slack)
{
    if (!m_axisX || !(timePerDivision > 0.0) || !std::isfinite(timeOffset))
        return;
    m_timePerDivision = timePerDivision;
    timeOffset = std::clamp(timeOffset, -MAX_DIVISION, MAX_DIVISION);
    if (slack > 0.0) {
        m_timeOffset = roundestWithin(timeOffset, slack, timePerDivision);
    } else {
        // On a tenth of a division, so that the grid's times read 1.2 ms rather than 1.23457 ms.
        const double tenths = std::round(timeOffset / timePerDivision * 10.0);
        m_timeOffset = std::isfinite(tenths) ? tenths * timePerDivision / 10.0 : timeOffset;
    }
    showTimeInTree();
    updateSquareDivisions();
}

// While a drag pans, the tree's time rows follow once the pointer rests or lets go: repainting
// them cost about as much as the plot's labels on every move.
void VornGraph::showTimeInTree()
{
    if (m_panning) {
        m_treeBehind = true;
        if (!m_treeFollow) {
            m_treeFollow = new QTimer(this);
            m_treeFollow->setSingleShot(true);
            m_treeFollow->setInterval(250);
            connect(m_treeFollow, &QTimer::timeout, this, [this] {
                const bool panning = std::exchange(m_panning, false);
                showTimeInTree();
                m_panning = panning;
            });
        }
        m_treeFollow->start();
        return;
    }
    const bool catchingUp = std::exchange(m_treeBehind, false);
    if (m_treeFollow)
        m_treeFollow->stop();
    if (m_timeDivisionSpinBox) {
        showInBox(m_timeDivisionSpinBox, m_timePerDivision);
        m_timeDivisionSpinBox->setProperty("lastValue", m_timePerDivision);
    }
    if (auto *offsetBox = qobject_cast<LinearSpinBox *>(m_timeOffsetSpinBox)) {
        offsetBox->setStep(m_timePerDivision);
        showInBox(offsetBox, m_timeOffset);
    }
    // A step's new range reaches the tree through updateSquareDivisions; only rows a drag held
    // back are written here.
    if (catchingUp)
        updateRangeDisplay();
}

void VornGraph::setWaveformScale(int index, double divisionSize, double offset)
{
    if (index < 0 || index >= m_divisionSizes.size() || !(divisionSize > 0.0) || !std::isfinite(offset))
        return;
    m_divisionSizes[index] = divisionSize;
    m_offsets[index] = std::clamp(offset, -MAX_DIVISION, MAX_DIVISION);
    if (QDoubleSpinBox *box = divisionSpinBox(index)) {
        showInBox(box, divisionSize);
        box->setProperty("lastValue", divisionSize);
    }
    if (auto *offsetBox = qobject_cast<LinearSpinBox *>(m_offsetSpinBoxes.value(index))) {
        offsetBox->setStep(divisionSize);
        showInBox(offsetBox, m_offsets[index]);
    }
    updateYAxisForWaveform(index, divisionSize);
}

// The division box is the widget of the waveform row's first child.
QDoubleSpinBox *VornGraph::divisionSpinBox(int index) const
{
    QTreeWidgetItem *row = m_waveformItems.value(index);
    if (!row || row->childCount() == 0)
        return nullptr;
    return qobject_cast<QDoubleSpinBox *>(m_infoTree->itemWidget(row->child(0), 1));
}

bool VornGraph::chartKeyPressed(QKeyEvent *event)
{
    if (!m_axisX || m_divisionPixels <= 0.0)
        return false;
    const double screen = m_chart->plotArea().width() / m_divisionPixels;
    switch (event->key()) {
    case Qt::Key_Left:
        panTime(-1);
        break;
    case Qt::Key_Right:
        panTime(1);
        break;
    case Qt::Key_PageUp:
        panTime(-screen);
        break;
    case Qt::Key_PageDown:
        panTime(screen);
        break;
    case Qt::Key_Plus:
    case Qt::Key_Equal:
        zoomTime(-1, -m_timeOffset);
        break;
    case Qt::Key_Minus:
        zoomTime(1, -m_timeOffset);
        break;
    case Qt::Key_Home:
        showWholeCapture();
        break;
    case Qt::Key_End:
        setTimeBase(m_timePerDivision, screen * m_timePerDivision * 0.5 - m_globalXMax);
        break;
    case Qt::Key_Up:
        stepOffset(selectedWaveformIndex(), 1);
        break;
    case Qt::Key_Down:
        stepOffset(selectedWaveformIndex(), -1);
        break;
    case Qt::Key_C:
        if (event->modifiers() & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier))
            return false;
        setCursorsVisible(!m_cursorsVisible);
        break;
    default:
        return false;
    }
    return true;
}

bool VornGraph::chartWheelTurned(QWheelEvent *event)
{
    if (!m_axisX || m_divisionPixels <= 0.0)
        return false;
    // Some systems turn a wheel with Shift held into a horizontal one.
    const QPoint angle = event->angleDelta();
    m_wheelRemainder += angle.y() != 0 ? angle.y() : angle.x();
    const int notches = m_wheelRemainder / WHEEL_NOTCH;
    m_wheelRemainder -= notches * WHEEL_NOTCH;
    event->accept();
    if (notches == 0)
        return true;
    // Turning away from the user zooms in, as in every viewer.
    if (event->modifiers() & Qt::ControlModifier)
        stepDivisionSize(selectedWaveformIndex(), -notches);
    else if (event->modifiers() & Qt::ShiftModifier)
        panTime(-notches);
    else
        zoomTime(-notches, timeAtViewX(event->position().x()));
    return true;
}

// With an edit running the installed mode owns the mouse; otherwise a left drag moves a cursor
// when it starts on one, and pans the time base when not.
bool VornGraph::chartMouseEvent(QMouseEvent *event)
{
    const QPoint pos = event->position().toPoint();
    switch (event->type()) {
    case QEvent::MouseButtonPress:
        if (m_chartView->interactionMode() || event->button() != Qt::LeftButton || m_divisionPixels <= 0.0)
            return false;
        m_pressPos = pos;
        m_pressTimeOffset = m_timeOffset;
        m_draggedCursor = cursorNear(pos.x());
        m_panning = m_draggedCursor < 0;
        return true;
    case QEvent::MouseMove:
        m_hoverX = pos.x();
        if (m_draggedCursor >= 0) {
            m_cursorTimes[m_draggedCursor] = timeAtViewX(pos.x());
            updateCursorLines();
        } else if (m_panning) {
            const double divisions = (pos.x() - m_pressPos.x()) / m_divisionPixels;
            setTimeBase(m_timePerDivision, m_pressTimeOffset + divisions * m_timePerDivision);
        }
        updateReadouts();
        return m_draggedCursor >= 0 || m_panning;
    case QEvent::MouseButtonRelease:
        if (!m_panning && m_draggedCursor < 0)
            return false;
        // A click that did not move places the nearer cursor there.
        if (m_panning && m_cursorsVisible && pos == m_pressPos) {
            const double time = timeAtViewX(pos.x());
            const int nearer = std::fabs(time - m_cursorTimes[0]) <= std::fabs(time - m_cursorTimes[1]) ? 0 : 1;
            m_cursorTimes[nearer] = time;
            updateCursorLines();
            updateReadouts();
        }
        m_panning = false;
        m_draggedCursor = -1;
        if (m_treeBehind)
            showTimeInTree();
        return true;
    default:
        return false;
    }
}

// A typed value counts once it is confirmed, Return goes no further than its box, and the wheel
// over a box the user is not working in scrolls the tree.
void VornGraph::adoptTreeBox(QDoubleSpinBox *box)
{
    box->setKeyboardTracking(false);
    box->setFocusPolicy(Qt::StrongFocus);
    box->installEventFilter(this);
}

bool VornGraph::treeBoxEvent(QDoubleSpinBox *box, QEvent *event)
{
    if (event->type() == QEvent::KeyPress) {
        const int key = static_cast<QKeyEvent *>(event)->key();
        if (key != Qt::Key_Return && key != Qt::Key_Enter)
            return false;
        box->interpretText();
        box->selectAll();
        return true;
    }
    if (event->type() == QEvent::Wheel && !box->hasFocus()) {
        QCoreApplication::sendEvent(m_infoTree->viewport(), event);
        return true;
    }
    return false;
}
