// Large documents arrive whole, whatever lies in between.
#include "tests/integration/DocumentsFixture.h"
#include "tests/integration/EventStreamFixture.h"
#include "tests/support/Sanitized.h"

namespace {

using namespace kvltest;

constexpr std::int64_t kMegabytes = kSanitized ? 5 : 100;
constexpr std::int64_t kRecordsPerMegabyte = 8192;

class DocumentsVolumeTest : public EventStreamFixture, public testing::WithParamInterface<Route> {};

TEST_P(DocumentsVolumeTest, LargeDocumentArrivesWhole) {
  establishOver(GetParam());
  const auto reply = fetch(*session, "large?megabytes=" + std::to_string(kMegabytes));
  ASSERT_FALSE(reply.error) << kvl::describe(reply.error);
  constexpr std::int64_t records = kMegabytes * kRecordsPerMegabyte;
  EXPECT_EQ(reply["count"], kvl::Value(records));
  const auto list = reply["records"].array();
  ASSERT_TRUE(list);
  ASSERT_EQ(list->size(), static_cast<std::size_t>(records));
  std::int64_t number = 0;
  for (const kvl::Value& record : *list) {
    const auto dictionary = record.dictionary();
    ASSERT_TRUE(dictionary && (*dictionary)["number"] == kvl::Value(number)) << number;
    ++number;
  }
  const auto last = "record " + std::to_string(records - 1);
  EXPECT_EQ((*(*list)[records - 1].dictionary())["name"], kvl::Value(last));
}

INSTANTIATE_TEST_SUITE_P(Routes, DocumentsVolumeTest,
                         testing::Values(Route::direct, Route::nginxHTTP1, Route::nginxHTTP2),
                         [](const auto& test) { return nameOf(test.param); });

}  // namespace
