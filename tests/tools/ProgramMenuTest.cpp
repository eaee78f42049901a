// kvlocal menu with the development service.
#include "tests/tools/ServiceFixture.h"

#include <gmock/gmock.h>

namespace kvltest {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class MenuTest : public ServiceTest {
 protected:
  MenuTest() { useLocale("de_DE.UTF-8", "UTC"); }

  Outcome activate(const std::string& identifier, const Arguments& more = {}) {
    Arguments arguments{"menu", "/menu", "--activate", identifier};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return run(arguments);
  }

  // Nothing is submitted, and the user is told why.
  void expectRefusal(const std::string& identifier, const std::string& why) {
    const Outcome outcome = activate(identifier);
    EXPECT_EQ(outcome.exitCode, 7);
    EXPECT_THAT(outcome.output, IsEmpty());
    EXPECT_EQ(outcome.errors, "kvlocal: der Eintrag \"" + identifier + "\" " + why + "\n");
    EXPECT_THAT(serviceLog(), Not(HasSubstr("/echo")));
  }

  // The drawing of the document that a percent-encoded text is.
  std::string drawingOf(const std::string& document) {
    const Outcome outcome = run({"menu", "/code?status=200&body=" + document});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
    return outcome.output;
  }
};

constexpr auto kDrawing =
    "Updates\n"
    "    Install now  [3 Aktualisierungen] [Taste i]\n"
    "      found on 01.05.2024, takes 2 Minuten\n"
    "  x Check every day\n"
    "      at 07:30\n"
    "  - Previews  [1 Aktualisierung]\n"
    "    ----\n"
    "Documents\n"
    "    Print  [Taste p] [deaktiviert]\n"
    "    Open recent >\n"
    "        first.txt\n"
    "        ----\n"
    "        Clear\n"
    "    Help\n";

TEST_F(MenuTest, IsDrawnAsLines) {
  const Outcome outcome = run({"menu", "/menu"});
  EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
  EXPECT_EQ(outcome.output, kDrawing);
  EXPECT_THAT(outcome.errors, IsEmpty());
  EXPECT_THAT(serviceLog(), Not(HasSubstr("/image")));
}

TEST_F(MenuTest, ShowsTheIdentifiersOfForms) {
  EXPECT_THAT(
      run({"menu", "--ids", "/menu"}).output,
      AllOf(HasSubstr("\n    Install now  [3 Aktualisierungen] [Taste i] [Kennung install]\n"),
            HasSubstr("\n        first.txt  [Kennung open-first]\n"),
            HasSubstr("\n    Print  [Taste p] [deaktiviert]\n")));
}

TEST_F(MenuTest, AsJSONHoldsTheBuiltItems) {
  EXPECT_THAT(run({"menu", "/menu", "--json"}).output,
              AllOf(StartsWith(R"({"url":"https://)"), HasSubstr(R"("status":200)"),
                    HasSubstr(R"("menu":[{"kind":"section","title":"Updates","enabled":false},)"),
                    HasSubstr(R"({"kind":"item","title":"Previews","updates":1,"state":"mixed",)"
                              R"("enabled":true,"id":"previews","form":{"id":"previews",)"
                              R"("action":"/echo?previews=all"}},{"kind":"separator"},)"),
                    HasSubstr(R"("title":"Open recent","state":"off","enabled":true,"menu":[{)")));
}

TEST_F(MenuTest, ADocumentMayBeTheArrayItself) {
  EXPECT_EQ(drawingOf("%5B%7B%22type%22:%22title%22,%22text%22:%22a%22%7D%5D"), "a\n");
  EXPECT_EQ(drawingOf("%5B%5D"), "");
}

TEST_F(MenuTest, NothingFromTheServiceSteersTheTerminal) {
  EXPECT_EQ(drawingOf("%5B%7B%22type%22:%22title%22,%22text%22:%22%5Cu001B%5B2J%22%7D%5D"),
            "\\0033[2J\n");
}

TEST_F(MenuTest, ActivatingSubmitsTheFormAndWritesTheAnswer) {
  const Outcome outcome = activate("install");
  EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
  EXPECT_THAT(outcome.output,
              AllOf(StartsWith(R"({"method":"POST","path":"/echo")"),
                    HasSubstr(R"("parts":[{"name":"what",)"), HasSubstr(R"("value":"install"})")));
  EXPECT_THAT(outcome.errors, IsEmpty());
}

TEST_F(MenuTest, ActivatesItemsOfSubMenus) {
  EXPECT_THAT(activate("open-first").output, HasSubstr(R"("value":"first.txt"})"));
  EXPECT_THAT(activate("clear").output, StartsWith(R"({"method":"DELETE")"));
}

TEST_F(MenuTest, AnswerToAnActivationIsJSONWhenAskedFor) {
  EXPECT_THAT(activate("previews", {"--json"}).output,
              AllOf(HasSubstr(R"(/echo?previews=all","status":200)"),
                    HasSubstr(R"("body":"{\"method\":\"GET\")")));
}

TEST_F(MenuTest, AnUnknownItemIsNotActivated) {
  expectRefusal("dance", "ist nicht im Menü");
  EXPECT_THAT(activate("dance", {"--json"}).output,
              StartsWith(R"({"error":{"domain":"kvlocal","code":7,)"));
}

TEST_F(MenuTest, ADisabledItemIsNotActivated) {
  expectRefusal("print", "hat kein Formular und kann daher nicht ausgelöst werden");
}

TEST_F(MenuTest, AnItemForTheBrowserIsNotActivated) {
  expectRefusal("help", "würde in einem Browser geöffnet");
}

TEST_F(MenuTest, AnAnswerWithoutAMenuIsAFailure) {
  const Outcome outcome = run({"menu", "/status"});
  EXPECT_EQ(outcome.exitCode, 4);
  EXPECT_THAT(outcome.output, IsEmpty());
  EXPECT_THAT(outcome.errors, StartsWith("kvlocal: die Antwort enthält kein Menü"));
  EXPECT_EQ(run({"menu", "/code?status=404"}).exitCode, 1);
  EXPECT_EQ(run({"menu", "/code?status=200&body=null"}).exitCode, 4);
}

TEST_F(MenuTest, ADocumentWithoutItemsIsNoMenu) {
  for (const auto* document : {"%5B1,2%5D", "%5B%7B%22a%22:1%7D%5D", "%7B%22menu%22:%5B7%5D%7D",
                               "%7B%22menu%22:1%7D", "%22menu%22"}) {
    const std::string path = std::string("/code?status=200&body=") + document;
    const Outcome outcome = run({"menu", path});
    EXPECT_EQ(outcome.exitCode, 4) << document;
    EXPECT_EQ(outcome.errors, "kvlocal: die Antwort enthält kein Menü\n");
  }
  EXPECT_THAT(run({"menu", "/code?status=200&body=%5B1%5D", "--json"}).output,
              StartsWith(R"({"error":{"domain":"NSURLErrorDomain","code":-1016)"));
}

TEST_F(MenuTest, AnErrorStatusIsToldAsOne) {
  EXPECT_EQ(run({"menu", "/code?status=404&body=no"}).errors,
            "kvlocal: der Dienst hat mit dem HTTP-Status 404 geantwortet\n");
}

TEST_F(MenuTest, AnAnswerThatIsNoDocumentIsAFailure) {
  const Outcome outcome = run({"menu", "/code?status=200&body=no", "--json"});
  EXPECT_EQ(outcome.exitCode, 4);
  EXPECT_THAT(outcome.errors, StartsWith("kvlocal: the answer is no JSON document: "));
  EXPECT_THAT(outcome.output, HasSubstr(R"("code":3840)"));
}

TEST_F(MenuTest, ARequestThatFailsIsToldByTheExitCode) {
  const Outcome outcome = run({"menu", "https://127.0.0.1:1/"});
  EXPECT_EQ(outcome.exitCode, 4);
  EXPECT_THAT(outcome.errors, StartsWith("kvlocal: die Anfrage ist fehlgeschlagen: "));
}

}  // namespace
}  // namespace kvltest
