/// @file
/// Events of the service's event stream.
#pragma once

#include <local/platform/Data.h>
#include <local/platform/Export.h>

#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

/// One server-sent event. Each property is absent until a line of the stream sets it; an empty
/// text is a value. Properties are atomic: any thread may read and write each as a whole.
class KVL_EXPORT KVLEvent {
 public:
  using Text = std::optional<std::string>;
  using TextView = std::optional<std::string_view>;

  /// Text in UTF-8 that is shared by reference.
  struct SharedData {
    explicit SharedData(kvl::Data text) noexcept : bytes(std::move(text)) {}
    kvl::Data bytes;
  };

  /// An event without properties.
  KVLEvent() = default;
  /// An event with copies of these texts.
  KVLEvent(TextView event, TextView data, TextView identifier)
      : event_(event), data_(data), identifier_(identifier) {}
  /// An event that shares its data instead of copying it.
  KVLEvent(TextView event, SharedData data, TextView identifier)
      : event_(event), sharedData_(std::move(data.bytes)), identifier_(identifier) {}
  KVLEvent(const KVLEvent&) = delete;
  KVLEvent& operator=(const KVLEvent&) = delete;
  ~KVLEvent() = default;

  /// `event` The event's name: the last "event" line.
  [[nodiscard]] Text event() const { return get(event_); }
  void setEvent(Text event) { set(event_, event); }
  /// `data` The payload: the first "data" line.
  [[nodiscard]] Text data() const;
  void setData(Text data);
  /// `identifier` The last "id" line.
  [[nodiscard]] Text identifier() const { return get(identifier_); }
  void setIdentifier(Text identifier) { set(identifier_, identifier); }

  /// `isValid` Whether the event has a name of at least one character.
  [[nodiscard]] bool isValid() const;

  /// `description` "event:%@,data:%@,id:%@".
  [[nodiscard]] std::string description() const;

 private:
  [[nodiscard]] Text get(const Text& property) const {
    std::lock_guard lock(mutex_);
    return property;
  }
  void set(Text& property, Text& value) {
    std::lock_guard lock(mutex_);
    property.swap(value);
  }

  // No object behind the event: a stream makes hundreds of thousands a second.
  mutable std::mutex mutex_;
  Text event_;
  Text data_;
  // Long data stays where the stream's bytes are. Where there is any, `data_` is absent.
  std::optional<kvl::Data> sharedData_;
  Text identifier_;
};
