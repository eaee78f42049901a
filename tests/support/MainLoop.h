// The main run loop, iterated by the test on the main thread.
#pragma once

#include <glib.h>

namespace kvltest {

// Runs what is pending and returns.
inline void runPendingMainBlocks() {
  while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
  }
}

// Runs the main loop until `condition` holds, which something in the loop has to bring about. The
// time limit of the test is the limit here.
template <class Condition>
void runMainLoopUntil(Condition condition) {
  while (!condition()) g_main_context_iteration(nullptr, TRUE);
}

}  // namespace kvltest
