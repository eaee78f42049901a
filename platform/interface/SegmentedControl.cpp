#include "platform/interface/Observed.h"

#include <local/platform/SegmentedControl.h>

#include <utility>

namespace kvl {
namespace {

using Segments = std::vector<Segment>;

struct ControlState {
  Segments segments;
};

}  // namespace

struct SegmentedControl::Implementation {
  interface::Observed<ControlState> state;
};

SegmentedControl::SegmentedControl() : implementation_(std::make_unique<Implementation>()) {}
SegmentedControl::~SegmentedControl() = default;

std::size_t SegmentedControl::segmentCount() const {
  return implementation_->state.read(
      [](const ControlState& state) { return state.segments.size(); });
}

void SegmentedControl::setSegmentCount(std::size_t count) {
  Segments removed;
  implementation_->state.change([&](ControlState& state) {
    auto& segments = state.segments;
    for (auto i = count; i < segments.size(); ++i) removed.push_back(std::move(segments[i]));
    segments.resize(count);
  });
}

std::optional<Segment> SegmentedControl::segment(std::size_t index) const {
  return implementation_->state.read([index](const ControlState& state) {
    return index < state.segments.size() ? std::optional(state.segments[index]) : std::nullopt;
  });
}

void SegmentedControl::setSegment(std::size_t index, Segment segment) {
  implementation_->state.change([&](ControlState& state) {
    if (index < state.segments.size()) std::swap(state.segments[index], segment);
  });
}

Segments SegmentedControl::segments() const {
  return implementation_->state.get(&ControlState::segments);
}

void SegmentedControl::setSegments(Segments segments) {
  implementation_->state.set(&ControlState::segments, std::move(segments));
}

Observation SegmentedControl::observe(std::function<void()> handler) {
  return implementation_->state.observe(std::move(handler));
}

}  // namespace kvl
