#include "traceitem.h"

#include "wholepixels.h"

#include <QAreaSeries>
#include <QLineSeries>
#include <QPainter>
#include <QPolygonF>
#include <QValueAxis>

#include <algorithm>
#include <cmath>
#include <deque>
#include <limits>
#include <utility>

namespace {

// Far enough outside the plot that a clamped segment looks the same inside it, near enough that
// the rasteriser's fixed-point coordinates never overflow.
constexpr double FAR_OUTSIDE = 1e5;

// floor and ceil for values well inside int's range, without a library call per pixel.
int floorToInt(double x)
{
    const int i = int(x);
    return i - (x < i);
}

int ceilToInt(double x)
{
    const int i = int(x);
    return i + (x > i);
}

} // namespace

TraceItem::TraceItem(QGraphicsItem *parent)
    : QGraphicsItem(parent)
{
}

void TraceItem::setTraces(const QVector<Trace> &traces)
{
    m_traces = traces;
    update();
}

void TraceItem::setEnvelopes(const QVector<Envelope> &envelopes)
{
    m_envelopes = envelopes;
    update();
}

void TraceItem::setPlotArea(const QRectF &plot)
{
    if (plot == m_plot)
        return;
    prepareGeometryChange();
    m_plot = plot;
}

QRectF TraceItem::boundingRect() const
{
    return m_plot;
}

void TraceItem::paint(QPainter *painter, const QStyleOptionGraphicsItem *, QWidget *)
{
    if (m_plot.isEmpty())
        return;
    painter->save();
    painter->setClipRect(m_plot);
    painter->setRenderHint(QPainter::Antialiasing, false);
    for (const Trace &trace : qAsConst(m_traces))
        paintTrace(painter, trace);
    for (const Envelope &envelope : qAsConst(m_envelopes)) {
        const Mapping m = mapping(envelope.axisX, envelope.axisY);
        if (!m.valid || !envelope.upper || !envelope.lower)
            continue;
        if (envelope.area && envelope.area->isVisible())
            paintBand(painter, envelope, m);
        paintLimit(painter, envelope.upper, m);
        paintLimit(painter, envelope.lower, m);
    }
    painter->restore();
}

TraceItem::Mapping TraceItem::mapping(const QValueAxis *axisX, const QValueAxis *axisY) const
{
    Mapping m;
    if (!axisX || !axisY)
        return m;
    const double xSpan = axisX->max() - axisX->min();
    const double ySpan = axisY->max() - axisY->min();
    if (!(xSpan > 0.0) || !(ySpan > 0.0))
        return m;
    m.xScale = m_plot.width() / xSpan;
    m.yScale = m_plot.height() / ySpan;
    m.x0 = axisX->min();
    m.y0 = axisY->min();
    m.left = m_plot.left();
    m.bottom = m_plot.bottom();
    m.valid = true;
    return m;
}

// One pass over the points. Where several fall into one pixel column, as the min/max reduction
// makes them, the column is drawn as one vertical line over their extent, joined to the column
// before; only steps wider than a column are drawn as the segments they are. The picture is that
// of the polyline, with each pixel written about once instead of once per segment over it.
// A NaN point breaks the trace as a gap.
template <typename Column, typename Segment>
void TraceItem::forEachColumn(const QList<QPointF> &points, const Mapping &m, Column &&column, Segment &&segment) const
{
    const double lowest = m_plot.top() - FAR_OUTSIDE, highest = m_plot.bottom() + FAR_OUTSIDE;
    const double first = m_plot.left() - FAR_OUTSIDE, last = m_plot.right() + FAR_OUTSIDE;
    bool open = false; // a column is being gathered
    int at = 0;        // its pixel column
    double low = 0.0, high = 0.0;
    QPointF previous; // the last point gathered
    for (const QPointF &p : points) {
        const QPointF mapped = m.map(p);
        if (!std::isfinite(mapped.x()) || !std::isfinite(mapped.y())) {
            if (open)
                column(at, low, high);
            open = false;
            continue;
        }
        const QPointF here(std::clamp(mapped.x(), first, last), std::clamp(mapped.y(), lowest, highest));
        const int c = floorToInt(here.x());
        if (open && c == at) {
            low = std::min(low, here.y());
            high = std::max(high, here.y());
        } else {
            if (open)
                column(at, low, high);
            if (open && c == at + 1) {
                // The join to the next column is as good as vertical.
                low = std::min(previous.y(), here.y());
                high = std::max(previous.y(), here.y());
            } else {
                if (open)
                    segment(previous, here);
                low = high = here.y();
            }
            at = c;
            open = true;
        }
        previous = here;
    }
    if (open)
        column(at, low, high);
}

