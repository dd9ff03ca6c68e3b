#ifndef BANDLABELITEM_H
#define BANDLABELITEM_H

#include "vorngraph_export.h"

#include <QColor>
#include <QFont>
#include <QGraphicsItem>
#include <QString>
#include <QVector>

// The labels of the stacked view: each band carries its waveform's name and units per division
// at its top left and the values at its top and bottom edges at the right, in the waveform's
// colour; the selected waveform's band is marked along the plot's left edge.
class VORNGRAPH_EXPORT BandLabelItem : public QGraphicsItem
{
public:
    struct Band
    {
        QString name;
        QString scale;       // "2 V/div"; empty for a logic lane
        QString topValue;    // the value at the band's top edge; empty for a logic lane
        QString bottomValue; // and at its bottom edge
        QColor colour;
        double top = 0.0;    // edges in the parent's coordinates
        double bottom = 0.0;
        bool selected = false;
    };

    explicit BandLabelItem(QGraphicsItem *parent = nullptr);

    void setBands(const QVector<Band> &bands, const QRectF &plot);
    const QVector<Band> &bands() const { return m_bands; }

    QRectF boundingRect() const override;
    void paint(QPainter *painter, const QStyleOptionGraphicsItem *option, QWidget *widget) override;

private:
    void paintBand(QPainter *painter, const Band &band, int lineHeight) const;

    QVector<Band> m_bands;
    QRectF m_plot;
    QFont m_font;
};

#endif
