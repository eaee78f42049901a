/// @file
/// From the framework's types to Qt's and back.
#pragma once

#include <local/platform/Export.h>
#include <local/platform/Image.h>

#include <QImage>
#include <QString>
#include <string>
#include <string_view>

namespace kvl::qt {

/// The text of UTF-8; bytes that are none become U+FFFD. Any thread.
[[nodiscard]] KVL_EXPORT QString qString(std::string_view text);

/// The text in UTF-8; lone surrogates become U+FFFD. Any thread.
[[nodiscard]] KVL_EXPORT std::string utf8(const QString& text);

/// The text as a part of a longer one: whichever way its letters run and whatever directions it
/// sets itself, they end with it, so that what stands beside it stays in its place. A text from
/// left to right is returned as it is, unless the application runs from right to left. Any thread.
///
/// @return the text between U+2068 and U+2069
[[nodiscard]] KVL_EXPORT QString isolated(const QString& text);

/// The picture of `bitmap`, in `QImage::Format_RGBA8888_Premultiplied`, which shares the pixels;
/// null when the bitmap is empty, or has fewer pixels than it says. Any thread.
[[nodiscard]] KVL_EXPORT QImage qImage(const Bitmap& bitmap, double devicePixelRatio = 1);

}  // namespace kvl::qt
