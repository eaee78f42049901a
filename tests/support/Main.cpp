// The main program of all tests.
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {

// Seconds that one test, and the setting up of one suite, may take; no limit without the variable,
// as under a debugger.
constexpr const char* kLimitVariable = "KVL_TEST_SECONDS";

std::array<char, 512> message{};
std::size_t messageSize = 0;

void giveUp(int /*signal*/) {
  [[maybe_unused]] const auto written = write(STDERR_FILENO, message.data(), messageSize);
  std::abort();
}

// A program runs many tests in one process. What hangs ends it, and is named.
class TimeLimit : public testing::EmptyTestEventListener {
 public:
  explicit TimeLimit(unsigned seconds) : seconds_(seconds) { std::signal(SIGALRM, giveUp); }

  void OnEnvironmentsSetUpStart(const testing::UnitTest& /*all*/) override {
    begin("the program's environment", "");
  }
  void OnTestSuiteStart(const testing::TestSuite& suite) override { begin(suite.name(), ""); }
  void OnTestStart(const testing::TestInfo& test) override {
    begin(test.test_suite_name(), test.name());
  }
  void OnTestEnd(const testing::TestInfo& test) override { begin(test.test_suite_name(), ""); }
  void OnEnvironmentsTearDownStart(const testing::UnitTest& /*all*/) override {
    begin("the program's environment", "");
  }
  void OnTestProgramEnd(const testing::UnitTest& /*all*/) override { alarm(0); }

 private:
  void begin(const char* suite, const char* test) const {
    const auto size =
        std::snprintf(message.data(), message.size(), "\nThis test took longer than %u s: %s%s%s\n",
                      seconds_, suite, *test == '\0' ? "" : ".", test);
    messageSize = std::min(static_cast<std::size_t>(size), message.size() - 1);
    alarm(seconds_);
  }

  const unsigned seconds_;
};

}  // namespace

namespace {

// The texts that tests expect, wherever they run. In the C locale they are English anyway, and Qt,
// which looks at all of it, has no language either.
void useEnglish() {
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* const value = std::getenv(variable);
    const std::string_view locale = value != nullptr ? value : "C";
    if (!locale.empty() && locale.front() != 'C' && locale != "POSIX") setenv("LANGUAGE", "en", 1);
  }
}

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleMock(&argc, argv);
  useEnglish();
  if (const char* limit = std::getenv(kLimitVariable)) {
    const auto seconds = static_cast<unsigned>(std::strtoul(limit, nullptr, 10));
    testing::UnitTest::GetInstance()->listeners().Append(new TimeLimit(seconds));
  }
  return RUN_ALL_TESTS();
}
