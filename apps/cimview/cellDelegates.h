#pragma once

#include <QStyledItemDelegate>

namespace vexmor::Apps::Cimview
{

/// Colours the background of a cell according to its EMark.
class CMarkDelegate : public QStyledItemDelegate
{
    Q_OBJECT

public:
    using QStyledItemDelegate::QStyledItemDelegate;

protected:
    void initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const override;
};

/// Paints the data column of a CIdentifierModel: bytes that changed lately have the highlight colour as background.
class CChangedBytesDelegate : public CMarkDelegate
{
    Q_OBJECT

public:
    using CMarkDelegate::CMarkDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
};

} // namespace vexmor::Apps::Cimview
