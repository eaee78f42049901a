// The process may end at any time: with its own status, and its static objects taken down.
#include "tests/integration/LocalService.h"

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace kvltest;

struct ExitCase {
  const char* name;
  std::vector<std::string> arguments;
  const char* output;
};

void PrintTo(const ExitCase& exitCase, std::ostream* stream) {
  *stream << exitCase.name;
}

class ExitTest : public EstablishedService, public testing::WithParamInterface<ExitCase> {
 protected:
  [[nodiscard]] static int rounds() {
    const char* text = std::getenv("KVL_TEST_EXITS");
    return text != nullptr ? std::stoi(text) : 2;
  }

  // What a host that was started with the arguments of the test has written.
  [[nodiscard]] std::string outputOfHost(int& status) const {
    std::vector<std::string> arguments{KVL_EXITING_HOST};
    const auto& own = GetParam().arguments;
    arguments.insert(arguments.end(), own.begin(), own.end());
    const auto file = bus.directory() / "exiting-host.log";
    std::filesystem::remove(file);
    ChildProcess host(arguments, environmentWith({}), file);
    status = host.wait();
    std::ostringstream text;
    text << std::ifstream(file).rdbuf();
    return text.str();
  }
};

TEST_P(ExitTest, EndsWithTheHostsStatus) {
  for (int round = 0; round < rounds(); ++round) {
    int status = 0;
    const std::string output = outputOfHost(status);
    ASSERT_TRUE(WIFEXITED(status)) << output << "signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 7) << output;
    EXPECT_EQ(output, GetParam().output);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Exits, ExitTest,
    testing::Values(ExitCase{"FromMain", {"main"}, "torn down\n"},
                    ExitCase{"FromAHandler", {"handler"}, "torn down\n"},
                    ExitCase{"FromAThreadOfTheHosts", {"thread"}, "torn down\n"},
                    ExitCase{"Quickly", {"quick"}, ""},
                    ExitCase{"FromMainWithASlowStatic", {"main", "300"}, "torn down\n"},
                    ExitCase{"FromAHandlerWithASlowStatic", {"handler", "300"}, "torn down\n"},
                    ExitCase{"WithHandlersAndCoroutinesOnQueues", {"queues", "50"}, "torn down\n"},
                    ExitCase{"WhileItsSessionEnds", {"ending", "50"}, "torn down\n"},
                    ExitCase{"WithAStaticThatUsesTheLibrary",
                             {"main", "50", "use"},
                             "not loaded\ntorn down\n"}),
    [](const auto& exitCase) { return std::string(exitCase.param.name); });

}  // namespace