void TraceItem::gatherColumns(const QList<QPointF> &points, const Mapping &m) const
{
    m_lines.clear();
    m_lines.reserve(points.size());
    forEachColumn(
        points, m, [this](int column, double low, double high) { m_lines.append(QLineF(column + 0.5, low, column + 0.5, high)); },
        [this](const QPointF &from, const QPointF &to) { m_lines.append(QLineF(from, to)); });
}

void TraceItem::paintTrace(QPainter *painter, const Trace &trace) const
{
    if (!trace.series || !trace.series->isVisible())
        return;
    const Mapping m = mapping(trace.axisX, trace.axisY);
    if (!m.valid)
        return;
    const QColor colour = trace.series->color();
    QPen pen(colour, 0.0);
    pen.setCosmetic(true);
    painter->setPen(pen);
    QPoint offset;
    if (colour.alpha() == 255 && wholePixelOffset(painter, offset)) {
        paintTraceColumns(painter, trace.series->points(), m, colour, offset.y());
        return;
    }
    gatherColumns(trace.series->points(), m);
    if (!m_lines.isEmpty())
        painter->drawLines(m_lines.constData(), int(m_lines.size()));
}

// The same pixels as the gathered columns drawn as lines with the pen set, but filled: the
// columns' rows become runs along the rows, which a noisy trace, whose neighbouring columns span
// nearly the same rows, fills at the speed of a plain rectangle. Steps wider than a column are
// still stroked. deviceRow is the painter's vertical offset on the device, in whole pixels.
void TraceItem::paintTraceColumns(QPainter *painter, const QList<QPointF> &points, const Mapping &m, const QColor &colour,
                                  int deviceRow) const
{
    const int firstColumn = floorToInt(m_plot.left()), lastColumn = ceilToInt(m_plot.right()) + 1;
    const int topRow = floorToInt(m_plot.top()) - 1, bottomRow = ceilToInt(m_plot.bottom()) + 1;
    const size_t columns = size_t(std::max(lastColumn - firstColumn + 1, 0));
    m_tops.assign(columns, 0);
    m_bottoms.assign(columns, -1);
    m_lines.clear();
    m_rects.clear();
    forEachColumn(
        points, m,
        [&](int column, double low, double high) {
            // As the raster engine strokes a one-pixel line down a column, on the device: from
            // the row of its start to the row of its end; nothing where both ends fall into the
            // same 64th of a pixel; and a line of no length as one pixel to its right, on the
            // row nearest to it.
            const double from = low + deviceRow, to = high + deviceRow;
            int top = floorToInt(from) - deviceRow, bottom = floorToInt(to) - deviceRow;
            if (from == to) {
                ++column;
                top = bottom = ((int(from * 64) + 32) >> 6) - deviceRow;
            } else if (int(from * 64) == int(to * 64)) {
                return;
            }
            top = std::max(top, topRow);
            bottom = std::min(bottom, bottomRow);
            if (column < firstColumn || column > lastColumn || bottom < top)
                return;
            int &t = m_tops[size_t(column - firstColumn)], &b = m_bottoms[size_t(column - firstColumn)];
            if (b < t) {
                t = top;
                b = bottom;
            } else if (top <= b + 1 && bottom >= t - 1) {
                t = std::min(t, top);
                b = std::max(b, bottom);
            } else {
                // A second stretch of the column, apart from the first (after a gap).
                addRows(QRect(column, top, 1, bottom - top + 1));
            }
        },
        [this](const QPointF &from, const QPointF &to) { m_lines.append(QLineF(from, to)); });
    addRowRuns(firstColumn);
    if (!m_lines.isEmpty())
        painter->drawLines(m_lines.constData(), int(m_lines.size()));
    painter->setPen(Qt::NoPen);
    painter->setBrush(colour);
    painter->drawRects(m_rects.constData(), int(m_rects.size()));
    painter->setBrush(Qt::NoBrush);
}

