// Draws one icon in a process that has drawn none, and prints the milliseconds that this took. With
// "prepared" the decoder has been there for a while.
#include "bench/Icon.h"

#include <local/platform/Image.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <thread>

namespace {

bool draw(const kvl::Data& icon) {
  const auto image = kvl::Image::imageWithData(icon);
  if (!image) return false;
  image->setSize({kvlbench::kIconSide, kvlbench::kIconSide});
  return !image->rasterised(1).empty();
}

}  // namespace

int main(int count, char** arguments) {
  const auto data = kvlbench::icon(0);
  if (count > 1 && std::string_view(arguments[1]) == "prepared") {
    // What another image has started goes on while the host does something else.
    if (!draw(kvlbench::icon(1))) return EXIT_FAILURE;
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
  }
  const auto start = std::chrono::steady_clock::now();
  if (!draw(data)) return EXIT_FAILURE;
  const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - start;
  std::printf("%.3f\n", time.count());
  return EXIT_SUCCESS;
}
