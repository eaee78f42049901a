#include "examples/qthost/Texts.h"

#include <local/qt/Conversions.h>

#include <algorithm>

namespace qthost {
namespace {

// No code unit takes more bytes of UTF-8.
constexpr qsizetype kMostBytes = 4;

bool breaksLines(QChar letter) {
  const auto category = letter.category();
  return category == QChar::Other_Control || category == QChar::Separator_Line ||
         category == QChar::Separator_Paragraph;
}

}  // namespace

QString lineOf(std::string_view text, qsizetype longest) {
  const auto room = static_cast<std::size_t>(kMostBytes * (longest + 1));
  QString line = kvl::qt::qString(text.substr(0, room));
  std::replace_if(line.begin(), line.end(), breaksLines, QChar(u' '));
  if (line.size() <= longest) return line;
  qsizetype end = longest - 1;
  if (end > 0 && line.at(end - 1).isHighSurrogate()) --end;
  return line.left(end) + u'…';
}

QString withoutMnemonic(QString text) {
  return text.replace(u'&', QStringLiteral("&&"));
}

QString readText(const QString& text) {
  QString read;
  bool isMark = false;
  for (const QChar letter : text) {
    isMark = letter == u'&' && !isMark;
    if (!isMark) read += letter;
  }
  return read;
}

}  // namespace qthost
