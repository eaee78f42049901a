#include "examples/qthost/IconSource.h"

#include <local/KVLEncodingSession.h>

#include <utility>

namespace qthost {

IconSource::IconSource(std::shared_ptr<KVLSession> session) : session_(std::move(session)) {}

void IconSource::imageWithRelativePath(const KVLEncoding::RelativePath& relativePath,
                                       kvl::Size size, Completion completionHandler) {
  const std::string& path = relativePath.text();
  if (const auto known = icons_.find(path); known != icons_.end())
    return completionHandler(known->second);
  auto& waiting = waiting_[path];
  waiting.push_back(std::move(completionHandler));
  if (waiting.size() > 1) return;
  KVLEncoding::imageFromSession(
      *session_, relativePath, size,
      [source = weak_from_this(), path](std::shared_ptr<kvl::Image> icon,
                                        kvl::URLResponseRef /*response*/,
                                        const std::optional<kvl::Error>& /*error*/) {
        if (const auto self = source.lock()) self->arrived(path, icon);
      });
}

// An icon that did not come is asked for again by the next menu.
void IconSource::arrived(const std::string& path, const std::shared_ptr<kvl::Image>& icon) {
  if (icon) icons_[path] = icon;
  const auto waiting = waiting_.extract(path);
  for (const auto& completion : waiting.mapped()) completion(icon);
}

}  // namespace qthost
