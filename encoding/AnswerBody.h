// What the body of a session's answer stands for.
#pragma once

#include <local/KVLSession.h>
#include <local/platform/Data.h>
#include <local/platform/Error.h>
#include <local/platform/URLSession.h>
#include <local/platform/Value.h>

#include <cstddef>
#include <optional>

namespace kvl::encoding {

// Nothing was sent, as with status 204. The loader hands over a body of no bytes then.
[[nodiscard]] inline bool isWithoutBody(const std::optional<Data>& body) noexcept {
  return !body || body->empty();
}

// How many values an answer that is asked for now may hold: what the HTTPS session object was made
// with, as with the loader's own limits.
[[nodiscard]] inline std::size_t maximumCellsOf(const KVLSession& session) {
  const auto loading = session.session();
  return loading ? loading->configuration().maximumDocumentCells
                 : session.configuration().maximumDocumentCells;
}

// `KVLEncoding::rootFromResponse` with a limit of its own.
[[nodiscard]] std::optional<Value> rootFromBody(const std::optional<Data>& body,
                                                std::size_t maximumCells,
                                                std::optional<Error>* error);

}  // namespace kvl::encoding
