// Where the icons of menus come from.
#pragma once

#include <local/KVLEncodingMenus.h>
#include <local/KVLSession.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace qthost {

// Fetches icons from the service and keeps them: whatever asks for the same icon shares it, and
// asks only once. GUI thread.
class IconSource : public KVLEncodingImageSource, public std::enable_shared_from_this<IconSource> {
 public:
  explicit IconSource(std::shared_ptr<KVLSession> session);

  void imageWithRelativePath(const KVLEncoding::RelativePath& relativePath, kvl::Size size,
                             Completion completionHandler) override;

 private:
  void arrived(const std::string& path, const std::shared_ptr<kvl::Image>& icon);

  const std::shared_ptr<KVLSession> session_;
  std::map<std::string, std::shared_ptr<kvl::Image>> icons_;
  std::map<std::string, std::vector<Completion>> waiting_;
};

}  // namespace qthost
