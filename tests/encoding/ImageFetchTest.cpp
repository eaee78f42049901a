#include "encoding/Waiting.h"
#include "tests/encoding/FetchFixture.h"

namespace {

using namespace kvltest;
using KVLEncoding::RelativePath;
using KVLEncoding::WaitReason;
using ImageRef = std::shared_ptr<kvl::Image>;

constexpr std::string_view kPicture =
    R"(<svg xmlns="http://www.w3.org/2000/svg" width="200" height="100"><path d="M0 0h9v9z"/></svg>)";
constexpr kvl::Size kPictureSize{200, 100};

class ImageFetchTest : public FetchFixture {
 protected:
  void fetch(kvl::Size size = {}) {
    outcome = {};
    KVLEncoding::imageFromSession(*session, RelativePath("icons/a"), size, outcome.handler());
  }
  void arrive() {
    runMainLoopUntil([this] { return outcome.calls > 0; });
    runPendingMainBlocks();
  }
  // What arrives for the picture with this type, under this name of the field.
  ImageRef fetchWithType(std::string_view type, std::string_view field = "Content-Type") {
    kvl::HeaderFields headers;
    headers.set(field, type);
    fetch();
    task().complete(kvl::Data::fromText(kPicture), responseWith(200, headers), std::nullopt);
    arrive();
    return outcome.result;
  }
  // The size at which the picture is shown.
  kvl::Size sizeWhenFetchedFor(kvl::Size size) {
    fetch(size);
    answer(kPicture);
    arrive();
    return outcome.result->size();
  }

