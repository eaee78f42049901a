#include "encoding/MultipartBody.h"
#include "tests/encoding/MultipartSupport.h"
#include "tests/support/LogCapture.h"

#include <local/KVLExtensions.h>
#include <local/KVLExtensionsURLRequest.h>
#include <local/KVLInputFile.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace kvltest;
using kvl::encoding::writeMultipartBody;

// The body of `inputs` with the boundary "B" written for `kBoundary`.
std::string bodyOf(const kvl::Array& inputs) {
  kvl::URLRequest request("a");
  const auto error = writeMultipartBody(request, inputs, always(kBoundary));
  EXPECT_EQ(error, std::nullopt);
  std::string body(request.body() ? request.body()->text() : "(no body)");
  for (auto at = body.find(kBoundary); at != std::string::npos; at = body.find(kBoundary))
    body.replace(at, kBoundary.size(), "B");
  return body;
}

// What stands between the boundary lines of the body of one input.
std::string partOf(const kvl::Value& oneInput) {
  const auto body = bodyOf({oneInput});
  const std::string_view begin = "--B\n";
  const std::string_view end = "\n--B--\n";
  EXPECT_TRUE(body.starts_with(begin) && body.ends_with(end)) << body;
  return body.substr(begin.size(), body.size() - begin.size() - end.size());
}

// The error of inputs that cannot be sent, having seen that they change nothing.
std::optional<kvl::Error> errorOf(const kvl::Array& inputs) {
  auto request = filledRequest();
  auto error = KVLExtensions::setHTTPBodyWithInputs(request, inputs);
  expectUnchanged(request);
  return error;
}

TEST(MultipartBodyTest, OfOneTextIsSixLinesThatEndInOneLineFeedEach) {
  EXPECT_EQ(bodyOf({input("note", "hi")}),
            "--B\n"
            "Content-Disposition: form-data; name=\"note\"\n"
            "Content-Type: text/plain;charset=UTF-8\n"
            "\n"
            "hi\n"
            "--B--\n");
}

TEST(MultipartBodyTest, OfTwoInputsHoldsTheirPartsInOrder) {
  EXPECT_EQ(bodyOf({input("a", "1"), kvl::Dictionary{{"name", "b"}}}),
            "--B\n"
            "Content-Disposition: form-data; name=\"a\"\n"
            "Content-Type: text/plain;charset=UTF-8\n"
            "\n"
            "1\n"
            "--B\n"
            "Content-Disposition: form-data; name=\"b\"\n"
            "\n"
            "\n"
            "--B--\n");
}

TEST(MultipartBodyTest, SetsFieldsAndMethodOfTheRequest) {
  auto request = filledRequest();
  ASSERT_EQ(writeMultipartBody(request, {input("a", "x")}, always(kBoundary)), std::nullopt);
  EXPECT_EQ(request.headers().find("Content-Type"), "multipart/form-data; boundary=abcdefABCDEF");
  EXPECT_EQ(request.method(), "POST");
  EXPECT_EQ(request.headers().size(), 2U);
}

TEST(MultipartBodyTest, GivesItsExactLengthInBytesAsContentLength) {
  kvl::URLRequest request("a");
  ASSERT_EQ(writeMultipartBody(request, {input("ü", "ä\n€")}, always(kBoundary)), std::nullopt);
  EXPECT_EQ(request.headers().find("Content-Length"), std::to_string(request.body()->size()));
  EXPECT_EQ(request.body()->size(), std::string_view("--abcdefABCDEF\n"
                                                     "Content-Disposition: form-data; name=\"ü\"\n"
                                                     "Content-Type: text/plain;charset=UTF-8\n"
                                                     "\n"
                                                     "ä\n€\n"
                                                     "--abcdefABCDEF--\n")
                                        .size());
}

TEST(MultipartBodyTest, OfNoInputsLeavesTheRequestAsItWas) {
  EXPECT_EQ(errorOf({}), std::nullopt);
  auto request = filledRequest();
  EXPECT_EQ(KVLExtensions::setHTTPBodyWithInputs(request, std::nullopt), std::nullopt);
  expectUnchanged(request);
}

TEST(MultipartBodyTest, TakesItsBoundaryFromTheStrongSource) {
  kvl::URLRequest request("a");
  ASSERT_EQ(KVLExtensions::setHTTPBodyWithInputs(request, kvl::Array{input("a", "x")}),
            std::nullopt);
  const std::string type(*request.headers().find("Content-Type"));
  EXPECT_THAT(type, testing::MatchesRegex("multipart/form-data; boundary=[a-zA-Z0-9]{12}"));
  const auto boundary = type.substr(type.size() - kBoundary.size());
  EXPECT_TRUE(request.body()->text().starts_with("--" + boundary + "\n"));
  EXPECT_TRUE(request.body()->text().ends_with("\n--" + boundary + "--\n"));
}

