// Texts that are made of many pieces, for loops over what stands between them.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

namespace kvltest {

inline std::string joined(std::initializer_list<std::string_view> pieces) {
  std::string text;
  for (const auto piece : pieces) text += piece;
  return text;
}

}  // namespace kvltest
