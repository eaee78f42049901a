// The states of a session as words.
#pragma once

#include <local/KVLSession.h>

namespace kvlocal {

// "connecting", "established", "disconnected", "recovering" or "ended".
[[nodiscard]] inline const char* stateName(KVLSessionState state) {
  switch (state) {
    case KVLSessionStateConnecting:
      return "connecting";
    case KVLSessionStateEstablished:
      return "established";
    case KVLSessionStateDisconnected:
      return "disconnected";
    case KVLSessionStateRecovering:
      return "recovering";
    case KVLSessionStateEnded:
      return "ended";
  }
  return "unknown";
}

}  // namespace kvlocal
