#include "tests/soak/Traffic.h"

#include <local/KVLEncodingForm.h>
#include <local/KVLEncodingRoot.h>
#include <local/KVLEncodingSession.h>
#include <local/KVLExtensions.h>
#include <local/KVLInputFile.h>
#include <local/platform/URLRequest.h>

#include <array>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

namespace kvltest {
namespace {

using KVLEncoding::RelativePath;
using std::chrono::milliseconds;

using IsOwn = std::function<bool(const kvl::Data& body, const kvl::URLResponse& response)>;

// Above this a body goes over a connection of its own.
constexpr std::int64_t kLargeBody = (1 << 20) + 1;
constexpr std::int64_t kUsualBody = 32 << 10;

// What /echo tells of a request with this ticket's number.
std::string queryOf(const Ticket& ticket) {
  return "number=" + ticket.text();
}

std::string echoOf(const Ticket& ticket) {
  return "echo?" + queryOf(ticket);
}

kvl::Value entryOf(const std::optional<kvl::Value>& document, std::string_view key) {
  const auto dictionary = document ? document->as<kvl::Dictionary>() : std::nullopt;
  return dictionary ? (*dictionary)[key] : kvl::Value();
}

bool isEchoOf(const Ticket& ticket, const std::optional<kvl::Value>& document) {
  return entryOf(document, "query").string() == queryOf(ticket);
}

void settle(Ticket& ticket, bool isOwn, const std::optional<kvl::Value>& document) {
  isOwn ? ticket.answered() : ticket.answeredWrongly(kvl::describe(document));
}

kvl::DataTaskHandler judged(const TicketRef& ticket, IsOwn isOwn) {
  return [ticket, isOwn = std::move(isOwn)](const std::optional<kvl::Data>& body,
                                            const kvl::URLResponseRef& response,
                                            const std::optional<kvl::Error>& error) {
    if (error || !body || !response) return ticket->failed(error);
    if (isOwn(*body, *response)) return ticket->answered();
    ticket->answeredWrongly(std::to_string(KVLExtensions::statusCode(*response)) + " " +
                            std::string(body->text()));
  };
}

IsOwn isEcho(const TicketRef& ticket) {
  return [ticket](const kvl::Data& body, const kvl::URLResponse&) {
    return isEchoOf(*ticket, KVLEncoding::rootFromResponse(nullptr, body));
  };
}

void fetch(Sender& sender, const TicketRef& ticket) {
  sender.session->request(kvl::URLRequest(echoOf(*ticket)), judged(ticket, isEcho(ticket)));
}

void post(Sender& sender, const TicketRef& ticket) {
  const bool isLarge = oneOf(sender.random, 1, 20) == 1;
  const auto size =
      static_cast<std::size_t>(isLarge ? kLargeBody : oneOf(sender.random, 1, kUsualBody));
  std::string text;
  while (text.size() < size) text += ticket->text() + ' ';
  kvl::URLRequest request(echoOf(*ticket) + "&as=body");
  request.setMethod("POST");
  request.headers().set("Content-Type", "text/plain");
  request.setBody(kvl::Data::fromText(text));
  sender.session->request(request,
                          judged(ticket, [text](const kvl::Data& body, const kvl::URLResponse&) {
                            return body.text() == text;
                          }));
}

void status(Sender& sender, const TicketRef& ticket) {
  constexpr std::array<int, 6> kStatuses{200, 201, 400, 404, 500, 503};
  const int wanted = kStatuses[static_cast<std::size_t>(oneOf(sender.random, 0, 5))];
  const auto path = kvl::format("code?status=%@&body=%@", wanted, ticket->text());
  sender.session->request(
      kvl::URLRequest(path),
      judged(ticket, [wanted, ticket](const kvl::Data& body, const kvl::URLResponse& response) {
        return response.httpStatusCode == wanted && body.text() == ticket->text();
      }));
}

void redirected(Sender& sender, const TicketRef& ticket) {
  sender.session->request(kvl::URLRequest("redirect?to=/echo%3Fnumber%3D" + ticket->text()),
                          judged(ticket, isEcho(ticket)));
}

// Breaks in mid-body.
void broken(Sender& sender, const TicketRef& ticket) {
  const auto after = oneOf(sender.random, 0, 100'000);
  sender.session->request(
      kvl::URLRequest(kvl::format("reset?after=%@", after)),
      judged(ticket, [](const kvl::Data&, const kvl::URLResponse&) { return false; }));
}

// Answers late, and says how late.
kvl::URLRequest slowRequest(std::int64_t time) {
  return kvl::URLRequest(kvl::format("slow?ms=%@&pieces=2", time));
}

IsOwn hasWaited(std::int64_t time) {
  return [time](const kvl::Data& body, const kvl::URLResponse&) {
    const auto waited = entryOf(KVLEncoding::rootFromResponse(nullptr, body), "waited");
    return waited.as<kvl::Number>() == kvl::Value(time).as<kvl::Number>();
  };
}

void slow(Sender& sender, const TicketRef& ticket) {
  const auto time = 1 + ticket->number() % 500;
  sender.session->request(slowRequest(time), judged(ticket, hasWaited(time)));
}

void cancelled(Sender& sender, const TicketRef& ticket) {
  const auto time = 1 + ticket->number() % 300;
  const auto task = sender.session->request(slowRequest(time), judged(ticket, hasWaited(time)));
  if (!task) return;
  const milliseconds delay(oneOf(sender.random, 0, 400));
  if (delay.count() < 50) return task->cancel();
  sender.queue->asyncAfter(delay, [task] { task->cancel(); });
}

void document(Sender& sender, const TicketRef& ticket) {
  KVLEncoding::jsonFromSession(
      *sender.session, RelativePath(echoOf(*ticket)),
      [ticket](const std::optional<kvl::Value>& root, const kvl::URLResponseRef&,
               const std::optional<kvl::Error>& error) {
        if (error) return ticket->failed(error);
        settle(*ticket, isEchoOf(*ticket, root), root);
      });
}

// On a thread that waits for the answer.
void awaited(Sender& sender, const TicketRef& ticket) {
  sender.queue->async([session = sender.session, ticket] {
    std::optional<kvl::Error> error;
    const auto root =
        KVLEncoding::jsonFromSession(*session, RelativePath(echoOf(*ticket)),
                                     KVLEncoding::WaitReason("an answer of the soak"), &error);
    if (!root) return ticket->failed(error);
    settle(*ticket, isEchoOf(*ticket, root), root);
  });
}

void submitted(Sender& sender, const TicketRef& ticket) {
  KVLEncoding::submit(kvl::Dictionary{{"number", ticket->number()}, {"text", "a submission"}},
                      RelativePath(echoOf(*ticket)), *sender.session,
                      [ticket](const std::optional<kvl::Value>& root, const kvl::URLResponseRef&,
                               const std::optional<kvl::Error>& error) {
                        if (error) return ticket->failed(error);
                        const auto number = entryOf(entryOf(root, "json"), "number");
                        settle(*ticket, number == kvl::Value(ticket->number()), root);
                      });
}

void form(Sender& sender, const TicketRef& ticket) {
  const auto size = static_cast<std::size_t>(oneOf(sender.random, 0, kUsualBody));
  const auto file = KVLInputFile::newWithFilename(ticket->text(), "application/octet-stream",
                                                  kvl::Data(kvl::Bytes(size)));
  const kvl::Dictionary description{
      {"action", echoOf(*ticket) + "&as=inputs"},
      {"method", "POST"},
      {"inputs", kvl::Array{kvl::Dictionary{{"name", "number"}, {"value", ticket->text()}},
                            kvl::Dictionary{{"name", "file"}, {"value", file}}}}};
  const auto fileText = kvl::format("%@, %@ bytes", ticket->text(), size);
  KVLEncoding::submitForm(
      description, std::nullopt, RelativePath("echo"), *sender.session,
      judged(ticket, [ticket, fileText](const kvl::Data& body, const kvl::URLResponse&) {
        const auto root = KVLEncoding::rootFromResponse(nullptr, body);
        return entryOf(root, "number").string() == ticket->text() &&
               entryOf(root, "file").string() == fileText;
      }));
}

// The number decides its size.
void image(Sender& sender, const TicketRef& ticket) {
  const auto side = 1 + ticket->number() % 500;
  KVLEncoding::imageFromSession(
      *sender.session, RelativePath(kvl::format("image?format=svg&side=%@", side)), {},
      [ticket, side](const std::shared_ptr<kvl::Image>& picture, const kvl::URLResponseRef&,
                     const std::optional<kvl::Error>& error) {
        if (error) return ticket->failed(error);
        const auto width = picture ? picture->naturalSize().width : 0;
        if (width == static_cast<double>(side)) return ticket->answered();
        ticket->answeredWrongly(kvl::format("an image of width %@", std::to_string(width)));
      });
}

struct Kind {
  const char* name;
  int share;
  void (*send)(Sender&, const TicketRef&);
};

constexpr std::array<Kind, 12> kKinds{{{"fetch", 6, fetch},
                                       {"post", 4, post},
                                       {"status", 4, status},
                                       {"document", 4, document},
                                       {"awaited", 2, awaited},
                                       {"submitted", 4, submitted},
                                       {"form", 4, form},
                                       {"image", 3, image},
                                       {"slow", 2, slow},
                                       {"cancelled", 3, cancelled},
                                       {"redirected", 2, redirected},
                                       {"broken", 1, broken}}};

const Kind& anyKind(Random& random) {
  int all = 0;
  for (const auto& kind : kKinds) all += kind.share;
  auto left = oneOf(random, 1, all);
  for (const auto& kind : kKinds) {
    left -= kind.share;
    if (left <= 0) return kind;
  }
  return kKinds.front();
}

}  // namespace

std::int64_t oneOf(Random& random, std::int64_t least, std::int64_t most) {
  return std::uniform_int_distribution(least, most)(random);
}

void sendAny(Sender& sender) {
  const auto& kind = anyKind(sender.random);
  kind.send(sender, sender.ledger->open(kind.name));
}

void sendFetch(const Sender& sender, const std::function<void(bool isAnswered)>& completion) {
  const auto ticket = sender.ledger->open("fetch");
  sender.session->request(
      kvl::URLRequest(echoOf(*ticket)),
      [inner = judged(ticket, isEcho(ticket)), completion](const std::optional<kvl::Data>& body,
                                                           const kvl::URLResponseRef& response,
                                                           const std::optional<kvl::Error>& error) {
        inner(body, response, error);
        if (completion) completion(!error);
      });
}

Traffic::Traffic(Sender sender, double rate)
    : sender_(std::move(sender)), rate_(rate), thread_([this] { run(); }) {}

Traffic::~Traffic() {
  {
    const kvl::MutexLock lock(mutex_);
    isEnding_ = true;
    changed_.notifyAll();
  }
  thread_.join();
}

void Traffic::setPaused(bool isPaused) {
  const kvl::MutexLock lock(mutex_);
  isPaused_ = isPaused;
  changed_.notifyAll();
}

// Now and then many at once, which hosts do when a window opens; a longer pause makes up for it.
void Traffic::run() {
  constexpr std::int64_t kSingles = 30;
  constexpr int kMany = 15;
  std::int64_t owed = 0;
  for (;;) {
    const int count = oneOf(sender_.random, 1, kSingles) == 1 ? kMany : 1;
    owed = count;
    const std::chrono::duration<double> time(
        static_cast<double>(owed) * (0.5 + static_cast<double>(sender_.random() % 1000) / 1000) /
        rate_);
    if (!waitForTurn(std::chrono::duration_cast<std::chrono::nanoseconds>(time))) return;
    for (int i = 0; i < count; ++i) sendAny(sender_);
  }
}

bool Traffic::waitForTurn(std::chrono::nanoseconds time) {
  const auto turn = std::chrono::steady_clock::now() + time;
  kvl::MutexLock lock(mutex_);
  while (!isEnding_ && (isPaused_ || std::chrono::steady_clock::now() < turn)) {
    if (isPaused_) {
      changed_.wait(lock);
    } else {
      changed_.waitUntil(lock, turn);
    }
  }
  return !isEnding_;
}

}  // namespace kvltest
