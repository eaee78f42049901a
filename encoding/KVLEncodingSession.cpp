// Documents; ImageFetch.cpp has the images.
#include "encoding/UnheardError.h"
#include "encoding/Waiting.h"

#include <local/KVLEncodingSession.h>
#include <local/platform/Log.h>

namespace {

// On the main queue, unless the transfer itself failed.
void deliverDocument(const std::optional<kvl::Data>& body, kvl::URLResponseRef response,
                     std::optional<kvl::Error> error, KVLEncoding::DocumentHandler handler) {
  if (error) return handler(std::nullopt, std::move(response), std::move(error));
  std::optional<kvl::Error> decodingError;
  auto document = KVLEncoding::rootFromResponse(response, body, &decodingError);
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

}  // namespace

void KVLEncoding::jsonFromSession(KVLSession& session, const RelativePath& relativePath,
                                  DocumentHandler completionHandler) {
  if (!completionHandler) completionHandler = kvl::encoding::kLogUnheardError;
  kvl::URLRequest request(relativePath.text());
  setHeaderToAcceptRoot(request);
  session.request(request, [handler = std::move(completionHandler)](
                               const std::optional<kvl::Data>& body, kvl::URLResponseRef response,
                               std::optional<kvl::Error> error) mutable {
    deliverDocument(body, std::move(response), std::move(error), std::move(handler));
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
  kvl::log("request error: %@",
           error ? *error : wrongDocumentError(document, required, relativePath));
}
