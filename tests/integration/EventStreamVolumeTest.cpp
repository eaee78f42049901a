// Every event of a stream arrives: whole, in order and once, however many there are.
#include "tests/integration/EventStreamFixture.h"

#include <cstdio>

namespace {

using namespace kvltest;

constexpr std::int64_t kMany = kSanitized ? 100'000 : 1'000'000;
constexpr std::int64_t kManyThroughProxy = kSanitized ? 20'000 : 100'000;

using EventStreamVolumeTest = EventStreamFixture;

TEST_F(EventStreamVolumeTest, AMillionEventsAtFullSpeed) {
  establishOver(Route::direct);
  recorder->setEventSize(100);
  follow("size=100&then=silence&last=" + std::to_string(kMany));
  EXPECT_TRUE(recorder->waitForNumber(kMany));
  EXPECT_TRUE(isUnbroken(recorder->tally(), kMany));
  EXPECT_EQ(session->state(), KVLSessionStateEstablished);
}

class EventStreamRouteTest : public EventStreamFixture, public testing::WithParamInterface<Route> {
 protected:
  void SetUp() override { establishOver(GetParam()); }
};

TEST_P(EventStreamRouteTest, EventsApartFromEachOtherAllArrive) {
  constexpr std::int64_t number = 400;
  follow("interval=5&then=silence&last=" + std::to_string(number));
  EXPECT_TRUE(recorder->waitForNumber(number));
  EXPECT_TRUE(isUnbroken(recorder->tally(), number));
}

// A proxy that is flooded cuts the stream wherever its buffers end. When the rest is long in coming
// an event is lost, and its data may turn up in the next one, since an event without a name goes on
// collecting. What arrives is in order, and nothing comes twice.
TEST_P(EventStreamRouteTest, AFloodArrivesInOrder) {
  followToTheEnd("size=100&last=" + std::to_string(kManyThroughProxy));
  const auto tally = recorder->tally();
  EXPECT_GT(tally.count, 0);
  EXPECT_LE(tally.count, kManyThroughProxy);
  EXPECT_EQ(tally.disorder, 0);
  if (GetParam() == Route::direct) EXPECT_TRUE(isUnbroken(tally, kManyThroughProxy));
  RecordProperty("arrived", std::to_string(tally.count));
  std::printf("%s: %ld of %ld events arrived\n", nameOf(GetParam()).c_str(), tally.count,
              kManyThroughProxy);
}

INSTANTIATE_TEST_SUITE_P(Routes, EventStreamRouteTest,
                         testing::Values(Route::direct, Route::nginxHTTP1, Route::nginxHTTP2),
                         [](const auto& test) { return nameOf(test.param); });

// How the service writes its events.
struct Shape {
  const char* name;
  const char* parameters;
  std::size_t size;  // of one event
};

class EventStreamShapeTest : public EventStreamFixture,
                             public testing::WithParamInterface<std::tuple<Route, Shape>> {};

TEST_P(EventStreamShapeTest, AllEventsArrive) {
  const auto& [route, shape] = GetParam();
  constexpr std::int64_t number = 200;
  establishOver(route);
  recorder->setEventSize(shape.size);
  followToTheEnd(std::string(shape.parameters) + "&size=" + std::to_string(shape.size) +
                 "&last=" + std::to_string(number));
  EXPECT_TRUE(isUnbroken(recorder->tally(), number));
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, EventStreamShapeTest,
    testing::Combine(testing::Values(Route::direct, Route::nginxHTTP1, Route::nginxHTTP2),
                     testing::Values(Shape{"Of20KB", "pieces=1", 20'000},
                                     Shape{"Of200KB", "pieces=1", 200'000},
                                     Shape{"InOneChunk", "batch=200", 100},
                                     Shape{"Of20KBInOneChunk", "batch=200", 20'000},
                                     Shape{"InThreePieces", "pieces=3&gap=0", 100},
                                     Shape{"Of20KBInThreePieces", "pieces=3&gap=0", 20'000})),
    [](const auto& test) {
      return std::string(std::get<Shape>(test.param).name) + nameOf(std::get<Route>(test.param));
    });

}  // namespace
