// The program following the event streams of the development service.
#include "tests/support/Sanitized.h"
#include "tests/support/WaitUntil.h"
#include "tests/tools/ServiceFixture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string_view>

namespace kvltest {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// The number of the event that a line of either form shows.
std::int64_t numberOf(std::string_view line) {
  constexpr std::string_view kKey = "\tid=";
  std::int64_t number = 0;
  const std::size_t start = line.find(kKey);
  if (start != std::string_view::npos)
    std::from_chars(line.data() + start + kKey.size(), line.data() + line.size(), number);
  return number;
}

// Whether the lines show events one after the other, the first of them number `first`.
testing::AssertionResult areConsecutive(const std::string& output, std::int64_t first = 1) {
  if (!output.empty() && output.back() != '\n')
    return testing::AssertionFailure() << "the last line is cut";
  std::istringstream lines(output);
  std::int64_t expected = first;
  for (std::string line; std::getline(lines, line); ++expected)
    if (numberOf(line) != expected)
      return testing::AssertionFailure()
             << "instead of number " << expected << " came " << line.substr(0, 100);
  return testing::AssertionSuccess();
}

std::int64_t lineCount(const std::string& text) {
  return std::count(text.begin(), text.end(), '\n');
}

using EventsTest = ServiceTest;

TEST_F(EventsTest, AreShownOneALineInOrder) {
  const Outcome outcome = run({"events", "/events?last=3&then=silence", "--count", "3"});
  EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
  EXPECT_EQ(outcome.output,
            "tick\tid=1\tdata={\"number\":1}\n"
            "tick\tid=2\tdata={\"number\":2}\n"
            "tick\tid=3\tdata={\"number\":3}\n");
  EXPECT_THAT(outcome.errors, IsEmpty());
}

TEST_F(EventsTest, AreObjectsInJSON) {
  const Outcome outcome =
      run({"events", "events?last=2&then=silence&name=a.b", "--count", "2", "--json"});
  EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
  EXPECT_EQ(outcome.output, R"({"event":"a.b","data":"{\"number\":1}","id":"1"})"
                            "\n"
                            R"({"event":"a.b","data":"{\"number\":2}","id":"2"})"
                            "\n");
}

TEST_F(EventsTest, AreShownAsTheyCome) {
  auto program = launch({"events", "/events?last=2&then=silence"});
  EXPECT_EQ(numberOf(program.readLine()), 1);
  EXPECT_EQ(numberOf(program.readLine()), 2);
}

TEST_F(EventsTest, GoOnAfterTheIdentifierThatIsGiven) {
  const Outcome outcome =
      run({"events", "/events?last=9&then=silence", "--count", "3", "--last-event-id", "5"});
  EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
  EXPECT_EQ(lineCount(outcome.output), 3);
  EXPECT_TRUE(areConsecutive(outcome.output, 6));
}

TEST_F(EventsTest, AreCountedWithinABatchToo) {
  const Outcome outcome = run({"events", "/events?batch=10", "--count", "13"});
  EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
  EXPECT_EQ(lineCount(outcome.output), 13);
  EXPECT_TRUE(areConsecutive(outcome.output));
}

TEST_F(EventsTest, OfACountOfNoneEndAtOnce) {
  const Outcome outcome = run({"events", "/events", "--count", "0"});
  EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
  EXPECT_THAT(outcome.output, IsEmpty());
}

TEST_F(EventsTest, OfABusyStreamEndWhenTheTimeHasPassed) {
  const Outcome outcome = run({"events", "/events", "--for", "0.5"});
  EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
  EXPECT_TRUE(areConsecutive(outcome.output));
}

TEST_F(EventsTest, OfASilentStreamEndWhenTheTimeHasPassed) {
  EXPECT_EQ(run({"events", "/events?last=1&then=silence", "--for", "0.2"}).exitCode, 0);
}

// Each connection brings so many events and then pauses for longer than any test takes, so that an
// outage is certain to be noticed before the count is reached.
std::string pausingAfter(int events) {
  return "/events?pause=600000&pause-after=" + std::to_string(events);
}

TEST_F(EventsTest, GoOnWithoutGapOrDuplicateWhenTheServiceIsKilledAndComesBack) {
  auto program = launch({"--verbose", "events", pausingAfter(500), "--count", "1500"});
  std::string output = program.readUntil("\tid=500\t");
  restartService();
  output += program.readUntil("\tid=1000\t");
  restartService();
  output += program.readAll();
  EXPECT_EQ(program.wait(), 0);
  EXPECT_EQ(lineCount(output), 1500);
  EXPECT_TRUE(areConsecutive(output));
  EXPECT_THAT(serviceLog(), AllOf(HasSubstr("a stream begins with number 501\n"),
                                  HasSubstr("a stream begins with number 1001\n")));
  EXPECT_THAT(errors(), AllOf(HasSubstr("kvlocal: the session is disconnected\n"),
                              HasSubstr("kvlocal: the session is established\n"),
                              Not(HasSubstr("no event stream source"))));
}

