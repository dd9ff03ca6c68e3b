#ifndef VORNGRAPH_H
#define VORNGRAPH_H

#include "downsampling.h"
#include "navigation.h"
#include "envelopeeditorcontroller.h"
#include "vorngraph_export.h"
#include "vornmask.h"

#include <QColor>
#include <QHash>
#include <QList>
#include <QMargins>
#include <QPointF>
#include <QRectF>
#include <QVector>
#include <QWidget>

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

class EnvelopeEditorOverlay;
class InteractiveChartView;
class MinMaxPyramid;
struct SampleSummary;
class TraceItem;
class BandLabelItem;
class AxisLabelItem;
class QAreaSeries;
class QCategoryAxis;
class QChart;
class QDoubleSpinBox;
class QGraphicsPathItem;
class QPainterPath;
class QPen;
class QGraphicsLineItem;
class QKeyEvent;
class QMouseEvent;
class QWheelEvent;
class QLabel;
class QLineSeries;
class QPoint;
class QSplitter;
class QStackedWidget;
class QTreeWidget;
class QTreeWidgetItem;
class QValueAxis;
class QTimer;

/// An oscilloscope-like screen: every waveform on its own vertical scale of Y_DIVISIONS
/// divisions, all on one time base with square divisions. Fill it with addWaveform(), then call
/// displayGraph() once.
class VORNGRAPH_EXPORT VornGraph : public QWidget
{
    Q_OBJECT

public:
    /// Vertical divisions of every waveform's scale (10).
    static const int Y_DIVISIONS;
    /// Points a trace is drawn with at most; longer views are reduced to their minima and maxima.
    static const int MAX_DISPLAY_POINTS;
    /// Division width in pixels below which the time labels turn vertical.
    static const double MIN_HORIZONTAL_LABEL_PIXEL;

    /// The samples a view draws, first to last index inclusive.
    using VisibleRange = ::VisibleRange;

    /// An empty chart with its information tree; add waveforms, then call displayGraph().
    explicit VornGraph(QWidget *parent = nullptr);
    /// Takes a running edit's markers out of the scene while the scene still exists.
    ~VornGraph() override;

    /// Adds waveform (its samples shared, not copied) and returns its index; shown from the next
    /// displayGraph().
    int addWaveform(const WaveformData &waveform);
    /// Lays out every added waveform on the time base that shows the whole capture.
    /// A waveform without a valid sample interval (at least 1 ps) shows a message instead of the
    /// chart.
    void displayGraph();

    /// Waveforms added so far.
    int waveformCount() const;
    /// Waveform index's name; empty for an invalid index.
    QString waveformName(int index) const;
    /// After displayGraph(): gives waveform index new samples (same name; any length, interval and
    /// start), keeping the time base, divisions, selection, cursors and envelope, and checks and
    /// redraws it. False, changing nothing, for another name, a bad interval or during an edit.
    bool replaceWaveformSamples(int index, const WaveformData &waveform);
    /// Shows or hides waveform index and its envelope, as the tree's box does; an invalid index is
    /// ignored.
    void setWaveformVisible(int index, bool visible);
    /// The waveform selected in the tree, else 0; -1 when there is none.
    int selectedWaveformIndex() const;

    /// Whether waveform series made from now on ask for OpenGL, where a context can be made; on by
    /// default, so set it before displayGraph(). The graph draws the traces itself either way;
    /// off keeps the chart's OpenGL widget away, which otherwise makes the whole window compose
    /// through OpenGL (in software where there is no GPU).
    void setUseOpenGL(bool useOpenGL);
    /// What setUseOpenGL() was given; true by default.
    bool useOpenGL() const;

    /// Draws envelope around waveform index and checks the waveform against it; an invalid index is
    /// ignored.
    void setEnvelope(int index, const EnvelopeData &envelope);
    /// Waveform index's envelope; an empty one for an invalid index or a waveform without.
    const EnvelopeData &envelope(int index) const;
    /// Whether waveform index has a non-empty envelope; false for an invalid index.
    bool hasEnvelope(int index) const;
    /// Removes waveform index's envelope and its check; ignored when it has none.
    void clearEnvelope(int index);
    /// Shows or hides waveform index's envelope curves; an invalid index is ignored.
    void setEnvelopeVisible(int index, bool visible);

