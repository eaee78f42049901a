// A host that tells which libraries are in its process before and after it uses something.
#include <local/platform/Log.h>
#include <local/platform/UpdateCount.h>
#include <local/platform/Workspace.h>

#include <fstream>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

namespace {

bool isMapped(const std::string& library) {
  std::ifstream mappings("/proc/self/maps");
  for (std::string line; std::getline(mappings, line);)
    if (line.find(library) != std::string::npos) return true;
  return false;
}

void tell(const char* moment) {
  std::cout << moment << ": ICU " << (isMapped("libicui18n") ? "is" : "is not") << " there, GIO "
            << (isMapped("libgio") ? "is" : "is not") << " there\n";
}

// From several threads at once.
std::string counted() {
  std::vector<std::string> texts(4);
  std::vector<std::thread> threads;
  for (std::string& text : texts)
    threads.emplace_back([&text] { text = kvl::localizedUpdateCount(3, "de_DE"); });
  for (std::thread& thread : threads) thread.join();
  for (const std::string& text : texts)
    if (text != texts.front()) return "different texts";
  return texts.front();
}

}  // namespace

int main() {
  kvl::setLogSink([](std::string_view line) { std::cout << "log: " << line << "\n"; });
  tell("at the start");
  std::cout << counted() << "\n" << kvl::localizedUpdateCount(1, "de_DE") << "\n";
  tell("after a text");
  std::cout << (kvl::openURL("kvl-unknown-scheme:x") ? "opened" : "not opened") << "\n";
  tell("after a URL");
}
