#pragma once

#include "apps/cimview/tableModel.h"

#include <QApplication>
#include <QPalette>
#include <QStyle>

#include <array>

/// All colours of the window that the style does not define.
namespace vexmor::Apps::Cimview
{

/// Colours of curves on a light background, which colour-blind people can distinguish as well.
constexpr std::array<QRgb, 6> CURVES_ON_LIGHT{0xFF0072B2, 0xFFD55E00, 0xFF009E73, 0xFFCC79A7, 0xFF8B6914, 0xFF444444};
/// Colours of curves on a dark background, which colour-blind people can distinguish as well.
constexpr std::array<QRgb, 6> CURVES_ON_DARK{0xFF56B4E9, 0xFFFFA040, 0xFF4DD2A5, 0xFFF0A0CC, 0xFFF0E442, 0xFFCCCCCC};

inline bool isDark(const QColor& background)
{
    constexpr int MIDDLE_LIGHTNESS = 128;
    return background.lightness() < MIDDLE_LIGHTNESS;
}

/// Returns the colours of curves that are visible on a background.
inline const std::array<QRgb, 6>& curveColours(const QColor& background)
{
    return isDark(background) ? CURVES_ON_DARK : CURVES_ON_LIGHT;
}

/// Returns the colour of invalid text, with a contrast to the background of at least 4.5.
inline QColor wrongText(const QColor& background)
{
    return isDark(background) ? QColor(255, 135, 125) : QColor(195, 25, 25);
}

/// Returns the background of a marked cell, on which ordinary text is as readable as on the ordinary background.
inline QColor backgroundOf(EMark mark, const QColor& ordinary)
{
    constexpr QRgb ON_LIGHT[] = {0xFFFFFFFF, 0xFFD2EFD2, 0xFFFFEDB0, 0xFFFFD0D0};
    constexpr QRgb ON_DARK[] = {0xFF000000, 0xFF25502C, 0xFF5C4C14, 0xFF6E2C2C};
    return QColor((isDark(ordinary) ? ON_DARK : ON_LIGHT)[static_cast<int>(mark)]);
}

/// A dark palette, for desktops that offer none.
inline QPalette darkPalette()
{
    const QColor raised(60, 60, 64);
    QPalette palette(QColor(62, 62, 66), QColor(42, 42, 45));
    palette.setColor(QPalette::Base, QColor(54, 54, 58));
    palette.setColor(QPalette::AlternateBase, raised);
    palette.setColor(QPalette::Highlight, QColor(61, 133, 198));
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::Link, QColor(110, 170, 230));
    palette.setColor(QPalette::ToolTipBase, raised);
    palette.setColor(QPalette::ToolTipText, Qt::white);
    palette.setColor(QPalette::PlaceholderText, QColor(150, 150, 150));
    for (const auto role : {QPalette::Text, QPalette::ButtonText, QPalette::WindowText}) {
        palette.setColor(role, QColor(230, 230, 230));
        palette.setColor(QPalette::Disabled, role, QColor(130, 130, 130));
    }
    return palette;
}

/// In a dark palette, makes the lines around check boxes light: the style draws them darker than the window.
inline void markCheckBoxes(QPalette& palette)
{
    if (isDark(palette.color(QPalette::Base))) {
        palette.setColor(QPalette::Window, palette.color(QPalette::WindowText));
    }
}

/// Gives the whole application the dark palette, or the palette of its style.
inline void setDark(bool dark)
{
    if (dark) {
        QApplication::setStyle(QStringLiteral("Fusion"));
    }
    QPalette palette = dark ? darkPalette() : QApplication::style()->standardPalette();
    QApplication::setPalette(palette);
    markCheckBoxes(palette);
    QApplication::setPalette(palette, "QCheckBox");
}

} // namespace vexmor::Apps::Cimview
