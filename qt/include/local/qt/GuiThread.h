/// @file
/// From the framework's threads to the thread of an object.
#pragma once

#include <local/platform/DispatchQueue.h>
#include <local/platform/Export.h>

#include <QObject>
#include <QPointer>
#include <memory>
#include <utility>

namespace kvl::qt {

/// Runs `work(*receiver)` on the GUI thread, later, unless the receiver has gone by then. Any
/// thread. Needs the main queue, which Qt's event loop serves (see `Integration`).
template <class Receiver, class Work>
void onGuiThread(const QPointer<Receiver>& receiver, Work work) {
  DispatchQueue::main()->async([receiver, work = std::move(work)]() mutable {
    if (receiver) work(*receiver);
  });
}

/// A queue whose blocks run on the thread of `object`, one after the other, when its event loop
/// runs; where `object` moves, they follow. Give it to a fetch as the place of its handler, and the
/// handler finds `object` alive.
///
/// Any thread may use the queue and let go of it at any time. Once `object` has gone, and after the
/// application has begun to end, nothing runs any more: what waits is destroyed with `object` and
/// what comes later on the thread that hands it over, unrun. A block that runs an event loop of its
/// own, as a modal dialog does, lets those behind it run meanwhile.
///
/// Call it on the thread of `object`, after the application was made. There is one queue for an
/// object, which knows it as a child.
[[nodiscard]] KVL_EXPORT std::shared_ptr<DispatchQueue> queueOf(QObject& object);

}  // namespace kvl::qt
