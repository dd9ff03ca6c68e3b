#ifndef WAVEFORMITEMDELEGATE_H
#define WAVEFORMITEMDELEGATE_H

#include "vorngraph_export.h"

#include <QStyledItemDelegate>

// Paints a small triangle in a row's colour before its text, for rows that carry COLOR_ROLE.
class VORNGRAPH_EXPORT WaveformItemDelegate : public QStyledItemDelegate
{
    Q_OBJECT

public:
    static constexpr int COLOR_ROLE = Qt::UserRole + 100;

    explicit WaveformItemDelegate(QObject *parent = nullptr);
    ~WaveformItemDelegate() override;

    void paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;
};

#endif
