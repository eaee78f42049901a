// kvlocal in the user's language, on a system that need not have the locale.
#include "tests/tools/ProgramFixture.h"

#include <local/platform/PrintableText.h>
#include <local/platform/Text.h>

#include <gmock/gmock.h>

#include <sstream>

namespace kvltest {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class TranslationTest : public ProgramTest {
 protected:
  std::string errorsIn(const std::string& locale, const Arguments& arguments) {
    useLocale(locale, "UTC");
    return run(arguments).errors;
  }
};

TEST_F(TranslationTest, HelpIsInTheUsersLanguage) {
  useLocale("de_DE.UTF-8", "UTC");
  EXPECT_THAT(run({"--help"}).output,
              AllOf(HasSubstr("Aufruf: kvlocal [OPTIONEN] BEFEHL"), HasSubstr("\nOptionen:\n"),
                    HasSubstr("\nBefehle:\n"), HasSubstr("Diese Hilfe anzeigen und beenden"),
                    HasSubstr("Exit-Status:"), Not(HasSubstr("Options")), Not(HasSubstr(" the "))));
  EXPECT_THAT(run({"submit", "--help"}).output,
              AllOf(HasSubstr("FILE ERFORDERLICH"), HasSubstr("Argumente:"),
                    HasSubstr("Diese Hilfe anzeigen")));
  useLocale("ja_JP.UTF-8", "UTC");
  EXPECT_THAT(run({"--help"}).output,
              AllOf(HasSubstr("使い方: kvlocal"), HasSubstr("このヘルプを表示して終了します")));
}

TEST_F(TranslationTest, WideLettersFitTheWidthAndStayWhole) {
  useLocale("ja_JP.UTF-8", "UTC");
  environment.emplace_back("COLUMNS=60");
  const std::string help = run({"--help"}).output;
  EXPECT_TRUE(kvl::isUTF8(help));
  std::istringstream lines(help);
  for (std::string line; std::getline(lines, line);) {
    // Each letter of three bytes here takes two columns.
    std::size_t columns = 0;
    for (std::string_view rest = line; !rest.empty();) {
      const std::size_t length = kvl::characterLength(rest);
      ASSERT_GT(length, 0U) << line;
      columns += length == 1 ? 1 : 2;
      rest.remove_prefix(length);
    }
    EXPECT_LE(columns, 60U) << line;
    EXPECT_FALSE(line.find_first_not_of(' ') == line.find("。") && line.find("。") != line.npos)
        << line;
  }
}

TEST_F(TranslationTest, ComplaintsAreInTheUsersLanguage) {
  EXPECT_EQ(errorsIn("de_DE.UTF-8", {"dance"}),
            "kvlocal: \"dance\" ist kein Befehl\nkvlocal: --help zeigt, wie der Aufruf lautet\n");
  EXPECT_THAT(errorsIn("ja_JP.UTF-8", {"dance"}),
              HasSubstr("\"dance\" というコマンドはありません"));
  EXPECT_THAT(errorsIn("de_DE.UTF-8", {"submit", "/", "--data", "/nonexistent"}),
              HasSubstr("\"/nonexistent\" kann nicht gelesen werden: Datei oder Verzeichnis nicht "
                        "gefunden"));
  EXPECT_THAT(errorsIn("de_DE.UTF-8", {"status", "--timeout", "nan"}),
              HasSubstr("--timeout: \"nan\" ist keine Anzahl von Sekunden"));
}

TEST_F(TranslationTest, ParsersComplaintsAreToo) {
  EXPECT_THAT(errorsIn("de_DE.UTF-8", {"submit", "/"}), HasSubstr("--data ist erforderlich"));
  EXPECT_THAT(errorsIn("de_DE.UTF-8", {"status", "more"}),
              HasSubstr("Das folgende Argument wurde nicht erwartet: more"));
  EXPECT_THAT(errorsIn("de_DE.UTF-8", {}), HasSubstr("Ein Befehl ist erforderlich"));
  EXPECT_THAT(errorsIn("de_DE.UTF-8", {"status", "--notary"}),
              HasSubstr("--notary: 1 × PATH erforderlich, fehlt aber"));
  EXPECT_THAT(errorsIn("ja_JP.UTF-8", {"status", "--notary"}),
              HasSubstr("--notary: 必要な PATH が 1 個足りません"));
}

TEST_F(TranslationTest, WhatAServiceOrTheFrameworkSaysOfAFailureIsTranslatedInside) {
  EXPECT_THAT(errorsIn("de_DE.UTF-8", {"status"}),
              AllOf(HasSubstr("kvlocal: der Notardienst ist nicht erreichbar: Der Sitzungsbus kann "
                              "nicht verwendet werden."),
                    HasSubstr("[NSCocoaErrorDomain 4099]")));
}

TEST_F(TranslationTest, EnglishIsAsItStandsWhereverNothingElseIsWanted) {
  const std::string english = errorsIn("C", {"dance"});
  EXPECT_THAT(english, HasSubstr("\"dance\" is no command"));
  for (const char* locale : {"C.UTF-8", "en_US.UTF-8", "en_GB.UTF-8", "xx_YY.UTF-8", ""})
    EXPECT_EQ(errorsIn(locale, {"dance"}), english) << locale;
}

TEST_F(TranslationTest, LanguageGoesBeforeTheLocale) {
  useLocale("de_DE.UTF-8", "UTC");
  std::erase(environment, "LANGUAGE=");
  environment.emplace_back("LANGUAGE=ja:de");
  EXPECT_THAT(run({"dance"}).errors, HasSubstr("というコマンドはありません"));
}

TEST_F(TranslationTest, JSONIsForProgramsAndEnglish) {
  useLocale("de_DE.UTF-8", "UTC");
  const Outcome outcome = run({"status", "--json"});
  EXPECT_THAT(outcome.output, HasSubstr("The session bus cannot be used."));
  EXPECT_THAT(outcome.errors, HasSubstr("the notary service cannot be reached"));
}

}  // namespace
}  // namespace kvltest
