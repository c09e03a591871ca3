#pragma once

#include <QApplication>
#include <QPalette>
#include <QStyle>

namespace vexmor::Apps::Cimview
{

/// A dark palette, for those whose desktop offers none.
inline QPalette darkPalette()
{
    QPalette palette(QColor(62, 62, 66), QColor(42, 42, 45));
    // Lighter than the lines that the style draws around check boxes: they would not be seen on it.
    palette.setColor(QPalette::Base, QColor(54, 54, 58));
    palette.setColor(QPalette::AlternateBase, QColor(60, 60, 64));
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

/// Gives the whole application this palette, or back that of its style.
inline void setDark(bool dark)
{
    if (dark) {
        QApplication::setStyle(QStringLiteral("Fusion"));
    }
    QApplication::setPalette(dark ? darkPalette() : QApplication::style()->standardPalette());
}

} // namespace vexmor::Apps::Cimview
