#include "platform/core/LineScan.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using kvl::core::lineScan;
using kvl::core::scanLinePortably;

// Both scans, on a copy that ends where the text ends: reading beyond it shows under a sanitizer.
void expectLine(const std::string& text, std::size_t length, bool isASCII) {
  const std::vector<char> exact(text.begin(), text.end());
  const std::string_view view(exact.data(), exact.size());
  for (const auto scan : {lineScan(), &scanLinePortably}) {
    const auto line = scan(view);
    EXPECT_EQ(line.text, view.substr(0, length));
    EXPECT_EQ(line.isASCII, isASCII) << length;
  }
}

TEST(LineScanTest, FindsTheFirstLineEndWhereverItStands) {
  for (std::size_t length = 0; length < 300; ++length) {
    for (const std::size_t rest : {0, 1, 40, 64, 130}) {
      expectLine(std::string(length, 'x') + "\n" + std::string(rest, 'y'), length, true);
      expectLine(std::string(length, 'x') + "\n\n" + std::string(rest, '\n'), length, true);
    }
  }
}

TEST(LineScanTest, TellsBytesBeyondASCIIInTheLineOnly) {
  for (std::size_t length = 1; length < 300; ++length) {
    for (std::size_t place = 0; place < length; place += 1 + place / 7) {
      std::string line(length, 'x');
      line[place] = '\x80';
      expectLine(line + "\n" + std::string(100, 'y'), length, false);
    }
    expectLine(std::string(length, 'x') + "\n" + std::string(100, '\xff'), length, true);
  }
}

}  // namespace
