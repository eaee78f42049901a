#include "qt/menu/MenuEntry.h"

#include "platform/interface/binding/KeyEquivalent.h"
#include "qt/PlainText.h"

#include <local/platform/UpdateCount.h>

#include <QChar>
#include <QLocale>
#include <algorithm>
#include <iterator>
#include <optional>
#include <string>
#include <utility>

namespace kvl::qt {
namespace {

bool isSmall(const AttributedText& text) {
  return !text.runs.empty() && std::ranges::all_of(text.runs, [](const TextRun& run) {
    return run.font == FontRole::menuSmall;
  });
}

// With the script, if that is not the usual one of the language.
QString nameOf(const QLocale& locale) {
  constexpr qsizetype kScript = 4;  // letters
  const auto tag = locale.bcp47Name();
  return tag.section(QLatin1Char('-'), 1, 1).size() == kScript ? tag : locale.name();
}

// Empty for the language of the user's messages. Without any language of theirs people still read
// numbers, which the C locale writes for programs.
std::string localeOfHost() {
  const QLocale locale;
  if (locale.language() == QLocale::C) return "en";
  return locale == QLocale::system() ? std::string() : nameOf(locale).toStdString();
}

// What a badge says, such as "3 updates", in the language of the user's messages; where the host
// has set a default `QLocale` of its own, in that. GUI thread.
QString badgeWords(const MenuItemBadge& badge) {
  return lineOf(localizedUpdateCount(badge.updates, localeOfHost()));
}

using KeyKind = interface::Key::Kind;

constexpr std::pair<KeyKind, int> kQtKeys[] = {
    {KeyKind::backspace, Qt::Key_Backspace},
    {KeyKind::backTab, int{Qt::SHIFT} | int{Qt::Key_Backtab}},
    {KeyKind::deleteForward, Qt::Key_Delete},
    {KeyKind::down, Qt::Key_Down},
    {KeyKind::end, Qt::Key_End},
    {KeyKind::enter, Qt::Key_Enter},
    {KeyKind::escape, Qt::Key_Escape},
    {KeyKind::home, Qt::Key_Home},
    {KeyKind::insert, Qt::Key_Insert},
    {KeyKind::left, Qt::Key_Left},
    {KeyKind::menu, Qt::Key_Menu},
    {KeyKind::pageDown, Qt::Key_PageDown},
    {KeyKind::pageUp, Qt::Key_PageUp},
    {KeyKind::pause, Qt::Key_Pause},
    {KeyKind::print, Qt::Key_Print},
    {KeyKind::returnKey, Qt::Key_Return},
    {KeyKind::right, Qt::Key_Right},
    {KeyKind::scrollLock, Qt::Key_ScrollLock},
    {KeyKind::space, Qt::Key_Space},
    {KeyKind::systemRequest, Qt::Key_SysReq},
    {KeyKind::tab, Qt::Key_Tab},
    {KeyKind::up, Qt::Key_Up},
};

constexpr char32_t kLatin = 0xff;  // the last character of Latin 1

// Keys have the names of upper-case letters, but for those that have none in Latin 1.
int letterKey(char32_t character) {
  const auto upper = QChar::toUpper(character);
  return static_cast<int>(character <= kLatin && upper > kLatin ? character : upper);
}

// None for what is no character of a keyboard.
std::optional<int> typedKey(char32_t character) {
  if (!QChar::isPrint(character) || QChar::isSpace(character) ||
      QChar::category(character) == QChar::Other_PrivateUse)
    return std::nullopt;
  const auto key = letterKey(character);
  return QChar::isUpper(character) ? int{Qt::SHIFT} | key : key;
}

std::optional<int> qtKey(const interface::Key& key) {
  if (key.kind == KeyKind::character) return typedKey(key.character);
  if (key.kind == KeyKind::function) return Qt::Key_F1 + key.number - 1;
  const auto* found = std::ranges::find(kQtKeys, key.kind, &std::pair<KeyKind, int>::first);
  return found != std::end(kQtKeys) ? std::optional(found->second) : std::nullopt;
}

// An attributed title may hold the second line, too.
void takeTitle(MenuEntry& entry, const MenuItem& item) {
  const auto attributed = item.attributedTitle();
  const auto text = attributed ? attributed->text() : item.title();
  const auto lineEnd = attributed ? text.find('\n') : std::string::npos;
  entry.title = lineOf(std::string_view(text).substr(0, lineEnd));
  if (lineEnd != std::string::npos)
    entry.subtitle = lineOf(std::string_view(text).substr(lineEnd + 1)).trimmed();
  entry.smallTitle = attributed && isSmall(*attributed);
}

void takeOtherWords(MenuEntry& entry, const MenuItem& item) {
  if (const auto subtitle = item.subtitle()) entry.subtitle = lineOf(*subtitle);
  if (const auto toolTip = item.toolTip()) entry.toolTip = linesOf(*toolTip);
  if (const auto badge = item.badge()) entry.badge = badgeWords(*badge);
  entry.keys = shortcutOf(item.keyEquivalent());
  if (!entry.keys.isEmpty()) entry.shortcut = entry.keys.toString(QKeySequence::NativeText);
}

}  // namespace

MenuEntry entryOf(const MenuItem& item) {
  MenuEntry entry;
  entry.kind = item.kind();
  entry.enabled = item.isEnabled();
  if (entry.kind == MenuItem::Kind::separator) return entry;
  takeTitle(entry, item);
  if (entry.kind == MenuItem::Kind::sectionHeader) return entry;
  takeOtherWords(entry, item);
  entry.state = item.state();
  entry.hasSubmenu = item.submenu() != nullptr;
  entry.image = item.image();
  entry.expectsIcon = entry.image || item.expectsImage();
  return entry;
}

QKeySequence shortcutOf(std::string_view keyEquivalent) {
  const auto key = interface::keyOf(keyEquivalent);
  const auto pressed = key ? qtKey(*key) : std::nullopt;
  return pressed ? QKeySequence(int{Qt::CTRL} | *pressed) : QKeySequence();
}

}  // namespace kvl::qt
