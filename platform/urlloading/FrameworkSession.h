// HTTPS session objects whose delegate is the framework's own.
#pragma once

#include <local/platform/URLSession.h>

#include <memory>

namespace kvl::urlloading {

// As `URLSession::create`, but challenges are put to the delegate on the framework's lane, so that
// new connections do not wait for deliveries that the host behind the delegate holds up.
[[nodiscard]] std::shared_ptr<URLSession> createForFramework(
    URLSessionConfiguration configuration, std::weak_ptr<URLSessionDelegate> delegate);

}  // namespace kvl::urlloading