  Outcome<ImageRef> outcome;
};

TEST_F(ImageFetchTest, AsksForImages) {
  fetch();
  EXPECT_EQ(sent().method(), "GET");
  EXPECT_EQ(sent().urlText(), "https://127.0.0.1:4321/base/icons/a");
  EXPECT_EQ(sentHeader("Accept"), "application/pdf;q=0.9,image/*;q=0.8");
  EXPECT_EQ(sent().contentKind(), kvl::ContentKind::image);
}

TEST_F(ImageFetchTest, ImageArrivesOnTheMainQueue) {
  fetch();
  onAnotherThread([&] { answer(kPicture); });
  EXPECT_EQ(outcome.calls, 0);
  arrive();
  EXPECT_EQ(outcome.calls, 1);
  EXPECT_EQ(outcome.thread, std::this_thread::get_id());
  ASSERT_NE(outcome.result, nullptr);
  EXPECT_EQ(outcome.result->size(), kPictureSize);
  EXPECT_FALSE(outcome.result->isTemplate());
  EXPECT_NE(outcome.response, nullptr);
  EXPECT_EQ(outcome.error, std::nullopt);
}

TEST_F(ImageFetchTest, TransportErrorArrivesOnTheMainQueueToo) {
  fetch();
  const auto response = responseWith(200);
  onAnotherThread([&] { task().complete(std::nullopt, response, kLostConnection); });
  EXPECT_EQ(outcome.calls, 0);
  arrive();
  EXPECT_EQ(outcome.calls, 1);
  EXPECT_EQ(outcome.thread, std::this_thread::get_id());
  EXPECT_EQ(outcome.result, nullptr);
  EXPECT_EQ(outcome.response, response);
  EXPECT_EQ(outcome.error, kLostConnection);
}

TEST_F(ImageFetchTest, ImageIsMadeWhateverTheError) {
  fetch();
  task().complete(kvl::Data::fromText(kPicture), responseWith(200), kLostConnection);
  arrive();
  EXPECT_NE(outcome.result, nullptr);
  EXPECT_EQ(outcome.error, kLostConnection);
}

TEST_F(ImageFetchTest, NotBeingEstablishedArrivesOnTheMainQueue) {
  disconnect();
  onAnotherThread([&] { fetch(); });
  EXPECT_EQ(outcome.calls, 0);
  arrive();
  EXPECT_EQ(outcome.calls, 1);
  EXPECT_EQ(outcome.error->localizedDescription(), "Notarised session is not established.");
}

TEST_F(ImageFetchTest, BodyThatIsNoImageBringsNeitherImageNorError) {
  fetch();
  answer("no picture");
  arrive();
  EXPECT_EQ(outcome.calls, 1);
  EXPECT_EQ(outcome.result, nullptr);
  EXPECT_NE(outcome.response, nullptr);
  EXPECT_EQ(outcome.error, std::nullopt);
}

TEST_F(ImageFetchTest, NoBodyBringsNeitherImageNorError) {
  fetch();
  task().complete(std::nullopt, nullptr, std::nullopt);
  arrive();
  EXPECT_EQ(outcome.calls, 1);
  EXPECT_EQ(outcome.result, nullptr);
  EXPECT_EQ(outcome.error, std::nullopt);
}

TEST_F(ImageFetchTest, ImageWithoutAResponseIsNoTemplate) {
  fetch();
  task().complete(kvl::Data::fromText(kPicture), nullptr, std::nullopt);
  arrive();
  ASSERT_NE(outcome.result, nullptr);
  EXPECT_FALSE(outcome.result->isTemplate());
}

TEST_F(ImageFetchTest, ScalesToASizeWhoseMeasuresAreBothAboveZero) {
  EXPECT_EQ(sizeWhenFetchedFor({32, 64}), (kvl::Size{32, 16}));
  EXPECT_EQ(sizeWhenFetchedFor({0.5, 0.5}), (kvl::Size{0.5, 0.25}));
}

TEST_F(ImageFetchTest, LeavesTheImageUnscaledForAnyOtherSize) {
  const kvl::Size sizes[] = {{0, 32}, {32, 0}, {0, 0}, {-1, 32}, {32, -1}, {-1, -1}};
  for (const auto size : sizes) {
    EXPECT_EQ(sizeWhenFetchedFor(size), kPictureSize) << size.width << " x " << size.height;
  }
}

TEST_F(ImageFetchTest, RoleOfTheContentTypeMakesATemplate) {
  EXPECT_TRUE(fetchWithType("image/png; role=template")->isTemplate());
  EXPECT_TRUE(fetchWithType("image/png; role=nontemplate")->isTemplate());
  EXPECT_FALSE(fetchWithType("image/png; charset=x; role=template")->isTemplate());
  EXPECT_FALSE(fetchWithType("image/png")->isTemplate());
}

TEST_F(ImageFetchTest, NameOfTheFieldCountsExactlyBefore10Point15) {
  kvl::setSystemVersion({10, 14});
  EXPECT_FALSE(fetchWithType("image/png; role=template", "content-type")->isTemplate());
  EXPECT_TRUE(fetchWithType("image/png; role=template", "Content-Type")->isTemplate());
  kvl::setSystemVersion({10, 15});
  EXPECT_TRUE(fetchWithType("image/png; role=template", "content-type")->isTemplate());
}

TEST_F(ImageFetchTest, WithoutAHandlerErrorsAreLogged) {
  KVLEncoding::imageFromSession(*session, RelativePath("a"), {}, nullptr);
  task().fail(kLostConnection);
  runPendingMainBlocks();
  EXPECT_EQ(lastLine(), "request error: " + kLostConnection.description());
}

TEST_F(ImageFetchTest, SessionMayBeLetGoOfWhileAFetchRuns) {
  fetch();
  const auto running = loader->tasks().back();
  const auto watch = release();
  running->complete(kvl::Data::fromText(kPicture), responseWith(200), std::nullopt);
  EXPECT_TRUE(watch.expired());
  arrive();
  EXPECT_NE(outcome.result, nullptr);
}

// Takes a third of a second to be read.
std::string slowPicture() {
  std::string picture = R"(<svg xmlns="http://www.w3.org/2000/svg" width="9" height="9"><style>)";
  constexpr int kMany = 4000;
  for (int i = 0; i < kMany; ++i) picture += ".a{fill:red}";
  picture += "</style>";
  for (int i = 0; i < kMany; ++i) picture += "<g/>";
  return picture + "</svg>";
}

TEST_F(ImageFetchTest, ASlowImageHoldsUpNothingElseOfItsSession) {
  fetch();
  answer(slowPicture());
  ValueOutcome document;
  KVLEncoding::jsonFromSession(*session, RelativePath("a"), document.handler());
  answer("[1]");
  runMainLoopUntil([&] { return document.calls == 1; });
  EXPECT_EQ(outcome.calls, 0);
  arrive();
  EXPECT_NE(outcome.result, nullptr);
}

class BlockingImageFetchTest : public FetchFixture {
 protected:
  ImageRef fetch() {
    return KVLEncoding::imageFromSession(*session, RelativePath("icons/a"), {32, 32},
                                         WaitReason("r"), &error);
  }
  // The image fetched on another thread while the main loop runs, with as much time as it takes.
  ImageRef fetchElsewhere(const std::function<void()>& reply) {
    ImageRef image;
    bool done = false;
    std::jthread fetching([&] {
      image = kvl::encoding::waitForFetch<ImageRef>(
          [&](KVLEncoding::ImageHandler handler) {
            KVLEncoding::imageFromSession(*session, RelativePath("a"), {32, 32},
                                          std::move(handler));
          },
          WaitReason("r"), std::chrono::minutes(2), &error);
      kvl::DispatchQueue::main()->async([&] { done = true; });
    });
    const std::jthread answering([&] {
      EXPECT_TRUE(waitUntil([this] { return !loader->tasks().empty(); }));
      reply();
    });
    runMainLoopUntil([&] { return done; });
    fetching.join();
    return image;
  }
  void onceAsked(std::function<void()> reply) const {
    kvl::DispatchQueue::main()->async(std::move(reply));
  }

