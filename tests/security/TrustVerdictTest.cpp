#include "platform/security/TrustEvaluation.h"

#include <gtest/gtest.h>

namespace kvl::security {
namespace {

struct VerdictCase {
  std::vector<TrustFault> faults;
  TrustResult result;
  std::int32_t code;
  int error;
  int depth;
};

class TrustVerdictTest : public testing::TestWithParam<VerdictCase> {};

TEST_P(TrustVerdictTest, WeighsTheFaults) {
  const TrustVerdict verdict = judge(GetParam().faults);
  EXPECT_EQ(verdict.result, GetParam().result);
  EXPECT_EQ(verdict.resultCode, GetParam().code);
  EXPECT_EQ(verdict.fault.error, GetParam().error);
  EXPECT_EQ(verdict.fault.depth, GetParam().depth);
}

constexpr auto kGood = TrustResult::unspecified;
constexpr auto kRecoverable = TrustResult::recoverableFailure;
constexpr auto kFatal = TrustResult::fatalFailure;
constexpr auto kMismatch = CSSMERR_APPLETP_HOSTNAME_MISMATCH;

INSTANTIATE_TEST_SUITE_P(
    Faults, TrustVerdictTest,
    testing::Values(
        VerdictCase{{}, kGood, 0, 0, 0}, VerdictCase{{{62, 0}}, kRecoverable, kMismatch, 62, 0},
        VerdictCase{{{64, 0}}, kRecoverable, kMismatch, 64, 0},
        VerdictCase{{{2, 1}}, kRecoverable, 2, 2, 1}, VerdictCase{{{9, 0}}, kRecoverable, 9, 9, 0},
        VerdictCase{{{10, 1}}, kRecoverable, 10, 10, 1},
        VerdictCase{{{18, 0}}, kRecoverable, 18, 18, 0},
        VerdictCase{{{19, 1}}, kRecoverable, 19, 19, 1},
        VerdictCase{{{20, 0}, {21, 0}}, kRecoverable, 20, 20, 0},
        VerdictCase{{{62, 0}, {10, 0}}, kRecoverable, 10, 10, 0},
        VerdictCase{{{10, 0}, {62, 0}}, kRecoverable, 10, 10, 0},
        VerdictCase{{{7, 0}}, kFatal, 7, 7, 0}, VerdictCase{{{66, 0}}, kFatal, 66, 66, 0},
        VerdictCase{{{68, 1}}, kFatal, 68, 68, 1}, VerdictCase{{{24, 1}}, kFatal, 24, 24, 1},
        VerdictCase{{{10, 0}, {26, 0}, {62, 0}}, kFatal, 26, 26, 0}));

}  // namespace
}  // namespace kvl::security
