// kvlocal form with the development service.
#include "tests/support/Sanitized.h"
#include "tests/tools/ServiceFixture.h"

#include <gmock/gmock.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace kvltest {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

// How a shell has the program send a file.
struct Source {
  std::string before;
  std::string file;
};

class FormTest : public ServiceTest {
 protected:
  // By its name, and as standard input, itself and through a pipe.
  std::vector<Source> sourcesOf(const std::string& path) const {
    const std::string fifo = directory.path() / "fifo";
    const std::string fill =
        "rm -f " + fifo + " && mkfifo " + fifo + " && (cat " + path + " >" + fifo + " &) && ";
    return {{"", path}, {"", "- <" + path}, {fill, "- <" + fifo}};
  }
};

TEST_F(FormTest, SendsInputsInTheOrderOfTheCommandLine) {
  const std::string bytes("\xff\r\n\n--\0", 7);
  const Outcome outcome =
      run({"form", "--input", "one=1", "/echo", "--file",
           "two=@" + file("a b.bin", bytes) + ";type=image/png", "--input", "three=\u00fc=\"",
           "--file", "four=@" + file("text", "x") + ";filename=\"four\".txt"});
  EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
  EXPECT_THAT(
      outcome.output,
      HasSubstr("\"parts\":["
                R"({"name":"one","contentType":"text/plain;charset=UTF-8","size":1,"value":"1"},)"
                R"({"name":"two","filename":"a b.bin","contentType":"image/png","size":7,)"
                R"("valueBase64":"/w0KCi0tAA=="},)"
                R"({"name":"three","contentType":"text/plain;charset=UTF-8","size":4,)"
                "\"value\":\"\u00fc=\\\"\"},"
                R"({"name":"four","filename":"-four-.txt",)"
                R"("contentType":"application/octet-stream","size":1,"value":"x"}])"));
}

TEST_F(FormTest, FileFromStandardInputHasNoName) {
  const Outcome outcome = runInShell("printf abc | \"$0\" form /echo --file f=@-");
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_THAT(outcome.errors,
              HasSubstr(R"("parts":[{"name":"f","contentType":"application/octet)"));
}

// The body is one piece of memory; the files that go into it are in no other.
TEST_F(FormTest, ALargeFileIsInMemoryOnce) {
  constexpr std::int64_t kSize = std::int64_t{64} << 20;
  constexpr std::int64_t kProgram = std::int64_t{40} << 20;
  const std::string path = file("large", "");
  std::filesystem::resize_file(path, kSize);
  int requests = 0;
  for (const Source& source : sourcesOf(path)) {
    RunningProgram program = launchInShell(
        source.before + "exec \"$0\" form '/slow?ms=600000' --file f=@" + source.file);
    ASSERT_TRUE(waitForServiceLog("slow: the answer waits", ++requests));
    if (!kSanitized) {
      EXPECT_LT(memoryOf(program.process(), "VmHWM"), kSize + kProgram);
    }
    program.process().signal(SIGINT);
    EXPECT_EQ(program.wait(), 130);
  }
}

TEST_F(FormTest, ALargeFileArrivesThroughAPipeAsItIs) {
  std::string text;
  while (text.size() <= std::size_t{1} << 20) text += std::to_string(text.size()) + ' ';
  const Source source = sourcesOf(file("large", text)).back();
  RunningProgram program =
      launchInShell(source.before + "exec \"$0\" form /echo --file f=@" + source.file);
  const std::string answer = program.readAll();
  EXPECT_EQ(program.wait(), 0) << errors();
  EXPECT_NE(answer.find("\"value\":\"" + text + "\""), std::string::npos);
}

TEST_F(FormTest, EmptyFormIsAFetch) {
  EXPECT_THAT(run({"form", "/echo"}).output, StartsWith(R"({"method":"GET")"));
}

TEST_F(FormTest, WritesTheAnswerByteForByte) {
  const Outcome outcome = run({"form", "/code?status=500&body=as+it+is", "--input", "a=b"});
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_EQ(outcome.output, "as it is");
  EXPECT_THAT(outcome.errors, HasSubstr("HTTP status 500"));
}

TEST_F(FormTest, ShowsHeaderFieldsAndJSONAsGetDoes) {
  EXPECT_THAT(run({"form", "-i", "/echo", "--input", "a=b"}).output, StartsWith("HTTP/1.1 200\n"));
  EXPECT_THAT(run({"form", "--json", "/echo", "--input", "a=b"}).output,
              AllOf(StartsWith(R"({"url":"https://)"), HasSubstr(R"("status":200)"),
                    HasSubstr(R"("body":"{\"method\":\"POST\")")));
}

TEST_F(FormTest, ARequestThatFailsIsToldByTheExitCode) {
  killService();
  const Outcome outcome = run({"form", "/echo", "--input", "a=b", "--json"});
  EXPECT_EQ(outcome.exitCode, 4);
  EXPECT_THAT(outcome.errors, StartsWith("kvlocal: the request failed: "));
  EXPECT_THAT(outcome.output, StartsWith(R"({"error":{"domain":"NSURLErrorDomain")"));
}

}  // namespace
}  // namespace kvltest
