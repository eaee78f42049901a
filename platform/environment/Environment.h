// What the framework's parts get from outside: clock, key store, notary transport, HTTPS session
// objects, queues and limits.
#pragma once

#include "platform/dispatch/Lanes.h"
#include "platform/ipc/ServiceConnection.h"
#include "platform/security/KeyStore.h"
#include "platform/urlloading/FrameworkSession.h"

#include <local/platform/Date.h>
#include <local/platform/DispatchQueue.h>
#include <local/platform/URLSession.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace kvl {

// Handed to notaries and sessions when they are made, and by them to what they make; constant from
// then on. Hosts get the process's own. A test makes one, replaces members, and needs no setter for
// the whole process. The functions may be called from any thread.
struct Environment {
  using QueueFactory = std::function<std::shared_ptr<DispatchQueue>(std::string label)>;
  using URLSessionFactory = std::function<std::shared_ptr<URLSession>(
      URLSessionConfiguration, std::weak_ptr<URLSessionDelegate>)>;

  struct Limits {
    // The longest silence that an event stream may keep before it is opened again.
    std::chrono::nanoseconds eventStreamSilence = std::chrono::hours(1);
    // Until the next notarisation: after a recoverable error, after any other outcome without a
    // usable expiry, and after a forced disconnect.
    std::chrono::seconds recoverableDelay{5};
    std::chrono::seconds defaultDelay{15};
    std::chrono::seconds reconnectionDelay{1};
  };

  // The process's own: all members as they stand here. Never destroyed.
  [[nodiscard]] static const std::shared_ptr<const Environment>& process();
  // The process's one queue for lookups: serial, on a thread of its own that starts with the first.
  [[nodiscard]] static std::shared_ptr<DispatchQueue> processLookupQueue();

  std::function<Date()> now = [] { return Date::now(); };
  std::function<std::shared_ptr<security::KeyStore>()> keyStore = security::defaultKeyStore;
  ipc::ServiceConnectionFactory serviceConnection = ipc::makeServiceConnection;
  URLSessionFactory urlSession = urlloading::createForFramework;
  QueueFactory serialQueue = DispatchQueue::serial;
  QueueFactory concurrentQueue = DispatchQueue::concurrent;
  // For the framework's own timers, which nothing that a host does may hold up.
  QueueFactory frameworkQueue = dispatch::laneQueue;
  // Where notaries look for identities in the key store, which may block: neither the worker
  // threads nor the reply thread wait for it. Asked for when there is something to look for.
  std::function<std::shared_ptr<DispatchQueue>()> lookupQueue = processLookupQueue;
  Limits limits;
};

}  // namespace kvl
