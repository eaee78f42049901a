// A host outside the tree. It needs no notary service: its notary answers by itself, which also
// takes virtual calls, type information and values across the library's border.

#include <local/local.h>
#include <local/platform/Image.h>

#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

namespace {

class RefusingNotary final : public KVLNotary {
 public:
  RefusingNotary() : KVLNotary(WithoutKeys{}) {}

  void notariseWithCompletionHandler(CompletionHandler completionHandler) override {
    completionHandler(nullptr,
                      kvl::Error(kvl::NSCocoaErrorDomain, kvl::NSFileReadNoSuchFileError,
                                 {{kvl::NSLocalizedFailureReasonErrorKey, "There is no service"},
                                  {kvl::NSFilePathErrorKey, "/run/service"}}));
  }
};

void require(bool condition, const char* what) {
  if (condition) return;
  std::cerr << "not so: " << what << std::endl;
  std::exit(1);
}

}  // namespace

int main() {
  const auto missing = std::make_shared<kvl::Atomic<std::string>>();
  kvl::setLogSink([missing](std::string_view line) {
    if (line.find("is not to be had") != line.npos) missing->set(std::string(line));
  });
  setenv("LC_ALL", "en_US.UTF-8", 1);

  const auto session = KVLSession::sessionWithNotary(std::make_shared<RefusingNotary>(), {});
  const auto recovering = std::make_shared<kvl::Semaphore>();
  const auto states = session->observeState([recovering](KVLSessionState state) {
    if (state == KVLSessionStateRecovering) recovering->signal();
  });
  require(recovering->waitFor(std::chrono::seconds(20)), "the session enters the recovering state");
  require(session->progress()->localizedAdditionalDescription() ==
              "There is no service \u2013 /run/service\nRetrying every 5 seconds",
          "the progress tells what failed");
  require(kvl::URL::parse("a/../b").has_value(), "a relative reference is a URL");
  require(kvl::Dictionary{{"list", kvl::Array{1, "two", 3.5}}}.description() != "",
          "values can be described");
  kvl::URLRequest request(kvl::URL::parse("/").value());
  request.headers().set("Accept", "text/plain");
  require(request.headers().find("accept") == "text/plain", "header fields ignore case");
  require(kvl::Image::imageWithData(kvl::Data::fromText(
              "<svg xmlns='http://www.w3.org/2000/svg' width='1' height='1'/>")) != nullptr,
          "the image decoders lie beside the library");
  require(kvl::localizedUpdateCount(3, "de_DE") == "3 Aktualisierungen",
          "texts have the languages of the user");
  require(!kvl::openURL("kvl-unknown-scheme:x"), "nobody opens an unknown URL");
  require(missing->get().empty(), "all parts of the library are there");
  require(kvl::version().number == KVL_VERSION, "the library is the one of the headers");
  std::cout << "the host works with " << kvl::version().text << "\n";
}
