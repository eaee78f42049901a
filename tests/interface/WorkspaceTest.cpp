#include "tests/support/LogCapture.h"
#include "tests/support/PrivateBus.h"

#include <local/platform/Workspace.h>

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

class OpenURLTest : public testing::Test {
 protected:
  ~OpenURLTest() override { kvl::setURLOpener(nullptr); }
};

TEST_F(OpenURLTest, AsksThePresentOpener) {
  std::vector<std::string> opened;
  kvl::setURLOpener([&](std::string_view url) {
    opened.emplace_back(url);
    return true;
  });
  EXPECT_TRUE(kvl::openURL("https://example.org/a?b=c#d"));
  EXPECT_EQ(opened, std::vector<std::string>{"https://example.org/a?b=c#d"});
}

TEST_F(OpenURLTest, FailsWhenTheOpenerDoes) {
  kvl::setURLOpener([](std::string_view) { return false; });
  EXPECT_FALSE(kvl::openURL("https://example.org/"));
}

TEST_F(OpenURLTest, NeverHandsOnATextThatIsNoURL) {
  int calls = 0;
  kvl::setURLOpener([&](std::string_view) {
    ++calls;
    return true;
  });
  using namespace std::string_view_literals;
  for (const auto text : {"https://a b"sv, "https://a/\nb"sv, "https://a/\0b"sv, "https://%zz"sv})
    EXPECT_FALSE(kvl::openURL(text)) << text;
  EXPECT_EQ(calls, 0);
}

TEST_F(OpenURLTest, SettingAnOpenerReturnsTheOneBefore) {
  EXPECT_EQ(kvl::setURLOpener([](std::string_view) { return true; }), nullptr);
  const auto before = kvl::setURLOpener(nullptr);
  ASSERT_NE(before, nullptr);
  EXPECT_TRUE(before("https://example.org/"));
  EXPECT_EQ(kvl::setURLOpener(nullptr), nullptr);
}

TEST_F(OpenURLTest, AnOpenerMayReplaceItself) {
  kvl::setURLOpener([](std::string_view) {
    kvl::setURLOpener([](std::string_view) { return false; });
    return true;
  });
  EXPECT_TRUE(kvl::openURL("https://example.org/"));
  EXPECT_FALSE(kvl::openURL("https://example.org/"));
}

// A desktop of the test's own, with one program that opens https addresses. The environment must
// stand before GLib first looks at it, so all tests of this process share one.
class Desktop {
 public:
  static Desktop& shared() {
    static Desktop desktop;
    return desktop;
  }

  // What the program was last asked to open. Waits until it was asked.
  [[nodiscard]] std::string opened() const {
    std::ifstream pipe(pipe_);
    return {std::istreambuf_iterator<char>(pipe), {}};
  }

 private:
  Desktop() {
    for (const auto* variable :
         {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CONFIG_DIRS", "XDG_DATA_DIRS", "XDG_CACHE_HOME"})
      setenv(variable, folder_.path().c_str(), 1);
    unsetenv("XDG_CURRENT_DESKTOP");
    if (mkfifo(pipe_.c_str(), 0600) != 0) ADD_FAILURE() << "no pipe";
    std::filesystem::create_directory(folder_.path() / "applications");
    std::ofstream(folder_.path() / "browser") << "printf '%s' \"$1\" >'" << pipe_.string() << "'\n";
    std::ofstream(folder_.path() / "applications/browser.desktop")
        << "[Desktop Entry]\nType=Application\nName=Browser\nMimeType=x-scheme-handler/https;\n"
        << "Exec=/bin/sh " << (folder_.path() / "browser").string() << " %u\n";
    std::ofstream(folder_.path() / "mimeapps.list")
        << "[Default Applications]\nx-scheme-handler/https=browser.desktop\n";
  }

  const kvltest::TemporaryDirectory folder_;
  const kvltest::SessionBusVariable noBus_{""};
  const std::filesystem::path pipe_ = folder_.path() / "opened";
};

class DesktopTest : public OpenURLTest {
 protected:
  Desktop& desktop = Desktop::shared();
  const kvltest::LogCapture log;
};

TEST_F(DesktopTest, OpensTheAddressWithTheUsersDefaultProgram) {
  constexpr std::string_view kAddress = "https://example.org/a?b=$(c)&d='e'#f";
  ASSERT_TRUE(kvl::openURL(kAddress));
  EXPECT_EQ(desktop.opened(), kAddress);
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(DesktopTest, FailsAndSaysWhyWhenNoProgramOpensTheScheme) {
  EXPECT_FALSE(kvl::openURL("unheard-of:a"));
  ASSERT_EQ(log.lines().size(), 1U);
  EXPECT_TRUE(log.lines()[0].starts_with("error opening URL: unheard-of:a: ")) << log.lines()[0];
}

class PresentErrorTest : public testing::Test {
 protected:
  ~PresentErrorTest() override { kvl::setErrorPresenter(nullptr); }
  const kvl::Error error{"a.domain", 7};
};

TEST_F(PresentErrorTest, ShowsTheErrorThroughThePresentPresenter) {
  std::vector<kvl::Error> shown;
  kvl::setErrorPresenter([&](const kvl::Error& presented) { shown.push_back(presented); });
  kvl::presentError(error);
  EXPECT_EQ(shown, std::vector{error});
}

TEST_F(PresentErrorTest, ShowsNothingWithoutAPresenter) {
  const kvltest::LogCapture log;
  kvl::presentError(error);
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(PresentErrorTest, SettingAPresenterReturnsTheOneBefore) {
  int calls = 0;
  EXPECT_EQ(kvl::setErrorPresenter([&](const kvl::Error&) { ++calls; }), nullptr);
  const auto before = kvl::setErrorPresenter(nullptr);
  ASSERT_NE(before, nullptr);
  before(error);
  EXPECT_EQ(calls, 1);
}

}  // namespace
