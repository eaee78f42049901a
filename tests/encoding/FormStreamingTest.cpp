// Forms whose files are read while they are sent.
#include "tests/encoding/FetchFixture.h"
#include "tests/encoding/MultipartSupport.h"
#include "tests/encoding/OpenFile.h"
#include "tests/support/TestTLSServer.h"

#include <local/KVLEncodingAwait.h>
#include <local/KVLEncodingForm.h>

#include <future>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace kvltest;
using kvl::testing::answering;
using kvl::testing::httpResponse;
using kvl::testing::TestPeer;
using kvl::testing::TestTLSServer;
using KVLEncoding::FormOptions;
using KVLEncoding::RelativePath;
namespace awaitable = KVLEncoding::awaitable;

// More than anybody can read while a test runs.
constexpr off_t kEndless = off_t{1} << 42;

bool isCancelled(const std::optional<kvl::Error>& error) {
  return error && error->is(kvl::NSURLErrorDomain, kvl::NSURLErrorCancelled);
}

bool isShortened(const std::optional<kvl::Error>& error) {
  return error && error->is(kvl::NSCocoaErrorDomain, kvl::NSFileReadUnknownError);
}

class FormStreamingTest : public FetchFixture {
 protected:
  [[nodiscard]] kvl::Array inputs() const {
    return {input("note", "hi"), input("file", std::shared_ptr<kvl::Object>(inputFile))};
  }
  // From now on requests go to real servers.
  void useNetwork() const {
    auto configuration = kvl::URLSessionConfiguration::ephemeral();
    configuration.allowsInsecureHTTPLoads = true;
    session->setSession(kvl::URLSession::create(configuration, session));
  }
  void makeFile(off_t size) {
    open.resize(size);
    inputFile = KVLInputFile::newWithDescriptor("f", "t/t", open.descriptor());
  }

  struct Pending {
    std::future<awaitable::FormResult> result;
    kvl::Exchange exchange;
  };
  [[nodiscard]] Pending start(const std::string& path, FormOptions options = {}) const {
    const auto promise = std::make_shared<std::promise<awaitable::FormResult>>();
    options.streamsFiles = true;
    Pending pending{promise->get_future(), {}};
    pending.exchange = KVLEncoding::submitForm(
        kvl::Dictionary{{"method", "put"}}, inputs(), RelativePath(path), *session,
        [promise](const auto& body, const auto& response, const auto& error) {
          promise->set_value({body, response, error});
        },
        options);
    return pending;
  }

  // Whether this is what `inputs` are in one buffer, with its boundary.
  void expectWhole(const std::string& received) const {
    const auto end = received.find("\r\n\r\n");
    ASSERT_NE(end, std::string::npos);
    const auto head = received.substr(0, end + 2);
    const auto body = received.substr(end + 4);
    ASSERT_GT(body.size(), 14U);
    const auto boundary = body.substr(2, 12);
    kvl::URLRequest buffered("a");
    ASSERT_EQ(kvl::encoding::writeMultipartBody(buffered, inputs(), always(boundary)),
              std::nullopt);
    EXPECT_TRUE(body == buffered.body()->text());
    EXPECT_TRUE(head.starts_with("PUT /")) << head;
    EXPECT_NE(head.find("Content-Type: multipart/form-data; boundary=" + boundary + "\r\n"),
              std::string::npos);
    EXPECT_NE(head.find("Content-Length: " + std::to_string(body.size()) + "\r\n"),
              std::string::npos);
    EXPECT_NE(head.find("Accept: application/json\r\n"), std::string::npos);
  }

  const OpenFile open{"content of the file"};
  std::shared_ptr<KVLInputFile> inputFile =
      KVLInputFile::newWithDescriptor("f", "t/t", open.descriptor());
};

TEST_F(FormStreamingTest, SendsWhatABufferWouldHaveHeld) {
  std::string received;
  const TestTLSServer server({}, [&](TestPeer& peer) {
    received = peer.readRequest();
    peer.write(httpResponse("[1]"));
  });
  useNetwork();
  makeFile(3'000'000);
  const auto result = start(server.url("127.0.0.1", "/x")).result.get();
  EXPECT_FALSE(result.error);
  ASSERT_TRUE(result.body);
  EXPECT_EQ(result.body->text(), "[1]");
  expectWhole(received);
}

TEST_F(FormStreamingTest, ARedirectRepeatsTheBody) {
  std::vector<std::string> received;
  const TestTLSServer server({}, [&](TestPeer& peer) {
    received.push_back(peer.readRequest());
    peer.write(httpResponse("", "307 Elsewhere", "Location: /y\r\n"));
    received.push_back(peer.readRequest());
    peer.write(httpResponse("[1]"));
  });
  useNetwork();
  makeFile(1'000'000);
  const auto result = start(server.url("127.0.0.1", "/x")).result.get();
  EXPECT_FALSE(result.error);
  ASSERT_EQ(received.size(), 2U);
  EXPECT_TRUE(received[1].starts_with("PUT /y "));
  for (const auto& request : received) expectWhole(request);
}

