// A host whose service is the test's own.
#pragma once

#include "tests/faults/FaultScene.h"
#include "tests/faults/NumberedService.h"
#include "tests/integration/EventRecorder.h"

#include <string>
#include <utility>

namespace kvltest {

class NumberedScene : public FaultScene {
 protected:
  // The stream must not begin anew while everything is being taken down.
  ~NumberedScene() override {
    if (session) session->setEventStreamSource("");
  }

  // Established with the service and settled.
  void beginNumbered() {
    startNotary({"--url", service.url()});
    startHost();
    session->setDelegate(recorder);
    auto configuration = session->configuration();
    configuration.maximumBodySize = kLargestBody;
    configuration.maximumEventLineBytes = kLongestLine;
    session->setConfiguration(configuration);
    settle();
  }

  static constexpr std::size_t kLargestBody = std::size_t{4} << 20;
  static constexpr std::size_t kLongestLine = std::size_t{1} << 20;

  NumberedService service{stateDirectory()};
  const std::shared_ptr<EventRecorder> recorder = std::make_shared<EventRecorder>();
};

}  // namespace kvltest
