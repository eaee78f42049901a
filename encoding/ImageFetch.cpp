#include "encoding/ContentTypeRole.h"
#include "encoding/UnheardError.h"
#include "encoding/Waiting.h"

#include <local/KVLEncodingSession.h>
#include <local/KVLExtensionsImage.h>

namespace {

bool asksForTemplate(const kvl::URLResponseRef& response) {
  if (!response) return false;
  const auto contentType = kvl::encoding::contentTypeOf(*response);
  return contentType && kvl::encoding::hasTemplateRole(*contentType);
}

std::shared_ptr<kvl::Image> makeImage(const std::optional<kvl::Data>& body,
                                      const kvl::URLResponseRef& response, kvl::Size size) {
  auto image = body ? kvl::Image::imageWithData(*body) : nullptr;
  if (!image) return nullptr;
  if (size.width > 0 && size.height > 0) KVLExtensions::scaleImage(*image, size);
  if (asksForTemplate(response)) image->setTemplate(true);
  return image;
}

}  // namespace

void KVLEncoding::imageFromSession(KVLSession& session, const RelativePath& relativePath,
                                   kvl::Size size, ImageHandler completionHandler) {
  if (!completionHandler) completionHandler = kvl::encoding::kLogUnheardError;
  kvl::URLRequest request(relativePath.text());
  request.headers().set("Accept", "application/pdf;q=0.9,image/*;q=0.8");
  session.request(request, [size, handler = std::move(completionHandler)](
                               const std::optional<kvl::Data>& body, kvl::URLResponseRef response,
                               std::optional<kvl::Error> error) mutable {
    auto image = makeImage(body, response, size);
    kvl::DispatchQueue::main()->async([handler = std::move(handler), image = std::move(image),
                                       response = std::move(response),
                                       error = std::move(error)]() mutable {
      handler(std::move(image), std::move(response), std::move(error));
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
