// The session monitor.
#pragma once

#include "notary/NotarySignatureImplementation.h"

#include <local/platform/Atomic.h>

#include <memory>
#include <utility>

namespace kvl::session {

// A section under the session monitor: locks the signature that is current when the section begins
// and keeps that one until it ends, even when the signature is replaced meanwhile. Without a
// signature the section runs without exclusion. Recursive.
class MonitorSection {
 public:
  explicit MonitorSection(const Atomic<std::shared_ptr<KVLNotarySignature>>& current)
      : MonitorSection(current.get()) {}
  // A section on a signature that is about to become the current one.
  explicit MonitorSection(std::shared_ptr<KVLNotarySignature> signature)
      : signature_(std::move(signature)) {
    if (signature_) signature_->implementation_->monitor.lock();
  }
  ~MonitorSection() {
    if (signature_) signature_->implementation_->monitor.unlock();
  }
  MonitorSection(const MonitorSection&) = delete;
  MonitorSection& operator=(const MonitorSection&) = delete;

 private:
  const std::shared_ptr<KVLNotarySignature> signature_;
};

}  // namespace kvl::session
