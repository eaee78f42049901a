#include "qt/PlainText.h"

#include <local/qt/Conversions.h>

#include <QChar>
#include <algorithm>
#include <utility>

namespace kvl::qt {
namespace {

// A code unit takes at most three bytes of UTF-8.
constexpr std::size_t kLongestBytes = 3 * (static_cast<std::size_t>(kLongestText) + 1);

bool isLineBreak(QChar c) {
  return c == QLatin1Char('\n') || c.category() == QChar::Separator_Line ||
         c.category() == QChar::Separator_Paragraph;
}

bool isControl(QChar c) {
  return c.category() == QChar::Other_Control || isLineBreak(c);
}

QString cut(std::string_view text) {
  auto shown = qString(text.substr(0, std::min(text.size(), kLongestBytes)));
  if (shown.size() <= kLongestText) return shown;
  const bool splitsPair = shown.at(kLongestText - 2).isHighSurrogate();
  shown.truncate(kLongestText - (splitsPair ? 2 : 1));
  return shown + QChar(0x2026);
}

constexpr qsizetype kLongestWord = 60;
constexpr QChar kBreak(0x200b);  // is not seen

// Wherever a word is longer than any line should be, it may be broken.
QString breakable(const QString& text) {
  return withBreaks(text, kLongestWord, [&](qsizetype i) {
    return text.at(i).isSpace() || (i > 0 && text.at(i - 1).isSpace());
  });
}

}  // namespace

QString withBreaks(const QString& text, qsizetype longest,
                   const std::function<bool(qsizetype)>& begins) {
  QString broken;
  broken.reserve(text.size() + text.size() / longest);
  qsizetype length = 0;
  for (qsizetype i = 0; i < text.size(); ++i) {
    const QChar next = text.at(i);
    length = begins(i) ? 1 : length + 1;
    if (length > longest && !next.isLowSurrogate() && !next.isMark()) {
      broken += kBreak;
      length = 1;
    }
    broken += next;
  }
  return broken;
}

QString lineOf(std::string_view text) {
  auto line = cut(text);
  std::replace_if(line.begin(), line.end(), isControl, QLatin1Char(' '));
  return line;
}

QString linesOf(std::string_view text) {
  auto lines = cut(text);
  std::replace_if(lines.begin(), lines.end(), isLineBreak, QLatin1Char('\n'));
  std::replace_if(
      lines.begin(), lines.end(), [](QChar c) { return c != QLatin1Char('\n') && isControl(c); },
      QLatin1Char(' '));
  return lines;
}

QString wrapped(const QString& text) {
  if (text.isEmpty()) return text;
  return QStringLiteral("<p style='white-space:pre-wrap'>%1</p>")
      .arg(breakable(text).toHtmlEscaped());
}

}  // namespace kvl::qt
