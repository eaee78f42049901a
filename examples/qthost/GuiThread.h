// Getting from the framework's threads to the GUI thread.
#pragma once

#include <local/platform/DispatchQueue.h>

#include <QPointer>
#include <utility>

namespace qthost {

// Runs `work(*receiver)` on the GUI thread, later, unless the receiver is gone by then. Any thread.
// The framework's main queue is the main loop that Qt runs.
template <class Receiver, class Work>
void onGuiThread(const QPointer<Receiver>& receiver, Work work) {
  kvl::DispatchQueue::main()->async([receiver, work = std::move(work)] {
    if (receiver) work(*receiver);
  });
}

}  // namespace qthost
