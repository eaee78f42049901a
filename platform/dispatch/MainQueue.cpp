#include "platform/dispatch/TimerService.h"

#include <local/platform/DispatchQueue.h>

#include <glib.h>

#include <utility>

namespace kvl {
namespace {

using Block = DispatchQueue::Block;

// An idle source, because g_main_context_invoke would run the block at once on the main thread.
void postToMainContext(Block block) {
  GSource* source = g_idle_source_new();
  g_source_set_priority(source, G_PRIORITY_DEFAULT);
  g_source_set_callback(
      source,
      [](gpointer data) -> gboolean {
        (*static_cast<Block*>(data))();
        return G_SOURCE_REMOVE;
      },
      new Block(std::move(block)), [](gpointer data) { delete static_cast<Block*>(data); });
  g_source_attach(source, nullptr);
  g_source_unref(source);
}

class MainQueue final : public DispatchQueue {
 public:
  void async(Block block) override { postToMainContext(std::move(block)); }

  void asyncAfter(std::chrono::nanoseconds delay, Block block) override {
    dispatch::fireAfter(
        delay, [block = std::move(block)]() mutable { postToMainContext(std::move(block)); });
  }

  [[nodiscard]] const std::string& label() const noexcept override { return label_; }

 private:
  const std::string label_ = "korvale.local.main";
};

}  // namespace

std::shared_ptr<DispatchQueue> DispatchQueue::main() {
  static const auto& queue = *new std::shared_ptr<DispatchQueue>(std::make_shared<MainQueue>());
  return queue;
}

}  // namespace kvl
