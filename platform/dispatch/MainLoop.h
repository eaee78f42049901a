// The main run loop: GLib's default main context.
#pragma once

#include <local/platform/DispatchQueue.h>
#include <local/platform/Semaphore.h>

namespace kvl::dispatch {

// Has `block` run where the context is iterated, after all blocks posted before it. From any
// thread. While the process lacks the descriptors that the context needs to be made, blocks wait.
void postToMainLoop(DispatchQueue::Block block);

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
