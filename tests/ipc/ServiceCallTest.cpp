// The life of a call over a transport that does what the test says. The calls live on the test's
// own thread, whose main context the test drives: nothing waits.
#include "platform/ipc/GLibPointers.h"
#include "platform/ipc/ServiceCall.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kvltest {
namespace {

using kvl::Dictionary;
using kvl::Error;
using kvl::ipc::CallOutcome;
using kvl::ipc::CallTransport;
using kvl::ipc::ServiceCall;
using kvl::ipc::ServiceRequest;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::chrono::milliseconds kNever = std::chrono::hours(1);
constexpr std::chrono::milliseconds kAtOnce{0};

const CallOutcome kReply{std::nullopt, {Dictionary{{"a", 1}}, std::nullopt}};

CallOutcome failure(std::int64_t code) {
  return {Error(kvl::NSCocoaErrorDomain, code), {}};
}

class FakeTransport final : public CallTransport {
 public:
  void send(const ServiceRequest& request, Answer told) override {
    ++sent;
    last = request;
    answer = std::move(told);
    if (immediate) answer(*immediate);
  }
  void cancel() override { ++cancelled; }

  int sent = 0;
  int cancelled = 0;
  ServiceRequest last;
  Answer answer;  // kept beyond its time, as a careless transport would
  std::optional<CallOutcome> immediate;
};

// A main context of the thread's own, for the time limits.
class ThreadContext {
 public:
  ThreadContext() { g_main_context_push_thread_default(context_); }
  ~ThreadContext() {
    g_main_context_pop_thread_default(context_);
    g_main_context_unref(context_);
  }
  ThreadContext(const ThreadContext&) = delete;
  ThreadContext& operator=(const ThreadContext&) = delete;

  // Runs what is due.
  void drive() {
    while (g_main_context_iteration(context_, FALSE)) {
    }
  }

 private:
  GMainContext* const context_ = g_main_context_new();
};

class ServiceCallTest : public testing::Test {
 protected:
  void makeCall(std::chrono::milliseconds timeLimit = kNever) {
    call = std::make_shared<ServiceCall>("a.b", transport, timeLimit);
    call->setInterruptionHandler([this] { events.emplace_back("interruption"); });
    call->setInvalidationHandler([this] { events.emplace_back("invalidation"); });
  }
  void startCall(std::chrono::milliseconds timeLimit = kNever) {
    makeCall(timeLimit);
    call->start();
    send();
  }
  void send() {
    call->send({"/path", {{"k", "v"}}}, {[this](const Error& failed) {
                                           events.emplace_back("error");
                                           error = failed;
                                           if (during) during();
                                         },
                                         [this](std::optional<Dictionary> entries, auto&&) {
                                           events.emplace_back("reply");
                                           reply = std::move(entries);
                                           if (during) during();
                                         }});
  }
  void expectError(std::string_view domain, std::int64_t code) const {
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain(), domain);
    EXPECT_EQ(error->code(), code);
  }

  ThreadContext context;
  const std::shared_ptr<FakeTransport> transport = std::make_shared<FakeTransport>();
  std::shared_ptr<ServiceCall> call;
  std::function<void()> during;  // inside the handler that ends the call
  std::vector<std::string> events;
  std::optional<Dictionary> reply;
  std::optional<Error> error;
};

TEST_F(ServiceCallTest, HandsTheRequestOnAndTheReplyBack) {
  startCall();
  EXPECT_EQ(transport->last.path, "/path");
  EXPECT_EQ(transport->last.entries, (Dictionary{{"k", "v"}}));
  transport->answer(kReply);
  EXPECT_THAT(events, ElementsAre("reply"));
  EXPECT_EQ(reply, kReply.reply.entries);
  EXPECT_EQ(transport->cancelled, 1);
}

TEST_F(ServiceCallTest, EndsOnceAlthoughTheTransportAnswersTwice) {
  startCall();
  transport->answer(kReply);
  transport->answer(failure(kvl::NSXPCConnectionInterrupted));
  EXPECT_THAT(events, ElementsAre("reply"));
}

TEST_F(ServiceCallTest, TransportMayAnswerBeforeSendReturns) {
  transport->immediate = kReply;
  startCall();
  EXPECT_THAT(events, ElementsAre("reply"));
}

TEST_F(ServiceCallTest, TransportMayAnswerAfterTheCallHasGone) {
  startCall();
  call->invalidate();
  call.reset();
  transport->answer(kReply);
  EXPECT_THAT(events, ElementsAre("error", "invalidation"));
}

TEST_F(ServiceCallTest, InterruptionIsToldBeforeTheError) {
  startCall();
  transport->answer(failure(kvl::NSXPCConnectionInterrupted));
  EXPECT_THAT(events, ElementsAre("interruption", "error"));
}

TEST_F(ServiceCallTest, UnreachableServiceInvalidatesTheCall) {
  startCall();
  transport->answer(failure(kvl::NSXPCConnectionInvalid));
  EXPECT_THAT(events, ElementsAre("error", "invalidation"));
  send();
  EXPECT_THAT(events, ElementsAre("error", "invalidation", "error"));
  EXPECT_EQ(transport->sent, 1);
}

TEST_F(ServiceCallTest, SecondRequestIsRefused) {
  startCall();
  send();
  expectError(kvl::NSCocoaErrorDomain, kvl::NSXPCConnectionInvalid);
  transport->answer(kReply);
  EXPECT_THAT(events, ElementsAre("error", "reply"));
  EXPECT_EQ(transport->sent, 1);
}

