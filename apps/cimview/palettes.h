#pragma once

#include <QPalette>

namespace vexmor::Apps::Cimview
{

/// A dark palette, for those whose desktop offers none.
inline QPalette darkPalette()
{
    QPalette palette(QColor(53, 53, 56), QColor(40, 40, 43));
    palette.setColor(QPalette::Base, QColor(30, 30, 32));
    palette.setColor(QPalette::AlternateBase, QColor(38, 38, 41));
    palette.setColor(QPalette::Highlight, QColor(61, 133, 198));
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::Link, QColor(110, 170, 230));
    palette.setColor(QPalette::ToolTipBase, QColor(60, 60, 64));
    palette.setColor(QPalette::ToolTipText, Qt::white);
    palette.setColor(QPalette::PlaceholderText, QColor(150, 150, 150));
    for (const auto role : {QPalette::Text, QPalette::ButtonText, QPalette::WindowText}) {
        palette.setColor(role, QColor(230, 230, 230));
        palette.setColor(QPalette::Disabled, role, QColor(130, 130, 130));
    }
    return palette;
}

} // namespace vexmor::Apps::Cimview
