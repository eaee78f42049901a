// A host that reads a document: fetches the path that it is given and shows what the accessors find
// in it.

#include <local/KVLEncoding.h>
#include <local/KVLEncodingSession.h>
#include <local/local.h>

#include <iostream>

namespace {

void show(const kvl::Dictionary& document) {
  const auto list = KVLEncoding::arrayFromDictionary(document, "list", kvl::Array());
  std::cout << "message: " << KVLEncoding::stringFromDictionary(document, "message", "none")->text()
            << "\nelements: " << list->size()
            << "\nyear: " << KVLEncoding::integerFromDictionary(document, "year", 1970) << '\n';
  if (const auto changed = KVLEncoding::dateFromDictionary(document, "changed"))
    std::cout << "changed: " << changed->description() << '\n';
}

int fails(const std::string& why) {
  std::cerr << kvl::printable(why) << std::endl;
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return fails("usage: kvlocal-example-documents PATH");
  kvl::setHostIdentifier("korvale.vandrel.example.documents");
  const auto session = KVLSession::sessionWithNotary(KVLNotary::sharedNotary(), {});
  const auto failure = session->waitUntilEstablished(std::chrono::seconds(30));
  if (failure) return fails(kvl::errorText(*failure));
  std::optional<kvl::Error> timeOut;
  const auto document =
      KVLEncoding::jsonFromSession(*session, KVLEncoding::RelativePath(argv[1]),
                                   KVLEncoding::WaitReason("the example"), &timeOut);
  if (timeOut) return fails(kvl::errorText(*timeOut));
  const auto dictionary = document ? document->dictionary() : std::nullopt;
  if (!dictionary) return fails("There is no document; the log says why.");
  show(*dictionary);
  return 0;
}
