#include "platform/core/NoDestructor.h"

#include <local/platform/Atomic.h>
#include <local/platform/FontMeasurement.h>

#include <cmath>
#include <utility>

namespace kvl {
namespace {

using MeasurementRef = std::shared_ptr<FontMeasurement>;

// Threads may still use it while the process exits.
Atomic<MeasurementRef>& presentMeasurement() {
  static NoDestructor<Atomic<MeasurementRef>> measurement;
  return *measurement;
}

}  // namespace

FontMeasurement::~FontMeasurement() = default;

void setFontMeasurement(std::shared_ptr<FontMeasurement> measurement) {
  presentMeasurement().set(std::move(measurement));
}

double menuBarTextHeight(std::string_view text) {
  const auto measurement = presentMeasurement().get();
  if (!measurement) return kDefaultMenuBarTextHeight;
  const double height = measurement->menuBarTextSize(text).height;
  return std::isfinite(height) && height > 0 ? height : kDefaultMenuBarTextHeight;
}

}  // namespace kvl
