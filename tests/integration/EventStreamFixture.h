// A session that follows the development service's event stream.
#pragma once

#include "tests/integration/EventRecorder.h"
#include "tests/integration/LocalService.h"
#include "tests/support/Nginx.h"
#include "tests/support/Sanitized.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace kvltest {

// How the session reaches the service.
enum class Route { direct, nginxHTTP1, nginxHTTP2 };

[[nodiscard]] std::string nameOf(Route route);

// All events from 1 to `last`, whole, in order and none twice.
testing::AssertionResult isUnbroken(const Tally& tally, std::int64_t last);

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
