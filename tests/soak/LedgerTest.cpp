#include "tests/soak/Ledger.h"

#include <gtest/gtest.h>

namespace {

using namespace kvltest;

class LedgerTest : public testing::Test {
 protected:
  const std::shared_ptr<Ledger> ledger = std::make_shared<Ledger>();
};

TEST_F(LedgerTest, RequestIsOpenUntilItsOutcome) {
  const auto first = ledger->open("fetch");
  const auto second = ledger->open("form");
  EXPECT_EQ(ledger->totals().open, 2);
  first->answered();
  EXPECT_FALSE(ledger->waitUntilNothingIsOpen(std::chrono::milliseconds(0)));
  second->failed(kvl::Error("domain", 7));
  EXPECT_TRUE(ledger->waitUntilNothingIsOpen(std::chrono::milliseconds(0)));
  const auto totals = ledger->totals();
  EXPECT_EQ(totals.sent, 2);
  EXPECT_EQ(totals.answered, 1);
  EXPECT_EQ(totals.failed, 1);
  EXPECT_EQ(totals.errors.at("domain 7"), 1);
  EXPECT_TRUE(ledger->faults().empty());
}

TEST_F(LedgerTest, RequestWhoseHandlersAreGoneIsLost) {
  ledger->open("fetch").reset();
  EXPECT_EQ(ledger->totals().lost, 1);
  EXPECT_EQ(ledger->totals().open, 0);
  EXPECT_EQ(ledger->faults(), std::vector<std::string>{"fetch 1 was never answered"});
}

TEST_F(LedgerTest, SecondOutcomeIsNoticedWhateverItIs) {
  const auto ticket = ledger->open("fetch");
  ticket->answered();
  ticket->failed(std::nullopt);
  ticket->answeredWrongly("text");
  EXPECT_EQ(ledger->totals().answered, 1);
  EXPECT_EQ(ledger->totals().failed, 0);
  EXPECT_EQ(ledger->totals().wrong, 0);
  EXPECT_EQ(ledger->totals().doubled, 2);
}

TEST_F(LedgerTest, AnswerOfAnotherRequestIsAFault) {
  ledger->open("form")->answeredWrongly("17");
  EXPECT_EQ(ledger->totals().wrong, 1);
  EXPECT_EQ(ledger->faults(), std::vector<std::string>{"form 1 got: 17"});
}

}  // namespace
