#include "examples/qthost/Console.h"
#include "tests/qt/host/HostFixture.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <iostream>
#include <sstream>

namespace {

using kvltest::eventually;

// The console with the input and the output of this program.
class HostConsoleTest : public kvltest::HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    ASSERT_EQ(pipe2(input_.data(), O_CLOEXEC), 0);
    saved_ = dup(STDIN_FILENO);
    ASSERT_GE(dup2(input_[0], STDIN_FILENO), 0);
    shown_ = std::cout.rdbuf(output_.rdbuf());
  }

  void TearDown() override {
    HostTest::TearDown();
    std::cout.rdbuf(shown_);
    dup2(saved_, STDIN_FILENO);
    for (const int file : {saved_, input_[0], input_[1]}) close(file);
  }

  void say(const std::string& line) const {
    const std::string text = line + "\n";
    ASSERT_EQ(write(input_[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }

  [[nodiscard]] bool waitFor(const std::string& line) const {
    return eventually([&] { return output_.str().find(line + "\n") != std::string::npos; });
  }

 private:
  std::array<int, 2> input_{-1, -1};
  int saved_ = -1;
  std::ostringstream output_;
  std::streambuf* shown_ = nullptr;
};

TEST_F(HostConsoleTest, TellsWhatReallyHappens) {
  auto& window = openCompleteWindow();
  new qthost::Console(session(), window);
  say("open 1");
  EXPECT_TRUE(waitFor("opened: Documents"));
  say("dismiss");
  EXPECT_TRUE(eventually([&] { return !barMenu(window, "Documents")->isVisible(); }));
  say("activate install");
  EXPECT_TRUE(waitFor("submitted: Install now: 200 OK"));
  say("open 77");
  EXPECT_TRUE(waitFor("failed: open 77"));
  say("activate nothing");
  EXPECT_TRUE(waitFor("failed: activate nothing"));
}

TEST_F(HostConsoleTest, AMenuThatCannotBeUsedFails) {
  auto& window = openCompleteWindow();
  new qthost::Console(session(), window);
  killService();
  EXPECT_TRUE(waitFor("state: Disconnected"));
  say("open 1");
  EXPECT_TRUE(waitFor("failed: open 1"));
}

}  // namespace
