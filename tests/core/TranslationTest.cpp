// The framework's own catalogues, as they lie beside the programs of the build.
#include "platform/core/Sentence.h"
#include "tests/support/LogCapture.h"
#include "tests/support/UserEnvironment.h"

#include <local/platform/Text.h>
#include <local/platform/Translation.h>

#include <gtest/gtest.h>
#include <locale.h>

#include <cerrno>
#include <string>

namespace {

using kvl::Error;
using kvl::translated;
using kvltest::UserEnvironment;

constexpr const char* kText = "The request timed out.";
constexpr const char* kGerman = "Zeitüberschreitung bei der Anfrage.";
constexpr const char* kJapanese = "要求がタイムアウトしました。";

Error timedOut() {
  return {
      kvl::NSURLErrorDomain, kvl::NSURLErrorTimedOut, {{kvl::NSLocalizedDescriptionKey, kText}}};
}

Error silentService() {
  return kvl::core::errorWithSentence(
      kvl::NSPOSIXErrorDomain, kvl::kTimedOutPOSIXCode,
      {kvl::translatable("The service “%@” does not answer."), {"a.b"}},
      {{kvl::NSLocalizedFailureReasonErrorKey, "The service did not answer in time."}});
}

TEST(TranslationTest, FollowsTheVariablesOfMessages) {
  const UserEnvironment user;
  EXPECT_EQ(translated(kText), kText);
  UserEnvironment::set("LANG", "ja_JP.UTF-8");
  UserEnvironment::set("LC_TIME", "fr_FR.UTF-8");
  EXPECT_EQ(translated(kText), kJapanese);
  UserEnvironment::set("LC_MESSAGES", "de_DE.UTF-8");
  EXPECT_EQ(translated(kText), kGerman);
  UserEnvironment::set("LANGUAGE", "ja:de");
  EXPECT_EQ(translated(kText), kJapanese);
  UserEnvironment::set("LC_ALL", "C.UTF-8");
  EXPECT_EQ(translated(kText), kText) << "LANGUAGE does not count in the C locale";
}

TEST(TranslationTest, IsEnglishForEnglishAndWhatNobodyKnows) {
  const UserEnvironment user;
  for (const char* locale :
       {"C", "POSIX", "C.UTF-8", "en_US.UTF-8", "en_GB", "xx_YY.UTF-8", "", "/"}) {
    UserEnvironment::set("LC_ALL", locale);
    EXPECT_EQ(translated(kText), kText) << locale;
    EXPECT_EQ(timedOut().localizedDescription(), kText) << locale;
    EXPECT_EQ(kvl::translatedForCount("1 byte", "%1 bytes", 1), "1 byte") << locale;
    EXPECT_EQ(kvl::translatedForCount("1 byte", "%1 bytes", 2), "%1 bytes") << locale;
  }
}

TEST(TranslationTest, ATextOfSomebodyElseStaysAsItIs) {
  const UserEnvironment user("de_DE.UTF-8", "UTC");
  EXPECT_EQ(translated("What a service says."), "What a service says.");
  EXPECT_EQ(translated(""), "");
}

TEST(TranslationTest, AnErrorInADomainOfSomebodyElseKeepsItsWords) {
  const UserEnvironment user("de_DE.UTF-8", "UTC");
  EXPECT_EQ(timedOut().localizedDescription(), kGerman);
  const Error theirs(
      "org.example.host", 1,
      {{kvl::NSLocalizedDescriptionKey, kText}, {kvl::NSLocalizedFailureReasonErrorKey, kText}});
  EXPECT_EQ(theirs.localizedDescription(), kText);
  EXPECT_EQ(theirs.localizedFailureReason(), kText);
}

TEST(TranslationTest, HasTheFormsOfTheLanguage) {
  const UserEnvironment user("de_DE.UTF-8", "UTC");
  EXPECT_EQ(kvl::translatedForCount("1 byte", "%1 bytes", 1), "1 Byte");
  EXPECT_EQ(kvl::translatedForCount("1 byte", "%1 bytes", 2), "%1 Bytes");
  UserEnvironment::set("LC_ALL", "ja_JP.UTF-8");
  EXPECT_EQ(kvl::translatedForCount("1 byte", "%1 bytes", 1), "%1 バイト");
}

TEST(TranslationTest, TheHostMayChooseTheLanguages) {
  const UserEnvironment user("de_DE.UTF-8", "UTC");
  kvl::setMessageLocales("xx:ja_JP");
  EXPECT_EQ(translated(kText), kJapanese);
  kvl::setMessageLocales("en");
  EXPECT_EQ(translated(kText), kText);
  kvl::setMessageLocales("");
  EXPECT_EQ(translated(kText), kGerman);
}

TEST(TranslationTest, LeavesTheLocalesOfProcessAndThreadAlone) {
  const UserEnvironment user("de_DE.UTF-8", "UTC");
  const std::string process = setlocale(LC_ALL, nullptr);
  const locale_t own = newlocale(LC_ALL_MASK, "C", nullptr);
  const locale_t before = uselocale(own);
  EXPECT_EQ(translated(kText), kGerman);
  EXPECT_EQ(uselocale(nullptr), own);
  uselocale(before);
  freelocale(own);
  EXPECT_EQ(setlocale(LC_ALL, nullptr), process);
}

TEST(TranslationTest, ErrorsSpeakTheUsersLanguageAndAreLoggedInEnglish) {
  const UserEnvironment user;
  const std::string english = timedOut().description();
  UserEnvironment::set("LC_ALL", "de_DE.UTF-8");
  EXPECT_EQ(timedOut().localizedDescription(), kGerman);
  EXPECT_EQ(timedOut().description(), english);
  EXPECT_EQ(timedOut().userInfo()[kvl::NSLocalizedDescriptionKey].string(), kText);
  const kvltest::LogCapture log;
  kvl::log(kvl::LogCategory::general, kvl::LogLevel::error, "xpc error: %@", silentService());
  ASSERT_EQ(log.lines().size(), 1U);
  EXPECT_NE(log.lines().front().find("The service “a.b” does not answer."), std::string::npos);
  EXPECT_NE(log.lines().front().find("The service did not answer in time."), std::string::npos);
}

TEST(TranslationTest, SentencesKeepWhatIsPutIntoThem) {
  const UserEnvironment user("de_DE.UTF-8", "UTC");
  EXPECT_EQ(silentService().localizedDescription(), "Der Dienst „a.b“ antwortet nicht.");
  EXPECT_EQ(silentService().localizedFailureReason(),
            "Der Dienst hat nicht rechtzeitig geantwortet.");
  UserEnvironment::set("LC_ALL", "ja_JP.UTF-8");
  EXPECT_EQ(silentService().localizedDescription(), "サービス「a.b」から応答がありません。");
}

TEST(TranslationTest, SystemsErrorsAreToldWithoutALocaleOfTheSystem) {
  const UserEnvironment user("de_DE.UTF-8", "UTC");
  const Error denied(kvl::NSPOSIXErrorDomain, EACCES);
  EXPECT_EQ(denied.localizedFailureReason(), "Keine Berechtigung");
  EXPECT_EQ(denied.localizedDescription(),
            "Der Vorgang konnte nicht abgeschlossen werden. Keine Berechtigung");
  EXPECT_EQ(denied.description(),
            "Error Domain=NSPOSIXErrorDomain Code=13 \"The operation couldn't be completed. "
            "Permission denied\"");
  EXPECT_EQ(kvl::errorText(Error("d", 5)), "Der Vorgang konnte nicht abgeschlossen werden. [d 5]");
  EXPECT_EQ(Error("d", 5).localizedDescription(),
            "Der Vorgang konnte nicht abgeschlossen werden. (d, Fehler 5.)");
}

TEST(TranslationTest, PatternsMayTakeTheirArgumentsInAnotherOrder) {
  EXPECT_EQ(kvl::fillPattern("%2$@ von %1$@", {"a", "b"}), "b von a");
  EXPECT_EQ(kvl::fillPattern("%1$@%1$@", {"%2$@"}), "%2$@%2$@") << "what is put in is no pattern";
  EXPECT_EQ(kvl::fillPattern("%3$@", {"a"}), "(null)");
  EXPECT_EQ(kvl::fillPattern("%0$@ %10$@ %1$ %$@", {"a"}), "%0$@ %10$@ %1$ %$@");
  EXPECT_EQ(kvl::fillPattern("\u2068%1$@\u2069", {"a"}), "\u2068a\u2069");
}

}  // namespace
