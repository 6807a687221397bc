#include "PictureDelegate.h"

#include "../browser/HandlerTime.h"
#include "FileModel.h"

#include <QApplication>
#include <QPainter>

namespace {

constexpr int margin = 8;

}

void PictureDelegate::paint(
    QPainter* painter, QStyleOptionViewItem const& option, QModelIndex const& index) const
{
    HandlerTime const time;
    QStyle const* const style = option.widget ? option.widget->style() : QApplication::style();
    QStyleOptionViewItem background = option;
    background.showDecorationSelected = true; // The whole cell, not a text that the style knows of.
    style->drawPrimitive(QStyle::PE_PanelItemViewItem, &background, painter, option.widget);

    QRect const place(option.rect.x() + (option.rect.width() - pictureSide) / 2,
        option.rect.y() + margin, pictureSide, pictureSide);
    auto const picture = index.data(FileModel::pictureRole).value<QImage>();
    if (!picture.isNull())
        painter->drawImage(place, picture);

    QRect const below(option.rect.x() + margin / 2, place.bottom() + margin / 2,
        option.rect.width() - margin, option.fontMetrics.lineSpacing());
    auto const name = option.fontMetrics.elidedText(
        index.data(Qt::DisplayRole).toString(), Qt::ElideMiddle, below.width());
    painter->setPen(option.palette.color(
        option.state & QStyle::State_Selected ? QPalette::HighlightedText : QPalette::Text));
    painter->drawText(below, Qt::AlignHCenter | Qt::AlignTop | Qt::TextSingleLine, name);
}
