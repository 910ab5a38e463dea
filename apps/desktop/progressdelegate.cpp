#include "progressdelegate.h"

#include "planmodel.h"

#include <QApplication>
#include <QStyle>
#include <QStyleOptionProgressBar>

void ProgressDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    const int percent = index.data(PlanModel::ProgressRole).toInt();
    if (percent < 0) {
        QStyledItemDelegate::paint(painter, option, index);
        return;
    }
    // A run whose size is not known (yet) shows a busy bar with the cell's text.
    const bool known = index.data(PlanModel::ProgressKnownRole).toBool();
    QStyleOptionProgressBar bar;
    bar.rect = option.rect.adjusted(2, 3, -2, -3);
    bar.minimum = 0;
    bar.maximum = known ? 100 : 0;
    bar.progress = known ? percent : 0;
    bar.text = known ? QStringLiteral("%1%").arg(percent) : index.data(Qt::DisplayRole).toString();
    bar.textVisible = true;
    bar.state = option.state | QStyle::State_Horizontal;
    QStyle* style = option.widget ? option.widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ProgressBar, &bar, painter, option.widget);
}