// The band as the area between the limits is filled: a pixel is inside where its centre lies
// between the two polylines. Sampled once per column, then drawn as runs along the rows, so that
// a translucent brush covers each pixel once and in few rectangles.
void TraceItem::paintBand(QPainter *painter, const Envelope &envelope, const Mapping &m) const
{
    const int firstColumn = int(std::floor(m_plot.left()));
    const int columns = int(std::ceil(m_plot.right())) - firstColumn;
    if (columns <= 0)
        return;
    columnValues(envelope.upper->points(), m, firstColumn, m_upperValues);
    columnValues(envelope.lower->points(), m, firstColumn, m_lowerValues);
    m_tops.assign(size_t(columns), 0);
    m_bottoms.assign(size_t(columns), -1);
    for (int k = 0; k < columns; ++k) {
        const double upper = m_upperValues[size_t(k)], lower = m_lowerValues[size_t(k)];
        if (std::isfinite(upper) && std::isfinite(lower)) {
            // Clamped to a pixel past the plot, where the rows stay well inside int's range.
            m_tops[size_t(k)] = ceilToInt(std::clamp(std::min(upper, lower), m_plot.top(), m_plot.bottom() + 1.0) - 0.5);
            m_bottoms[size_t(k)] = floorToInt(std::clamp(std::max(upper, lower), m_plot.top() - 1.0, m_plot.bottom()) - 0.5);
        }
    }
    m_rects.clear();
    addRowRuns(firstColumn);
    if (m_rects.isEmpty())
        return;
    painter->setPen(Qt::NoPen);
    painter->setBrush(envelope.area->brush());
    painter->drawRects(m_rects.constData(), int(m_rects.size()));
    painter->setBrush(Qt::NoBrush);
}

// The rows [m_tops, m_bottoms] of each column from firstColumn on (none where the bottom lies
// above the top) as rectangles along the rows: a block of rows is entered at one column and left
// where the rows it holds are no longer covered.
void TraceItem::addRowRuns(int firstColumn) const
{
    struct Block
    {
        int top, bottom, start;
    };
    std::deque<Block> blocks;
    const auto leave = [&](int top, int bottom, int start, int column) {
        addRows(QRect(firstColumn + start, top, column - start, bottom - top + 1));
    };
    const int columns = int(m_tops.size());
    int previousTop = 0, previousBottom = -1; // nothing before the first column
    for (int k = 0; k <= columns; ++k) {
        const int top = k < columns ? m_tops[size_t(k)] : 0;
        const int bottom = k < columns ? m_bottoms[size_t(k)] : -1;
        // A column like the one before leaves the blocks as they are.
        if (top == previousTop && bottom == previousBottom)
            continue;
        previousTop = top;
        previousBottom = bottom;
        while (!blocks.empty() && (bottom < top || blocks.front().top < top)) {
            Block &b = blocks.front();
            const int cut = bottom < top ? b.bottom : std::min(b.bottom, top - 1);
            leave(b.top, cut, b.start, k);
            if (cut == b.bottom)
                blocks.pop_front();
            else
                b.top = cut + 1;
        }
        while (!blocks.empty() && blocks.back().bottom > bottom) {
            Block &b = blocks.back();
            const int cut = std::max(b.top, bottom + 1);
            leave(cut, b.bottom, b.start, k);
            if (cut == b.top)
                blocks.pop_back();
            else
                b.bottom = cut - 1;
        }
        if (bottom < top)
            continue;
        if (blocks.empty()) {
            blocks.push_back({top, bottom, k});
            continue;
        }
        if (top < blocks.front().top)
            blocks.push_front({top, blocks.front().top - 1, k});
        if (bottom > blocks.back().bottom)
            blocks.push_back({blocks.back().bottom + 1, bottom, k});
    }
}

// The raster engine hands a fill of many rows to its thread pool, which for a thin rectangle
// costs more than the fill: tall ones go in slices. Whole-pixel rectangles, because the raster
// engine fills those about four times as fast as the same ones given in floating point.
void TraceItem::addRows(const QRect &rect) const
{
    constexpr int SLICE_ROWS = 48;
    for (int top = rect.top(); top <= rect.bottom(); top += SLICE_ROWS)
        m_rects.append(QRect(rect.left(), top, rect.width(), std::min(SLICE_ROWS, rect.bottom() - top + 1)));
}

