// Fetches documents and images through a session, with a completion handler or waiting for the
// result.
#include "encoding/AnswerBody.h"
#include "encoding/ContentTypeRole.h"
#include "encoding/Waiting.h"
#include "platform/interface/client/ImageDecoding.h"

#include <local/KVLEncodingSession.h>
#include <local/KVLExtensionsImage.h>
#include <local/platform/Log.h>

namespace {

// Stands in for a handler that the caller did not give.
constexpr auto kLogError = [](const auto& /*result*/, const auto& /*response*/,
                              const std::optional<kvl::Error>& error) {
  if (error) kvl::log(kvl::LogCategory::loading, kvl::LogLevel::error, "request error: %@", error);
};

// On the main queue, unless the transfer itself failed.
void deliverDocument(const std::optional<kvl::Data>& body, kvl::URLResponseRef response,
                     std::optional<kvl::Error> error, std::size_t maximumCells,
                     KVLEncoding::DocumentHandler handler) {
  if (error) return handler(std::nullopt, std::move(response), std::move(error));
  std::optional<kvl::Error> decodingError;
  auto document = kvl::encoding::rootFromBody(
      kvl::encoding::isWithoutBody(body) ? std::nullopt : body, maximumCells, &decodingError);
  kvl::DispatchQueue::main()->async([handler = std::move(handler), document = std::move(document),
                                     response = std::move(response),
                                     decodingError = std::move(decodingError)]() mutable {
    handler(std::move(document), std::move(response), std::move(decodingError));
  });
}

kvl::Error wrongDocumentError(const std::optional<kvl::Value>& document, std::string_view required,
                              const KVLEncoding::RelativePath& relativePath) {
  const auto description =
      document
          ? kvl::format("Required response is %@, expected %@.", document->typeName(), required)
          : kvl::format("Required response is empty, expected %@.", required);
  return {kvl::NSCocoaErrorDomain,
          kvl::NSFormattingError,
          {{kvl::NSLocalizedDescriptionKey, description}, {"URL", relativePath.text()}}};
}

bool asksForTemplate(const kvl::URLResponseRef& response) {
  if (!response) return false;
  const auto contentType = kvl::encoding::contentTypeOf(*response);
  return contentType && kvl::encoding::hasTemplateRole(*contentType);
}

void prepare(kvl::Image& image, const kvl::URLResponseRef& response, kvl::Size size) {
  if (size.width > 0 && size.height > 0) KVLExtensions::scaleImage(image, size);
  if (asksForTemplate(response)) image.setTemplate(true);
}

// On the main queue, from whichever thread made the image.
void deliverImage(std::shared_ptr<kvl::Image> image, kvl::URLResponseRef response,
                  std::optional<kvl::Error> error, KVLEncoding::ImageHandler handler) {
  kvl::DispatchQueue::main()->async([handler = std::move(handler), image = std::move(image),
                                     response = std::move(response),
                                     error = std::move(error)]() mutable {
    handler(std::move(image), std::move(response), std::move(error));
  });
}

}  // namespace

void KVLEncoding::jsonFromSession(KVLSession& session, const RelativePath& relativePath,
                                  DocumentHandler completionHandler) {
  if (!completionHandler) completionHandler = kLogError;
  kvl::URLRequest request(relativePath.text());
  setHeaderToAcceptRoot(request);
  session.request(request, [handler = std::move(completionHandler),
                            maximumCells = kvl::encoding::maximumCellsOf(session)](
                               const std::optional<kvl::Data>& body, kvl::URLResponseRef response,
                               std::optional<kvl::Error> error) mutable {
    deliverDocument(body, std::move(response), std::move(error), maximumCells, std::move(handler));
  });
}

std::optional<kvl::Value> KVLEncoding::jsonFromSession(KVLSession& session,
                                                       const RelativePath& relativePath,
                                                       const WaitReason&,
                                                       std::optional<kvl::Error>* error) {
  return kvl::encoding::waitForFetch<std::optional<kvl::Value>>(
      [&](DocumentHandler handler) { jsonFromSession(session, relativePath, std::move(handler)); },
      WaitReason("json from session/" + relativePath.text()), kvl::encoding::kLongestWait, error);
}

void KVLEncoding::detail::reportWrongDocument(const std::optional<kvl::Value>& document,
                                              const std::optional<kvl::Error>& error,
                                              std::string_view required,
                                              const RelativePath& relativePath) {
  kvl::log(kvl::LogCategory::loading, kvl::LogLevel::error, "request error: %@",
           error ? *error : wrongDocumentError(document, required, relativePath));
}

void KVLEncoding::imageFromSession(KVLSession& session, const RelativePath& relativePath,
                                   kvl::Size size, ImageHandler completionHandler) {
  if (!completionHandler) completionHandler = kLogError;
  kvl::URLRequest request(relativePath.text());
  request.headers().set("Accept", "application/pdf;q=0.9,image/*;q=0.8");
  request.setContentKind(kvl::ContentKind::image);
  kvl::interface::ImageDecoding::process().prepare();  // starts while the request is under way
  session.request(request, [size, handler = std::move(completionHandler)](
                               const std::optional<kvl::Data>& body, kvl::URLResponseRef response,
                               std::optional<kvl::Error> error) mutable {
    if (!body)
      return deliverImage(nullptr, std::move(response), std::move(error), std::move(handler));
    kvl::Image::imageWithData(
        *body, [size, response = std::move(response), error = std::move(error),
                handler = std::move(handler)](std::shared_ptr<kvl::Image> image) mutable {
          if (image) prepare(*image, response, size);
          deliverImage(std::move(image), std::move(response), std::move(error), std::move(handler));
        });
  });
}

std::shared_ptr<kvl::Image> KVLEncoding::imageFromSession(KVLSession& session,
                                                          const RelativePath& relativePath,
                                                          kvl::Size size, const WaitReason&,
                                                          std::optional<kvl::Error>* error) {
  return kvl::encoding::waitForFetch<std::shared_ptr<kvl::Image>>(
      [&](ImageHandler handler) {
        imageFromSession(session, relativePath, size, std::move(handler));
      },
      WaitReason("image from session/" + relativePath.text()), kvl::encoding::kLongestWait, error);
}
