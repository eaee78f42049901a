// Events with nothing but libcurl and a search for the ends of lines.
#include "bench/CurlIdentity.h"
#include "bench/FeedProbe.h"

#include <curl/curl.h>

#include <cstdlib>
#include <string>
#include <string_view>

namespace {

class Follower {
 public:
  explicit Follower(std::size_t events) : record_(events) {}

  static std::size_t take(char* bytes, std::size_t, std::size_t count, void* self) {
    auto& follower = *static_cast<Follower*>(self);
    follower.text_.append(bytes, count);
    return follower.readLines() ? count : 0;
  }
  void print() const { record_.print(); }

 private:
  bool readLines() {
    constexpr std::string_view kField = "data: ";
    std::string_view rest = text_;
    bool goesOn = true;
    for (auto end = rest.find('\n'); end != std::string_view::npos && goesOn;
         end = rest.find('\n')) {
      if (rest.starts_with(kField))
        goesOn = record_.take(rest.substr(kField.size(), end - kField.size()));
      rest.remove_prefix(end + 1);
    }
    text_.erase(0, text_.size() - rest.size());
    return goesOn;
  }

  kvlbench::FeedRecord record_;
  std::string text_;
};

}  // namespace

int main(int count, char** arguments) {
  const auto settings = kvlbench::RequestSettings::parse(count, arguments);
  curl_global_init(CURL_GLOBAL_DEFAULT);
  const kvlbench::CurlIdentity identity(settings);
  Follower follower(settings.requests);
  CURL* easy = curl_easy_init();
  identity.prepare(easy, settings);
  const std::string url = settings.baseURL() + "events";
  curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &Follower::take);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, &follower);
  const CURLcode code = curl_easy_perform(easy);  // broken off by the last event
  if (code != CURLE_WRITE_ERROR) kvlbench::failProbe(curl_easy_strerror(code));
  follower.print();
  std::_Exit(EXIT_SUCCESS);
}