    /// Starts editing waveform index's envelope: by its points (or knots) when it has one, else a
    /// new one over a region the user drags out. An invalid index is ignored.
    /// Callers check that editing is enabled and that no edit runs yet.
    void startEnvelopeEditing(int index);
    /// Apply: stores the edited envelope and emits envelopeEditingFinished(); ignored when no edit
    /// runs.
    void finishEnvelopeEditing();
    /// Ends the edit and drops it, showing the stored envelope again; emits
    /// envelopeEditingCancelled().
    void cancelEnvelopeEditing();
    /// Whether an envelope edit runs.
    bool isEnvelopeEditing() const;
    /// Whether Apply would deliver an envelope now.
    bool canFinishEnvelopeEditing() const;
    /// Where the running edit stands.
    EnvelopeEditorController::State envelopeEditorState() const;
    /// On by default; off, the tree offers no envelope menu.
    /// Only decides whether the tree's context menu is offered.
    void setEnvelopeEditingEnabled(bool enabled);
    /// Points a new envelope starts with (at least 2); regenerates the points of a running point
    /// edit.
    void setEnvelopeEditorPointCount(int count);
    /// Whether an existing envelope is edited by its knots or by its points.
    /// Off by default. On, an existing envelope is edited by its knots rather than one point per
    /// sample (EnvelopeEditorController::startEditingKnots).
    void setEnvelopeEditingByKnots(bool byKnots);
    /// Whether existing envelopes are edited by their knots.
    bool envelopeEditingByKnots() const { return m_editByKnots; }
    /// The controller of the graph's envelope edits, owned by the graph (for knot commands and
    /// undo).
    EnvelopeEditorController *envelopeEditor() const { return m_envelopeEditor; }
    /// Starts a new envelope by region selection even when the waveform has one, which stays
    /// shown; Apply delivers the region's envelope alone (the host merges it, see
    /// addEnvelopeRegion) and stores it in place of the old one.
    void startEnvelopeRegionEditing(int index);

    /// Draws envelopes in a colour of their own.
    /// Off by default. On, envelopes are drawn as a translucent band between solid limit lines in
    /// a colour of their own, apart from the trace's colour.
    void setDistinctEnvelopeStyle(bool distinct);
    /// Whether envelopes have a colour of their own.
    bool distinctEnvelopeStyle() const { return m_distinctEnvelopeStyle; }
    /// Draws envelopes through the waveforms' min/max reduction.
    /// Off by default. On, envelopes are drawn like waveforms: the visible part only, through the
    /// min/max reduction, without point markers, so that a dense envelope pans and zooms freely.
    void setEnvelopeReduction(bool reduced);
    /// Whether envelopes are drawn reduced, like waveforms.
    bool envelopeReduction() const { return m_envelopeReduction; }
    /// The envelopes' colour in the distinct style.
    static const QColor ENVELOPE_LIMIT_COLOR;

    /// Good captures of waveform index drawn faintly behind it, so that many of them read as a
    /// persistence image; each is kept as a min/max index of bounded size, however long it is.
    void addBackgroundCapture(int index, const WaveformData &capture);
    /// Removes every capture behind waveform index; an invalid index is ignored.
    void clearBackgroundCaptures(int index);
    /// Captures behind waveform index; 0 for an invalid index.
    int backgroundCaptureCount(int index) const;
    /// The captures behind index as kept (each its min/max points in time and value), to be put
    /// back later by setBackgroundCaptures, which replaces whatever is behind index then.
    QList<QVector<QPointF>> backgroundCaptures(int index) const;
    /// Puts back captures as backgroundCaptures() returned them, replacing those behind index.
    void setBackgroundCaptures(int index, const QList<QVector<QPointF>> &captures);

