// The states of a session as words.
#pragma once

#include <local/KVLSession.h>

namespace kvlocal {

// "connecting", "established", "disconnected" or "recovering".
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
  }
  return "unknown";
}

}  // namespace kvlocal
