// A PDF whose streams hold any text: whether it is modest does not depend on how the text is packed
// or where in its stream it stands.
#include "fuzz/Choices.h"
#include "platform/interface/images/GLibPointers.h"
#include "platform/interface/images/PDFStructure.h"

#include <gio/gio.h>

#include <algorithm>
#include <optional>
#include <string>

namespace {

using kvl::fuzz::require;
using kvl::images::ObjectPtr;

std::string packed(const std::string& text, int level) {
  const ObjectPtr<GZlibCompressor> packer(
      g_zlib_compressor_new(G_ZLIB_COMPRESSOR_FORMAT_ZLIB, level));
  std::string result(text.size() + text.size() / 100 + 256, '\0');
  gsize read = 0;
  gsize written = 0;
  const auto state =
      g_converter_convert(G_CONVERTER(packer.get()), text.data(), text.size(), result.data(),
                          result.size(), G_CONVERTER_INPUT_AT_END, &read, &written, nullptr);
  require(state == G_CONVERTER_FINISHED, "anything can be packed");
  result.resize(written);
  return result;
}

// None where a name of the text stands in the file as it is: openly it may say less.
std::optional<bool> isModest(const std::string& open, const std::string& text, std::size_t before,
                             int level) {
  const auto stream = packed(std::string(before, ' ') + text, level);
  for (auto name = text.find('/'); name != std::string::npos; name = text.find('/', name + 1)) {
    if (stream.find(text.substr(name, 3)) != std::string::npos) return std::nullopt;
  }
  const std::string file = "%PDF-1.4\n" + open + "\nstream\r\n" + stream + "\nendstream\n%%EOF\n";
  return kvl::images::isModestPDF(
      {reinterpret_cast<const std::uint8_t*>(file.data()), file.size()});
}

// Larger than a picture may be, in a form that nobody can overlook.
bool statesTooMuch(const std::string& text) {
  return text.find("/Width 99999 /") != std::string::npos ||
         text.find("/Height 99999 /") != std::string::npos;
}

// The open part up to a line end, and what is packed.
void checkPackedPDF(kvl::fuzz::Input input) {
  kvl::fuzz::Choices choices(input);
  const auto before = choices.number(2) * 2;  // across the pieces in which it is unpacked
  const int level = static_cast<int>(choices.below(10));
  const auto all = choices.rest();
  const std::string open(all.substr(0, all.find('\n')));
  const std::string text(all.substr(std::min(open.size() + 1, all.size())));
  if (open.find("stream") != std::string::npos) return;  // begins a stream of its own
  const auto modest = isModest(open, text, 0, 6);
  const auto other = isModest(open, text, before, level);
  if (!modest || !other) return;
  require(*modest == *other, "packing makes no difference");
  require(!*modest || !(statesTooMuch(open) || statesTooMuch(text)), "too much is refused");
}

const kvl::fuzz::Target packedPDF("packedpdf", checkPackedPDF);

}  // namespace
