// What the development notary answers.
#pragma once

#include "devservice/Authority.h"
#include "devservice/CommandLine.h"
#include "devservice/StateDirectory.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace devservice {

// What a client gets: where the service is, whom to trust there and who the client is. What is
// absent is left out of the reply.
struct Grant {
  std::optional<std::vector<std::string>> urls;
  std::optional<std::string> anchor;
  std::optional<std::string> certificate;
};

// An error in the notary's own words, of NSPOSIXErrorDomain.
struct NotaryError {
  std::int64_t code;
  std::map<std::string, std::string> userInfo;
};

using NotaryAnswer = std::variant<Grant, NotaryError>;

// Answers requests and logs them. The authority and the service's URL are read anew each time, so
// that the service may come, go and be replaced.
class Notary {
 public:
  // Opens or replaces the authority. Throws std::runtime_error when that fails.
  explicit Notary(NotaryOptions options);

  // Which fault the next request is to get.
  [[nodiscard]] Fault nextFault();

  // A request without a certificate signing request gets a reply without a certificate.
  [[nodiscard]] NotaryAnswer answer(const std::optional<std::string>& path,
                                    const std::optional<std::string>& request, Fault fault) const;

 private:
  // Honest but for the key.
  [[nodiscard]] NotaryAnswer answerFor(const std::optional<std::string>& path,
                                       const std::optional<std::string>& request,
                                       bool isForOtherKey) const;
  [[nodiscard]] std::variant<std::vector<std::string>, NotaryError> urls() const;

  NotaryOptions options_;
  StateDirectory state_;
  std::uint64_t requests_ = 0;
};

}  // namespace devservice
