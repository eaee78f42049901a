/// @file
/// From the framework's types to Qt's and back.
#pragma once

#include <local/platform/Export.h>
#include <local/platform/Image.h>
#include <local/platform/Value.h>

#include <QImage>
#include <QString>
#include <QVariant>
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

/// The deepest value that the two below look into: what is nested in more arrays and dictionaries
/// is null. Qt takes a variant's parts down one within the other.
inline constexpr int kDeepestVariant = 256;

/// The value as Qt has it: null as `nullptr`, numbers as `bool`, `qlonglong` and `double`, a date
/// as a `QDateTime` in UTC (to the millisecond; invalid beyond what that holds), a string as
/// `QString`, data as `QByteArray`, an array as `QVariantList`, a dictionary as `QVariantMap`,
/// which sorts its keys. Objects of other classes are null. Any thread.
[[nodiscard]] KVL_EXPORT QVariant variant(const Value& value);

/// The reverse. Lists of strings and hashes are known as well; whatever else Qt can make a text of
/// is that text (a `QUrl`), and the rest is null. An unsigned number beyond the signed range is a
/// real. Any thread.
[[nodiscard]] KVL_EXPORT Value value(const QVariant& variant);

}  // namespace kvl::qt