    /// How waveform index fares against its envelope; checked whenever the envelope is set or
    /// cleared. Empty (nothing checked) without an envelope.
    EnvelopeCheckResult envelopeCheckResult(int index) const;
    /// Centre the time base on the start of the next (previous) run of samples outside the
    /// envelope, counted from the centre of the screen; false when there is none.
    bool showNextViolation(int index);
    /// Centres the time base on the previous run of samples outside the envelope; false when there
    /// is none.
    bool showPreviousViolation(int index);
    /// The runs of samples outside the envelope, in time order.
    std::vector<ViolationRun> violationRuns(int index) const;
    /// Draws and checks waveform index moved back by shift seconds, as aligned to its envelope.
    void setWaveformShift(int index, double shift);
    /// The shift in seconds waveform index is drawn at; 0 for an invalid index.
    double waveformShift(int index) const;
    /// Waveform index as it was added, unshifted; its samples are shared, not copied.
    WaveformData waveformData(int index) const;
    /// Centres the time base on first ... last and picks the 1-2-5 time per division at which that
    /// span fills about a third of the screen.
    void showTimeSpan(double first, double last);
    /// The time per division in seconds.
    /// Navigation as the chart's wheel, drag and keys do it; the tree's boxes follow.
    double timePerDivision() const { return m_timePerDivision; }
    /// The time offset in seconds: the screen's centre shows time -timeOffset().
    double timeOffset() const { return m_timeOffset; }
    /// Waveform index's division size in its unit per division; 0 for an invalid index.
    double divisionSize(int index) const;
    /// Waveform index's offset in its unit (positive moves the trace up); 0 for an invalid index.
    double offset(int index) const;
    /// Steps the time per division through the 1-2-5 values (positive: longer), keeping time
    /// where it is on the screen.
    void zoomTime(int steps, double anchorTime);
    /// Moves the view by a number of divisions (positive: towards later times).
    void panTime(double divisions);
    /// The time base that shows every waveform whole, centred on a whole division.
    void showWholeCapture();
    /// Steps waveform index's division size through the 1-2-5 values; the trace keeps its place.
    /// Invalid index: ignored.
    void stepDivisionSize(int index, int steps);
    /// Moves waveform index by a number of divisions (positive: up); an invalid index is ignored.
    void stepOffset(int index, int divisions);

    /// Divisions narrower than MIN_HORIZONTAL_LABEL_PIXEL turn the time labels upright; with this
    /// on they stay horizontal instead, on every other grid line (or fewer where that would
    /// crowd them). Off by default.
    void setHorizontalTimeLabels(bool horizontal);

    /// Every visible waveform in its own band of the screen, or all of them over its full height.
    void setStacked(bool stacked);
    /// Whether the waveforms are stacked.
    bool isStacked() const { return m_stacked; }

    /// Shows or hides the time cursors; cursors outside the view come back inside it.
    /// Two time cursors with their readouts; the hover readout follows the pointer.
    void setCursorsVisible(bool visible);
    /// Whether the time cursors are shown.
    bool cursorsVisible() const { return m_cursorsVisible; }
    /// Places the two cursors at these times in seconds.
    void setCursorTimes(double first, double second);
    /// Cursor 0's or 1's time in seconds (other values pick by their lowest bit).
    double cursorTime(int cursor) const { return m_cursorTimes[cursor & 1]; }
    /// "t = ..." and every shown waveform's value at the pointer, as the status line shows it.
    QString hoverReadout() const;
    /// Both cursors' times, their difference and its inverse, and the values there; empty while
    /// hidden.
    QString cursorReadout() const;

    /// The times the chart shows, first to last, in seconds.
    QPair<double, double> visibleTimeRange() const;
    /// Whether waveform index is shown; false for an invalid index.
    bool isWaveformVisible(int index) const;
    /// Thin lines over waveform index marking where a measurement was taken: vertical ones at the
    /// times, horizontal ones at the levels (in the waveform's unit). Setting them replaces any.
    void setMeasurementMarks(int index, const QVector<double> &times, const QVector<double> &levels);
    /// Takes every measurement mark away.
    void clearMeasurementMarks() { setMeasurementMarks(-1, {}, {}); }

signals:
    /// An envelope edit of waveformIndex began.
    void envelopeEditingStarted(int waveformIndex);
    /// Apply stored envelope for waveformIndex (the host saves it where it wants).
    void envelopeEditingFinished(int waveformIndex, const EnvelopeData &envelope);
    /// The running edit ended without an envelope.
    void envelopeEditingCancelled();
    /// An edit started, moved on to its points, or ended.
    void envelopeEditorStateChanged();
    /// The user chose Edit Envelope on waveformIndex in the tree; the host starts the edit.
    void editEnvelopeRequested(int waveformIndex);
    /// The user chose Delete Envelope on waveformIndex in the tree; the host asks and clears it.
    void deleteEnvelopeRequested(int waveformIndex);
    /// The tree's selection moved to waveformIndex (as selectedWaveformIndex() tells).
    void waveformSelectionChanged(int waveformIndex);
    /// waveformIndex was checked against its envelope anew; envelopeCheckResult() has the outcome.
    void envelopeChecked(int waveformIndex);
    /// setStacked() laid the waveforms out stacked or overlaid.
    void stackedChanged(bool stacked);
    /// The time cursors were shown or hidden.
    void cursorsVisibleChanged(bool visible);
    /// The visible time range or a cursor moved.
    void viewChanged();

protected:
    /// The chart's wheel, drag, keys and hover, and the tree boxes' keys.
    bool eventFilter(QObject *watched, QEvent *event) override;
    /// Keeps the divisions square at the new size.
    void resizeEvent(QResizeEvent *event) override;
    /// Lays the divisions out once the widget has its size.
    void showEvent(QShowEvent *event) override;

private slots:
    void onDivisionSpinBoxChanged(double value);
    void onTimeDivisionSpinBoxChanged(double value);
    void onTimeOffsetSpinBoxChanged(double value);
    void onWaveformOffsetSpinBoxChanged(double value);
    void onWaveformVisibilityChanged(QTreeWidgetItem *item, int column);
    void onEnvelopeEditingFinished(int waveformIndex, const EnvelopeData &envelope);
    void onEnvelopeEditingCancelled();
    void onTreeContextMenu(const QPoint &pos);
    void onTreeSelectionChanged();
    void onEditorStateChanged();

private:
    friend class TstVornGraph;
    friend class TstVornGraphEnvelope;
    friend class TstVornGraphTree;
    friend class VornGraphBench;
    friend class TstNavigation;

