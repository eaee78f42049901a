#include "platform/core/LineScan.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <new>
#include <string>
#include <string_view>

namespace {

using kvl::core::lineScan;
using kvl::core::scanLinePortably;

// A page of memory behind which nothing can be read.
class LastPage {
 public:
  LastPage() {
    void* const mapped =
        mmap(nullptr, 2 * size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED) throw std::bad_alloc();
    begin_ = static_cast<char*>(mapped);
    mprotect(begin_ + size_, size_, PROT_NONE);
  }
  ~LastPage() { munmap(begin_, 2 * size_); }
  LastPage(const LastPage&) = delete;
  LastPage& operator=(const LastPage&) = delete;

  // A copy of the text that ends where the page does.
  [[nodiscard]] std::string_view endingWith(std::string_view text) const {
    char* const place = begin_ + size_ - text.size();
    std::ranges::copy(text, place);
    return {place, text.size()};
  }

 private:
  const std::size_t size_ = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  char* begin_ = nullptr;
};

class LineScanTest : public testing::Test {
 protected:
  // Both scans; who reads beyond the text crashes.
  void expectLine(const std::string& text, std::size_t length, bool isASCII) const {
    const auto view = page_.endingWith(text);
    for (const auto scan : {lineScan(), &scanLinePortably}) {
      const auto line = scan(view);
      EXPECT_EQ(line.length, length);
      EXPECT_EQ(line.isASCII, isASCII) << length;
    }
  }

  const LastPage page_;
};

TEST_F(LineScanTest, FindsTheFirstLineEndWhereverItStands) {
  for (std::size_t length = 0; length < 300; ++length) {
    for (const std::size_t rest : {0, 1, 40, 64, 130, 191}) {
      expectLine(std::string(length, 'x') + "\n" + std::string(rest, 'y'), length, true);
      expectLine(std::string(length, 'x') + "\n\n" + std::string(rest, '\n'), length, true);
    }
  }
}

TEST_F(LineScanTest, TellsBytesBeyondASCIIInTheLineOnly) {
  for (std::size_t length = 1; length < 300; ++length) {
    for (std::size_t place = 0; place < length; place += 1 + place / 7) {
      std::string line(length, 'x');
      line[place] = '\x80';
      expectLine(line + "\n" + std::string(100, 'y'), length, false);
    }
    expectLine(std::string(length, 'x') + "\n" + std::string(100, '\xff'), length, true);
  }
}

TEST_F(LineScanTest, ATextWithoutALineEndIsALine) {
  for (std::size_t length = 0; length < 300; ++length) {
    expectLine(std::string(length, 'x'), length, true);
    if (length > 0) expectLine(std::string(length - 1, 'x') + '\x80', length, false);
  }
}

}  // namespace
