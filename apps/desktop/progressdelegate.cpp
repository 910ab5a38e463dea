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
    QStyleOptionProgressBar bar;
    bar.rect = option.rect.adjusted(2, 2, -2, -2);
    bar.minimum = 0;
    bar.maximum = 100;
    bar.progress = percent;
    bar.text = QStringLiteral("%1%").arg(percent);
    bar.textVisible = true;
    bar.state = option.state | QStyle::State_Horizontal;
    QStyle* style = option.widget ? option.widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ProgressBar, &bar, painter, option.widget);
}
