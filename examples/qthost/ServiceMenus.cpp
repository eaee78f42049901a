#include "examples/qthost/ServiceMenus.h"

#include "examples/qthost/Texts.h"

#include <local/KVLEncodingMenus.h>
#include <local/qt/ImageSource.h>

#include <QCoreApplication>
#include <algorithm>

namespace qthost {

using kvl::qt::SessionObject;

namespace {

constexpr std::chrono::milliseconds kFirstDelay{1000};
constexpr std::chrono::milliseconds kLongestDelay{60'000};

// The title with "&" before its first letter that is not taken, which then is.
QString withMnemonic(const QString& title, QString& taken) {
  QString result;
  bool isFound = false;
  for (const QChar letter : title) {
    const bool isMnemonic = !isFound && letter.isLetter() && !taken.contains(letter.toLower());
    if (isMnemonic) taken += letter.toLower();
    if (isMnemonic || letter == u'&') result += u'&';
    isFound = isFound || isMnemonic;
    result += letter;
  }
  return result;
}

bool hasSubmenu(const std::shared_ptr<kvl::MenuItem>& item) {
  return item->submenu() != nullptr;
}

kvl::Value withEllipsis(kvl::Dictionary description) {
  const auto form = KVLEncoding::dictionaryFromDictionary(description, "form");
  if (const auto items = KVLEncoding::arrayFromDictionary(description, "subitems"))
    description.set("subitems", withEllipses(*items));
  return *KVLEncoding::menuItemWithEllipsis(
      description, [&](const auto& /*identifier*/) { return form && asks(*form); });
}

}  // namespace

ServiceMenus::ServiceMenus(SessionObject& session, const QString& path, QObject* parent)
    : QObject(parent),
      session_(session),
      path_(path),
      action_([this](const std::shared_ptr<kvl::MenuItem>& item) { Q_EMIT chosen(item); }),
      target_(std::make_shared<ServiceMenus*>(this)),
      bar_(std::make_shared<kvl::Menu>()),
      status_(std::make_shared<kvl::Menu>()),
      segments_(std::make_shared<kvl::Menu>()) {
  retry_.setSingleShot(true);
  connect(&retry_, &QTimer::timeout, this, &ServiceMenus::fetch);
  connect(&session, &SessionObject::stateChanged, this, &ServiceMenus::fetchWhenEstablished);
  fetchWhenEstablished();
}

ServiceMenus::~ServiceMenus() = default;

void ServiceMenus::fetchWhenEstablished() {
  retry_.stop();
  delay_ = kFirstDelay;
  if (session_.isEstablished()) fetch();
}

void ServiceMenus::fetch() {
  session_.json(path_, this, [this](const kvl::qt::Fetched& fetched) { take(fetched); });
}

void ServiceMenus::take(const kvl::qt::Fetched& answer) {
  if (!answer.isGood()) return fail(answer.outcome());
  const auto& document = answer.document;
  const auto menus = document ? document->dictionary() : std::nullopt;
  if (!menus) return fail(tr("The service has no menus there."));
  delay_ = kFirstDelay;
  Q_EMIT fetched();
  // A menu that is open stays as it is when nothing has changed.
  if (document == document_) return;
  document_ = document;
  build(*menus);
}

void ServiceMenus::fail(const QString& why) {
  if (session_.isEstablished()) retry_.start(delay_);
  delay_ = std::min(2 * delay_, kLongestDelay);
  Q_EMIT failed(why);
}

void ServiceMenus::build(const kvl::Dictionary& document) {
  bar_ = menuOf(document["menu"]);
  status_ = menuOf(document["status"]);
  segments_ = menuOf(document["segments"]);
  Q_EMIT changed();
}

std::shared_ptr<kvl::Menu> ServiceMenus::menuOf(const kvl::Value& descriptions) const {
  auto menu = std::make_shared<kvl::Menu>();
  if (const auto array = descriptions.array())
    KVLEncoding::addMenuItems(withEllipses(*array), *menu, session_.images(), action_, target_);
  return menu;
}

std::vector<BarMenu> barMenus(const std::shared_ptr<kvl::Menu>& menu, QString taken) {
  const auto items = menu->items();
  if (items.empty()) return {};
  if (!std::ranges::all_of(items, hasSubmenu))
    return {{withMnemonic(QCoreApplication::translate("BarMenus", "Service"), taken), menu}};
  std::vector<BarMenu> menus;
  for (const auto& item : items)
    menus.push_back({withMnemonic(lineOf(item->title()), taken), item->submenu()});
  return menus;
}

kvl::Array withEllipses(const kvl::Array& descriptions) {
  kvl::Array result;
  for (const kvl::Value& description : descriptions) {
    const auto dictionary = description.dictionary();
    result.append(dictionary ? withEllipsis(*dictionary) : description);
  }
  return result;
}

bool asks(const kvl::Dictionary& form) {
  const auto inputs = KVLEncoding::arrayFromDictionary(form, "inputs", kvl::Array());
  const auto action = KVLEncoding::stringFromDictionary(form, "action", kvl::String());
  const bool isForBrowser = action->text().starts_with("https://");
  return !inputs->empty() && !isForBrowser;
}

}  // namespace qthost
