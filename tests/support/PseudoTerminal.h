// A terminal for what is shown on one.
#pragma once

#include <fcntl.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

namespace kvltest {

class PseudoTerminal {
 public:
  // Throws std::system_error when there are none left.
  explicit PseudoTerminal(unsigned short columns = 80) {
    const winsize size{.ws_row = 25, .ws_col = columns, .ws_xpixel = 0, .ws_ypixel = 0};
    termios mode{};
    cfmakeraw(&mode);
    if (openpty(&reader_, &end_, nullptr, &mode, &size) != 0)
      throw std::system_error(errno, std::system_category());
    fcntl(reader_, F_SETFD, FD_CLOEXEC);
    fcntl(end_, F_SETFD, FD_CLOEXEC);
  }
  ~PseudoTerminal() {
    closeEnd();
    close(reader_);
  }
  PseudoTerminal(const PseudoTerminal&) = delete;
  PseudoTerminal& operator=(const PseudoTerminal&) = delete;

  // What a program writes to.
  [[nodiscard]] int end() const { return end_; }

  // One line, without its end; what there was when nobody has the terminal open any more.
  std::string readLine() const {
    std::string line;
    char next = 0;
    while (receive(next) && next != '\n') line.push_back(next);
    return line;
  }

  // All that is written until nobody else has the terminal open any more.
  std::string readAll() {
    closeEnd();
    std::string text;
    char next = 0;
    while (receive(next)) text.push_back(next);
    return text;
  }

 private:
  bool receive(char& next) const {
    for (;;) {
      const ssize_t count = read(reader_, &next, 1);
      if (count >= 0 || errno != EINTR) return count == 1;
    }
  }
  void closeEnd() {
    if (end_ >= 0) close(std::exchange(end_, -1));
  }

  int reader_ = -1;
  int end_ = -1;
};

}  // namespace kvltest
