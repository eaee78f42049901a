// The images of a session in QML: "image://kvlocal/PATH", "image://kvlocal/PATH?24" and
// "image://kvlocal/PATH?32x24".
#pragma once

#include <local/platform/Mutex.h>
#include <local/qt/ImageSource.h>

#include <QQuickAsyncImageProvider>
#include <QSize>
#include <QString>
#include <memory>
#include <vector>

class QQmlEngine;

namespace kvl::qt {

// What such an address names. What follows the last "?" is a size if it looks like one, else it
// belongs to the path.
struct ImageAddress {
  QString path;
  QSize size;  // in pixels, empty for none

  explicit ImageAddress(const QString& identifier);
};

// Asks the oldest source that lives. Images have the size of the address, else the one that the
// item asks for, else their own.
//
// The engine asks on a thread of its own and may drop what it has asked for at any time, as the
// session may go at any time, which fails what waits.
class ImageProvider final : public QQuickAsyncImageProvider {
 public:
  // The engine's, made if there is none.
  [[nodiscard]] static ImageProvider& of(QQmlEngine& engine);

  void addSource(const std::shared_ptr<ImageSource>& source);

  QQuickImageResponse* requestImageResponse(const QString& identifier,
                                            const QSize& wanted) override;

 private:
  [[nodiscard]] std::shared_ptr<ImageSource> source();

  Mutex mutex_;
  std::vector<std::weak_ptr<ImageSource>> sources_ KVL_GUARDED_BY(mutex_);
};

}  // namespace kvl::qt
