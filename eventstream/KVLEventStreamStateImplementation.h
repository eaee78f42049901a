// What the state of an event stream is made of.
#pragma once

#include "eventstream/PartialLine.h"

#include <local/KVLEventStreamState.h>
#include <local/platform/Atomic.h>

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

struct KVLEventStreamState::Implementation {
  // For whoever must take it before the session's own.
  std::recursive_mutex monitor;
  kvl::Atomic<std::shared_ptr<kvl::DataTask>> task;
  kvl::Atomic<std::optional<kvl::Data>> data;
  kvl::Atomic<std::shared_ptr<KVLEvent>> event;
  kvl::Atomic<std::optional<std::string>> lastEventID;
  // The parser's: what `data` was when it was last set here.
  kvl::eventstream::PartialLine partialLine;
  bool emptySourceLogged = false;  // guarded by `monitor`

  [[nodiscard]] bool isOpenAt(std::string_view url) const;
  [[nodiscard]] bool isUsableSource(std::string_view url);
};
