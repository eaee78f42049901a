// libsecret's proxy of the Secret Service on a connection of one's own.
//
// By itself libsecret uses the process's shared connection to the session bus, which has
// exit-on-close set: when the bus dies, the host would be killed with it.
#pragma once

#include "platform/security/GLibPointers.h"

#include <libsecret/secret.h>

namespace kvl::security {

// A new connection to the session bus, or null and an error.
[[nodiscard]] ObjectPtr<GDBusConnection> connectPrivately(GCancellable* cancellable,
                                                          GError** error);

// A proxy on `connection` with a session for secrets, or null and an error. Collections and items
// that are reached through it use the same connection.
[[nodiscard]] ObjectPtr<SecretService> openSecretService(GDBusConnection* connection,
                                                         GCancellable* cancellable, GError** error);

}  // namespace kvl::security
