// An application with windows, on a display of the test program's own.
#pragma once

#include <QApplication>
#include <QByteArray>
#include <memory>
#include <string>

namespace kvltest {

struct QtLook {
  std::string scale = "1";  // pixels to the point, as QT_SCALE_FACTOR takes it
  std::string locale = "en_US.UTF-8";
  bool dark = false;
  bool rightToLeft = false;
};

// The process's QApplication as long as it lives; one at a time, on the main thread. The first one
// starts the display, which lasts as long as the program. The look is the same on every machine:
// style "fusion", DejaVu Sans in 10 points, a palette of its own, no animations, no services of the
// user's session.
class QtApplication {
 public:
  explicit QtApplication(const QtLook& look = {});
  ~QtApplication();
  QtApplication(const QtApplication&) = delete;
  QtApplication& operator=(const QtApplication&) = delete;

  QApplication& operator*() const { return *application_; }
  QApplication* operator->() const { return application_.get(); }

  // Ends it early, as a host that leaves its windows and models behind does.
  void end() { application_.reset(); }

 private:
  int count_ = 1;
  std::string name_ = "kvltest";
  char* arguments_[2] = {name_.data(), nullptr};
  std::unique_ptr<QApplication> application_;
};

QPalette lightPalette();
QPalette darkPalette();

}  // namespace kvltest
