/// @file
/// What came of a fetch or a submission.
#pragma once

#include <local/platform/Error.h>
#include <local/platform/Export.h>
#include <local/platform/URLRequest.h>
#include <local/platform/Value.h>

#include <QString>
#include <optional>

namespace kvl::qt {

/// The outcome of one exchange. Any thread.
struct KVL_EXPORT Fetched {
  std::optional<Value> document;  ///< none for the document `null` and for what is no document
  URLResponseRef response;        ///< null where no answer has come
  std::optional<Error> error;     ///< the status is not judged

  /// No error and a status below 300. The error of a refusal, whose body is seldom what was wanted,
  /// does not count beside its status.
  [[nodiscard]] bool isGood() const;
  /// For the user: "404 Not Found", else what the error says; empty where there is neither.
  [[nodiscard]] QString outcome() const;
  /// For a log: `outcomeText`.
  [[nodiscard]] QString text() const;
};

}  // namespace kvl::qt
