#pragma once

#include <QSize>
#include <QStyledItemDelegate>

/// Draws a file's picture with its name below.
class PictureDelegate final : public QStyledItemDelegate {
public:
    static constexpr int pictureSide = 128;
    static constexpr QSize cellSize { 152, 164 };

    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, QStyleOptionViewItem const& option,
        QModelIndex const& index) const override;
    QSize sizeHint(QStyleOptionViewItem const&, QModelIndex const&) const override
    {
        return cellSize;
    }
};
