// One request to the service, from the identity that it needs to what the user is told of its
// answer.
#pragma once

#include "tools/kvlocal/Client.h"
#include "tools/kvlocal/Command.h"

#include <local/KVLSession.h>
#include <local/platform/Data.h>
#include <local/platform/Error.h>
#include <local/platform/Exchange.h>
#include <local/platform/URLRequest.h>
#include <local/platform/Value.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace kvlocal {

// What a request brought. `Content` is what the framework makes of the body, or none.
template <class Content>
struct Answer {
  Content content{};
  kvl::URLResponseRef response;
  std::optional<kvl::Error> error;
};

// A body as it came.
using Body = std::optional<kvl::Data>;

struct Exchange {
  using Task = std::shared_ptr<kvl::DataTask>;

  // Sends the request; the task, where there is access to it.
  std::function<Task(KVLSession& session)> send;
  // The user's wish to be told how long it takes, wherever standard error goes.
  bool tellsProgress = false;
  // Whether the request itself heeds --timeout. The framework's own requests do not, so the whole
  // of them is limited.
  bool limitsItself = false;
};

// Declares --progress.
void declareProgress(CLI::App& parser, bool& tellsProgress);

// What requests need first. `ok`; otherwise the user has been told why there is no identity, unless
// it was the user who ended it.
[[nodiscard]] ExitCode establish(Client& client);

// For fetches whose answers would come by the main queue, which nobody serves here.
[[nodiscard]] kvl::RequestOptions onOtherThread();

namespace detail {

// `isComplete` is called with the rendezvous' lock held. Sets `isLate` when the limit has passed.
[[nodiscard]] ExitCode carryOut(const Context& context, const Client& client,
                                const Exchange& exchange, const std::function<bool()>& isComplete,
                                bool& isLate);

// What is wrong with an exchange that reported no error itself.
[[nodiscard]] std::optional<kvl::Error> faultOf(bool isLate, const kvl::URLResponseRef& response);

}  // namespace detail

// Where a request's answer arrives; shared with the handler, which may outlive the command.
template <class Content>
class Mailbox {
 public:
  explicit Mailbox(const Context& context) : rendezvous_(context.rendezvous) {}

  // A completion handler.
  [[nodiscard]] auto handler() const {
    return [rendezvous = rendezvous_, slot = slot_](Content content, kvl::URLResponseRef response,
                                                    std::optional<kvl::Error> error) {
      rendezvous->change([&] {
        *slot = Answer<Content>{std::move(content), std::move(response), std::move(error)};
      });
    };
  }

  // Carries out the exchange, whose answer comes here, with an identity of its own. `ok` with an
  // `answer`, which has an error or an HTTP response or both; otherwise the user has been told why
  // there is none.
  [[nodiscard]] ExitCode collect(const Context& context, const Exchange& exchange,
                                 Answer<Content>& answer) const {
    Client client(context);
    const ExitCode established = establish(client);
    return established == ExitCode::ok ? collect(context, client, exchange, answer) : established;
  }

  // The same with the identity of a client that has been established. With a time-out, a request
  // that reaches no service is sent again until one is there.
  [[nodiscard]] ExitCode collect(const Context& context, Client& client, const Exchange& exchange,
                                 Answer<Content>& answer) const {
    for (;;) {
      const ExitCode result = collectOnce(context, client, exchange, answer);
      if (result != ExitCode::ok || !answer.error || !client.mayYetReachService(*answer.error))
        return result;
      const ExitCode waited = client.waitForService();
      if (waited == ExitCode::notEstablished) return ExitCode::ok;
      if (waited != ExitCode::ok) return waited;
    }
  }

 private:
  [[nodiscard]] ExitCode collectOnce(const Context& context, const Client& client,
                                     const Exchange& exchange, Answer<Content>& answer) const {
    bool isLate = false;
    rendezvous_->change([this] { slot_->reset(); });
    const ExitCode result =
        detail::carryOut(context, client, exchange, [this] { return slot_->has_value(); }, isLate);
    if (result != ExitCode::ok) return result;
    answer = isLate ? Answer<Content>() : **slot_;
    if (!answer.error) answer.error = detail::faultOf(isLate, answer.response);
    return ExitCode::ok;
  }

  const std::shared_ptr<Rendezvous> rendezvous_;
  const std::shared_ptr<std::optional<Answer<Content>>> slot_ =
      std::make_shared<std::optional<Answer<Content>>>();
};

// What the user wants to see of an answer.
struct Report {
  bool showsHead = false;
  bool json = false;
};

// Declares --include.
void declareHead(CLI::App& parser, bool& showsHead);

// Status and header fields: lines and an empty line, or entries of an object, with "error" for an
// error status.
[[nodiscard]] std::string headText(const kvl::URLResponse& response);
[[nodiscard]] kvl::Dictionary headValue(const kvl::URLResponse& response);

// Tells that the request failed, and why, with `json` on standard output too. The result is the
// command's.
[[nodiscard]] ExitCode reportFailure(const kvl::Error& error, const kvl::URLResponseRef& response,
                                     bool json);

// The same for an answer that has come and that is not what was asked for: `what` it is instead.
// With an error status only that is told: nobody has promised anything else then.
[[nodiscard]] ExitCode reportUnusable(std::string_view what, const kvl::Error& error,
                                      const kvl::URLResponseRef& response, bool json);

// What brought no document: the same for an answer that cannot be decoded, else `reportFailure`.
[[nodiscard]] ExitCode reportNoDocument(const kvl::Error& error,
                                        const kvl::URLResponseRef& response, bool json);

// `shown`, unless that is `ok` and the status is an error, which standard error is told then.
[[nodiscard]] ExitCode withStatus(ExitCode shown, const kvl::URLResponse& response);

// Shows a body as it came.
[[nodiscard]] ExitCode reportBody(const Answer<Body>& answer, const Report& report);

}  // namespace kvlocal