TEST(MultipartPartTest, WithoutAValueIsTheDispositionAndTwoLineFeeds) {
  EXPECT_EQ(partOf(kvl::Dictionary{{"name", "a"}}),
            "Content-Disposition: form-data; name=\"a\"\n\n");
}

TEST(MultipartPartTest, HasNoEscapingInNamesAndTexts) {
  const kvltest::LogCapture log;
  EXPECT_EQ(partOf(input("a'\\;%@ &é", "\"%22\"\\n\r\n\n--\n")),
            "Content-Disposition: form-data; name=\"a'\\;%@ &é\"\n"
            "Content-Type: text/plain;charset=UTF-8\n\n\"%22\"\\n\r\n\n--\n");
  EXPECT_TRUE(log.lines().empty());
}

TEST(MultipartPartTest, AcceptsAnEmptyName) {
  EXPECT_EQ(partOf(kvl::Dictionary{{"name", ""}}), "Content-Disposition: form-data; name=\"\"\n\n");
}

TEST(MultipartPartTest, OfANameWithALineFeedHoldsItAsItIs) {
  EXPECT_EQ(partOf(kvl::Dictionary{{"name", "a\nb"}}),
            "Content-Disposition: form-data; name=\"a\nb\"\n\n");
}

TEST(MultipartPartTest, OfANumberIsItsDecimalText) {
  struct Case {
    kvl::Value number;
    std::string_view text;
  };
  const Case table[] = {
      {3.5, "3.5"},       {true, "1"},          {false, "0"},
      {-42, "-42"},       {0.1, "0.1"},         {1'700'000'000'123, "1700000000123"},
      {-0.25, "-0.25"},   {100000.0, "100000"}, {1e6, "1000000"},
      {0.0001, "0.0001"}, {2.0, "2"},           {1e300, "1e+300"}};
  for (const auto& [number, text] : table) {
    EXPECT_EQ(partOf(input("n", number)),
              "Content-Disposition: form-data; name=\"n\"\n"
              "Content-Type: text/plain;charset=UTF-8\n\n" +
                  std::string(text));
  }
}

TEST(MultipartPartTest, OfADateIsItsTextInUTCWithWholeSeconds) {
  const kvl::Date date(0.75);  // after the start of 2001
  EXPECT_EQ(partOf(input("d", date)),
            "Content-Disposition: form-data; name=\"d\"\n"
            "Content-Type: text/plain;charset=UTF-8\n\n2001-01-01T00:00:00Z");
}

TEST(MultipartPartTest, OfDataIsItsBytes) {
  constexpr std::string_view bytes("\0\xff\n\x80", 4);
  EXPECT_EQ(partOf(input("d", kvl::Data::fromText(bytes))),
            "Content-Disposition: form-data; name=\"d\"\n"
            "Content-Type: application/octet-stream\n\n" +
                std::string(bytes));
}

TEST(MultipartPartTest, OfEmptyTextAndDataEndsWithTheEmptyLine) {
  EXPECT_TRUE(partOf(input("a", "")).ends_with("charset=UTF-8\n\n"));
  EXPECT_TRUE(partOf(input("a", kvl::Data())).ends_with("octet-stream\n\n"));
}

TEST(MultipartPartTest, OfAFileNamesItOnTheDispositionLine) {
  EXPECT_EQ(partOf(input("f", file("a b.txt", "text/x-a", "content"))),
            "Content-Disposition: form-data; name=\"f\"; filename=\"a b.txt\"\n"
            "Content-Type: text/x-a\n\ncontent");
}

TEST(MultipartPartTest, TurnsEachDoubleQuoteOfAFileNameIntoAHyphen) {
  EXPECT_EQ(partOf(input("f", file("\"a\"\"b", "t/t", ""))),
            "Content-Disposition: form-data; name=\"f\"; filename=\"-a--b\"\n"
            "Content-Type: t/t\n\n");
}

TEST(MultipartPartTest, OfAFileWithoutANameSaysNothingOfIt) {
  const std::string expected = "Content-Disposition: form-data; name=\"f\"\nContent-Type: t/t\n\nx";
  EXPECT_EQ(partOf(input("f", file("", "t/t", "x"))), expected);
  EXPECT_EQ(partOf(input("f", file(std::nullopt, "t/t", "x"))), expected);
}

TEST(MultipartPartTest, OfAFileWithoutAMediaTypeIsAnOctetStream) {
  const std::string expected =
      "Content-Disposition: form-data; name=\"f\"\nContent-Type: application/octet-stream\n\nx";
  for (const std::optional<std::string>& none : {std::optional<std::string>(), {""}}) {
    const auto object = KVLInputFile::newWithFilename(std::nullopt, "t/t", kvl::Data());
    object->setContentType(none);
    object->setData(kvl::Data::fromText("x"));
    EXPECT_EQ(partOf(input("f", std::shared_ptr<kvl::Object>(object))), expected);
  }
}

