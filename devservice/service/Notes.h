// The notes that the development service keeps for the example hosts.
#pragma once

#include <local/platform/Mutex.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace devservice {

class Feed;

// What is wrong with a note, as a sentence.
struct NoteFault {
  std::string reason;
};

inline constexpr std::size_t kLongestNote = 4000;  // bytes

// The text of the note that a body brings: a JSON object with "text", a form in the framework's
// dialect with an input of that name, or what a browser sends of a form
// (application/x-www-form-urlencoded). It is UTF-8, has a character that is no space, and at most
// kLongestNote bytes.
[[nodiscard]] std::variant<std::string, NoteFault> noteFrom(std::string_view contentType,
                                                            std::string_view body);

// Notes with numbers that count up and are never given again, lost when the service ends. Each
// change is told in the feed as an event "notes". Used by many threads.
class Notes {
 public:
  explicit Notes(Feed& feed) : feed_(feed) {}

  // The note as JSON; absent when there are kMostNotes.
  [[nodiscard]] std::optional<std::string> add(const std::string& text);
  // False when there is none of that number.
  [[nodiscard]] bool remove(std::int64_t number);
  // As JSON, each with the form that deletes it, and the form that adds one.
  [[nodiscard]] std::string document() const;
  // The items of a list, as HTML.
  [[nodiscard]] std::string listItems() const;

  static constexpr std::size_t kMostNotes = 1000;

 private:
  Feed& feed_;
  mutable kvl::Mutex mutex_;
  std::map<std::int64_t, std::string> notes_ KVL_GUARDED_BY(mutex_);
  std::int64_t last_ KVL_GUARDED_BY(mutex_) = 0;
};

}  // namespace devservice
