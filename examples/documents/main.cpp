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

}  // namespace

int main(int argc, char** argv) {
  kvl::setHostIdentifier("korvale.vandrel.example.documents");
  const auto session = KVLSession::sessionWithNotary(KVLNotary::sharedNotary(), {});
  const auto established = std::make_shared<kvl::Semaphore>();
  const auto states = session->observeState([established](KVLSessionState state) {
    if (state == KVLSessionStateEstablished) established->signal();
  });
  if (argc != 2 || !established->waitFor(std::chrono::seconds(30))) return 1;
  const auto document = KVLEncoding::jsonFromSession(*session, KVLEncoding::RelativePath(argv[1]),
                                                     KVLEncoding::WaitReason("the example"));
  const auto dictionary = document ? document->dictionary() : std::nullopt;
  if (!dictionary) return 1;
  show(*dictionary);
  return 0;
}