    // vorngraph.cpp: frame and life cycle
    void createChart();
    void createInfoTree();
    void createFrameWidgets();
    void createEnvelopeEditor();
    bool showErrorForInvalidInterval();
    void clearGraph();
    void releaseForClosing(); // vorngraph_tree.cpp: the tree and the chart let go at once
    QColor getWaveformColor(int index) const;

    // vorngraph_series.cpp: series and the time base
    void createSeriesForWaveform(const WaveformData &w);
    QLineSeries *createWaveformSeries();
    bool openGLAvailable();
    void hideChartOpenGLWidget();
    QValueAxis *createWaveformAxis();
    void attachWaveformSeries();
    void calculateGlobalXRange();
    VisibleRange calculateVisibleIndices(const WaveformData &w, double xMin, double xMax);
    QVector<QPointF> downsampleVisibleRange(const WaveformData &w, std::uint64_t startIndex,
                                            std::uint64_t endIndex, int maxPoints);
    QVector<double> calculateTimeValues(const WaveformData &w) const;
    void updateSeriesForViewport();
    QList<QPointF> viewportPoints(const WaveformData &w, double xMin, double xMax);
    void buildPyramids();
    void holdPointsForLayout();
    void returnPointsAfterLayout();
    const MinMaxPyramid *pyramidFor(const WaveformData &w) const;
    SampleSummary summaryOf(const WaveformData &w) const;

    // vorngraph_axes.cpp: divisions and label axes
    double calculateDivisionSizeX(double horizontalDivisions) const;
    double calculateDivisionSizeY(double minValue, double maxValue) const;
    void setupAxisX();
    void updateSquareDivisions();
    void scheduleSquareDivisions();
    void emptyWaveformSeries();
    void updateTraces();
    void chooseTimePerDivision(double horizontalDivisions);
    void updateXAxis(double timePerDivision);
    void updateXAxisLabels();
    void updateYAxisForWaveform(int waveformIndex, double divisionSize);
    void updateYAxisLabels();
    void followLabelRoom();
    // Sets a range of divisions around centre; leaves the axis as it was where the doubles
    // cannot tell the grid lines apart.
    static void applyDivisionGrid(QValueAxis *axis, double centre, double halfSpan, double interval);

    // vorngraph_lines.cpp: reference lines and the measured ranges
    void updateCenterLines();
    QLineSeries *createReferenceLine(Qt::PenStyle style, QValueAxis *axisY);
    void updateZeroLines();
    QLineSeries *createZeroLine(int waveformIndex);
    void updateRangeDisplay();

    // vorngraph_controls.cpp: the division and offset controls
    QDoubleSpinBox *createDivisionSpinBox(size_t waveformIndex, double initialValue, const QString &unit);
    QDoubleSpinBox *createTimeDivisionSpinBox();
    QDoubleSpinBox *createTimeOffsetSpinBox();
    QDoubleSpinBox *createWaveformOffsetSpinBox(size_t waveformIndex);

