#include "qt/PlainText.h"

#include <local/qt/Conversions.h>

#include <QChar>

namespace kvl::qt {
namespace {

constexpr qsizetype kLongestUnbroken = 60;
constexpr QChar kZeroWidthSpace(0x200b);

// Wherever a word is longer than any line should be, it may be broken.
QString breakable(const QString& text) {
  return withBreaks(text, kLongestUnbroken, [&](qsizetype i) {
    return text.at(i).isSpace() || (i > 0 && text.at(i - 1).isSpace());
  });
}

}  // namespace

QString lineOf(std::string_view text) {
  return qString(interface::shownLine(text));
}

QString linesOf(std::string_view text) {
  return qString(interface::shownLines(text));
}

QString shortened(const QString& text, qsizetype longest) {
  if (text.size() <= longest) return text;
  qsizetype end = longest - 1;
  if (end > 0 && text.at(end - 1).isHighSurrogate()) --end;
  return text.left(end) + u'…';
}

QString escaped(QString text) {
  return text.replace(u'&', QStringLiteral("&&"));
}

QString withoutMnemonic(const QString& text) {
  QString plain;
  plain.reserve(text.size());
  for (qsizetype i = 0; i < text.size(); ++i) {
    if (text[i] == QLatin1Char('&')) ++i;
    if (i < text.size()) plain.append(text[i]);
  }
  return plain;
}

QString withBreaks(const QString& text, qsizetype longest,
                   const std::function<bool(qsizetype)>& begins) {
  QString broken;
  broken.reserve(text.size() + text.size() / longest);
  qsizetype length = 0;
  for (qsizetype i = 0; i < text.size(); ++i) {
    const QChar next = text.at(i);
    length = begins(i) ? 1 : length + 1;
    if (length > longest && !next.isLowSurrogate() && !next.isMark()) {
      broken += kZeroWidthSpace;
      length = 1;
    }
    broken += next;
  }
  return broken;
}

QString wrapped(const QString& text) {
  if (text.isEmpty()) return text;
  return QStringLiteral("<p style='white-space:pre-wrap'>%1</p>")
      .arg(breakable(text).toHtmlEscaped());
}

}  // namespace kvl::qt
