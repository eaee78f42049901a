// Ends a session at the end of a test.
#pragma once

#include <local/KVLNotary.h>

namespace kvltest {

// Never answers and keeps no handler, which lets a session end: its timer would otherwise go on
// and reach into later tests.
class SilentNotary final : public KVLNotary {
 public:
  SilentNotary() : KVLNotary(WithoutKeys{}) {}
  void notariseWithCompletionHandler(CompletionHandler /*handler*/) override {}
};

}  // namespace kvltest