// The polyline's height at the centre of each column from firstColumn on; NaN where it has none.
// Segment by segment, each filling the columns whose centres it spans.
void TraceItem::columnValues(const QList<QPointF> &points, const Mapping &m, int firstColumn,
                             std::vector<double> &values) const
{
    const int columns = int(std::ceil(m_plot.right())) - firstColumn;
    values.assign(size_t(std::max(columns, 0)), std::numeric_limits<double>::quiet_NaN());
    if (points.size() < 2 || columns <= 0)
        return;
    // Column k's centre lies at firstColumn + k + 0.5. A centre on a point shared by two
    // segments takes the first.
    const double origin = firstColumn + 0.5;
    int unset = 0; // the first column no segment has reached
    QPointF a = m.map(points.front());
    for (qsizetype i = 1; i < points.size(); ++i) {
        const QPointF b = m.map(points[i]);
        if (a.x() <= b.x()) {
            const int from = std::max(ceilToInt(std::clamp(a.x() - origin, -1.0, double(columns))), unset);
            const int to = std::min(floorToInt(std::clamp(b.x() - origin, -1.0, double(columns))), columns - 1);
            if (b.x() == a.x()) {
                if (from <= to)
                    values[size_t(from)] = b.y();
            } else {
                const double slope = (b.y() - a.y()) / (b.x() - a.x());
                for (int k = from; k <= to; ++k)
                    values[size_t(k)] = a.y() + slope * (origin + k - a.x());
            }
            unset = std::max(unset, to + 1);
        }
        a = b;
    }
}

// Solid limits go through the columns like a trace; wider than a pixel, they are filled column by
// column, which costs a fill where a stroke would cost an outline.
void TraceItem::paintLimit(QPainter *painter, const QLineSeries *series, const Mapping &m) const
{
    if (!series->isVisible())
        return;
    const QPen pen = series->pen();
    const QList<QPointF> points = series->points();
    if (pen.style() == Qt::NoPen || points.isEmpty())
        return;
    if (pen.style() != Qt::SolidLine) {
        paintDashedLimit(painter, points, pen, m);
    } else if (pen.widthF() <= 1.0) {
        gatherColumns(points, m);
        QPen thin(pen.color(), 0.0);
        thin.setCosmetic(true);
        painter->setPen(thin);
        painter->drawLines(m_lines.constData(), int(m_lines.size()));
    } else {
        paintWideColumns(painter, points, m, pen.color(), pen.widthF());
    }
    if (series->pointsVisible())
        paintPointMarks(painter, points, pen, m);
}

// The gathered columns of a limit, each as tall as its extent plus the pen's width, and the steps
// between them cut into the columns they cross, filled as runs along the rows: a slanted limit
// takes a rectangle a row, not one a column. An x-monotone polyline covers one stretch of each
// column, so a column's pieces join into one.
void TraceItem::paintWideColumns(QPainter *painter, const QList<QPointF> &points, const Mapping &m, const QColor &colour,
                                 double width) const
{
    const int firstColumn = floorToInt(m_plot.left()) - 1, lastColumn = ceilToInt(m_plot.right());
    const double highest = m_plot.top() - 1.0, lowest = m_plot.bottom() + 1.0, half = width / 2;
    // No rows yet: any piece's rows join by minimum and maximum alone.
    constexpr int NO_TOP = std::numeric_limits<int>::max(), NO_BOTTOM = std::numeric_limits<int>::min();
    m_tops.assign(size_t(std::max(lastColumn - firstColumn + 1, 0)), NO_TOP);
    m_bottoms.assign(m_tops.size(), NO_BOTTOM);
    const auto join = [&](int column, double y1, double y2) {
        const int top = ceilToInt(std::max(std::min(y1, y2) - half, highest) - 0.5);
        const int bottom = floorToInt(std::min(std::max(y1, y2) + half, lowest) - 0.5);
        const bool rows = bottom >= top;
        int &t = m_tops[size_t(column - firstColumn)], &b = m_bottoms[size_t(column - firstColumn)];
        t = std::min(t, rows ? top : NO_TOP);
        b = std::max(b, rows ? bottom : NO_BOTTOM);
    };
    const auto addColumn = [&](int column, double y1, double y2) {
        if (column >= firstColumn && column <= lastColumn)
            join(column, y1, y2);
    };
    const auto addSegment = [&](QPointF a, QPointF b) {
        if (a.x() > b.x())
            std::swap(a, b);
        const double slope = (b.y() - a.y()) / (b.x() - a.x());
        const int to = std::min(floorToInt(b.x()), lastColumn);
        for (int column = std::max(floorToInt(a.x()), firstColumn); column <= to; ++column) {
            const double left = std::max(a.x(), double(column)), right = std::min(b.x(), column + 1.0);
            join(column, a.y() + (left - a.x()) * slope, a.y() + (right - a.x()) * slope);
        }
    };
    forEachColumn(points, m, addColumn, addSegment);
    m_rects.clear();
    addRowRuns(firstColumn);
    painter->setPen(Qt::NoPen);
    painter->setBrush(colour);
    painter->drawRects(m_rects.constData(), int(m_rects.size()));
    painter->setBrush(Qt::NoBrush);
}

