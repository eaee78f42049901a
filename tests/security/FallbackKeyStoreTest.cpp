#include "tests/security/KeyStoreSupport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

namespace kvl::security {
namespace {

using kvltest::ScriptedStore;
using kvltest::soon;
using kvltest::storedKey;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class FallbackKeyStoreTest : public testing::Test {
 protected:
  std::shared_ptr<KeyStore> chain(std::chrono::milliseconds pause = kHungStorePause) {
    return makeFallbackKeyStore({first_, second_}, pause);
  }
  static auto takes() {
    return [](const StoredKey&, Deadline) { return kSuccess; };
  }
  static auto refuses(Status status) {
    return [status](const StoredKey&, Deadline) { return status; };
  }
  // Uses its whole share of the time.
  static Status hang(const StoredKey&, Deadline deadline) {
    std::this_thread::sleep_until(deadline);
    return errSecNotAvailable;
  }

  const std::shared_ptr<ScriptedStore> first_ = std::make_shared<ScriptedStore>("first");
  const std::shared_ptr<ScriptedStore> second_ = std::make_shared<ScriptedStore>("second");
  const StoredKey key_ = storedKey("tag");
  kvltest::LogCapture log_;
};

TEST_F(FallbackKeyStoreTest, UsesTheFirstStoreWithoutAWord) {
  first_->onAdd = takes();
  EXPECT_EQ(chain()->add(key_, soon()), kSuccess);
  EXPECT_EQ(second_->calls, 0);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(FallbackKeyStoreTest, LogsTheChoiceOfALaterStoreOnce) {
  second_->onAdd = takes();
  const auto store = chain();
  EXPECT_EQ(store->add(key_, soon()), kSuccess);
  EXPECT_EQ(store->add(key_, soon()), kSuccess);
  EXPECT_THAT(log_.lines(), ElementsAre("key store: keys are kept in the second"));
}

TEST_F(FallbackKeyStoreTest, BothHalvesOfAPairAreInOneStore) {
  std::vector<Key::Class> taken;
  first_->onAdd = [](const StoredKey& key, Deadline) {
    return key.keyClass == Key::Class::publicKey ? kSuccess : Status{errSecDataTooLarge};
  };
  second_->onAdd = [&](const StoredKey& key, Deadline) {
    taken.push_back(key.keyClass);
    return kSuccess;
  };
  EXPECT_EQ(chain()->addPair(storedKey("tag", Key::Class::publicKey), key_, soon()), kSuccess);
  EXPECT_THAT(taken, ElementsAre(Key::Class::publicKey, Key::Class::privateKey));
}

TEST_F(FallbackKeyStoreTest, AStoreThatIsLeftAloneGetsNothingReady) {
  int expected = 0;
  first_->onAdd = hang;
  first_->onExpectKey = [&] { ++expected; };
  second_->onAdd = takes();
  const auto store = chain();
  store->expectKey();
  EXPECT_EQ(store->add(key_, soon(std::chrono::milliseconds(20))), kSuccess);
  store->expectKey();
  EXPECT_EQ(expected, 1);
}

TEST_F(FallbackKeyStoreTest, LogsWhenTheFirstIsBack) {
  second_->onAdd = takes();
  const auto store = chain();
  EXPECT_EQ(store->add(key_, soon()), kSuccess);
  first_->onAdd = takes();
  EXPECT_EQ(store->add(key_, soon()), kSuccess);
  EXPECT_THAT(log_.lines(), ElementsAre(HasSubstr("second"), HasSubstr("first")));
}

TEST_F(FallbackKeyStoreTest, FallsThroughWhenAStoreCannotTakeTheKey) {
  second_->onAdd = takes();
  for (const std::int64_t status :
       {errSecNotAvailable, errSecDataTooLarge, errSecInteractionNotAllowed}) {
    first_->onAdd = refuses(static_cast<Status>(status));
    EXPECT_EQ(chain()->add(key_, soon()), kSuccess) << status;
  }
  EXPECT_EQ(second_->calls, 3);
}

TEST_F(FallbackKeyStoreTest, AWrongArgumentIsWrongEverywhere) {
  first_->onAdd = refuses(errSecParam);
  EXPECT_EQ(chain()->add(key_, soon()), errSecParam);
  EXPECT_EQ(second_->calls, 0);
}

TEST_F(FallbackKeyStoreTest, TellsTheLastStoresReasonWhenNoneTakesTheKey) {
  second_->onAdd = refuses(errSecDataTooLarge);
  EXPECT_EQ(chain()->add(key_, soon()), errSecDataTooLarge);
}

TEST_F(FallbackKeyStoreTest, AHungStoreLeavesTimeForTheNextAndIsPassedOverThen) {
  first_->onAdd = hang;
  second_->onAdd = takes();
  const auto store = chain();
  const Deadline deadline = soon(std::chrono::milliseconds(200));
  EXPECT_EQ(store->add(key_, deadline), kSuccess);
  EXPECT_LT(std::chrono::steady_clock::now(), deadline + std::chrono::seconds(10));
  EXPECT_EQ(store->add(key_, soon()), kSuccess);
  EXPECT_EQ(first_->calls, 1);
  EXPECT_THAT(log_.lines(), ElementsAre("key store: first does not answer",
                                        "key store: keys are kept in the second"));
}

TEST_F(FallbackKeyStoreTest, AStoreLeavesAQuarterOfTheTimeToThoseAfterIt) {
  std::vector<Deadline> given;
  const auto note = [&](const StoredKey&, Deadline deadline) {
    given.push_back(deadline);
    return errSecNotAvailable;
  };
  first_->onAdd = note;
  second_->onAdd = note;
  // So long that the time which the test takes is of no account.
  constexpr auto kHour = std::chrono::hours(1);
  const Deadline deadline = soon(4 * kHour);
  EXPECT_EQ(chain()->add(key_, deadline), errSecNotAvailable);
  ASSERT_EQ(given.size(), 2U);
  EXPECT_LE(deadline - given[0], kHour);
  EXPECT_GT(deadline - given[0], kHour - std::chrono::minutes(5));
  EXPECT_EQ(given[1], deadline);
}

TEST_F(FallbackKeyStoreTest, AHungStoreIsAskedAgainAfterThePause) {
  first_->onAdd = hang;
  second_->onAdd = takes();
  const auto store = chain(std::chrono::milliseconds(0));
  EXPECT_EQ(store->add(key_, soon(std::chrono::milliseconds(40))), kSuccess);
  first_->onAdd = takes();
  EXPECT_EQ(store->add(key_, soon()), kSuccess);
  EXPECT_EQ(first_->calls, 2);
}

TEST_F(FallbackKeyStoreTest, AStoreThatFailsAtOnceIsAskedEveryTime) {
  second_->onAdd = takes();
  const auto store = chain();
  EXPECT_EQ(store->add(key_, soon()), kSuccess);
  EXPECT_EQ(store->add(key_, soon()), kSuccess);
  EXPECT_EQ(first_->calls, 2);
}

TEST_F(FallbackKeyStoreTest, FindsTheKeysOfAllStores) {
  first_->onFind = [](std::vector<StoredKey>& keys) {
    keys = {storedKey("a")};
    return kSuccess;
  };
  second_->onFind = [](std::vector<StoredKey>& keys) {
    keys = {storedKey("b")};
    return kSuccess;
  };
  std::vector<StoredKey> keys;
  EXPECT_EQ(chain()->find(std::nullopt, keys, soon()), kSuccess);
  ASSERT_EQ(keys.size(), 2U);
  EXPECT_EQ(keys[0].tag, "a");
  EXPECT_EQ(keys[1].tag, "b");
}

TEST_F(FallbackKeyStoreTest, FindingFailsOnlyWhenNoStoreAnswers) {
  std::vector<StoredKey> keys{storedKey("kept")};
  EXPECT_EQ(chain()->find(std::nullopt, keys, soon()), errSecNotAvailable);
  EXPECT_EQ(keys.size(), 1U);
  second_->onFind = [](std::vector<StoredKey>&) { return kSuccess; };
  EXPECT_EQ(chain()->find(std::nullopt, keys, soon()), kSuccess);
  EXPECT_TRUE(keys.empty());
}

struct RemovalCase {
  std::int64_t first;
  std::int64_t second;
  std::int64_t both;
};

class FallbackRemovalTest : public testing::TestWithParam<RemovalCase> {};

TEST_P(FallbackRemovalTest, RemovesFromAllStoresAndGivesTheBestAnswer) {
  const auto first = std::make_shared<ScriptedStore>("first");
  const auto second = std::make_shared<ScriptedStore>("second");
  first->onRemove = [](auto, auto) { return static_cast<Status>(GetParam().first); };
  second->onRemove = [](auto, auto) { return static_cast<Status>(GetParam().second); };
  EXPECT_EQ(makeFallbackKeyStore({first, second})->remove("tag", std::nullopt, soon()),
            GetParam().both);
  EXPECT_EQ(second->calls, 1);
}

INSTANTIATE_TEST_SUITE_P(
    Answers, FallbackRemovalTest,
    testing::Values(
        RemovalCase{0, 0, 0}, RemovalCase{0, errSecItemNotFound, 0},
        RemovalCase{errSecItemNotFound, 0, 0}, RemovalCase{errSecNotAvailable, 0, 0},
        RemovalCase{0, errSecNotAvailable, 0},
        RemovalCase{errSecNotAvailable, errSecItemNotFound, errSecItemNotFound},
        RemovalCase{errSecItemNotFound, errSecNotAvailable, errSecItemNotFound},
        RemovalCase{errSecNotAvailable, errSecNotAvailable, errSecNotAvailable},
        RemovalCase{errSecInteractionNotAllowed, errSecItemNotFound, errSecInteractionNotAllowed},
        RemovalCase{errSecInteractionNotAllowed, 0, errSecInteractionNotAllowed},
        RemovalCase{0, errSecInternalComponent, errSecInternalComponent},
        RemovalCase{errSecNotAvailable, errSecInternalComponent, errSecInternalComponent},
        RemovalCase{errSecInteractionNotAllowed, errSecInternalComponent,
                    errSecInteractionNotAllowed}));

TEST(FallbackRemovalInTimeTest, AStoreThatHangsMayHaveKeptTheKeys) {
  const auto first = std::make_shared<ScriptedStore>("first");
  Deadline given{};
  const auto second = std::make_shared<ScriptedStore>("second");
  first->onRemove = [&](auto, auto) -> Status {
    std::this_thread::sleep_until(given);
    return errSecNotAvailable;
  };
  second->onRemove = [](auto, auto) { return static_cast<Status>(errSecItemNotFound); };
  const kvltest::LogCapture log;
  const auto chain = makeFallbackKeyStore({first, second});
  given = soon(std::chrono::milliseconds(50));
  EXPECT_EQ(chain->remove("tag", std::nullopt, given), errSecNotAvailable);
  // Left alone now, it counts as empty.
  EXPECT_EQ(chain->remove("tag", std::nullopt, soon()), errSecItemNotFound);
}

}  // namespace
}  // namespace kvl::security
