// Serving the main run loop from inside a call.
#pragma once

#include <local/platform/Semaphore.h>

namespace kvl::dispatch {

// Serves GLib's default main context on the calling thread until `semaphore` is free, and takes it;
// a semaphore that is free at once is taken without serving anything. Sleeps while there is nothing
// to do: a signal wakes it. Calls may nest.
//
// While another thread owns the context, that thread serves it: this call then only waits for the
// semaphore, and looks a few times a second whether the context has become free.
void serveMainLoopUntilFree(Semaphore& semaphore);

// Wakes whoever serves the main run loop for a semaphore. Called after each signal; costs one load
// when nobody does.
void wakeMainLoopWaiters() noexcept;

}  // namespace kvl::dispatch
