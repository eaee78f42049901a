// A pipe through which a child process says something once it is ready.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <string>
#include <system_error>
#include <utility>

namespace kvltest {

class Pipe {
 public:
  // Throws std::system_error when there are no descriptors left.
  Pipe() {
    if (pipe2(ends_.data(), O_CLOEXEC) != 0) throw std::system_error(errno, std::system_category());
  }
  ~Pipe() {
    closeEnd(0);
    closeEnd(1);
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  int writeEnd() const { return ends_[1]; }

  // One line, without its end; what there was when the other side closed earlier.
  std::string readLine() {
    closeEnd(1);
    std::string line;
    char next = 0;
    while (true) {
      const ssize_t count = read(ends_[0], &next, 1);
      if (count < 0 && errno == EINTR) continue;
      if (count != 1 || next == '\n') return line;
      line.push_back(next);
    }
  }

 private:
  void closeEnd(std::size_t end) {
    if (ends_[end] >= 0) close(std::exchange(ends_[end], -1));
  }
  std::array<int, 2> ends_{-1, -1};
};

}  // namespace kvltest
