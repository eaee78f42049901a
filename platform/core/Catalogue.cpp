#include "platform/core/Catalogue.h"

#include "platform/core/UTF8.h"

#include <cstring>

namespace kvl::core {
namespace {

constexpr std::uint32_t kMagic = 0x950412DE;
constexpr std::uint32_t kSwappedMagic = 0xDE120495;
constexpr std::size_t kRevisionOffset = 4;
constexpr std::size_t kSizeOffset = 8;
constexpr std::uint32_t kMostRevision = 1 << 16;  // the major one is the upper half
constexpr std::size_t kEntrySize = 8;
constexpr char kContextEnd = '\4';

// Up to the NUL behind which the other forms stand.
std::string_view firstForm(std::string_view forms) {
  return forms.substr(0, forms.find('\0'));
}

std::optional<std::string_view> formAt(std::string_view forms, std::size_t index) {
  for (; index > 0; --index) {
    const std::size_t end = forms.find('\0');
    if (end == std::string_view::npos) return std::nullopt;
    forms.remove_prefix(end + 1);
  }
  return firstForm(forms);
}

std::string_view lineOf(std::string_view head, std::string_view name) {
  const std::size_t at = head.find(name);
  if (at == std::string_view::npos) return {};
  head.remove_prefix(at + name.size());
  return head.substr(0, head.find('\n'));
}

}  // namespace

std::unique_ptr<const Catalogue> Catalogue::make(std::string content) {
  std::unique_ptr<Catalogue> catalogue(new Catalogue(std::move(content)));
  return catalogue->isSound() ? std::move(catalogue) : nullptr;
}

bool Catalogue::isSound() {
  const auto magic = numberAt(0);
  if (magic != kMagic && magic != kSwappedMagic) return false;
  isSwapped_ = magic == kSwappedMagic;
  const auto revision = numberAt(kRevisionOffset);
  const auto size = numberAt(kSizeOffset);
  if (!revision || *revision > kMostRevision || !size) return false;
  for (std::size_t i = 0; i < *size; ++i) {
    const auto text = entry(Table::translations, i);
    if (!entry(Table::originals, i) || !text || !isUTF8(*text)) return false;
  }
  size_ = *size;
  const auto head = translation("").value_or("");
  plurals_ = PluralForms::parse(lineOf(head, "Plural-Forms:"));
  return lineOf(head, "charset=").starts_with("UTF-8");
}

std::optional<std::uint32_t> Catalogue::numberAt(std::size_t offset) const {
  std::uint32_t number = 0;
  if (content_.size() < sizeof number || offset > content_.size() - sizeof number)
    return std::nullopt;
  std::memcpy(&number, content_.data() + offset, sizeof number);
  return isSwapped_ ? __builtin_bswap32(number) : number;
}

std::optional<std::string_view> Catalogue::entry(Table table, std::size_t index) const {
  const auto begin = numberAt(static_cast<std::size_t>(table));
  if (!begin) return std::nullopt;
  const std::size_t at = *begin + index * kEntrySize;
  const auto length = numberAt(at);
  const auto offset = numberAt(at + sizeof(std::uint32_t));
  if (!length || !offset || *offset > content_.size() || *length > content_.size() - *offset)
    return std::nullopt;
  return std::string_view(content_).substr(*offset, *length);
}

std::string_view Catalogue::original(std::size_t index) const {
  return firstForm(entry(Table::originals, index).value_or(""));
}

// They are in the order of their bytes.
std::optional<std::string_view> Catalogue::translation(std::string_view key) const {
  std::size_t begin = 0;
  for (std::size_t end = size_; begin < end;) {
    const std::size_t middle = begin + (end - begin) / 2;
    if (original(middle) < key) {
      begin = middle + 1;
    } else {
      end = middle;
    }
  }
  if (begin == size_ || original(begin) != key) return std::nullopt;
  return entry(Table::translations, begin);
}

std::optional<std::string_view> Catalogue::find(const Message& message) const {
  if (message.english.empty()) return std::nullopt;  // it stands for the head
  std::string key(message.context);
  if (!key.empty()) key += kContextEnd;
  key += message.english;
  const auto forms = translation(key);
  if (!forms) return std::nullopt;
  if (message.count && !plurals_) return std::nullopt;
  const auto form = formAt(*forms, message.count ? plurals_->formFor(*message.count) : 0);
  return form && !form->empty() ? form : std::nullopt;
}

}  // namespace kvl::core
