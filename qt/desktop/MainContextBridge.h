// The main queue where Qt does without GLib.
#pragma once

#include <QAbstractEventDispatcher>
#include <QObject>
#include <QSocketNotifier>
#include <QTimer>
#include <map>
#include <memory>
#include <utility>

namespace kvl::qt {

// Serves GLib's default main context, and with it `DispatchQueue::main()`, from Qt's event loop.
// It waits for what the context waits for: while nothing happens there, nothing wakes up. GUI
// thread.
class MainContextBridge final : public QObject {
 public:
  // Null where Qt's own loop serves the context, or somebody else does. All who hold it share one.
  [[nodiscard]] static std::shared_ptr<MainContextBridge> whereNeeded();

  explicit MainContextBridge(QAbstractEventDispatcher& dispatcher);
  ~MainContextBridge() override;

 private:
  using Place = std::pair<int, QSocketNotifier::Type>;
  class Wishes;

  // Finds out what the context waits for now.
  void prepare();
  void watch(const Wishes& wishes);
  void addNotifier(const Place& place);
  void serve();

  QTimer timer_;
  std::map<Place, QSocketNotifier*> notifiers_;
};

}  // namespace kvl::qt
