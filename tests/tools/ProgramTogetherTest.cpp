// Several of the program at once, under one identifier.
#include "tests/tools/ServiceFixture.h"

#include <gmock/gmock.h>

#include <memory>
#include <vector>

namespace kvltest {
namespace {

using testing::AllOf;
using testing::Ge;
using testing::HasSubstr;
using testing::Le;
using testing::Not;

int timesIn(const std::string& text, const std::string& part) {
  int count = 0;
  for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

using TogetherTest = ServiceTest;

TEST_F(TogetherTest, AllThatStartAtOnceAreServed) {
  constexpr int kPrograms = 12;
  std::vector<std::unique_ptr<RunningProgram>> programs;
  programs.reserve(kPrograms);
  for (int i = 0; i < kPrograms; ++i)
    programs.emplace_back(new RunningProgram(launch({"get", kDocument})));
  for (const auto& program : programs) {
    EXPECT_EQ(program->readAll(), kDocumentBytes);
    EXPECT_EQ(program->wait(), 0);
  }
}

TEST_F(TogetherTest, TheyRenewSideBySideAndNothingIsRefused) {
  restartNotary({"--lifetime", "5"});
  const Outcome outcome = runInShell("cd '" + directory.path().string() + "' || exit 9\n" + R"(
"$0" --verbose events '/events?last=1&then=silence' --for 9 >one.out 2>one & one=$!
"$0" --verbose events '/events?last=1&then=silence' --for 9 >two.out 2>two & two=$!
failed=0
while kill -0 $one 2>/dev/null; do
  "$0" get /bytes.bin >/dev/null || failed=1
done
wait $one && wait $two && exit $failed)");
  EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
  for (const char* log : {"one", "two"}) {
    const std::string text = fileText(log);
    EXPECT_THAT(
        text, AllOf(Not(HasSubstr("client identity error")), Not(HasSubstr("notarisation error"))));
    // The first identity, and a renewal every three or four seconds from then on, which may be late
    // on a busy machine.
    EXPECT_THAT(timesIn(text, "notary signature valid until"), AllOf(Ge(2), Le(4))) << text;
  }
}

}  // namespace
}  // namespace kvltest