TEST_F(FormStreamingTest, AFileThatShrinksWhileItIsSentEndsTheRequest) {
  makeFile(64 << 20);
  const TestTLSServer server({}, [&](TestPeer& peer) {
    (void)peer.read(1000);
    open.resize(1000);
    while (!peer.read(1 << 16).empty()) continue;
  });
  useNetwork();
  const auto result = start(server.url("127.0.0.1", "/x")).result.get();
  EXPECT_TRUE(isShortened(result.error));
  EXPECT_FALSE(result.body);
}

TEST_F(FormStreamingTest, AFileThatHasBecomeShorterIsNotSent) {
  open.resize(3);
  auto pending = start("a");
  EXPECT_TRUE(isShortened(pending.result.get().error));
  EXPECT_TRUE(pending.exchange.isOver());
  EXPECT_TRUE(loader->tasks().empty());
}

TEST_F(FormStreamingTest, CancelledWhileTheBoundaryIsSearched) {
  makeFile(kEndless);
  auto pending = start("a");
  EXPECT_FALSE(pending.exchange.isOver());
  EXPECT_EQ(pending.exchange.task(), nullptr);
  pending.exchange.cancel();
  EXPECT_TRUE(isCancelled(pending.result.get().error));
  EXPECT_TRUE(loader->tasks().empty());
}

TEST_F(FormStreamingTest, TheEndOfTheSessionStopsTheSearch) {
  makeFile(kEndless);
  auto pending = start("a");
  session->end();
  EXPECT_TRUE(isCancelled(pending.result.get().error));
}

TEST_F(FormStreamingTest, ADestroyedTaskStopsTheSearch) {
  makeFile(kEndless);
  FormOptions options;
  options.streamsFiles = true;
  {
    auto waiting = [](kvl::Array files, KVLSession& used, FormOptions how) -> kvl::Task<> {
      const kvl::Dictionary form;
      co_await awaitable::submitForm(form, files, RelativePath("a"), used, how);
    }(inputs(), *session, options);
    waiting.start();
  }
  const auto gone = release();
  EXPECT_TRUE(waitUntil([&] { return gone.expired(); }));
  EXPECT_TRUE(loader->tasks().empty());
}

TEST_F(FormStreamingTest, NobodyNeedKeepTheHandleOrTheSession) {
  auto result = start("a").result;
  const auto gone = release();
  ASSERT_TRUE(waitUntil([&] { return !loader->tasks().empty(); }));
  EXPECT_EQ(sent().method(), "PUT");
  EXPECT_TRUE(sent().bodySource());
  answer("[1]");
  EXPECT_EQ(result.get().body->text(), "[1]");
  loader->dropTasks();
  EXPECT_TRUE(waitUntil([&] { return gone.expired(); }));
}

TEST_F(FormStreamingTest, ACancelledTaskIsTheRequests) {
  auto pending = start("a");
  ASSERT_TRUE(waitUntil([&] { return pending.exchange.task() != nullptr; }));
  pending.exchange.cancel();
  EXPECT_EQ(task().state(), kvl::DataTask::State::canceling);
  answer("[1]");
  EXPECT_TRUE(isCancelled(pending.result.get().error));
}

TEST_F(FormStreamingTest, OptionsReplaceTheFieldsOfTheBody) {
  FormOptions options;
  options.headers.set("Content-Type", "text/x-own");
  auto pending = start("a", options);
  ASSERT_TRUE(waitUntil([&] { return !loader->tasks().empty(); }));
  EXPECT_EQ(sentHeader("Content-Type"), "text/x-own");
}

TEST_F(FormStreamingTest, WhatGoesWrongIsToldOnTheOptionsQueue) {
  const auto handlers = std::make_shared<DrivenQueue>();
  FormOptions options;
  options.queue = handlers;
  disconnect();
  auto pending = start("a", options);
  ASSERT_TRUE(waitUntil([&] { return handlers->pendingCount() > 0; }));
  handlers->runDue();
  EXPECT_TRUE(pending.result.get().error);
}

TEST_F(FormStreamingTest, WithoutOpenFilesItIsAnOrdinaryForm) {
  inputFile->setData(kvl::Data::fromText("x"));
  auto pending = start("a");
  ASSERT_EQ(loader->tasks().size(), 1U);
  EXPECT_TRUE(sent().body());
  EXPECT_FALSE(sent().bodySource());
}

TEST_F(FormStreamingTest, InputsThatCannotBeSentAreToldAtOnce) {
  int calls = 0;
  FormOptions options;
  options.streamsFiles = true;
  auto all = inputs();
  all.append(kvl::Dictionary{});
  KVLEncoding::submitForm(
      kvl::Dictionary{}, all, RelativePath("a"), *session,
      [&](const auto&, const auto&, const auto& error) {
        ++calls;
        EXPECT_EQ(error, extensionsError(404, {{"missing value", "name"}}));
      },
      options);
  EXPECT_EQ(calls, 1);
}

}  // namespace
