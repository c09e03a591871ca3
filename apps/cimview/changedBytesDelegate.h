#pragma once

#include <QStyledItemDelegate>

namespace vexmor::Apps::Cimview
{

/// Paints the data column of a CIdentifierModel: bytes that changed lately stand on the highlight colour.
class CChangedBytesDelegate : public QStyledItemDelegate
{
    Q_OBJECT

public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
};

} // namespace vexmor::Apps::Cimview
