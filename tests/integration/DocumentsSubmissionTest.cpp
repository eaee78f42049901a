// What a real service receives of documents and forms, and the images that it sends.
#include "platform/serialisation/PropertyListWriter.h"
#include "tests/integration/DocumentsFixture.h"

#include <local/KVLEncodingForm.h>
#include <local/KVLEncodingSession.h>
#include <local/KVLInputFile.h>

#include <numeric>

namespace {

using namespace kvltest;
using KVLEncoding::RelativePath;

class DocumentsSubmissionTest : public EstablishedService {
 protected:
  // Submits a form and decodes what comes back.
  [[nodiscard]] DocumentReply submitForm(const kvl::Dictionary& form, const kvl::Array& inputs) {
    DocumentReply reply;
    kvl::Semaphore done;
    KVLEncoding::submitForm(form, inputs, RelativePath("echo"), *session,
                            [&](const std::optional<kvl::Data>& body, kvl::URLResponseRef response,
                                std::optional<kvl::Error> error) {
                              reply = {KVLEncoding::rootFromResponse(response, body), response,
                                       std::move(error)};
                              done.signal();
                            });
    serveMainQueue(done);
    return reply;
  }

  [[nodiscard]] std::shared_ptr<kvl::Image> image(std::string_view path, kvl::Size size) {
    std::shared_ptr<kvl::Image> image;
    kvl::Semaphore done;
    KVLEncoding::imageFromSession(
        *session, RelativePath(path), size,
        [&](std::shared_ptr<kvl::Image> fetched, auto&&, const std::optional<kvl::Error>& error) {
          EXPECT_FALSE(error) << kvl::describe(error);
          EXPECT_TRUE(kvl::isMainThread());
          image = std::move(fetched);
          done.signal();
        });
    serveMainQueue(done);
    return image;
  }
};

std::string headerOf(const DocumentReply& reply, std::string_view name) {
  const auto headers = reply["headers"].dictionary();
  return headers ? std::string((*headers)[name].string().value_or("")) : std::string();
}

std::string everyByte() {
  std::string bytes(256, '\0');
  std::iota(bytes.begin(), bytes.end(), '\0');
  return bytes;
}

TEST_F(DocumentsSubmissionTest, JSONArrivesByteForByte) {
  const kvl::Dictionary root{{"a", 1}, {"list", kvl::Array{nullptr, true, "\u00fc\n"}}};
  const auto reply = submit(*session, root, "echo");
  ASSERT_FALSE(reply.error) << kvl::describe(reply.error);
  EXPECT_EQ(reply["method"], kvl::Value("POST"));
  EXPECT_EQ(reply["body"], kvl::Value("{\"a\":1,\"list\":[null,true,\"\u00fc\\n\"]}"));
  EXPECT_EQ(headerOf(reply, "Content-Type"), "application/json");
  EXPECT_EQ(headerOf(reply, "Accept"), "application/json");
  EXPECT_EQ(submit(*session, root, "echo?as=body").document, kvl::Value(root));
}

TEST_F(DocumentsSubmissionTest, PropertyListArrivesByteForByte) {
  const kvl::Dictionary root{{"date", kvl::Date::since1970(1'000'000)},
                             {"data", kvl::Data::fromText(everyByte())}};
  const auto reply = submit(*session, root, "echo");
  ASSERT_FALSE(reply.error) << kvl::describe(reply.error);
  EXPECT_EQ(headerOf(reply, "Content-Type"), "application/x-plist");
  const auto sent = kvl::binaryPropertyListFromValue(root, nullptr);
  ASSERT_TRUE(sent);
  EXPECT_EQ(decodedBase64(reply["bodyBase64"]), sent->text());
}

TEST_F(DocumentsSubmissionTest, WhatCannotBeEncodedReachesNobody) {
  const kvl::Dictionary root{{"null", nullptr}, {"date", kvl::Date::since1970(0)}};
  const auto reply = submit(*session, root, "echo?unencodable");
  EXPECT_FALSE(reply.response);
  ASSERT_TRUE(reply.error);
  EXPECT_TRUE(reply.error->is("korvale.vandrel.encoding.root", 1));
  EXPECT_EQ(serviceLog().find("unencodable"), std::string::npos);
}

TEST_F(DocumentsSubmissionTest, AnswersOfEveryStatusAreDecoded) {
  const auto refused = submit(*session, kvl::Dictionary{}, "code?status=404");
  EXPECT_EQ(refused.status(), 404);
  EXPECT_EQ(refused["status"], kvl::Value(404));
  EXPECT_FALSE(refused.error);
  const auto null = submit(*session, kvl::Dictionary{}, "code?status=200&body=null");
  EXPECT_FALSE(null.document || null.error);
  const auto rubbish = submit(*session, kvl::Dictionary{}, "code?status=200&body=no");
  EXPECT_FALSE(rubbish.document);
  EXPECT_EQ(rubbish.status(), 200);
  EXPECT_TRUE(rubbish.error);
}

TEST_F(DocumentsSubmissionTest, AnAnswerWithoutABodyIsNoFailure) {
  for (const int status : {200, 204}) {
    const auto reply =
        submit(*session, kvl::Dictionary{}, "code?body=&status=" + std::to_string(status));
    EXPECT_FALSE(reply.document);
    EXPECT_EQ(reply.status(), status);
    EXPECT_FALSE(reply.error) << kvl::describe(reply.error);
  }
}

TEST_F(DocumentsSubmissionTest, RedirectionsKeepTheDocumentWhereTheStatusSaysSo) {
  const auto kept = submit(*session, kvl::Array{1}, "redirect?to=/echo&status=307");
  EXPECT_EQ(kept["method"], kvl::Value("POST"));
  EXPECT_EQ(kept["body"], kvl::Value("[1]"));
  const auto dropped = submit(*session, kvl::Array{1}, "redirect?to=/echo&status=303");
  EXPECT_EQ(dropped["method"], kvl::Value("GET"));
  EXPECT_EQ(dropped["size"], kvl::Value(0));
}

TEST_F(DocumentsSubmissionTest, FormWithAFileArrivesByteForByte) {
  const std::string bytes = everyByte();
  const std::shared_ptr<kvl::Object> file =
      KVLInputFile::newWithFilename("a \"b\".bin", "image/png", kvl::Data::fromText(bytes));
  const kvl::Dictionary form{
      {"method", "put"},
      {"inputs", kvl::Array{kvl::Dictionary{{"name", "note"}, {"value", "hi \u00fc\n"}}}}};
  const auto reply = submitForm(form, kvl::Array{kvl::Dictionary{{"name", "file"}, {"value", file}},
                                                 kvl::Dictionary{{"name", "none"}}});
  ASSERT_FALSE(reply.error) << kvl::describe(reply.error);
  EXPECT_EQ(reply["method"], kvl::Value("PUT"));
  const auto type = headerOf(reply, "Content-Type");
  const auto boundary = "--" + type.substr(type.find('=') + 1);
  const auto body =
      boundary +
      "\nContent-Disposition: form-data; name=\"note\"\nContent-Type: text/plain;charset=UTF-8\n\n"
      "hi \u00fc\n\n" +
      boundary +
      "\nContent-Disposition: form-data; name=\"file\"; filename=\"a -b-.bin\"\n"
      "Content-Type: image/png\n\n" +
      bytes + "\n" + boundary + "\nContent-Disposition: form-data; name=\"none\"\n\n\n" + boundary +
      "--\n";
  EXPECT_EQ(decodedBase64(reply["bodyBase64"]), body);
  EXPECT_EQ(headerOf(reply, "Content-Length"), std::to_string(body.size()));
  EXPECT_EQ(reply["parts"].array()->size(), 3U);
  EXPECT_EQ(reply["formError"], kvl::Value());
}

TEST_F(DocumentsSubmissionTest, FormWithoutInputsIsAFetch) {
  const auto reply = submitForm(kvl::Dictionary{{"action", "echo?a=b"}}, {});
  EXPECT_EQ(reply["method"], kvl::Value("GET"));
  EXPECT_EQ(reply["query"], kvl::Value("a=b"));
  EXPECT_EQ(reply["size"], kvl::Value(0));
  EXPECT_EQ(headerOf(reply, "Accept"), "application/json");
}

TEST_F(DocumentsSubmissionTest, LargeFileArrivesWhole) {
  constexpr std::size_t kSize = std::size_t{2} << 20;
  const std::shared_ptr<kvl::Object> file = KVLInputFile::newWithFilename(
      "large", std::nullopt, kvl::Data::fromText(std::string(kSize, 'x')));
  const auto reply =
      submitForm(kvl::Dictionary{}, kvl::Array{kvl::Dictionary{{"name", "f"}, {"value", file}}});
  ASSERT_FALSE(reply.error) << kvl::describe(reply.error);
  const auto parts = reply["parts"].array();
  ASSERT_TRUE(parts && parts->size() == 1);
  EXPECT_EQ((*(*parts)[0].dictionary())["size"], kvl::Value(kSize));
}

TEST_F(DocumentsSubmissionTest, ImageWithATemplateRoleIsATemplate) {
  const auto svg = image("image?format=svg&side=20&role=template", {40, 40});
  ASSERT_NE(svg, nullptr);
  EXPECT_TRUE(svg->isTemplate());
  EXPECT_EQ(svg->naturalSize(), (kvl::Size{20, 20}));
  EXPECT_EQ(svg->size(), (kvl::Size{40, 40}));
  EXPECT_TRUE(svg->data().text().starts_with("<svg "));
  const auto png = image("image?role=nontemplate", {0, 32});
  ASSERT_NE(png, nullptr);
  EXPECT_TRUE(png->isTemplate());
  EXPECT_EQ(png->size(), (kvl::Size{16, 16}));
}

TEST_F(DocumentsSubmissionTest, OtherImagesAreNoTemplates) {
  const auto png = image("image", {});
  ASSERT_NE(png, nullptr);
  EXPECT_FALSE(png->isTemplate());
  EXPECT_EQ(png->data(), get("image").data);
  EXPECT_EQ(image("status", {}), nullptr);
}

}  // namespace
