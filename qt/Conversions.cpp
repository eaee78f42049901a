#include "qt/OwnTexts.h"

#include <local/qt/Conversions.h>

#include <QChar>
#include <QCoreApplication>
#include <QGuiApplication>
#include <algorithm>
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

constexpr QChar kFirstStrongIsolate(0x2068);
constexpr QChar kEndOfIsolate(0x2069);

bool opensIsolate(QChar character) {
  constexpr QChar kLeftToRightIsolate(0x2066);
  return character >= kLeftToRightIsolate && character <= kFirstStrongIsolate;
}

// Whether the letters, and whatever else sets a direction, all run from left to right.
bool isLeftToRight(const QString& text) {
  return std::ranges::none_of(text.toUcs4(), [](char32_t character) {
    switch (QChar::direction(character)) {
      case QChar::DirL:
      case QChar::DirEN:
      case QChar::DirES:
      case QChar::DirET:
      case QChar::DirCS:
      case QChar::DirNSM:
      case QChar::DirBN:
      case QChar::DirB:
      case QChar::DirS:
      case QChar::DirWS:
      case QChar::DirON:
        return false;
      default:
        return true;
    }
  });
}

// An end without a beginning would end what the text stands in.
QString withBalancedIsolates(const QString& text) {
  QString balanced;
  balanced.reserve(text.size());
  qsizetype open = 0;
  for (const QChar character : text) {
    if (character == kEndOfIsolate && open == 0) continue;
    if (opensIsolate(character)) ++open;
    if (character == kEndOfIsolate) --open;
    balanced += character;
  }
  return balanced + QString(open, kEndOfIsolate);
}

}  // namespace

// With each application's object, or now where there is one. Here, since every program with the
// binding has this file.
Q_COREAPP_STARTUP_FUNCTION(translateOwnTexts)

QString qString(std::string_view text) {
  return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

std::string utf8(const QString& text) {
  const QByteArray bytes = (text.isValidUtf16() ? text : withoutLoneSurrogates(text)).toUtf8();
  std::string result(bytes.constData(), static_cast<std::size_t>(bytes.size()));
  return result;
}

QString isolated(const QString& text) {
  if (text.isEmpty() || (isLeftToRight(text) && !QGuiApplication::isRightToLeft())) return text;
  return kFirstStrongIsolate + withBalancedIsolates(text) + kEndOfIsolate;
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
