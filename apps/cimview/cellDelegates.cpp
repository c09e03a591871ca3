#include "apps/cimview/cellDelegates.h"

#include "apps/cimview/colours.h"
#include "apps/cimview/identifierModel.h"

#include <QApplication>
#include <QPainter>

namespace vexmor::Apps::Cimview
{

void CMarkDelegate::initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const
{
    QStyledItemDelegate::initStyleOption(option, index);
    markCheckBoxes(option->palette);
    const auto mark = static_cast<EMark>(index.data(MARK_ROLE).toInt());
    if (mark != EMark::eNone) {
        option->backgroundBrush = backgroundOf(mark, option->palette.color(QPalette::Base));
    }
}

void CChangedBytesDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    QStyleOptionViewItem background(option);
    initStyleOption(&background, index);
    const QString text = background.text;
    background.text.clear();
    const QStyle* const style = option.widget != nullptr ? option.widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ItemViewItem, &background, painter, option.widget);

    const bool selected = (option.state & QStyle::State_Selected) != 0;
    const int changed = index.data(CIdentifierModel::CHANGED_BYTES_ROLE).toInt();
    const QFontMetrics metrics(background.font);
    const int margin = style->pixelMetric(QStyle::PM_FocusFrameHMargin, nullptr, option.widget) + 1;
    QRect place = option.rect.adjusted(margin, 0, 0, 0);
    painter->save();
    painter->setFont(background.font);
    painter->setClipRect(option.rect);
    const QStringList bytes = text.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    for (int i = 0; i < bytes.size(); ++i) {
        place.setWidth(metrics.horizontalAdvance(bytes.at(i)));
        const bool marked = (changed & (1 << i)) != 0 && !selected;
        if (marked) {
            painter->fillRect(place.adjusted(-1, 1, 1, -1), option.palette.highlight());
        }
        painter->setPen(option.palette.color(marked || selected ? QPalette::HighlightedText : QPalette::Text));
        painter->drawText(place, Qt::AlignLeft | Qt::AlignVCenter, bytes.at(i));
        place.moveLeft(place.left() + place.width() + metrics.horizontalAdvance(QLatin1Char(' ')));
    }
    painter->restore();
}

} // namespace vexmor::Apps::Cimview
