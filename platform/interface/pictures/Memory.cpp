#include "platform/interface/pictures/Memory.h"

#include "platform/interface/pictures/Picture.h"

#include <glib.h>

#include <atomic>
#include <mutex>
#include <new>
#include <span>

namespace kvl::pictures {
namespace {

// librsvg draws on threads of its own, too.
std::atomic<bool> lacking = false;

void noteAndThrow() {
  noteLackOfMemory();
  throw std::bad_alloc();
}

std::string_view textOf(const GLogField& field) {
  const auto* const text = static_cast<const char*>(field.value);
  return field.length < 0 ? std::string_view(text)
                          : std::string_view(text, static_cast<std::size_t>(field.length));
}

// Nobody reads what the libraries say, but for this.
GLogWriterOutput noteMessage(GLogLevelFlags /*level*/, const GLogField* fields, gsize count,
                             gpointer /*data*/) {
  for (const auto& field : std::span(fields, count)) {
    if (std::string_view(field.key) == "MESSAGE") noteLackOfMemoryIn(textOf(field));
  }
  return G_LOG_WRITER_HANDLED;
}

}  // namespace

void forgetLackOfMemory() noexcept {
  lacking = false;
}

void noteLackOfMemory() noexcept {
  lacking = true;
}

void noteLackOfMemoryIn(std::string_view message) noexcept {
  for (const std::string_view words : {"memory", "failed to allocate"}) {
    if (message.find(words) != std::string_view::npos) noteLackOfMemory();
  }
}

// GLib takes one writer in a process's life.
void watchMemory() {
  std::set_new_handler(noteAndThrow);
  static std::once_flag once;
  std::call_once(once, [] { g_log_set_writer_func(noteMessage, nullptr, nullptr); });
}

bool lacksMemory() noexcept {
  return lacking;
}

}  // namespace kvl::pictures
