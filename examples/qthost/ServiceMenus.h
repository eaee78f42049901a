// The menus that the service describes, and how they come into a menu bar.
#pragma once

#include <local/platform/Menu.h>
#include <local/platform/MenuAction.h>
#include <local/platform/Value.h>
#include <local/qt/SessionObject.h>

#include <QObject>
#include <QString>
#include <QTimer>
#include <chrono>
#include <memory>
#include <optional>
#include <vector>

namespace qthost {

// Fetches a document whose arrays "menu", "status" and "segments" describe menus, again each time
// the session is established, and builds them when they have changed. Until then the old ones stay.
// What fails is tried again, at first soon and then less and less often.
class ServiceMenus : public QObject {
  Q_OBJECT

 public:
  // The session must outlive this.
  ServiceMenus(kvl::qt::SessionObject& session, const QString& path, QObject* parent = nullptr);
  ~ServiceMenus() override;

  // Each without items before they are known.
  [[nodiscard]] const std::shared_ptr<kvl::Menu>& bar() const { return bar_; }
  [[nodiscard]] const std::shared_ptr<kvl::Menu>& status() const { return status_; }
  [[nodiscard]] const std::shared_ptr<kvl::Menu>& segments() const { return segments_; }

 Q_SIGNALS:
  // The service has answered with menus. They may be others than before: `changed` comes next then.
  void fetched();
  void changed();
  void failed(const QString& why);
  // The user has chosen an item with a form, which is the item's represented object.
  void chosen(const std::shared_ptr<kvl::MenuItem>& item);

 private:
  void fetchWhenEstablished();
  void fetch();
  void take(const kvl::qt::Fetched& answer);
  void fail(const QString& why);
  void build(const kvl::Dictionary& document);
  [[nodiscard]] std::shared_ptr<kvl::Menu> menuOf(const kvl::Value& descriptions) const;

  kvl::qt::SessionObject& session_;
  const QString path_;
  std::optional<kvl::Value> document_;
  QTimer retry_;
  std::chrono::milliseconds delay_{0};  // before the next try
  kvl::MenuAction action_;
  // Whom the items' action is for: an item that outlives this does nothing.
  const std::shared_ptr<ServiceMenus*> target_;
  std::shared_ptr<kvl::Menu> bar_;
  std::shared_ptr<kvl::Menu> status_;
  std::shared_ptr<kvl::Menu> segments_;
};

struct BarMenu {
  QString title;  // as a menu bar takes it, with a mnemonic
  std::shared_ptr<kvl::Menu> menu;
};

// The menus of a bar: the sub-menus of the items. Where an item has none, they all are in one menu.
// `taken` are the letters that other menus have as mnemonics.
[[nodiscard]] std::vector<BarMenu> barMenus(const std::shared_ptr<kvl::Menu>& menu, QString taken);

// Whether a form has inputs, and is not for a browser to open.
[[nodiscard]] bool asks(const kvl::Dictionary& form);

// The descriptions with an ellipsis after the text of every item whose form asks, in sub-menus as
// well.
[[nodiscard]] kvl::Array withEllipses(const kvl::Array& descriptions);

}  // namespace qthost
