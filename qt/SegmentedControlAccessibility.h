// What screen readers learn of segmented controls.
#pragma once

namespace kvl::qt {

// From now on and as long as the application lives, segmented control views are groups. Each view
// calls it; only the first call in an application does something. GUI thread.
void installSegmentedControlAccessibility();

}  // namespace kvl::qt
