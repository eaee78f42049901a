/// @file
/// Events of the service's event stream.
#pragma once

#include <local/platform/Data.h>
#include <local/platform/Export.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

/// One server-sent event. Each property is absent until a line of the stream sets it; an empty
/// text is a value. Properties are atomic: any thread may read and write each as a whole.
class KVL_EXPORT KVLEvent {
 public:
  /// A property's value: absent until a line sets it.
  using Text = std::optional<std::string>;
  /// The same without a copy, for as long as what it refers to.
  using TextView = std::optional<std::string_view>;

  /// Text in UTF-8 that is shared by reference.
  struct SharedData {
    /// Shares the bytes of `text`.
    explicit SharedData(kvl::Data text) noexcept : bytes(std::move(text)) {}
    kvl::Data bytes;  ///< the text
  };

  /// An event without properties.
  KVLEvent();
  /// An event with copies of these texts.
  KVLEvent(const TextView& event, const TextView& data, const TextView& identifier);
  /// An event that shares its data instead of copying it.
  KVLEvent(const TextView& event, SharedData data, const TextView& identifier);
  KVLEvent(const KVLEvent&) = delete;
  KVLEvent& operator=(const KVLEvent&) = delete;
  ~KVLEvent();

  /// `event` The event's name: the last "event" line.
  [[nodiscard]] Text event() const;
  /// For hosts that make events of their own.
  void setEvent(Text event);
  /// `data` The payload: the first "data" line.
  [[nodiscard]] Text data() const;
  /// For hosts that make events of their own.
  void setData(Text data);
  /// `identifier` The last "id" line.
  [[nodiscard]] Text identifier() const;
  /// For hosts that make events of their own.
  void setIdentifier(Text identifier);

  /// `isValid` Whether the event has a name of at least one character.
  [[nodiscard]] bool isValid() const;

  /// The bytes of its texts, which are not copied for that. For the framework itself.
  [[nodiscard]] KVL_INTERNAL std::size_t textSize() const;

  /// `description` "event:%@,data:%@,id:%@".
  [[nodiscard]] std::string description() const;

 private:
  struct Properties;
  [[nodiscard]] KVL_INTERNAL Properties& properties() noexcept;
  [[nodiscard]] KVL_INTERNAL const Properties& properties() const noexcept;

  // Holds the properties. Within the event, because a stream makes hundreds of thousands a second.
  // With room for the larger mutexes of other processors.
  static constexpr std::size_t kSize = 28 * sizeof(void*);
  alignas(void*) std::byte storage_[kSize];
};
