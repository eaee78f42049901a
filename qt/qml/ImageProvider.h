// The images of a session in QML: "image://kvlocal/PATH" and "image://kvlocal/PATH?24".
#pragma once

#include <local/KVLSession.h>
#include <local/platform/Mutex.h>
#include <local/qt/ImageSource.h>

#include <QQuickAsyncImageProvider>
#include <QSize>
#include <QString>
#include <memory>
#include <vector>

class QQmlEngine;

namespace kvl::qt {

// What such an address names. What follows the last "?" is the size if it is a number, else it
// belongs to the path.
struct ImageAddress {
  QString path;
  int side = 0;  // of the square that the image fits, in pixels; 0 for none

  explicit ImageAddress(const QString& identifier);
};

// Asks the source of the oldest session that lives and has not ended. Images fit the square of the
// address, else the one in what the item asks for, else they have their own size.
//
// The engine asks on a thread of its own and may drop what it has asked for at any time, as the
// session may go at any time, which fails what waits.
class ImageProvider final : public QQuickAsyncImageProvider {
 public:
  // The engine's, made if there is none.
  [[nodiscard]] static ImageProvider& of(QQmlEngine& engine);

  void addSource(const std::shared_ptr<KVLSession>& session,
                 const std::shared_ptr<ImageSource>& images);

  QQuickImageResponse* requestImageResponse(const QString& identifier,
                                            const QSize& wanted) override;

 private:
  struct Source {
    std::weak_ptr<KVLSession> session;
    std::weak_ptr<ImageSource> images;
  };

  // Null for none.
  [[nodiscard]] std::shared_ptr<ImageSource> source();

  Mutex mutex_;
  std::vector<Source> sources_ KVL_GUARDED_BY(mutex_);
};

}  // namespace kvl::qt