    // vorngraph_navigation.cpp: wheel, drag and keys on the chart; the tree boxes' input
    // The offset goes to the roundest value within slack of timeOffset; without a slack, to a
    // tenth of a division.
    void setTimeBase(double timePerDivision, double timeOffset, double slack = -1.0);
    void showTimeInTree();
    void setWaveformScale(int index, double divisionSize, double offset);
    QDoubleSpinBox *divisionSpinBox(int index) const;
    bool chartKeyPressed(QKeyEvent *event);
    bool chartWheelTurned(QWheelEvent *event);
    bool chartMouseEvent(QMouseEvent *event);
    void adoptTreeBox(QDoubleSpinBox *box);
    bool treeBoxEvent(QDoubleSpinBox *box, QEvent *event);

    // vorngraph_stack.cpp: stacked and overlaid layouts
    void applyStackedLayout();
    void applyOverlaidLayout();
    void setScales(const QVector<int> &indices, const QVector<WaveformScale> &scales);
    WaveformExtent extentOf(int index) const;
    void updateBandLabels();

    // vorngraph_cursors.cpp: the status line, the hover readout and the two cursors
    QWidget *createChartPage();
    void updateCursorLines();
    void updateReadouts();
    QString valuesAt(double time) const;
    double readoutResolution() const;
    QString formattedValue(double value, int index) const;
    int cursorNear(int viewX) const;
    double timeAtViewX(double viewX) const;

    // vorngraph_tree.cpp: the information tree
    void updateInfoTree();
    void addTimeRows();
    void addWaveformRows(int index);
    void addRowControls(int index);
    void removeRowControls(int index);
    void placeRowControls();

    // vorngraph_envelope.cpp: envelope drawing and the editor's panel
    void createEnvelopeSeries(int index);
    void closeEnvelopeSegment(int index, QLineSeries *&upper, QLineSeries *&lower);
    void clearEnvelopeSeries(int index);
    void connectOverlaySignals();
    void beginEnvelopeEditing(int index, bool newRegion);
    void positionEditorOverlay();
    void updateKnotReadout();

    // vorngraph_envelopestyle.cpp: the opt-in envelope drawing
    void envelopePens(int index, QPen &upper, QPen &lower) const;
    QColor envelopeFillColor(int index) const;
    void createReducedEnvelopeSeries(int index);
    void updateEnvelopeSeriesForViewport();
    void setEnvelopePointsAside(int index = -1);
    void restoreEnvelopePoints();
    void redrawEnvelopes();
    void updateBackgroundForViewport(); // vorngraph_background.cpp
    void addBackgroundPoints(int index, const QVector<QPointF> &points);
    // Markers live in scene coordinates: every change of the plot area or of an axis moves them.
    void followPlotChanges();

    // vorngraph_violations.cpp: the envelope check and its marks
    void checkEnvelopeOf(int index);
    void releaseLegendItems();
    void updateViolationMarks();
    void addViolationMarks(int index, QPainterPath &path) const;
    bool centreOnViolation(int index, bool forward);