// A dash pattern runs on along one polyline; of the points in one pixel column only those that
// shape it on screen are kept: the first, the extremes in their order, and the last.
void TraceItem::paintDashedLimit(QPainter *painter, const QList<QPointF> &points, const QPen &pen, const Mapping &m) const
{
    const double lowest = m_plot.top() - FAR_OUTSIDE, highest = m_plot.bottom() + FAR_OUTSIDE;
    const double first = m_plot.left() - FAR_OUTSIDE, last = m_plot.right() + FAR_OUTSIDE;
    QPolygonF line;
    line.reserve(std::min<qsizetype>(points.size(), 4 * qsizetype(m_plot.width() + 2)));
    struct Column
    {
        double x = std::numeric_limits<double>::quiet_NaN();
        QPointF first, low, high, last;
        qsizetype lowAt = 0, highAt = 0, count = 0;
    } col;
    const auto closeColumn = [&] {
        if (col.count == 0)
            return;
        line.append(col.first);
        const bool lowFirst = col.lowAt <= col.highAt;
        for (const QPointF &extreme : {lowFirst ? col.low : col.high, lowFirst ? col.high : col.low}) {
            if (extreme != line.last() && extreme != col.last)
                line.append(extreme);
        }
        if (col.last != line.last())
            line.append(col.last);
    };
    for (const QPointF &p : points) {
        const QPointF mapped = m.map(p);
        const QPointF at(std::clamp(mapped.x(), first, last), std::clamp(mapped.y(), lowest, highest));
        const double c = std::floor(at.x());
        if (c != col.x) {
            closeColumn();
            col = Column{c, at, at, at, at, 0, 0, 0};
        }
        if (at.y() < col.low.y()) {
            col.low = at;
            col.lowAt = col.count;
        }
        if (at.y() > col.high.y()) {
            col.high = at;
            col.highAt = col.count;
        }
        col.last = at;
        ++col.count;
    }
    closeColumn();
    QPen cosmetic = pen;
    cosmetic.setCosmetic(true);
    painter->setPen(cosmetic);
    painter->drawPolyline(line);
}

// The marks the chart draws for visible points: a disc one and a half pen widths round. Up to a
// pen of a pixel, such a disc covers the 3 x 3 pixels round its centre, so the marks of one
// column are drawn as runs of those squares; larger ones one disc per pixel.
void TraceItem::paintPointMarks(QPainter *painter, const QList<QPointF> &points, const QPen &pen, const Mapping &m) const
{
    const double radius = pen.widthF() * 1.5;
    const QRectF reach = m_plot.adjusted(-radius, -radius, radius, radius);
    painter->setPen(Qt::NoPen);
    painter->setBrush(pen.color());
    if (radius > 1.5) {
        QPoint last(std::numeric_limits<int>::min(), 0);
        for (const QPointF &p : points) {
            const QPointF at = m.map(p);
            const QPoint pixel(int(std::floor(at.x())), int(std::floor(at.y())));
            if (!reach.contains(at) || pixel == last)
                continue;
            last = pixel;
            painter->drawEllipse(at, radius, radius);
        }
        painter->setBrush(Qt::NoBrush);
        return;
    }
    m_rects.clear();
    std::vector<int> rows;
    int column = std::numeric_limits<int>::min();
    const auto closeColumn = [&] {
        std::sort(rows.begin(), rows.end());
        for (size_t i = 0; i < rows.size();) {
            size_t j = i;
            while (j + 1 < rows.size() && rows[j + 1] <= rows[j] + 3)
                ++j;
            addRows(QRect(column - 1, rows[i] - 1, 3, rows[j] - rows[i] + 3));
            i = j + 1;
        }
        rows.clear();
    };
    for (const QPointF &p : points) {
        const QPointF at = m.map(p);
        if (!reach.contains(at))
            continue;
        const int x = int(std::floor(at.x()));
        if (x != column) {
            closeColumn();
            column = x;
        }
        rows.push_back(int(std::floor(at.y())));
    }
    closeColumn();
    painter->drawRects(m_rects.constData(), int(m_rects.size()));
    painter->setBrush(Qt::NoBrush);
}
