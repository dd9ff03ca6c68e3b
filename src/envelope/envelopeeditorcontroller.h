#ifndef ENVELOPEEDITORCONTROLLER_H
#define ENVELOPEEDITORCONTROLLER_H

#include "vorngraph_export.h"
#include "vornwaveform.h"

#include <QColor>
#include <QObject>
#include <QPointer>
#include <QVector>

#include <utility>

class DraggablePointMarker;
class InteractiveChartView;
class KnotDragMode;
class KnotLimitsItem;
class PointDragMode;
class QAbstractSeries;
class QChart;
class QGraphicsLineItem;
class QGraphicsPolygonItem;
class QGraphicsScene;
class RegionSelectMode;

/// Runs one envelope edit of one waveform: region selection, point generation or loading, the
/// draggable markers with their connector lines and fill, and finally the envelope itself.
/// The point list is the truth; markers and lines mirror it.
class VORNGRAPH_EXPORT EnvelopeEditorController : public QObject
{
    Q_OBJECT

public:
    /// Where an edit stands.
    enum State { Idle, SelectingRegion, EditingPoints };
    /// \var State Idle
    /// No edit runs.
    /// \var State SelectingRegion
    /// A new envelope waits for the user to drag out its time region.
    /// \var State EditingPoints
    /// Points or knots are on the chart; Apply can deliver the envelope.
    Q_ENUM(State)

    /// An idle controller; give it a chart view before the first edit.
    explicit EnvelopeEditorController(QObject *parent = nullptr);
    /// Removes a running edit's items from the scene.
    ~EnvelopeEditorController() override;

    /// The view the edit draws on and installs its mouse modes in; may be null, and is forgotten
    /// when destroyed.
    void setChartView(InteractiveChartView *view);

    /// Starts a new envelope for waveform: the user drags out a region, then shapes pointCount()
    /// points over it.
    /// Drawn in color on series' axes; emits editingStarted().
    void startEditing(int waveformIndex, const WaveformData &waveform, const QColor &color,
                      QAbstractSeries *series);
    /// Edits envelope as one draggable point per envelope sample, its gaps as disabled points;
    /// emits editingStarted().
    void startEditingExisting(int waveformIndex, const WaveformData &waveform,
                              const EnvelopeData &envelope, const QColor &color,
                              QAbstractSeries *series);
    /// Edits an existing envelope by its knots (where its limits bend) instead of one point per
    /// sample; Apply puts the knots back on the envelope's own time grid, so an untouched knot
    /// edit gives the same curves. Knots move in time on that grid and never past a neighbour.
    void startEditingKnots(int waveformIndex, const WaveformData &waveform, const EnvelopeData &envelope,
                           const QColor &color, QAbstractSeries *series);
    /// Whether the running edit moves knots rather than points.
    bool isKnotEditing() const { return m_knotEditing; }
    /// The selected knot's index, or -1 when none is selected or no knot edit runs.
    int selectedKnot() const;
    /// Selects knot index (-1 or an invalid index selects none) and emits knotSelected(); ignored
    /// outside a knot edit.
    void selectKnot(int index);
    /// A knot on the grid between its neighbours, on the straight limits there; false when there
    /// is no free grid time or no stretch of limits at time.
    bool insertKnot(double time);
    /// Removes knot index; false for an invalid index, outside a knot edit, or when only two knots
    /// are left.
    bool removeKnot(int index);
    /// Typed values: the time snaps to the grid between the neighbours; false if out of range.
    bool setKnot(int index, double time, double upperValue, double lowerValue);
    /// Replaces every knot, for undoing a step.
    void setKnots(const QVector<EnvelopePoint> &knots);
    /// Switches a knot off (a gap between its neighbours) or back on; one undoable step. A press
    /// never does this: handles are for moving limits.
    bool toggleKnot(int index);
    /// Knots in view drawn without handles because they lie closer than a handle on screen.
    int knotsWithoutHandles() const { return m_knotsWithoutHandles; }
    /// The grid knots live on: time of node k is start + k * interval.
    double knotGridStart() const { return m_gridStart; }
    /// The spacing of the knot grid in seconds.
    double knotGridInterval() const { return m_gridInterval; }

    /// Apply: ends the edit and emits editingFinished() with the envelope; ignored when no edit
    /// runs.
    void finishEditing();
    /// Cancel: ends the edit without an envelope and emits editingCancelled(); ignored when no edit
    /// runs.
    void cancelEditing();

    /// Points of a new envelope (at least 2). While points are shown, regenerates them over the
    /// region, dropping the user's drags; no effect on a knot edit.
    void setPointCount(int count);
    /// Points a new envelope gets over its region.
    int pointCount() const { return m_pointCount; }
    /// Whether Apply would deliver an envelope: points are shown and there is at least one.
    bool canFinish() const;
    /// Whether an edit runs.
    bool isEditing() const { return m_state != Idle; }
    /// Where the running edit stands.
    State state() const { return m_state; }
    /// The edited waveform's index, -1 when no edit runs.
    int waveformIndex() const { return m_waveformIndex; }
    /// The points or knots as they stand, in time order (seconds, the waveform's unit).
    const QVector<EnvelopePoint> &points() const { return m_editData.points; }

