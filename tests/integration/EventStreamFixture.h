// A session that follows the development service's event stream.
#pragma once

#include "tests/integration/EventRecorder.h"
#include "tests/integration/LocalService.h"
#include "tests/support/Nginx.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace kvltest {

// Checks take longer under a sanitizer, and memory is another.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = false;
#endif
#else
inline constexpr bool kSanitized = false;
#endif

// How the session reaches the service.
enum class Route { direct, nginxHTTP1, nginxHTTP2 };

[[nodiscard]] std::string nameOf(Route route);

// All events from 1 to `last`, whole, in order and none twice.
testing::AssertionResult isUnbroken(const Tally& tally, std::int64_t last);

// Resident memory of this process, in bytes.
[[nodiscard]] std::int64_t residentMemory();

class EventStreamFixture : public LocalService {
 protected:
  EventStreamFixture() = default;
  ~EventStreamFixture() override;

  // Starts everything and returns when the session is established.
  void establishOver(Route route);
  // Opens the stream with these parameters of the service's event stream.
  void follow(const std::string& parameters);
  // Opens a stream that ends by itself and waits until it has; the session stays disconnected.
  void followToTheEnd(const std::string& parameters);
  // The stream with these parameters, as a URL relative to the service.
  [[nodiscard]] static std::string source(const std::string& parameters);
  [[nodiscard]] std::size_t streamsOpened() const { return log.count(kOpening); }

  static constexpr std::string_view kOpening = "establishing event stream: ";
  const std::shared_ptr<EventRecorder> recorder = std::make_shared<EventRecorder>();

 private:
  void startProxy(Route route);

  std::optional<Nginx> nginx_;
};

}  // namespace kvltest
