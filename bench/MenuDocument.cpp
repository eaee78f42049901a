#include "bench/MenuDocument.h"

#include <array>
#include <string_view>

namespace kvlbench {
namespace {

constexpr std::array<std::string_view, 8> kWords = {
    "Open",        "recent documents", "Größe",   "Synchronise with",
    "the service", "日本語",           "Export…", "now"};

class Generator {
 public:
  std::string document(std::size_t size) {
    text_ = R"({"version":3,"locale":"en_GB","items":[)";
    for (std::size_t i = 0; text_.size() < size; ++i) {
      if (i > 0) text_ += ',';
      appendItem(i % 4 == 0 ? 3 : 0);
    }
    return text_ + "]}";
  }

 private:
  void appendItem(int children) {
    const std::size_t number = number_++;
    text_ += R"({"title":")" + words(1 + number % 4) + R"(","identifier":"korvale.menu.item.)" +
             std::to_string(number) + R"(")";
    if (number % 3 != 0) text_ += R"(,"subtitle":")" + words(2 + number % 5) + '"';
    text_ += R"(,"enabled":)" + std::string(number % 5 != 0 ? "true" : "false");
    text_ += R"(,"hidden":false,"badge":)" + std::to_string(number * 7919 % 100'000);
    if (number % 4 == 0) text_ += R"(,"width":)" + std::to_string(number % 640) + ".5";
    if (number % 6 == 0) text_ += R"(,"image":null)";
    if (number % 9 == 0) text_ += R"(,"tooltip":"Says \"more\"\n\u00e4bout it")";
    if (number % 2 == 0) appendForm(number);
    appendChildren(children);
    text_ += '}';
  }

  void appendForm(std::size_t number) {
    text_ += R"(,"form":{"action":"/menu/select?item=)" + std::to_string(number) +
             R"(","method":"POST","inputs":[{"name":"choice","type":"text","value":")" + words(1) +
             R"("},{"name":"count","type":"number","value":)" + std::to_string(number % 12) + "}]}";
  }

  void appendChildren(int children) {
    if (children == 0) return;
    text_ += R"(,"items":[)";
    for (int i = 0; i < children; ++i) {
      if (i > 0) text_ += ',';
      appendItem(0);
    }
    text_ += ']';
  }

  std::string words(std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
      if (i > 0) text += ' ';
      text += kWords[word_ * 5 % 8];
      word_ += word_ % 11 == 0 ? 2 : 1;
    }
    return text;
  }

  std::string text_;
  std::size_t number_ = 0;
  std::size_t word_ = 0;
};

}  // namespace

std::string menuDocument(std::size_t size) {
  return Generator().document(size);
}

}  // namespace kvlbench
