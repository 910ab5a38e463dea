#ifndef BACKUPFRAME_DESKTOP_PROGRESSDELEGATE_H
#define BACKUPFRAME_DESKTOP_PROGRESSDELEGATE_H

#include <QStyledItemDelegate>

// Draws a progress bar in a cell whose PlanModel::ProgressRole is 0..100, the plain text otherwise.
class ProgressDelegate : public QStyledItemDelegate
{
    Q_OBJECT

public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
};

#endif
