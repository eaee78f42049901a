#include "tests/session/SessionFixture.h"

namespace {

using namespace kvltest;
using namespace std::chrono_literals;

struct Outcome {
  int calls = 0;
  std::optional<kvl::Data> data;
  kvl::URLResponseRef response;
  std::optional<kvl::Error> error;

  [[nodiscard]] kvl::DataTaskHandler handler() {
    return [this](std::optional<kvl::Data> body, kvl::URLResponseRef head,
                  std::optional<kvl::Error> failure) {
      ++calls;
      data = std::move(body);
      response = std::move(head);
      error = std::move(failure);
    };
  }
};

class SessionRequestTest : public SessionFixture {
 protected:
  std::string sentURL(std::string_view text) {
    session->request(kvl::URLRequest(text), [](auto&&...) {});
    return std::string(loader->tasks().back()->originalRequest().urlText());
  }
};

TEST_F(SessionRequestTest, BeforeTheFirstNotarisationFailsAtOnce) {
  create();
  Outcome outcome;
  EXPECT_EQ(session->request(kvl::URLRequest("documents"), outcome.handler()), nullptr);
  ASSERT_EQ(outcome.calls, 1);
  EXPECT_EQ(outcome.data, std::nullopt);
  EXPECT_EQ(outcome.response, nullptr);
  ASSERT_TRUE(outcome.error);
  EXPECT_TRUE(outcome.error->is(kvl::NSURLErrorDomain, -1));
  EXPECT_EQ(outcome.error->userInfo()[kvl::NSLocalizedDescriptionKey].string(),
            "Notarised session is not established.");
}

TEST_F(SessionRequestTest, WithoutAHandlerWhileNotEstablishedCallsNothing) {
  create();
  EXPECT_EQ(session->request(kvl::URLRequest("documents")), nullptr);
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(SessionRequestTest, FailsLikewiseWhileThereIsASignatureButNoHTTPSSessionObject) {
  create();
  establish();
  session->setSession(nullptr);
  Outcome outcome;
  EXPECT_EQ(session->request(kvl::URLRequest("documents"), outcome.handler()), nullptr);
  EXPECT_EQ(outcome.calls, 1);
}

TEST_F(SessionRequestTest, ResolvesAgainstTheBaseURL) {
  create();
  establish();
  EXPECT_EQ(sentURL("a/b?c=d"), "https://127.0.0.1:4321/base/a/b?c=d");
  EXPECT_EQ(sentURL("/a"), "https://127.0.0.1:4321/a");
  EXPECT_EQ(sentURL("../a"), "https://127.0.0.1:4321/a");
  EXPECT_EQ(sentURL(""), "https://127.0.0.1:4321/base/");
  EXPECT_EQ(sentURL("https://other:1/x/../%7e"), "https://other:1/x/../%7e");
}

TEST_F(SessionRequestTest, LeavesTheCallersRequestUnchanged) {
  create();
  establish();
  kvl::URLRequest request("a");
  request.setMethod("POST");
  request.headers().set("X-Test", "1");
  request.setBody(kvl::Data::fromText("body"));
  session->request(request, [](auto&&...) {});
  EXPECT_EQ(request.urlText(), "a");
  const auto& sent = loader->tasks().back()->originalRequest();
  EXPECT_EQ(sent.method(), "POST");
  EXPECT_EQ(sent.headers().find("x-test"), "1");
  EXPECT_EQ(sent.body()->text(), "body");
}

TEST_F(SessionRequestTest, ReturnsTheStartedTask) {
  create();
  establish();
  const auto task = session->request(kvl::URLRequest("a"), [](auto&&...) {});
  ASSERT_NE(task, nullptr);
  EXPECT_EQ(task->state(), kvl::DataTask::State::running);
  EXPECT_EQ(task, loader->tasks().back());
}

TEST_F(SessionRequestTest, WithoutAHandlerMakesAPlainTask) {
  create();
  establish();
  session->request(kvl::URLRequest("a"));
  EXPECT_FALSE(loader->tasks().back()->hasHandler());
}

TEST_F(SessionRequestTest, TextThatIsNoURLStaysSoThatTheTaskFails) {
  create();
  establish();
  EXPECT_EQ(sentURL("a b"), "a b");
  EXPECT_EQ(loader->tasks().back()->originalRequest().url(), std::nullopt);
}

TEST_F(SessionRequestTest, HandsOverAnAnswerUnchangedAndLogsNothing) {
  create();
  establish();
  Outcome outcome;
  session->request(kvl::URLRequest("a"), outcome.handler());
  const auto before = log.lines().size();
  const auto response = std::make_shared<const kvl::URLResponse>(
      kvl::URLResponse{*kvl::URL::parse("https://h/a"), 500, {}, 11});
  loader->tasks().back()->complete(kvl::Data::fromText("body"), response, std::nullopt);
  EXPECT_EQ(outcome.calls, 1);
  EXPECT_EQ(outcome.data->text(), "body");
  EXPECT_EQ(outcome.response, response);
  EXPECT_EQ(outcome.error, std::nullopt);
  EXPECT_EQ(log.lines().size(), before);
}

TEST_F(SessionRequestTest, LogsATransportErrorAndLeavesTheSessionAsItIs) {
  create();
  establish();
  Outcome outcome;
  session->request(kvl::URLRequest("a"), outcome.handler());
  (void)queue->takeDelays();
  const kvl::Error error(kvl::NSURLErrorDomain, kvl::NSURLErrorNetworkConnectionLost);
  loader->tasks().back()->fail(error);
  EXPECT_EQ(outcome.error, error);
  EXPECT_EQ(log.lines().back(), "error from request: https://127.0.0.1:4321/base/a");
  EXPECT_EQ(session->state(), KVLSessionStateEstablished);
  EXPECT_TRUE(queue->takeDelays().empty());
}

TEST_F(SessionRequestTest, NotarisationErrorDisconnectsBeforeTheCallerHears) {
  create();
  establish();
  (void)queue->takeDelays();
  std::optional<KVLSessionState> seen;
  std::optional<kvl::Error> received;
  session->request(kvl::URLRequest("a"), [&](auto&&, auto&&, std::optional<kvl::Error> error) {
    seen = session->state();
    received = std::move(error);
  });
  loader->tasks().back()->fail(notarisationError());
  EXPECT_EQ(seen, KVLSessionStateDisconnected);
  EXPECT_EQ(received, notarisationError());
  const auto lines = log.lines();
  ASSERT_GE(lines.size(), 2U);
  EXPECT_EQ(lines[lines.size() - 2], "error from request: https://127.0.0.1:4321/base/a");
  EXPECT_EQ(lines[lines.size() - 1], "notarisation error from request; enqueuing reconnection");
  EXPECT_EQ(queue->takeDelays(), std::vector{1.0});
  queue->advance(1s);
  EXPECT_EQ(notary->calls(), 2U);
}

TEST_F(SessionRequestTest, NotarisationErrorFromBeforeARenewalLeavesTheNewIdentityAlone) {
  create();
  establish();
  Outcome outcome;
  session->request(kvl::URLRequest("a"), outcome.handler());
  queue->advance(800s);
  const auto renewed = signatureEnding(queue->wallTime().adding(1000));
  notary->answer(renewed);
  const auto current = session->session();
  (void)queue->takeDelays();
  loader->tasks().back()->fail(notarisationError());
  EXPECT_EQ(outcome.error, notarisationError());
  EXPECT_EQ(log.lines().back(), "error from request: https://127.0.0.1:4321/base/a");
  EXPECT_EQ(session->state(), KVLSessionStateEstablished);
  EXPECT_EQ(session->signature(), renewed);
  EXPECT_EQ(session->session(), current);
  EXPECT_TRUE(queue->takeDelays().empty());
}

TEST_F(SessionRequestTest, RequestsThatFailTogetherEachDisconnectUntilThereIsANewIdentity) {
  create();
  establish();
  for (int i = 0; i < 3; ++i) session->request(kvl::URLRequest("a"), [](auto&&...) {});
  const auto tasks = loader->tasks();
  (void)queue->takeDelays();
  tasks[0]->fail(notarisationError());
  tasks[1]->fail(notarisationError());
  EXPECT_EQ(queue->takeDelays(), (std::vector{1.0, 1.0}));
  EXPECT_EQ(log.count("notarisation error from request; enqueuing reconnection"), 2U);
  queue->advance(1s);
  establish();
  session->setSession(std::make_shared<FakeURLSession>());
  tasks[2]->fail(notarisationError());
  EXPECT_EQ(log.count("notarisation error from request; enqueuing reconnection"), 2U);
  EXPECT_EQ(session->state(), KVLSessionStateEstablished);
}

TEST_F(SessionRequestTest, HandlerMayUseTheSessionAgain) {
  create();
  establish();
  int inner = 0;
  session->request(kvl::URLRequest("a"), [&](auto&&...) {
    session->request(kvl::URLRequest("b"), [&](auto&&...) { ++inner; });
  });
  loader->tasks().back()->fail(notarisationError());
  EXPECT_EQ(inner, 1);  // not established any more: answered at once
}

struct ClassCase {
  std::string_view domain;
  std::int64_t code;
  bool recoverable;
  bool notarisation;
};

TEST(ErrorClassificationTest, FollowsTheTables) {
  constexpr std::string_view url = kvl::NSURLErrorDomain;
  const ClassCase table[] = {
      {kvl::NSPOSIXErrorDomain, 0, true, false},
      {kvl::NSPOSIXErrorDomain, 2, true, false},
      {kvl::NSPOSIXErrorDomain, -1002, true, false},
      {kvl::NSPOSIXErrorDomain, -1200, true, false},
      {kvl::NSOSStatusErrorDomain, -43, true, false},
      {kvl::NSOSStatusErrorDomain, -50, false, false},
      {kvl::NSCocoaErrorDomain, 260, true, false},
      {kvl::NSCocoaErrorDomain, 256, true, false},
      {kvl::NSCocoaErrorDomain, 257, false, false},
      {kvl::NSCocoaErrorDomain, 4097, false, false},
      {kvl::NSCocoaErrorDomain, 4099, false, false},
      {kvl::NSCocoaErrorDomain, 4101, false, false},
      {url, -1002, true, false},
      {url, -1, false, false},
      {url, -999, false, false},
      {url, -1001, false, false},
      {url, -1003, false, false},
      {url, -1004, false, false},
      {url, -1005, false, false},
      {url, -1199, false, false},
      {url, -1200, false, true},
      {url, -1201, false, true},
      {url, -1202, false, true},
      {url, -1203, false, true},
      {url, -1204, false, true},
      {url, -1205, false, true},
      {url, -1206, false, true},
      {url, -1207, false, false},
      {url, -2000, false, true},
      {url, -2001, false, false},
      {"another.domain", -1200, false, false},
      {"NSURLErrorDomain2", -1200, false, false},
  };
  for (const auto& [domain, code, recoverable, notarisation] : table) {
    const kvl::Error error(domain, code);
    EXPECT_EQ(KVLSession::isRecoverableError(error), recoverable) << domain << ' ' << code;
    EXPECT_EQ(KVLSession::isNotarisationError(error), notarisation) << domain << ' ' << code;
  }
}

TEST(ErrorClassificationTest, AbsentErrorIsNeither) {
  EXPECT_FALSE(KVLSession::isRecoverableError(std::nullopt));
  EXPECT_FALSE(KVLSession::isNotarisationError(std::nullopt));
}

}  // namespace
