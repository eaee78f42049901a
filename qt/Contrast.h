// Colours that can be told from one another.
#pragma once

#include <QColor>
#include <initializer_list>

namespace kvl::qt {

// What text needs to be read by most people.
inline constexpr double kReadableContrast = 4.5;

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

}  // namespace kvl::qt