TEST_F(EventsTest, GoOnWhenTheServiceIsKilledInTheMiddle) {
  auto program = launch({"events", "/events?interval=2", "--count", "1000"});
  std::string output = program.readUntil("\tid=20\t");
  restartService();
  output += program.readAll();
  EXPECT_EQ(program.wait(), 0);
  EXPECT_EQ(lineCount(output), 1000);
  EXPECT_TRUE(areConsecutive(output));
}

TEST_F(EventsTest, SayNothingOfAnOutageUnlessAskedFor) {
  auto program = launch({"events", pausingAfter(5), "--count", "10"});
  std::string output = program.readUntil("\tid=5\t");
  restartService();
  output += program.readAll();
  EXPECT_EQ(program.wait(), 0);
  EXPECT_TRUE(areConsecutive(output));
  EXPECT_THAT(serviceLog(), HasSubstr("a stream begins with number 6\n"));
  EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(EventsTest, GoOnAfterStreamsThatTheServiceEndsOrBreaks) {
  for (const std::string end : {"close", "reset"}) {
    const Outcome outcome = run({"events", "/events?close=4&then=" + end, "--count", "10"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
    EXPECT_EQ(lineCount(outcome.output), 10);
    EXPECT_TRUE(areConsecutive(outcome.output));
    EXPECT_THAT(outcome.errors, IsEmpty());
  }
}

int certificates(const std::string& log) {
  int count = 0;
  for (std::size_t at = 0; (at = log.find("issued a certificate", at)) != std::string::npos; ++at)
    ++count;
  return count;
}

class NoEventsTest : public EventsTest, public testing::WithParamInterface<bool> {};

TEST_P(NoEventsTest, AreComplainedOfOnce) {
  constexpr int kReconnections = 2;
  const bool isServed = GetParam();
  if (!isServed) killService();
  auto program = launch({"events", "/no'such?a&b"});
  ASSERT_TRUE(
      waitForNotaryLog([](const std::string& log) { return certificates(log) > kReconnections; }));
  program.process().signal(SIGINT);
  EXPECT_EQ(program.wait(), 0);
  EXPECT_EQ(errors(),
            "kvlocal: the stream ended before its first event; look at it with: "
            "kvlocal get -i '/no'\\''such?a&b'\n");
}

INSTANTIATE_TEST_SUITE_P(WithoutAndWithAService, NoEventsTest, testing::Bool());

TEST_F(EventsTest, ThatAreInterruptedBeforeThereIsAnIdentityAreNotDone) {
  restartNotary({"--fault", "hang"});
  auto program = launch({"events", "/events"});
  ASSERT_TRUE(waitForNotaryLog(
      [](const std::string& log) { return log.find("without an answer") != std::string::npos; }));
  program.process().signal(SIGINT);
  EXPECT_EQ(program.wait(), 130);
  EXPECT_THAT(errors(), IsEmpty());
}

class EventsSignalTest : public EventsTest, public testing::WithParamInterface<int> {};

TEST_P(EventsSignalTest, EndsFollowingASilentStream) {
  const Outcome outcome =
      runUntil("\tid=3\t", {"events", "/events?last=3&then=silence"}, GetParam());
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(lineCount(outcome.output), 3);
  EXPECT_THAT(outcome.errors, IsEmpty());
}

TEST_P(EventsSignalTest, EndsFollowingABusyStreamAfterAWholeLine) {
  const Outcome outcome = runUntil("\tid=100\t", {"events", "/events"}, GetParam());
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_TRUE(areConsecutive(outcome.output));
  EXPECT_THAT(outcome.errors, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Signals, EventsSignalTest, testing::Values(SIGINT, SIGTERM, SIGHUP));

TEST_F(EventsTest, EndWhenNobodyReadsAnyMore) {
  auto program = launch({"events", "/events"});
  EXPECT_EQ(numberOf(program.readLine()), 1);
  program.closeOutput();
  EXPECT_EQ(program.wait(), 6);
  EXPECT_EQ(errors(), "kvlocal: standard output cannot be written: Broken pipe\n");
}

TEST_F(EventsTest, EndWhenNobodyReadsAnyMoreThoughNoneComes) {
  auto program = launch({"events", "/events?last=2&then=silence"});
  EXPECT_EQ(numberOf(program.readLine()), 1);
  EXPECT_EQ(numberOf(program.readLine()), 2);
  program.closeOutput();
  EXPECT_EQ(program.wait(), 6);
  EXPECT_EQ(errors(), "kvlocal: standard output cannot be written: Broken pipe\n");
}

TEST_F(EventsTest, ThatCannotBeWrittenAreAnErrorOfTheirOwn) {
  EXPECT_EQ(runInto("/dev/full", {"events", "/events"}).exitCode, 6);
}

// A reader that pauses while the service has far more to send than may wait anywhere.
class SlowReaderTest : public EventsTest {
 protected:
  static constexpr std::int64_t kEvents = 12000;
  static constexpr std::int64_t kEventSize = 8192;

  static std::string source() {
    return "/events?then=silence&last=" + std::to_string(kEvents) +
           "&size=" + std::to_string(kEventSize);
  }
  static std::string count() { return std::to_string(kEvents); }

  void expectAllOf(const std::string& output) {
    EXPECT_EQ(lineCount(output), kEvents);
    EXPECT_TRUE(areConsecutive(output));
  }
};

// The processor time that a process has taken so far.
std::chrono::nanoseconds workOf(const ChildProcess& process) {
  std::chrono::nanoseconds sum{0};
  const auto threads = "/proc/" + std::to_string(process.id()) + "/task";
  for (const auto& thread : std::filesystem::directory_iterator(threads)) {
    std::int64_t time = 0;
    std::ifstream(thread.path() / "schedstat") >> time;
    sum += std::chrono::nanoseconds(time);
  }
  return sum;
}

// Waits until the process has had next to nothing to do for a while; a sanitizer never rests.
bool waitUntilAtRest(const ChildProcess& process) {
  using std::chrono::steady_clock;
  constexpr std::chrono::milliseconds kWhile{300};
  auto begin = steady_clock::now();
  auto before = workOf(process);
  return waitUntil([&] {
    const auto now = steady_clock::now();
    if (now - begin < kWhile) return false;
    const auto work = workOf(process) - before;
    begin = now;
    before += work;
    return work < kWhile / 10;
  });
}

TEST_F(SlowReaderTest, HoldsTheServiceBackAndLosesNothing) {
  constexpr std::int64_t kMostGrowth = kEvents * kEventSize * 2 / 3;
  auto program = launch({"events", source(), "--count", count()});
  std::string output = program.readUntil("\tid=1\t");
  const std::int64_t before = memoryOf(program.process(), "VmRSS");
  ASSERT_TRUE(program.waitUntilBlocked());
  ASSERT_TRUE(waitUntilAtRest(program.process()));
  const std::int64_t growth = memoryOf(program.process(), "VmHWM") - before;
  RecordProperty("growth", std::to_string(growth));
  if (!kSanitized) {
    EXPECT_LT(growth, kMostGrowth);
  }
  EXPECT_THAT(serviceLog(), Not(HasSubstr("a stream ends")));
  output += program.readAll();
  EXPECT_EQ(program.wait(), 0);
  expectAllOf(output);
}

TEST_F(SlowReaderTest, MayInterruptWhileNothingMovesAndReadTheRest) {
  auto program = launch({"events", source()});
  ASSERT_TRUE(program.waitUntilBlocked());
  program.process().signal(SIGTERM);
  const std::string output = program.readAll();
  EXPECT_EQ(program.wait(), 0);
  EXPECT_TRUE(areConsecutive(output));
}

TEST_F(SlowReaderTest, MayInterruptTwiceAndReadNothing) {
  auto program = launch({"events", source()});
  ASSERT_TRUE(program.waitUntilBlocked());
  program.process().signal(SIGINT);
  // One that comes while the first is dealt with is the same one to the kernel.
  EXPECT_TRUE(waitUntil([&] {
    program.process().signal(SIGINT);
    return program.hasEnded();
  }));
  EXPECT_EQ(program.wait(), 130);
}

TEST_F(SlowReaderTest, GetsAllInOrderThoughTheIdentityIsRenewedMeanwhile) {
  constexpr int kRenewals = 3;
  restartNotary({"--lifetime", "2"});
  auto program = launch({"events", source(), "--count", count()});
  ASSERT_TRUE(program.waitUntilBlocked());
  ASSERT_TRUE(
      waitForNotaryLog([](const std::string& log) { return certificates(log) > kRenewals; }));
  const std::string output = program.readAll();
  EXPECT_EQ(program.wait(), 0);
  expectAllOf(output);
}

}  // namespace
}  // namespace kvltest
