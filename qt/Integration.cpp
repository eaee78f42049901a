#include "qt/Errands.h"
#include "qt/ErrorPresentation.h"
#include "qt/MainContextBridge.h"
#include "qt/MenuBarFont.h"
#include "qt/URLOpening.h"

#include <local/platform/FontMeasurement.h>
#include <local/platform/Workspace.h>
#include <local/qt/Integration.h>

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

namespace kvl::qt {
namespace {

using MeasurementRef = std::shared_ptr<FontMeasurement>;

// The measurement of the integration made last. GUI thread.
MeasurementRef& presentMeasurement() {
  static MeasurementRef measurement;
  return measurement;
}

MeasurementRef exchangeMeasurement(MeasurementRef measurement) {
  setFontMeasurement(measurement);
  return std::exchange(presentMeasurement(), std::move(measurement));
}

struct Answers {
  URLOpener opener;
  ErrorPresenter presenter;
  MeasurementRef measurement;
};

// Sets them and answers those that were set.
Answers exchangeAnswers(Answers answers) {
  return {setURLOpener(std::move(answers.opener)), setErrorPresenter(std::move(answers.presenter)),
          exchangeMeasurement(std::move(answers.measurement))};
}

// What each integration that lives found, in the order in which they were made. GUI thread.
std::vector<Answers*>& formerAnswers() {
  static std::vector<Answers*> all;
  return all;
}

}  // namespace

class Integration::Implementation {
 public:
  Implementation()
      : former_(exchangeAnswers({urlOpener(runner_.errands()),
                                 errorPresenter(&desk_, runner_.errands()), font_.measurement()})) {
    formerAnswers().push_back(&former_);
  }
  ~Implementation();
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

 private:
  const std::shared_ptr<MainContextBridge> bridge_ = MainContextBridge::whereNeeded();
  MenuBarFont font_;
  ErrorDesk desk_;
  ErrandRunner runner_;
  Answers former_;
};

// Where another integration has been made since, that one sets the former answers again.
Integration::Implementation::~Implementation() {
  auto& all = formerAnswers();
  const auto next = all.erase(std::ranges::find(all, &former_));
  if (next == all.end()) {
    exchangeAnswers(std::move(former_));
  } else {
    **next = std::move(former_);
  }
}

Integration::Integration() : implementation_(std::make_unique<Implementation>()) {}
Integration::~Integration() = default;

}  // namespace kvl::qt