    QSplitter *m_splitter = nullptr;
    QTreeWidget *m_infoTree = nullptr;
    QDoubleSpinBox *m_timeDivisionSpinBox = nullptr;
    QDoubleSpinBox *m_timeOffsetSpinBox = nullptr;
    QList<QDoubleSpinBox *> m_offsetSpinBoxes;
    InteractiveChartView *m_chartView = nullptr;
    QChart *m_chart = nullptr;
    EnvelopeEditorController *m_envelopeEditor = nullptr;
    EnvelopeEditorOverlay *m_editorOverlay = nullptr;
    QVector<WaveformData> m_waveforms;
    QVector<double> m_shifts; // seconds each waveform is drawn earlier than it was added
    QList<QLineSeries *> m_series;
    QList<QValueAxis *> m_yAxes;
    QLineSeries *m_centerLineV = nullptr;
    QLineSeries *m_centerLineH = nullptr;
    QLineSeries *m_timeZeroLine = nullptr;
    QValueAxis *m_axisX = nullptr;
    QCategoryAxis *m_axisXLabels = nullptr;
    QCategoryAxis *m_axisYLabels = nullptr;
    double m_globalXMin = 0.0;
    double m_globalXMax = 0.0;
    double m_timePerDivision = 0.0;
    double m_timeOffset = 0.0;
    QVector<double> m_divisionSizes;
    QVector<double> m_offsets;
    QVector<bool> m_waveformVisible;
    QList<QLineSeries *> m_zeroLines;
    QVector<int> m_zeroLineOwners; // the waveform of each zero line
    QTreeWidgetItem *m_timeRangePlusItem = nullptr;
    QTreeWidgetItem *m_timeRangeMinusItem = nullptr;
    QList<QTreeWidgetItem *> m_rangePlusItems;
    QList<QTreeWidgetItem *> m_rangeMinusItems;
    QVector<QPair<double, double>> m_shownRanges; // what the range rows show, min and max
    QList<QTreeWidgetItem *> m_waveformItems;
    // Past a few dozen waveforms, only the rows in view carry their boxes (see placeRowControls).
    bool m_rowControlsInViewOnly = false;
    QVector<int> m_rowsWithControls;
    QObject *m_treeViewportWatcher = nullptr;
    QList<QList<QLineSeries *>> m_envelopeUpperSeries;
    QList<QList<QLineSeries *>> m_envelopeLowerSeries;
    QList<QList<QAreaSeries *>> m_envelopeAreaSeries;
    QVector<EnvelopeData> m_envelopes;
    bool m_useOpenGL = true;
    double m_divisionPixels = 0.0;
    QStackedWidget *m_stackedWidget = nullptr;
    QLabel *m_errorLabel = nullptr;
    bool m_envelopeEditingEnabled = true;
    bool m_editByKnots = false;
    bool m_distinctEnvelopeStyle = false;
    bool m_envelopeReduction = false;
    // Reduced drawing: each waveform's envelope cut at its gaps, one run per drawn segment, with
    // the corners of its curves where they have few (none where they have many).
    struct EnvelopeRun
    {
        EnvelopeData curves;
        QVector<QPointF> upperCorners, lowerCorners;
    };
    QVector<QVector<EnvelopeRun>> m_envelopeRuns;
    QHash<QLineSeries *, QList<QPointF>> m_envelopePointsAside; // while an axis changes
    QList<QList<QLineSeries *>> m_backgroundSeries;
    QList<QList<QVector<QPointF>>> m_backgroundPoints; // per series: the kept min/max points
    // One zero-delay retry of the layout at a time, however many resizes ask for it.
    bool m_squareDivisionsPending = false;
    // Min/max index of every long waveform, so that a view change costs the same at any length.
    std::vector<std::shared_ptr<const MinMaxPyramid>> m_pyramids;
    int m_openGLProbe = -1; // whether an OpenGL context can be made: -1 not asked yet, else 0 or 1
    QVector<EnvelopeCheckResult> m_checkResults;
    std::vector<ViolationMask> m_violationMasks;
    QGraphicsPathItem *m_violationMarks = nullptr; // one item for every waveform's marks
    TraceItem *m_traces = nullptr; // draws every waveform series' points
    // The waveform series' points and the plot area while the chart lays itself out.
    QObject *m_layoutPassFilter = nullptr;
    QVector<QList<QPointF>> m_heldPoints;
    QRectF m_heldPlotArea;
    // The stacked view's bands, in divisions above the centre, and their labels.
    struct Band
    {
        int waveform = 0;
        double top = 0.0;
        double height = 0.0;
        bool logic = false;
    };
    QVector<Band> m_bands;
    BandLabelItem *m_bandLabels = nullptr;
    AxisLabelItem *m_axisLabels = nullptr; // draws what m_axisXLabels and m_axisYLabels hold
    QMarginsF m_chartMargins; // the chart's own, before the labels' room
    std::array<double, 6> m_laidOut{}; // plot area and time base of the last layout
    bool m_stacked = false;
    bool m_horizontalTimeLabels = false;
    // While a layout sets many scales, the lines and readouts shared by all waveforms wait for
    // the last one: each update rebuilds every zero line.
    bool m_settingScales = false;
    // A left-button drag on the chart: the pan's start, or the cursor being moved.
    bool m_panning = false;
    bool m_treeBehind = false; // the tree's time rows wait for a drag to rest
    QTimer *m_treeFollow = nullptr;
    int m_draggedCursor = -1;
    QPoint m_pressPos;
    double m_pressTimeOffset = 0.0;
    int m_wheelRemainder = 0;
    bool m_cursorsVisible = false;
    double m_cursorTimes[2] = {0.0, 0.0};
    QGraphicsLineItem *m_cursorLines[2] = {nullptr, nullptr};
    void updateMeasurementMarks(); // vorngraph_marks.cpp
    int m_markedWaveform = -1;
    QVector<double> m_markTimes, m_markLevels;
    QList<QGraphicsLineItem *> m_markLines; // owned by the scene
    double m_hoverX = std::numeric_limits<double>::quiet_NaN(); // pointer over the chart, view pixels
    QLabel *m_hoverLabel = nullptr;
    QLabel *m_cursorLabel = nullptr;
};

#endif
