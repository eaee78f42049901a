// The monitors of event stream and session, and the order in which they are taken.
#pragma once

#include "notary/NotarySignatureImplementation.h"

#include <local/KVLEventStreamState.h>
#include <local/platform/Atomic.h>
#include <local/platform/Mutex.h>

#include <memory>
#include <utility>

namespace kvl::session {

// Which mutex a section locks is known at run time only: the monitor of a session belongs to the
// signature that is current. So the compiler checks roles, of which each section takes one.
class KVL_CAPABILITY("monitor") MonitorRole {};

// Whoever needs both monitors takes the event stream's first. Opening a stream asks the session for
// a task with the stream's monitor held; a notarisation that completes and a forced disconnect
// therefore take the stream's monitor too before the session's.
inline MonitorRole sessionMonitor;
inline MonitorRole streamMonitor KVL_ACQUIRED_BEFORE(sessionMonitor);

// A section under the monitor of an event stream. Recursive.
class KVL_SCOPED_CAPABILITY StreamSection {
 public:
  explicit StreamSection(std::shared_ptr<KVLEventStreamState> stream) KVL_ACQUIRE(streamMonitor);
  ~StreamSection() KVL_RELEASE();
  StreamSection(const StreamSection&) = delete;
  StreamSection& operator=(const StreamSection&) = delete;

 private:
  const std::shared_ptr<KVLEventStreamState> stream_;
};

// A section under the session monitor: locks the signature that is current when the section begins
// and keeps that one until it ends, even when the signature is replaced meanwhile. Without a
// signature the section runs without exclusion. Recursive.
class KVL_SCOPED_CAPABILITY SessionSection {
 public:
  using Signature = std::shared_ptr<KVLNotarySignature>;

  explicit SessionSection(const Atomic<Signature>& current) KVL_ACQUIRE(sessionMonitor)
      : SessionSection(current, nullptr) {}
  // Locks `next` as well, which is about to become the current signature: whoever meets it waits
  // until the section ends.
  SessionSection(const Atomic<Signature>& current, Signature next) KVL_ACQUIRE(sessionMonitor)
      : current_(current.get()), next_(std::move(next)) {
    if (current_) current_->implementation_->monitor.lock();
    if (next_) next_->implementation_->monitor.lock();
  }
  ~SessionSection() KVL_RELEASE() {
    if (next_) next_->implementation_->monitor.unlock();
    if (current_) current_->implementation_->monitor.unlock();
  }
  SessionSection(const SessionSection&) = delete;
  SessionSection& operator=(const SessionSection&) = delete;

 private:
  const Signature current_;
  const Signature next_;
};

}  // namespace kvl::session
