#include "examples/qthost/ServiceMenus.h"

#include "examples/qthost/Ellipses.h"
#include "examples/qthost/GuiThread.h"

#include <local/KVLEncodingSession.h>
#include <local/qt/Conversions.h>

#include <algorithm>

namespace qthost {
namespace {

constexpr std::chrono::milliseconds kFirstDelay{1000};
constexpr std::chrono::milliseconds kLongestDelay{60'000};

}  // namespace

ServiceMenus::ServiceMenus(Host& host, const QString& path, QObject* parent)
    : QObject(parent),
      host_(host),
      path_(kvl::qt::utf8(path)),
      action_([this](const std::shared_ptr<kvl::MenuItem>& item) { Q_EMIT chosen(item); }),
      target_(std::make_shared<ServiceMenus*>(this)),
      bar_(std::make_shared<kvl::Menu>()),
      status_(std::make_shared<kvl::Menu>()),
      segments_(std::make_shared<kvl::Menu>()) {
  retry_.setSingleShot(true);
  connect(&retry_, &QTimer::timeout, this, &ServiceMenus::fetch);
  connect(&host, &Host::stateChanged, this, &ServiceMenus::fetchWhenEstablished);
  fetchWhenEstablished();
}

ServiceMenus::~ServiceMenus() = default;

void ServiceMenus::fetchWhenEstablished() {
  retry_.stop();
  delay_ = kFirstDelay;
  if (host_.isEstablished()) fetch();
}

void ServiceMenus::fetch() {
  // An error may come on another thread.
  KVLEncoding::jsonFromSession(
      host_.session(), path_,
      [menus = QPointer(this)](const std::optional<kvl::Value>& document,
                               const kvl::URLResponseRef& response,
                               const std::optional<kvl::Error>& error) {
        onGuiThread(menus, [document, outcome = outcomeOf(response, error)](ServiceMenus& self) {
          self.take(document, outcome);
        });
      });
}

void ServiceMenus::take(const std::optional<kvl::Value>& document, const Outcome& outcome) {
  if (!outcome.isGood) return fail(outcome.text);
  const auto menus = document ? document->dictionary() : std::nullopt;
  if (!menus) return fail(tr("The service has no menus there."));
  delay_ = kFirstDelay;
  // A menu that is open stays as it is when nothing has changed.
  if (document == document_) return;
  document_ = document;
  build(*menus);
}

void ServiceMenus::fail(const QString& why) {
  if (host_.isEstablished()) retry_.start(delay_);
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
    KVLEncoding::addMenuItems(withEllipses(*array), *menu, host_.icons(), action_, target_);
  return menu;
}

}  // namespace qthost
