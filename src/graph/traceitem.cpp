#include "traceitem.h"

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
void TraceItem::gatherColumns(const QList<QPointF> &points, const Mapping &m) const
{
    const double lowest = m_plot.top() - FAR_OUTSIDE, highest = m_plot.bottom() + FAR_OUTSIDE;
    const double first = m_plot.left() - FAR_OUTSIDE, last = m_plot.right() + FAR_OUTSIDE;
    m_lines.clear();
    m_lines.reserve(points.size());
    bool open = false;         // a column is being gathered
    double column = 0.0;       // its pixel column
    double low = 0.0, high = 0.0;
    QPointF previous;          // the last point gathered
    const auto closeColumn = [&] {
        if (open)
            m_lines.append(QLineF(column + 0.5, low, column + 0.5, high));
    };
    for (const QPointF &p : points) {
        const QPointF mapped = m.map(p);
        if (!std::isfinite(mapped.x()) || !std::isfinite(mapped.y())) {
            closeColumn();
            open = false;
            continue;
        }
        const QPointF at(std::clamp(mapped.x(), first, last), std::clamp(mapped.y(), lowest, highest));
        const double c = std::floor(at.x());
        if (open && c == column) {
            low = std::min(low, at.y());
            high = std::max(high, at.y());
        } else {
            closeColumn();
            if (open && c == column + 1.0) {
                // The join to the next column is as good as vertical.
                low = std::min(previous.y(), at.y());
                high = std::max(previous.y(), at.y());
            } else {
                if (open)
                    m_lines.append(QLineF(previous, at));
                low = high = at.y();
            }
            column = c;
            open = true;
        }
        previous = at;
    }
    closeColumn();
}

void TraceItem::paintTrace(QPainter *painter, const Trace &trace) const
{
    if (!trace.series || !trace.series->isVisible())
        return;
    const Mapping m = mapping(trace.axisX, trace.axisY);
    if (!m.valid)
        return;
    QPen pen(trace.series->color(), 0.0);
    pen.setCosmetic(true);
    painter->setPen(pen);
    gatherColumns(trace.series->points(), m);
    if (!m_lines.isEmpty())
        painter->drawLines(m_lines.constData(), int(m_lines.size()));
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
    m_rects.clear();
    // Rows inside the band at the current column, top to bottom, each block entered at one column.
    struct Block
    {
        int top, bottom, start;
    };
    std::deque<Block> blocks;
    const auto leave = [&](int top, int bottom, int start, int column) {
        addRows(QRectF(firstColumn + start, top, column - start, bottom - top + 1));
    };
    for (int k = 0; k <= columns; ++k) {
        int top = 0, bottom = -1;
        const double upper = k < columns ? m_upperValues[size_t(k)] : NAN;
        const double lower = k < columns ? m_lowerValues[size_t(k)] : NAN;
        if (std::isfinite(upper) && std::isfinite(lower)) {
            top = int(std::ceil(std::max(std::min(upper, lower), m_plot.top()) - 0.5));
            bottom = int(std::floor(std::min(std::max(upper, lower), m_plot.bottom()) - 0.5));
        }
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
    if (m_rects.isEmpty())
        return;
    painter->setPen(Qt::NoPen);
    painter->setBrush(envelope.area->brush());
    painter->drawRects(m_rects.constData(), int(m_rects.size()));
    painter->setBrush(Qt::NoBrush);
}

// The raster engine hands a fill of many rows to its thread pool, which for a thin rectangle
// costs more than the fill: tall ones go in slices.
void TraceItem::addRows(const QRectF &rect) const
{
    constexpr double SLICE_ROWS = 48.0;
    for (double top = rect.top(); top < rect.bottom(); top += SLICE_ROWS)
        m_rects.append(QRectF(rect.left(), top, rect.width(), std::min(SLICE_ROWS, rect.bottom() - top)));
}

// The polyline's height at the centre of each column from firstColumn on; NaN where it has none.
void TraceItem::columnValues(const QList<QPointF> &points, const Mapping &m, int firstColumn,
                             std::vector<double> &values) const
{
    const int columns = int(std::ceil(m_plot.right())) - firstColumn;
    values.assign(size_t(std::max(columns, 0)), std::numeric_limits<double>::quiet_NaN());
    m_mapped.clear();
    m_mapped.reserve(points.size());
    for (const QPointF &p : points)
        m_mapped.append(m.map(p));
    qsizetype i = 0;
    for (int k = 0; k < columns && m_mapped.size() > 1; ++k) {
        const double centre = firstColumn + k + 0.5;
        while (i + 2 < m_mapped.size() && m_mapped[i + 1].x() < centre)
            ++i;
        const QPointF &a = m_mapped[i], &b = m_mapped[i + 1];
        if (!(a.x() <= centre && centre <= b.x()))
            continue;
        values[size_t(k)] = b.x() == a.x() ? b.y() : a.y() + (b.y() - a.y()) * (centre - a.x()) / (b.x() - a.x());
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
    } else {
        gatherColumns(points, m);
        const double width = pen.widthF();
        if (width <= 1.0) {
            QPen thin(pen.color(), 0.0);
            thin.setCosmetic(true);
            painter->setPen(thin);
            painter->drawLines(m_lines.constData(), int(m_lines.size()));
        } else {
            paintWideColumns(painter, pen.color(), width);
        }
    }
    if (series->pointsVisible())
        paintPointMarks(painter, points, pen, m);
}

// Each gathered line as the pixel columns it crosses, each column as tall as the line's extent
// there plus the pen's width; equal neighbours merge into one rectangle.
void TraceItem::paintWideColumns(QPainter *painter, const QColor &colour, double width) const
{
    m_rects.clear();
    const double firstColumn = std::floor(m_plot.left()) - 1.0, lastColumn = std::ceil(m_plot.right());
    int runTop = 0, runBottom = -1;
    double runEnd = 0.0; // the column after the rectangle being widened
    const auto addColumn = [&](double column, double y1, double y2) {
        const int top = int(std::ceil(std::max(std::min(y1, y2) - width / 2, m_plot.top() - 1.0) - 0.5));
        const int bottom = int(std::floor(std::min(std::max(y1, y2) + width / 2, m_plot.bottom() + 1.0) - 0.5));
        if (bottom < top)
            return;
        if (!m_rects.isEmpty() && column == runEnd && top == runTop && bottom == runBottom) {
            m_rects.last().setRight(column + 1.0);
            runEnd = column + 1.0;
            return;
        }
        m_rects.append(QRectF(column, top, 1.0, bottom - top + 1));
        runTop = top;
        runBottom = bottom;
        runEnd = column + 1.0;
    };
    for (QLineF line : qAsConst(m_lines)) {
        if (line.x1() > line.x2())
            line = QLineF(line.p2(), line.p1());
        const double from = std::max(std::floor(line.x1()), firstColumn), to = std::min(std::floor(line.x2()), lastColumn);
        if (line.dx() == 0.0) {
            if (from == to)
                addColumn(from, line.y1(), line.y2());
            continue;
        }
        const double slope = line.dy() / line.dx();
        for (double column = from; column <= to; ++column) {
            const double left = std::max(line.x1(), column), right = std::min(line.x2(), column + 1.0);
            addColumn(column, line.y1() + (left - line.x1()) * slope, line.y1() + (right - line.x1()) * slope);
        }
    }
    const QVector<QRectF> columns = std::exchange(m_rects, {});
    for (const QRectF &rect : columns)
        addRows(rect);
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
            addRows(QRectF(column - 1, rows[i] - 1, 3, rows[j] - rows[i] + 3));
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
