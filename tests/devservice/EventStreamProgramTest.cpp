#include "tests/devservice/ProgramFixture.h"
#include "tests/devservice/RecordClient.h"
#include "tests/support/FolderWait.h"

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/wait.h>

#include <chrono>
#include <filesystem>
#include <memory>

namespace kvltest {
namespace {

using std::chrono::steady_clock;
using std::chrono_literals::operator""ms;
using std::chrono_literals::operator""s;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* kEvents12 =
    "event: tick\nid: 1\ndata: {\"number\":1}\n\n"
    "event: tick\nid: 2\ndata: {\"number\":2}\n\n";
constexpr const char* kEvent3 = "event: tick\nid: 3\ndata: {\"number\":3}\n\n";
constexpr const char* kStreamStarts = "events: a stream begins with number ";
// Bytes of an event whose number has one digit.
constexpr std::size_t kEventSize = 38;

std::vector<std::size_t> sizesOf(const std::vector<std::string>& chunks) {
  std::vector<std::size_t> sizes;
  for (const std::string& chunk : chunks) sizes.push_back(chunk.size());
  return sizes;
}

std::string joined(const std::vector<std::string>& chunks) {
  std::string text;
  for (const std::string& chunk : chunks) text += chunk;
  return text;
}

class EventStreamProgramTest : public ProgramFixture {
 protected:
  void SetUp() override {
    startNotary();
    startService();
    obtainIdentity();
  }

  [[nodiscard]] std::unique_ptr<RecordClient> connect() const {
    return std::make_unique<RecordClient>(serviceURL(), bus_.directory());
  }

  // The chunks of one response.
  [[nodiscard]] std::vector<std::string> chunksOf(const std::string& target) const {
    const auto client = connect();
    EXPECT_THAT(client->get(target), HasSubstr("200 OK"));
    return client->readChunks();
  }

  [[nodiscard]] std::string serviceLog() const {
    return readFile(bus_.directory() / "service.log");
  }

