#include "platform/interface/decoder/Program.h"

#include <unistd.h>

// Ends without the steps of exit(): nothing is to be kept, and loaded modules have many.
int main() {
  _exit(kvl::decoder::run({}));
}
