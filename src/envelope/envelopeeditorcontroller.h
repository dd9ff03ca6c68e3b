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

// Runs one envelope edit of one waveform: region selection, point generation or loading, the
// draggable markers with their connector lines and fill, and finally the envelope itself.
// The point list is the truth; markers and lines mirror it.
class VORNGRAPH_EXPORT EnvelopeEditorController : public QObject
{
    Q_OBJECT

public:
    enum State { Idle, SelectingRegion, EditingPoints };
    Q_ENUM(State)

    explicit EnvelopeEditorController(QObject *parent = nullptr);
    ~EnvelopeEditorController() override;

    void setChartView(InteractiveChartView *view);

    void startEditing(int waveformIndex, const WaveformData &waveform, const QColor &color,
                      QAbstractSeries *series);
    void startEditingExisting(int waveformIndex, const WaveformData &waveform,
                              const EnvelopeData &envelope, const QColor &color,
                              QAbstractSeries *series);
    // Edits an existing envelope by its knots (where its limits bend) instead of one point per
    // sample; Apply puts the knots back on the envelope's own time grid, so an untouched knot
    // edit gives the same curves. Knots move in time on that grid and never past a neighbour.
    void startEditingKnots(int waveformIndex, const WaveformData &waveform, const EnvelopeData &envelope,
                           const QColor &color, QAbstractSeries *series);
    bool isKnotEditing() const { return m_knotEditing; }
    int selectedKnot() const;
    void selectKnot(int index);
    // A knot on the grid between its neighbours, on the straight limits there; false when there
    // is no free grid time or no stretch of limits at time.
    bool insertKnot(double time);
    bool removeKnot(int index);
    // Typed values: the time snaps to the grid between the neighbours; false if out of range.
    bool setKnot(int index, double time, double upperValue, double lowerValue);
    // Replaces every knot, for undoing a step.
    void setKnots(const QVector<EnvelopePoint> &knots);
    // Switches a knot off (a gap between its neighbours) or back on; one undoable step. A press
    // never does this: handles are for moving limits.
    bool toggleKnot(int index);
    // Knots in view drawn without handles because they lie closer than a handle on screen.
    int knotsWithoutHandles() const { return m_knotsWithoutHandles; }
    // The grid knots live on: time of node k is start + k * interval.
    double knotGridStart() const { return m_gridStart; }
    double knotGridInterval() const { return m_gridInterval; }

    void finishEditing();
    void cancelEditing();

    void setPointCount(int count);
    int pointCount() const { return m_pointCount; }
    bool canFinish() const;
    bool isEditing() const { return m_state != Idle; }
    State state() const { return m_state; }
    int waveformIndex() const { return m_waveformIndex; }
    const QVector<EnvelopePoint> &points() const { return m_editData.points; }

    EnvelopeData createEnvelopeData() const;
    void updateMarkerPositions();
    void removePointMarkers();

    // The point rules, free of any scene so that they can be checked on plain data.
    // A point enabled between disabled ones (or the list's ends) cannot bound a stretch.
    static void disableLonelyPoints(QVector<EnvelopePoint> &points);
    // One sample per point; disabled points become NaN gaps in both curves.
    static EnvelopeData createEnvelopeData(const WaveformData &waveform, const EnvelopeEditData &editData);
    // The curves assume uniform spacing, so the interval is the points' mean spacing.
    static void updateSampleInterval(EnvelopeEditData &editData);
    // Disabled points loaded from gaps have no values; park them at 90 % and 10 % of the y range.
    static void initializeDisabledPointValues(QVector<EnvelopePoint> &points, double yMin, double yMax);

signals:
    void editingStarted(int waveformIndex);
    void editingFinished(int waveformIndex, const EnvelopeData &envelope);
    void editingCancelled();
    void stateChanged(EnvelopeEditorController::State newState);
    void pointsUpdated();
    void pointCountChanged(int count);
    // Knot edit only: a knot was selected (-1: none), and one step of the edit is complete.
    void knotSelected(int knotIndex);
    void knotsEdited(const QString &step);
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