  [[nodiscard]] bool logTells(const std::string& text) const {
    return waitForFolder(bus_.directory(), service_,
                         [&] { return serviceLog().find(text) != std::string::npos; });
  }
};

TEST_F(EventStreamProgramTest, ResponseIsAnEventStream) {
  const CommandResult result = get("events?last=2", "-i --compressed");
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.output, HasSubstr("HTTP/1.1 200 OK\r\n"));
  EXPECT_THAT(result.output, HasSubstr("Content-Type: text/event-stream\r\n"));
  EXPECT_THAT(result.output, HasSubstr("Cache-Control: no-store\r\n"));
  EXPECT_THAT(result.output, HasSubstr("Transfer-Encoding: chunked\r\n"));
  EXPECT_THAT(result.output, Not(HasSubstr("Content-Encoding")));
  EXPECT_THAT(result.output, EndsWith(std::string("\r\n\r\n") + kEvents12));
  EXPECT_TRUE(logTells(std::string(kStreamStarts) + "1\n"));
  EXPECT_TRUE(logTells("events: a stream ends after 2 events\n"));
}

TEST_F(EventStreamProgramTest, NameAndNewlineAreTheClientsChoice) {
  EXPECT_EQ(get("events?name=tock-1&newline=crlf&last=1").output,
            "event: tock-1\r\nid: 1\r\ndata: {\"number\":1}\r\n\r\n");
}

TEST_F(EventStreamProgramTest, BadValueIsRefused) {
  EXPECT_EQ(get("events?batch=0", "-w ' %{http_code} %{content_type}'").output,
            "{\"error\":\"batch must be a number from 1 to 100000\"} 400 application/json");
  EXPECT_EQ(get("events?name=%0a", "-o /dev/null -w '%{http_code}'").output, "400");
  EXPECT_THAT(serviceLog(), Not(HasSubstr(kStreamStarts)));
}

TEST_F(EventStreamProgramTest, HeadOfAStreamStartsNone) {
  EXPECT_THAT(get("events", "-I").output, HasSubstr("Content-Type: text/event-stream"));
  EXPECT_THAT(serviceLog(), Not(HasSubstr(kStreamStarts)));
}

TEST_F(EventStreamProgramTest, StreamGoesOnAfterARestart) {
  EXPECT_EQ(get("events?close=2").output, kEvents12);
  service_.kill();
  std::filesystem::remove(state() / "service.url");
  startService();
  EXPECT_EQ(get("events?close=1", "-H 'Last-Event-ID: 2'").output, kEvent3);
  EXPECT_EQ(get("events?last=2", "-H 'Last-Event-ID: 2'").output, "");
  EXPECT_EQ(get("events?last=2", "-H 'Last-Event-ID: 3'").output, kEvents12);
  EXPECT_EQ(get("events?last=2", "-H 'Last-Event-ID: two'").output, kEvents12);
}

TEST_F(EventStreamProgramTest, SizesAreExact) {
  const std::string size = "-o /dev/null -w '%{size_download}'";
  EXPECT_EQ(get("events?last=100&size=55", size).output, "5500");
  EXPECT_EQ(get("events?last=30&size=100000", size).output, "3000000");
  EXPECT_EQ(get("events?last=2&size=16777216", size).output, "33554432");
}

TEST_F(EventStreamProgramTest, EachChunkIsOneWrite) {
  EXPECT_EQ(sizesOf(chunksOf("events?last=3")),
            (std::vector<std::size_t>{kEventSize, kEventSize, kEventSize}));
  EXPECT_THAT(chunksOf("events?last=3&batch=2"), ElementsAre(kEvents12, kEvent3));
  EXPECT_THAT(sizesOf(chunksOf("events?last=5&size=100&batch=3&pieces=2")),
              ElementsAre(150, 150, 100, 100));
  EXPECT_THAT(sizesOf(chunksOf("events?last=2&pieces=3")), ElementsAre(12, 13, 13, 12, 13, 13));
  EXPECT_THAT(sizesOf(chunksOf("events?last=2&chunk=50")), ElementsAre(50, 26));
  EXPECT_THAT(sizesOf(chunksOf("events?last=2&chunk=30")), ElementsAre(30, 30, 16));
  EXPECT_THAT(sizesOf(chunksOf("events?last=2&chunk=38")), ElementsAre(kEventSize, kEventSize));
  EXPECT_THAT(sizesOf(chunksOf("events?last=2&chunk=1000")), ElementsAre(76));
}

TEST_F(EventStreamProgramTest, MorePiecesThanBytesAreSingleBytes) {
  for (const char* target : {"events?close=2&pieces=1000", "events?close=2&chunk=1"}) {
    const std::vector<std::string> chunks = chunksOf(target);
    EXPECT_THAT(sizesOf(chunks), testing::Each(1)) << target;
    EXPECT_EQ(joined(chunks), kEvents12) << target;
  }
}

TEST_F(EventStreamProgramTest, ConnectionServesTheNextRequestAfterAClose) {
  const auto client = connect();
  client->get("events?close=2&then=close");
  EXPECT_EQ(joined(client->readChunks()), kEvents12);
  EXPECT_THAT(client->get("events?close=1&then=close", "Last-Event-ID: 2\r\n"), HasSubstr("200"));
  EXPECT_EQ(joined(client->readChunks()), kEvent3);
}

TEST_F(EventStreamProgramTest, StreamWithoutEventsIsEmpty) {
  EXPECT_THAT(chunksOf("events?close=0"), IsEmpty());
}

TEST_F(EventStreamProgramTest, SilenceLastsUntilTheClientLeaves) {
  auto client = connect();
  client->get("events?last=2&then=silence&chunk=60");
  EXPECT_EQ(joined({client->readChunk(), client->readChunk()}), kEvents12);
  // Another client is served, and nothing has ended meanwhile.
  EXPECT_EQ(get("slow?ms=50").output, "{\"waited\":50}");
  EXPECT_THAT(serviceLog(), Not(HasSubstr("a stream ends")));
  client.reset();
  EXPECT_TRUE(logTells("events: a stream ends after 2 events\n"));
}

TEST_F(EventStreamProgramTest, ResetBreaksInsideAnEvent) {
  constexpr int kPartialFile = 18;
  const CommandResult result = get("events?last=2&then=reset", "--no-show-error");
  EXPECT_EQ(result.status, kPartialFile);
  EXPECT_EQ(result.output, kEvents12 + std::string(kEvent3).substr(0, kEventSize / 2));
  for (const char* options : {"", "&chunk=50", "&chunk=7", "&batch=2", "&interval=1"}) {
    const auto client = connect();
    client->get("events?close=1&then=reset" + std::string(options));
    std::size_t size = 0;
    while (size < kEventSize + kEventSize / 2) {
      const std::size_t more = client->readChunk().size();
      ASSERT_GT(more, 0U) << options;
      size += more;
    }
    EXPECT_EQ(client->readRecord(), std::nullopt) << options;
  }
}

TEST_F(EventStreamProgramTest, TimesPassBetweenWrites) {
  constexpr auto kWait = 40ms;
  const std::vector<std::pair<const char*, int>> table{
      {"events?last=4&interval=40", 3},
      {"events?last=4&batch=2&interval=40", 1},
      {"events?last=2&pieces=2&gap=40", 2},
      {"events?last=2&pause-after=1&pause=80", 2},
      {"events?last=2&pause-after=0&pause=80", 2},
      {"events?last=2&pause-after=2&pause=80", 2},
      {"events?last=3&interval=40&pause-after=1&pause=80", 3},
  };
  for (const auto& [target, waits] : table) {
    const auto start = steady_clock::now();
    (void)chunksOf(target);
    EXPECT_GE(steady_clock::now() - start, waits * kWait) << target;
  }
}

TEST_F(EventStreamProgramTest, EventBeforeAWaitIsUnderWayAtOnce) {
  const auto client = connect();
  client->get("events?interval=600000");
  EXPECT_EQ(client->readChunk().size(), kEventSize);
  const auto halves = connect();
  halves->get("events?pieces=2&gap=600000");
  EXPECT_EQ(halves->readChunk().size(), kEventSize / 2);
}

TEST_F(EventStreamProgramTest, ClientsThatLeaveFreeTheirThreads) {
  constexpr int kThreads = 64;
  const std::vector<const char*> targets{"events?close=1&then=silence",
                                         "events?interval=600000",
                                         "events?pieces=2&gap=600000",
                                         "events?pause-after=1&pause=600000",
                                         "events",
                                         "events?size=1000000&batch=10&pieces=9999"};
  for (int i = 0; i < 2 * kThreads; ++i) {
    const auto client = connect();
    client->get(targets[i % targets.size()]);
    ASSERT_TRUE(client->readRecord()) << i;
  }
}

TEST_F(EventStreamProgramTest, EndOfTheServiceEndsAllStreamsAtOnce) {
  std::vector<std::unique_ptr<RecordClient>> clients;
  constexpr std::size_t kSilentOnes = 4;
  // The clients of the others do not read: the service waits for them inside a write.
  for (const char* target :
       {"events?close=1&then=silence", "events?interval=600000", "events?pieces=2&gap=600000",
        "events?pause-after=1&pause=600000", "events?size=1000000", "events"}) {
    clients.push_back(connect());
    clients.back()->get(target);
    ASSERT_TRUE(clients.back()->readRecord()) << target;
  }
  const auto start = steady_clock::now();
  service_.signal(SIGTERM);
  const int status = service_.wait();
  EXPECT_LT(steady_clock::now() - start, 20s);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  for (std::size_t i = 0; i < kSilentOnes; ++i) EXPECT_EQ(clients[i]->readRecord(), std::nullopt);
}

}  // namespace
}  // namespace kvltest