TEST(MultipartPartTest, OfAFileWithoutContentEndsWithTheEmptyLine) {
  const auto object = KVLInputFile::newWithFilename("a", "t/t", std::nullopt);
  EXPECT_EQ(partOf(input("f", std::shared_ptr<kvl::Object>(object))),
            "Content-Disposition: form-data; name=\"f\"; filename=\"a\"\nContent-Type: t/t\n\n");
}

TEST(MultipartErrorTest, InputWithoutANameIsMissingIt) {
  const auto expected = extensionsError(404, {{"missing value", "name"}});
  EXPECT_EQ(errorOf({kvl::Dictionary{{"value", "x"}}}), expected);
  EXPECT_EQ(errorOf({kvl::Dictionary{}}), expected);
  EXPECT_EQ(errorOf({kvl::Dictionary{{"name", nullptr}}}), expected);
}

TEST(MultipartErrorTest, NameOfAnotherTypeIsMissingAndLogged) {
  const kvltest::LogCapture log;
  EXPECT_EQ(errorOf({kvl::Dictionary{{"name", 7}}}),
            extensionsError(404, {{"missing value", "name"}}));
  EXPECT_EQ(log.lines(),
            std::vector<std::string>{"expect name as string in dictionary {name = 7}"});
}

TEST(MultipartErrorTest, InputThatIsNoDictionaryHasNoName) {
  const kvltest::LogCapture log;
  for (const kvl::Value& element : {kvl::Value("name"), kvl::Value(nullptr), kvl::Value(1),
                                    kvl::Value(kvl::Array{"name", "a"})})
    EXPECT_EQ(errorOf({element}), extensionsError(404, {{"missing value", "name"}}));
  EXPECT_TRUE(log.lines().empty());
}

TEST(MultipartErrorTest, NameWithADoubleQuoteIsMalformed) {
  EXPECT_EQ(errorOf({input("a", "valid"), input("b\"c", "x")}),
            extensionsError(400, {{"malformed name", "contains double quote"}, {"name", "b\"c"}}));
}

class OtherObject final : public kvl::Object {
 public:
  [[nodiscard]] std::string_view typeName() const noexcept override { return "OtherObject"; }
};

TEST(MultipartErrorTest, ValueOfAnotherTypeIsUnsupportedAndNamesTheTypeOfTheName) {
  const kvl::Value values[] = {nullptr, kvl::Array{1}, kvl::Dictionary{},
                               std::shared_ptr<kvl::Object>(std::make_shared<OtherObject>())};
  for (const auto& value : values) {
    EXPECT_EQ(errorOf({input("a", value)}),
              extensionsError(400, {{"unsupported type", "value"}, {"type", "string"}}));
  }
}

TEST(MultipartErrorTest, ValueOfAnotherTypeIsLogged) {
  const kvltest::LogCapture log;
  const std::string pattern = "unsupported named value type in HTTP body encoding: ";
  static_cast<void>(errorOf({input("list", kvl::Array{1, 2})}));
  static_cast<void>(errorOf({input("nothing", nullptr)}));
  EXPECT_EQ(log.lines(),
            (std::vector<std::string>{pattern + "list = (1, 2)", pattern + "nothing = <null>"}));
}

TEST(MultipartErrorTest, FirstInputThatFailsDecides) {
  const kvltest::LogCapture log;
  EXPECT_EQ(errorOf({input("a\"", "x"), kvl::Dictionary{}, input("c", nullptr)})->code(), 400);
  EXPECT_EQ(errorOf({kvl::Dictionary{}, input("a\"", "x")})->code(), 404);
  EXPECT_TRUE(log.lines().empty());
}

TEST(MultipartErrorTest, CarriesNoDescriptionOfItsOwn) {
  const auto error = errorOf({kvl::Dictionary{}});
  EXPECT_FALSE(error->userInfo().contains(kvl::NSLocalizedDescriptionKey));
  EXPECT_EQ(error->domain(), KVLExtensions::KVLExtensionsErrorDomain);
}

TEST(MultipartBodyTest, HoldsOneOfTheContentsOfAFileThatIsReplacedMeanwhile) {
  const auto object = KVLInputFile::newWithFilename("f", "t/t", kvl::Data::fromText("first"));
  std::atomic<bool> stop = false;
  std::thread writer([&] {
    while (!stop) {
      object->setData(kvl::Data::fromText("other"));
      object->setData(kvl::Data::fromText("first"));
    }
  });
  const auto oneInput = input("f", std::shared_ptr<kvl::Object>(object));
  for (int i = 0; i < 200; ++i) {
    const auto part = partOf(oneInput);
    EXPECT_TRUE(part.ends_with("\n\nfirst") || part.ends_with("\n\nother")) << part;
  }
  stop = true;
  writer.join();
}

}  // namespace
