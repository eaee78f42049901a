// Requests with nothing but libcurl, on one thread. What is more than the limit waits in line here:
// libcurl's own line, of a limit of connections, now and then stands still until its poll times
// out.
#include "bench/CurlIdentity.h"
#include "bench/RequestProbe.h"

#include <curl/curl.h>

#include <cstdlib>
#include <deque>
#include <memory>
#include <vector>

namespace {

using kvlbench::ClosedLoop;
using kvlbench::RequestSettings;

struct Transfer {
  CURL* easy = curl_easy_init();
  std::string body;
  double started = 0;

  Transfer() = default;
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;
  ~Transfer() { curl_easy_cleanup(easy); }
  static std::size_t take(char* bytes, std::size_t, std::size_t count, void* self) {
    static_cast<Transfer*>(self)->body.append(bytes, count);
    return count;
  }
};

class Client {
 public:
  explicit Client(const RequestSettings& settings)
      : settings_(settings),
        url_(settings.baseURL() + settings.path()),
        identity_(settings),
        loop_(settings) {
    // Left alone, a pause closes most connections.
    curl_multi_setopt(multi_, CURLMOPT_MAXCONNECTS, static_cast<long>(2 * settings.inFlight + 8));
    for (std::size_t i = 0; i < settings.inFlight; ++i) {
      all_.push_back(std::make_unique<Transfer>());
      prepare(*all_.back());
      free_.push_back(all_.back().get());
    }
  }

  void run() {
    start(loop_.first());
    while (!loop_.isOver()) {
      int running = 0;
      curl_multi_perform(multi_, &running);
      reap();
      if (!loop_.isOver()) curl_multi_poll(multi_, nullptr, 0, 60'000, nullptr);
    }
    loop_.print();
  }

 private:
  void prepare(Transfer& transfer) {
    transfer.body.reserve(settings_.size);
    identity_.prepare(transfer.easy, settings_);
    curl_easy_setopt(transfer.easy, CURLOPT_URL, url_.c_str());
    curl_easy_setopt(transfer.easy, CURLOPT_WRITEFUNCTION, &Transfer::take);
    curl_easy_setopt(transfer.easy, CURLOPT_WRITEDATA, &transfer);
    curl_easy_setopt(transfer.easy, CURLOPT_PRIVATE, &transfer);
  }
  void start(std::size_t count) {
    for (; count > 0; --count) {
      Transfer& transfer = *free_.back();
      free_.pop_back();
      transfer.body.clear();
      transfer.started = kvlbench::clockSeconds();
      line_.push_back(&transfer);
    }
    for (; !line_.empty() && (settings_.limit == 0 || live_ < settings_.limit); ++live_) {
      curl_multi_add_handle(multi_, line_.front()->easy);
      line_.pop_front();
    }
  }
  void reap() {
    int left = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi_, &left)) {
      if (message->msg != CURLMSG_DONE) continue;
      CURL* easy = message->easy_handle;
      if (message->data.result != CURLE_OK)
        kvlbench::failProbe(curl_easy_strerror(message->data.result));
      Transfer* transfer = nullptr;
      long version = 0;
      curl_easy_getinfo(easy, CURLINFO_PRIVATE, &transfer);
      curl_easy_getinfo(easy, CURLINFO_HTTP_VERSION, &version);
      curl_multi_remove_handle(multi_, easy);
      free_.push_back(transfer);
      --live_;
      start(loop_.answered(transfer->started, transfer->body.size(),
                           version == CURL_HTTP_VERSION_2_0 ? 2 : 1));
    }
  }

  const RequestSettings settings_;
  const std::string url_;
  const kvlbench::CurlIdentity identity_;
  ClosedLoop loop_;
  CURLM* const multi_ = curl_multi_init();
  std::vector<std::unique_ptr<Transfer>> all_;
  std::vector<Transfer*> free_;
  std::deque<Transfer*> line_;
  std::size_t live_ = 0;
};

}  // namespace

int main(int count, char** arguments) {
  curl_global_init(CURL_GLOBAL_DEFAULT);
  Client(RequestSettings::parse(count, arguments)).run();
  std::_Exit(EXIT_SUCCESS);
}
