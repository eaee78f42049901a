// A host that exits while its session is busy. The arguments say from where, with what threads
// under way, and how long its static objects take to go.
#include <local/KVLEncodingAwait.h>
#include <local/local.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

constexpr int kStatus = 7;
constexpr int kLoads = 12;
constexpr std::size_t kReaders = 4;
constexpr std::chrono::milliseconds kHandling{5};

std::atomic<int> deliveries = 0;

// What a host keeps in static storage: it goes with the process, and takes its time.
struct Global {
  ~Global() {
    isGoing = true;
    std::this_thread::sleep_for(teardown);
    if (usesTheLibrary) use();
    if (!isWhole) std::cout << "broken" << std::endl;
    isWhole = false;
    std::cout << "torn down" << std::endl;
  }

  void use() {
    session->eventStream()->cancel();
    std::optional<kvl::Error> error;
    const auto document = KVLEncoding::jsonFromSession(*session, KVLEncoding::RelativePath("menu"),
                                                       KVLEncoding::WaitReason("the end"), &error);
    std::cout << (document || !error ? "loaded" : "not loaded") << std::endl;
    session.reset();
  }

  std::chrono::milliseconds teardown{0};
  bool usesTheLibrary = false;
  std::atomic<bool> isWhole = true;
  // From the moment when the first static object goes nothing is delivered any more.
  std::atomic<bool> isGoing = false;
  std::shared_ptr<KVLSession> session;
  std::vector<kvl::Task<>> followers;
};
Global global;

// Made just before the exit, so it is the first that goes. An exit from a thread of the host's own
// may begin after it.
struct Later {
  ~Later() {
    global.isGoing = true;
    std::this_thread::sleep_for(global.teardown);
  }
};

class Receiver final : public KVLSessionDelegate {
 public:
  void eventStream(KVLSession&, const std::vector<std::shared_ptr<KVLEvent>>&) override {
    if (global.isGoing) std::cout << "late" << std::endl;
    ++deliveries;
  }
};

void load(bool exits);

void received(bool exits) {
  if (global.isGoing) std::cout << "late" << std::endl;
  if (++deliveries > 3 * kLoads && exits) {
    static const Later later;
    std::exit(kStatus);
  }
  if (!global.session->isEnded()) load(exits);
}

// What a host does with a document on a queue of its own. Others wait behind it.
void handle() {
  if (global.isGoing) std::cout << "late" << std::endl;
  std::this_thread::sleep_for(kHandling);
  ++deliveries;
}

void fetch(const std::shared_ptr<kvl::DispatchQueue>& queue) {
  kvl::RequestOptions options;
  options.queue = queue;
  KVLEncoding::jsonFromSession(
      *global.session, KVLEncoding::RelativePath("menu"),
      [queue](auto&&...) {
        handle();
        fetch(queue);
      },
      options);
}

kvl::Task<> follow() {
  const kvl::URLRequest menu("menu");
  for (;;) {
    static_cast<void>(co_await KVLEncoding::awaitable::request(*global.session, menu));
    handle();
  }
}

// Returns when the first of many who wait for the end has been told.
void endSession() {
  constexpr int kHandlers = 30;
  const auto told = std::make_shared<kvl::Semaphore>();
  for (int i = 0; i < kHandlers; ++i) {
    global.session->end([told](auto&&...) {
      handle();
      told->signal();
    });
  }
  told->wait();
}

// Handlers and coroutines by the dozen, each kind on a queue of the framework's.
void fetchOnQueues() {
  const auto handlers = kvl::DispatchQueue::serial("handlers");
  const auto home = kvl::DispatchQueue::serial("home");
  for (int i = 0; i < kLoads; ++i) {
    fetch(handlers);
    global.followers.push_back(follow().on(home));
    global.followers.back().start();
  }
}

// Reads documents on a thread of its own for as long as there are threads.
void read(const std::shared_ptr<kvl::DispatchQueue>& queue, std::size_t size) {
  std::string text = "[\"";
  while (text.size() < size) text += "\xC3\xA4 text that is no ASCII, ";
  const auto body = kvl::Data::fromText(text + "\"]");
  static_cast<void>(KVLEncoding::rootFromResponse(nullptr, body));
  static_cast<void>(kvl::URL::parse(text));
  queue->async([queue, size] { read(queue, size < 1000000 ? size * 2 : 100); });
}

// Without waiting.
void draw(const kvl::Data& data) {
  kvl::Image::imageWithData(data, [](const std::shared_ptr<kvl::Image>& image) {
    if (image) kvl::Image::rasterise(image, 1, [image](const kvl::Bitmap&) {});
  });
}

// Documents and images, decoded where the request completes, again and again.
void load(bool exits) {
  auto& session = *global.session;
  kvl::URLRequest menu("desktop");
  session.request(menu,
                  [exits](const std::optional<kvl::Data>& body, const kvl::URLResponseRef& response,
                          const std::optional<kvl::Error>&) {
                    if (body) {
                      static_cast<void>(KVLEncoding::rootFromResponse(response, body));
                    }
                    received(exits);
                  });
  session.request(kvl::URLRequest("image?format=svg&side=400"),
                  [](const std::optional<kvl::Data>& body, const kvl::URLResponseRef&,
                     const std::optional<kvl::Error>&) {
                    const auto image = body ? kvl::Image::imageWithData(*body) : nullptr;
                    if (image) static_cast<void>(image->rasterised(1));
                    if (body) draw(*body);
                  });
}

}  // namespace

int main(int count, char** arguments) {
  const std::string_view from = count > 1 ? arguments[1] : "main";
  global.teardown = std::chrono::milliseconds(count > 2 ? std::atoi(arguments[2]) : 0);
  global.usesTheLibrary = count > 3;
  kvl::setHostIdentifier("org.example.ExitingHost");
  kvl::setLogSink([](std::string_view) {});
  const auto receiver = std::make_shared<Receiver>();
  global.session = KVLSession::sessionWithNotary(nullptr, receiver);
  const auto established = std::make_shared<kvl::Semaphore>();
  auto states = global.session->observeState([established](KVLSessionState state) {
    if (state == KVLSessionStateEstablished) established->signal();
  });
  if (!established->waitFor(std::chrono::seconds(60))) return EXIT_FAILURE;
  states = {};
  global.session->setEventStreamSource("feed?interval=1");
  const bool exits = from == "handler";
  for (int i = 0; i < kLoads; ++i) load(exits);
  if (from == "queues") fetchOnQueues();
  const auto readers = kvl::DispatchQueue::concurrent("readers");
  for (std::size_t i = 0; i < kReaders; ++i) readers->async([=] { read(readers, 100 + i); });
  while (deliveries < 2 * kLoads || exits)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  if (from == "quick") std::quick_exit(kStatus);
  if (from == "thread") {
    std::thread([] { std::exit(kStatus); }).detach();
    std::this_thread::sleep_for(std::chrono::seconds(60));
  }
  if (from == "ending") endSession();
  static const Later later;
  return kStatus;
}
