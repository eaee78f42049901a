#include "platform/interface/client/Refusal.h"

#include <gtest/gtest.h>

#include <csignal>
#include <string>

namespace {

using kvl::interface::Decoder;
using kvl::interface::kOutOfMemory;
using kvl::interface::metLimit;
using kvl::interface::metMemory;
using kvl::interface::Outcome;
using End = Decoder::End;

constexpr Decoder::Limits kLimits{.processorTime = std::chrono::milliseconds(2000),
                                  .wallTime = std::chrono::milliseconds(2500)};
constexpr std::uint64_t kLongestFile = 100;

// As wait(2) tells the ends.
constexpr int bySignal(int signal) {
  return signal;
}
constexpr int byStatus(int status) {
  return status << 8;
}

Decoder::Exchange exchangeThat(End end, std::optional<int> waitStatus = {}) {
  return {.end = end, .waitStatus = waitStatus, .isAlone = true};
}
Decoder::Exchange exchangeWith(Outcome outcome) {
  return {.end = End::kAnswered, .answer = {.outcome = outcome}, .isAlone = true};
}
std::string reasonOf(const Decoder::Exchange& exchange) {
  return refusalReason(exchange, kLimits, kLongestFile);
}

TEST(RefusalTest, SaysWhatCameToAnEnd) {
  EXPECT_EQ(reasonOf(exchangeThat(End::kProcessorTime)), "more than 2 s of processor time");
  EXPECT_EQ(reasonOf(exchangeThat(End::kNoProgress)), "no end within 2500 ms");
  EXPECT_EQ(reasonOf(exchangeThat(End::kWrong)), "the decoder answered wrongly");
  EXPECT_EQ(reasonOf(exchangeThat(End::kNotSent)), "no descriptor or memory is left");
  EXPECT_EQ(reasonOf(exchangeThat(End::kDied, bySignal(SIGSEGV))),
            "the decoder ended with signal 11");
  EXPECT_EQ(reasonOf(exchangeThat(End::kDied, byStatus(2))), "the decoder ended with status 2");
  EXPECT_EQ(reasonOf(exchangeThat(End::kDied)), "the decoder ended");
}

TEST(RefusalTest, SaysWhatTheDecoderFound) {
  EXPECT_EQ(reasonOf(exchangeWith(Outcome::kNoImage)), "there is no image inside");
  EXPECT_EQ(reasonOf(exchangeWith(Outcome::kTooLarge)), "it is too large");
  EXPECT_EQ(reasonOf(exchangeWith(Outcome::kNotDrawn)), "it could not be drawn");
  EXPECT_EQ(reasonOf(exchangeWith(Outcome::kMemory)), "it takes too much memory");
}

TEST(RefusalTest, MemoryIsToldByTheAnswerOrByTheEnd) {
  EXPECT_TRUE(metMemory(exchangeWith(Outcome::kMemory)));
  EXPECT_TRUE(metMemory(exchangeThat(End::kDied, byStatus(kOutOfMemory))));
  EXPECT_FALSE(metMemory(exchangeThat(End::kDied, byStatus(1))));
  EXPECT_FALSE(metMemory(exchangeThat(End::kDied, bySignal(kOutOfMemory))));
  EXPECT_FALSE(metMemory(exchangeThat(End::kDied)));
  EXPECT_FALSE(metMemory(exchangeWith(Outcome::kNotDrawn)));
}

TEST(RefusalTest, ALimitIsTheImagesOwn) {
  for (const auto& exchange :
       {exchangeThat(End::kProcessorTime), exchangeThat(End::kNoProgress),
        exchangeThat(End::kDied, bySignal(SIGSEGV)),
        exchangeThat(End::kDied, byStatus(kOutOfMemory)), exchangeWith(Outcome::kMemory)}) {
    EXPECT_TRUE(metLimit(exchange));
    auto amongOthers = exchange;
    amongOthers.isAlone = false;
    EXPECT_FALSE(metLimit(amongOthers)) << "another image may have had to do with it";
  }
  EXPECT_FALSE(metLimit(exchangeThat(End::kDied, bySignal(SIGKILL)))) << "somebody ended it";
  EXPECT_FALSE(metLimit(exchangeThat(End::kDied)));
  EXPECT_FALSE(metLimit(exchangeThat(End::kWrong)));
  EXPECT_FALSE(metLimit(exchangeThat(End::kNotSent)));
  EXPECT_FALSE(metLimit(exchangeWith(Outcome::kNotDrawn)));
}

}  // namespace
