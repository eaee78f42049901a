#include "examples/qthost/Ellipses.h"

#include <local/KVLEncodingMenus.h>

namespace qthost {
namespace {

kvl::Value withEllipsis(kvl::Dictionary description) {
  const auto form = KVLEncoding::dictionaryFromDictionary(description, "form");
  if (const auto items = KVLEncoding::arrayFromDictionary(description, "subitems"))
    description.set("subitems", withEllipses(*items));
  return *KVLEncoding::menuItemWithEllipsis(
      description, [&](const auto& /*identifier*/) { return form && asks(*form); });
}

}  // namespace

kvl::Array withEllipses(const kvl::Array& descriptions) {
  kvl::Array result;
  for (const kvl::Value& description : descriptions) {
    const auto dictionary = description.dictionary();
    result.append(dictionary ? withEllipsis(*dictionary) : description);
  }
  return result;
}

bool asks(const kvl::Dictionary& form) {
  const auto inputs = KVLEncoding::arrayFromDictionary(form, "inputs", kvl::Array());
  const auto action = KVLEncoding::stringFromDictionary(form, "action", kvl::String());
  const bool isForBrowser = action->text().starts_with("https://");
  return !inputs->empty() && !isForBrowser;
}

}  // namespace qthost