  std::optional<kvl::Error> error;
};

TEST_F(BlockingImageFetchTest, ReturnsTheImageAndNamesThePath) {
  onceAsked([&] { answer(kPicture); });
  const auto image = fetch();
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(image->size(), (kvl::Size{32, 16}));
  EXPECT_EQ(error, std::nullopt);
  EXPECT_EQ(log.count("WARNING: waiting for semaphore on main thread: image from session/icons/a"),
            1U);
}

TEST_F(BlockingImageFetchTest, ReturnsTheImageOnAnotherThread) {
  const auto image = fetchElsewhere([&] { answer(kPicture); });
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(image->size(), (kvl::Size{32, 16}));
  EXPECT_EQ(error, std::nullopt);
  EXPECT_EQ(log.count("WARNING"), 0U);
}

TEST_F(BlockingImageFetchTest, FailureOnAnotherThreadReturnsNoneAndLeavesTheErrorSlot) {
  error = kvl::Error("before", 1);
  EXPECT_EQ(fetchElsewhere([&] { task().fail(kLostConnection); }), nullptr);
  EXPECT_EQ(error, kvl::Error("before", 1));
}

TEST_F(BlockingImageFetchTest, FailureReturnsNoneAndLeavesTheErrorSlot) {
  error = kvl::Error("before", 1);
  onceAsked([&] { task().fail(kLostConnection); });
  EXPECT_EQ(fetch(), nullptr);
  loader->dropTasks();
  onceAsked([&] { answer("no picture"); });
  EXPECT_EQ(fetch(), nullptr);
  EXPECT_EQ(error, kvl::Error("before", 1));
}

TEST_F(BlockingImageFetchTest, ReportsThatTheTimeRanOutAndSurvivesTheLateImage) {
  onAnotherThread([&] {
    const auto image = kvl::encoding::waitForFetch<ImageRef>(
        [&](KVLEncoding::ImageHandler handler) {
          KVLEncoding::imageFromSession(*session, RelativePath("a"), {}, std::move(handler));
        },
        WaitReason("r"), std::chrono::milliseconds(1), &error);
    EXPECT_EQ(image, nullptr);
  });
  EXPECT_EQ(error, kvl::Error(kvl::NSPOSIXErrorDomain, 60));
  answer(kPicture);
  runPendingMainBlocks();
}

}  // namespace