    /// The envelope the points describe now, as Apply would deliver it.
    EnvelopeData createEnvelopeData() const;
    /// Moves markers and lines after the chart's axes or plot area changed.
    void updateMarkerPositions();
    /// Takes the markers and lines out of the scene; the points stay.
    void removePointMarkers();

    /// The point rules, free of any scene so that they can be checked on plain data.
    /// A point enabled between disabled ones (or the list's ends) cannot bound a stretch.
    static void disableLonelyPoints(QVector<EnvelopePoint> &points);
    /// One sample per point; disabled points become NaN gaps in both curves.
    static EnvelopeData createEnvelopeData(const WaveformData &waveform, const EnvelopeEditData &editData);
    /// The curves assume uniform spacing, so the interval is the points' mean spacing.
    static void updateSampleInterval(EnvelopeEditData &editData);
    /// Disabled points loaded from gaps have no values; park them at 90 % and 10 % of the y range.
    static void initializeDisabledPointValues(QVector<EnvelopePoint> &points, double yMin, double yMax);

signals:
    /// An edit of waveform waveformIndex began.
    void editingStarted(int waveformIndex);
    /// Apply ended the edit of waveformIndex with envelope; the controller is idle again.
    void editingFinished(int waveformIndex, const EnvelopeData &envelope);
    /// The edit ended without an envelope.
    void editingCancelled();
    /// The edit moved to newState.
    void stateChanged(EnvelopeEditorController::State newState);
    /// Points or knots changed (regenerated, toggled, moved by the user or by a call).
    void pointsUpdated();
    /// The count of points for a new envelope changed, or was reset by startEditing().
    void pointCountChanged(int count);
    /// Knot edit only: a knot was selected (-1: none), and one step of the edit is complete.
    void knotSelected(int knotIndex);
    /// One step of a knot edit is complete; step names it for an undo stack ("Move Knot", "Add
    /// Knot", ...).
    void knotsEdited(const QString &step);
    /// The user double-clicked knot knotIndex to type its time and limits.
    void knotEditRequested(int knotIndex);

private slots:
    void onRegionSelected(double startTime, double endTime);
    void onPointMoved(int pointIndex, double newUpperValue, double newLowerValue);
    void onPointToggled(int pointIndex);
    void onKnotMoved(int knotIndex, double time, double upperValue, double lowerValue);
    void onKnotToggled(int knotIndex);

private:
    void beginEdit(int waveformIndex, const WaveformData &waveform, const QColor &color,
                   QAbstractSeries *series);
    void endEdit();
    void generateInitialPoints();
    std::pair<double, double> getAxisYRange() const;
    void loadExistingEnvelope(const EnvelopeData &envelope);
    void disableLonelyPoints();
    void initializeDisabledPointValues();
    void updateSampleInterval();
    void switchToPointDragMode();
    void switchToRegionSelectMode();
    void switchToKnotDragMode();
    void rebuildKnotMarkers(int selected);
    EnvelopeData createKnotEnvelopeData() const;
    // Knot edits make a marker per knot but scene items only for the knots in view that lie at
    // least a handle apart (and the selected one), and draw the limits as one item, so that tens
    // of thousands of knots open and drag like a few hundred.
    void createKnotMarkers();
    void placeKnotHandles();
    void releaseInteractionMode();
    void onChartViewDestroyed();

    // Scene graphics, in envelopeeditorcontroller_scene.cpp.
    QChart *chart() const;
    QGraphicsScene *scene() const;
    void createPointMarkers();
    void updatePointMarkers();
    void createConnectorLines();
    void updateConnectorLines();
    // Lines first ... last - 1, or all of them.
    void placeConnectorLines(int first = 0, int last = -1);
    void removeConnectorLines();
    void createFillArea();
    void updateFillArea();
    void removeFillArea();
    void forgetSceneItems();

    QPointer<InteractiveChartView> m_chartView;
    State m_state = Idle;
    int m_waveformIndex = -1;
    WaveformData m_waveform;
    QColor m_color;
    QAbstractSeries *m_series = nullptr;
    EnvelopeEditData m_editData;
    int m_pointCount = 10;
    QVector<DraggablePointMarker *> m_markers;
    QVector<QGraphicsLineItem *> m_upperLines;
    QVector<QGraphicsLineItem *> m_lowerLines;
    QVector<QGraphicsPolygonItem *> m_fillAreas;
    QPointer<RegionSelectMode> m_regionSelectMode;
    QPointer<PointDragMode> m_pointDragMode;
    QPointer<KnotDragMode> m_knotDragMode;
    bool m_knotEditing = false;
    KnotLimitsItem *m_knotLimits = nullptr;
    QVector<int> m_knotHandles; // knots whose markers have scene items, ascending
    int m_knotsWithoutHandles = 0;
    double m_gridStart = 0.0;
    double m_gridInterval = 0.0;
    quint64 m_gridNodes = 0;
};

#endif
