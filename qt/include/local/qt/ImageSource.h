/// @file
/// Images of a service, kept.
#pragma once

#include <local/KVLEncodingMenus.h>
#include <local/KVLSession.h>
#include <local/platform/Export.h>

#include <cstddef>
#include <memory>

namespace kvl::qt {

/// Fetches images through a session and keeps them: whoever asks for an image that is under way or
/// kept causes no request. Give it to `KVLEncoding::addMenuItems` for the icons of menus. What did
/// not come is asked for again by the next who wants it.
///
/// Make it where Qt's event loop runs, with the application there already. Any thread may ask; the
/// completions are called on the thread on which it was made: inside the request there if the image
/// is kept, else later. Once it has gone they are destroyed uncalled. Any thread may let go of it.
class KVL_EXPORT ImageSource final : public KVLEncodingImageSource {
 public:
  /// How many images are kept unless the constructor is told otherwise.
  static constexpr std::size_t kUsualMost = 256;

  /// @param session not null
  /// @param most how many images are kept; of more the one goes that was asked for least recently
  explicit ImageSource(std::shared_ptr<KVLSession> session, std::size_t most = kUsualMost);
  ~ImageSource() override;

  void imageWithRelativePath(const KVLEncoding::RelativePath& relativePath, Size size,
                             Completion completionHandler) override;

  /// Drops what is kept, so that all is fetched anew. Who waits already still gets what was asked
  /// for before.
  void forget();

 private:
  class KVL_INTERNAL Implementation;
  const std::shared_ptr<Implementation> implementation_;
};

}  // namespace kvl::qt
