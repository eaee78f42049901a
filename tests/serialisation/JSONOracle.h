// Another reader of JSON, to compare with.
#pragma once

#include <local/platform/Value.h>

#include <optional>
#include <string>
#include <string_view>

namespace kvltest {

struct OracleResult {
  std::optional<kvl::Value> value;
  // The oracle refuses integers that 64 bits do not hold.
  bool mayRefuse = false;
};

// What simdjson's tree of `text` is as a value. Its reader has the same rules but for a byte-order
// mark, which is skipped for it, and for large integers.
OracleResult oracleValue(std::string_view text);

// Text that says how the reader and the oracle differ on `text`; empty if they agree.
std::string differenceFromOracle(std::string_view text);

}  // namespace kvltest
