// What holds for each kind of fetch and submission of a session object.
#include "tests/qt/host/HostFixture.h"

#include <local/platform/Error.h>
#include <local/qt/SessionObject.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

using kvl::qt::Fetched;
using kvl::qt::SessionObject;
using kvltest::eventually;

using Told = std::function<void(const std::optional<kvl::Error>& error)>;

struct Kind {
  const char* name;
  const char* path;  // what it can make something of
  // Downloads go to `file`.
  kvl::Exchange (*begin)(SessionObject& session, const QString& path, const QString& file,
                         const Told& told);
};

const Kind kKinds[] = {
    {"json", "/status",
     [](SessionObject& session, const QString& path, const QString&, const Told& told) {
       return session.json(path, nullptr, [told](const Fetched& all) { told(all.error); });
     }},
    {"image", "/image?format=png",
     [](SessionObject& session, const QString& path, const QString&, const Told& told) {
       return session.image(path, {8, 8}, nullptr, [told](const QImage& image, const Fetched& all) {
         EXPECT_EQ(image.isNull(), all.error.has_value());
         told(all.error);
       });
     }},
    {"submit", "/echo",
     [](SessionObject& session, const QString& path, const QString&, const Told& told) {
       return session.submit(kvl::Array{1}, path, nullptr,
                             [told](const Fetched& all) { told(all.error); });
     }},
    {"submitForm", "/echo",
     [](SessionObject& session, const QString& path, const QString&, const Told& told) {
       const kvl::Dictionary form{{"method", "post"}};
       return session.submitForm(form, std::nullopt, path, nullptr,
                                 [told](const Fetched& all) { told(all.error); });
     }},
    {"download", "/status",
     [](SessionObject& session, const QString& path, const QString& file, const Told& told) {
       return session.download(path, file, nullptr, [told](const auto& all) {
         EXPECT_EQ(all.file.has_value(), !all.error);
         told(all.error);
       });
     }},
};

constexpr int kCount = std::size(kKinds);

// All kinds at once.
class EveryFetchTest : public kvltest::HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    startHost({}, {});
    ASSERT_TRUE(eventually([&] { return session().isEstablished(); }));
  }

  kvl::Exchange begin(const Kind& kind, SessionObject& object, const char* path, const Told& told) {
    const auto file = directory.path() / std::to_string(++files_);
    return kind.begin(object, path, QString::fromStdString(file.string()), told);
  }
  // Those that do not end by themselves, once they are under way.
  std::vector<kvl::Exchange> beginLong() {
    std::vector<kvl::Exchange> all;
    for (const Kind& kind : kKinds)
      all.push_back(begin(kind, session(), "/slow?ms=100000", [this, &kind](const auto& error) {
        ++calls;
        ASSERT_TRUE(error) << kind.name;
        EXPECT_TRUE(error->is(kvl::NSURLErrorDomain, kvl::NSURLErrorCancelled)) << kind.name;
      }));
    EXPECT_TRUE(eventually([&] {
      return std::ranges::all_of(all, [](const auto& one) { return one.task() != nullptr; });
    }));
    return all;
  }
  // Also when whatever is on its way now has come.
  void expectOneCallEach() {
    EXPECT_TRUE(eventually([&] { return calls >= kCount; }));
    SessionObject other(session().session());
    bool isOver = false;
    other.json("/status", nullptr, [&](const Fetched&) { isOver = true; });
    ASSERT_TRUE(eventually([&] { return isOver; }));
    EXPECT_EQ(calls, kCount);
  }

  int calls = 0;

 private:
  int files_ = 0;
};

TEST_F(EveryFetchTest, CancelledItIsToldSoOnce) {
  for (const auto& exchange : beginLong()) {
    exchange.cancel();
    exchange.cancel();
  }
  EXPECT_EQ(calls, 0);
  expectOneCallEach();
}

TEST_F(EveryFetchTest, TheEndOfTheSessionCancelsIt) {
  (void)beginLong();
  session().end();
  EXPECT_EQ(calls, 0);
  expectOneCallEach();
}

TEST_F(EveryFetchTest, ItsHandlerMayCancelIt) {
  std::vector<kvl::Exchange> all(kCount);
  for (int i = 0; i < kCount; ++i) {
    all[i] = begin(kKinds[i], session(), kKinds[i].path, [&, i](const auto& error) {
      ++calls;
      EXPECT_FALSE(error) << kKinds[i].name;
      all[i].cancel();
      EXPECT_TRUE(all[i].isOver());
    });
  }
  expectOneCallEach();
}

TEST_F(EveryFetchTest, ItsHandlerMayEndTheSession) {
  for (const Kind& kind : kKinds) {
    (void)begin(kind, session(), kind.path, [&](const auto&) {
      ++calls;
      session().end();
      session().json("/status", nullptr, nullptr);
    });
  }
  expectOneCallEach();
  EXPECT_TRUE(eventually([&] { return session().state() == SessionObject::Ended; }));
}

TEST_F(EveryFetchTest, AfterAHandlerThatDestroysTheObjectNoneIsCalled) {
  for (const Kind& kind : kKinds) {
    auto object = std::make_unique<SessionObject>(session().session());
    const auto handler = [&](const auto&) {
      ++calls;
      object.reset();
    };
    for (int i = 0; i < 3; ++i) (void)begin(kind, *object, kind.path, handler);
    EXPECT_TRUE(eventually([&] { return object == nullptr; })) << kind.name;
    // What the other two have been asked for comes first.
    bool isOver = false;
    session().json("/slow?ms=50", nullptr, [&](const Fetched&) { isOver = true; });
    ASSERT_TRUE(eventually([&] { return isOver; }));
  }
  EXPECT_EQ(calls, kCount);
}

}  // namespace
