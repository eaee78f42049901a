// What all views paint with: colours that can be told apart, tinted pictures and lines of text.
#pragma once

#include <QColor>
#include <QFont>
#include <QFontMetrics>
#include <QImage>
#include <QRect>
#include <QString>
#include <initializer_list>

class QPainter;

namespace kvl::qt {

// What text needs to be read by most people.
inline constexpr double kReadableContrast = 4.5;
// With less than this a theme's own colours are left: down to here it is the theme that decides, as
// it does in everything else that the application shows.
inline constexpr double kLeastThemeContrast = 2;

// The contrast of two opaque colours, from 1 for equal ones to 21 for black and white: the ratio of
// their relative luminances, as the accessibility guidelines for the web define it.
[[nodiscard]] double contrast(const QColor& one, const QColor& other);

// The first of the colours that is readable on the opaque `background`; else black or white, one of
// which always is.
[[nodiscard]] QColor readableOn(const QColor& background, std::initializer_list<QColor> candidates);

// `share` of `top`, from 0 to 1, over the opaque `bottom`.
[[nodiscard]] QColor blended(const QColor& bottom, const QColor& top, double share);

// `text` toned down towards `background`, to about `share` of it, but not below what is readable.
// `text` itself when that is not readable either.
[[nodiscard]] QColor tonedDown(const QColor& text, const QColor& background, double share);

// Of pictures in colours of their own where they cannot be used.
inline constexpr double kDisabledOpacity = 0.4;

// The shape of the picture in one colour.
[[nodiscard]] QImage tinted(const QImage& picture, const QColor& colour);

// The width of a line that is not elided, in whole device-independent pixels.
[[nodiscard]] int widthOf(const QString& line, const QFont& font);

// Paints a line as its own letters run, whichever way the layout runs, and elided at its end.
// `alignment` is absolute; `flags` are further ones of `QPainter::drawText`. `metrics` are those of
// the painter's font.
void paintLine(QPainter& painter, const QRect& rect, const QString& line, Qt::Alignment alignment,
               const QFontMetrics& metrics, int flags = 0);

}  // namespace kvl::qt
