#include <local/qt/Conversions.h>

#include <memory>

namespace kvl::qt {
namespace {

// Whoever made the bitmap may not be the framework.
bool isWhole(const Bitmap& bitmap) {
  return !bitmap.empty() && bitmap.width > 0 &&
         bitmap.pixels.size() / bitmap.stride() >= bitmap.height;
}

// Qt itself would write question marks.
QString withoutLoneSurrogates(QString text) {
  for (qsizetype i = 0; i < text.size(); ++i) {
    if (!text.at(i).isSurrogate()) continue;
    const bool isPair =
        text.at(i).isHighSurrogate() && i + 1 < text.size() && text.at(i + 1).isLowSurrogate();
    if (isPair) {
      ++i;
    } else {
      text[i] = QChar::ReplacementCharacter;
    }
  }
  return text;
}

}  // namespace

QString qString(std::string_view text) {
  return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

std::string utf8(const QString& text) {
  const QByteArray bytes = (text.isValidUtf16() ? text : withoutLoneSurrogates(text)).toUtf8();
  std::string result(bytes.constData(), static_cast<std::size_t>(bytes.size()));
  return result;
}

QImage qImage(const Bitmap& bitmap, double devicePixelRatio) {
  if (!isWhole(bitmap)) return {};
  auto owner = std::make_unique<Data>(bitmap.pixels);
  const uchar* pixels = owner->data();
  QImage image(
      pixels, static_cast<int>(bitmap.width), static_cast<int>(bitmap.height),
      static_cast<qsizetype>(bitmap.stride()), QImage::Format_RGBA8888_Premultiplied,
      [](void* data) { delete static_cast<Data*>(data); }, owner.release());
  image.setDevicePixelRatio(devicePixelRatio);
  return image;
}

}  // namespace kvl::qt