TEST_F(ServiceCallTest, NothingIsSentBeforeTheStart) {
  makeCall();
  send();
  EXPECT_EQ(transport->sent, 0);
  call->start();
  call->start();
  EXPECT_EQ(transport->sent, 1);
  transport->answer(kReply);
  EXPECT_THAT(events, ElementsAre("reply"));
}

TEST_F(ServiceCallTest, InvalidatedBeforeTheStartItNeverReachesTheTransport) {
  makeCall();
  send();
  call->invalidate();
  EXPECT_THAT(events, ElementsAre("error", "invalidation"));
  expectError(kvl::NSCocoaErrorDomain, kvl::NSXPCConnectionInvalid);
  call->start();
  EXPECT_EQ(transport->sent, 0);
}

TEST_F(ServiceCallTest, InvalidatedWhileTheTransportWorksItIgnoresTheAnswer) {
  startCall();
  call->invalidate();
  EXPECT_EQ(transport->cancelled, 1);
  transport->answer(kReply);
  call->invalidate();
  EXPECT_THAT(events, ElementsAre("error", "invalidation"));
}

TEST_F(ServiceCallTest, InvalidatedAfterItsEndItOnlyTellsThat) {
  startCall();
  transport->answer(kReply);
  call->invalidate();
  call->invalidate();
  EXPECT_THAT(events, ElementsAre("reply", "invalidation"));
}

TEST_F(ServiceCallTest, EndsAtItsTimeLimit) {
  startCall(kAtOnce);
  EXPECT_THAT(events, IsEmpty());
  context.drive();
  EXPECT_THAT(events, ElementsAre("error"));
  expectError(kvl::NSPOSIXErrorDomain, kvl::kTimedOutPOSIXCode);
  EXPECT_EQ(transport->cancelled, 1);
  transport->answer(kReply);
  EXPECT_THAT(events, ElementsAre("error"));
}

TEST_F(ServiceCallTest, TimeLimitBeginsWithTheSending) {
  makeCall(kAtOnce);
  send();
  context.drive();
  EXPECT_THAT(events, IsEmpty());
  call->start();
  context.drive();
  EXPECT_THAT(events, ElementsAre("error"));
}

TEST_F(ServiceCallTest, TimeLimitEndsWithTheAnswer) {
  startCall(kAtOnce);
  transport->answer(kReply);
  context.drive();
  EXPECT_THAT(events, ElementsAre("reply"));
}

TEST_F(ServiceCallTest, SuspendedCallHoldsItsOutcomeUntilItIsStarted) {
  startCall();
  call->suspend();
  transport->answer(kReply);
  transport->answer(failure(kvl::NSXPCConnectionInterrupted));
  EXPECT_THAT(events, IsEmpty());
  call->start();
  EXPECT_THAT(events, ElementsAre("reply"));
}

TEST_F(ServiceCallTest, SuspendedCallReachesItsTimeLimit) {
  startCall(kAtOnce);
  call->suspend();
  context.drive();
  EXPECT_THAT(events, IsEmpty());
  call->start();
  EXPECT_THAT(events, ElementsAre("error"));
}

TEST_F(ServiceCallTest, InvalidatingDropsAHeldOutcome) {
  startCall();
  call->suspend();
  transport->answer(kReply);
  call->invalidate();
  EXPECT_THAT(events, ElementsAre("error", "invalidation"));
}

TEST_F(ServiceCallTest, AbandonedCallEndsOnlyWhenItWaitsForAStart) {
  startCall();
  call->abandon();
  EXPECT_THAT(events, IsEmpty());
  call->suspend();
  call->abandon();
  EXPECT_THAT(events, ElementsAre("error", "invalidation"));
}

TEST_F(ServiceCallTest, LivesUntilItsOutcomeWithoutAnOwner) {
  startCall();
  const std::weak_ptr<ServiceCall> weak = std::exchange(call, nullptr);
  EXPECT_FALSE(weak.expired());
  transport->answer(kReply);
  EXPECT_THAT(events, ElementsAre("reply"));
  EXPECT_TRUE(weak.expired());
}

TEST_F(ServiceCallTest, IsDestroyedInsideItsOwnHandler) {
  for (const std::int64_t code : {kvl::NSXPCConnectionInterrupted, kvl::NSXPCConnectionInvalid}) {
    for (const bool atOnce : {true, false}) {
      transport->immediate = atOnce ? std::optional(failure(code)) : std::nullopt;
      during = [this] { call.reset(); };
      startCall();
      if (!atOnce) transport->answer(failure(code));
      EXPECT_EQ(call, nullptr);
    }
  }
  EXPECT_THAT(events, ElementsAre("interruption", "error", "interruption", "error", "error",
                                  "invalidation", "error", "invalidation"));
}

TEST_F(ServiceCallTest, HeldOutcomeMayDestroyTheCall) {
  during = [this] { call.reset(); };
  startCall();
  call->suspend();
  transport->answer(failure(kvl::NSXPCConnectionInvalid));
  call->start();
  EXPECT_EQ(call, nullptr);
  EXPECT_THAT(events, ElementsAre("error", "invalidation"));
}

TEST_F(ServiceCallTest, LetsGoOfItsHandlersOnceOneHasRun) {
  const auto token = std::make_shared<int>(0);
  makeCall();
  call->start();
  call->send({}, {[token](auto&&) {}, [token](auto&&...) {}});
  EXPECT_EQ(token.use_count(), 3);
  transport->answer(kReply);
  EXPECT_EQ(token.use_count(), 1);
}

}  // namespace
}  // namespace kvltest
