// Any bytes in place of what the key stores hold, where other programs of the user can put them:
// a key, its payload in the kernel keyring, an item of the Secret Service, the mark of a process.
// What is taken is well formed and reads back; made ones always do.
#include "fuzz/Choices.h"
#include "platform/security/KeyPayload.h"
#include "platform/security/OpenSSLAccess.h"
#include "platform/security/Operations.h"
#include "platform/security/ProcessMarks.h"
#include "platform/security/SecretServiceItem.h"

#include <glib.h>

#include <algorithm>
#include <string>

namespace {

using kvl::Key;
using kvl::fuzz::Choices;
using kvl::fuzz::require;
using kvl::security::StoredKey;

bool areEqual(const StoredKey& a, const StoredKey& b) {
  return a.tag == b.tag && a.keyClass == b.keyClass && a.label == b.label &&
         a.comment == b.comment && a.description == b.description && a.encoded == b.encoded;
}

bool isStorableText(const std::string& text) {
  return text.size() <= kvl::security::kMaximumTextSize &&
         g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr) != FALSE;
}

bool isStorable(const StoredKey& key) {
  return !key.tag.empty() && isStorableText(key.tag) && isStorableText(key.label) &&
         isStorableText(key.comment) && isStorableText(key.description) && !key.encoded.empty() &&
         key.encoded.size() <= kvl::security::kMaximumKeySize;
}

std::string storedText(Choices& choices) {
  std::string text(choices.text());
  const auto size = choices.byte();
  if (size >= 0xf0) text.resize(1016 + (size & 15U), 'x');
  return text;
}

StoredKey storedKeyFrom(Choices& choices) {
  StoredKey key;
  key.keyClass = choices.yes() ? Key::Class::privateKey : Key::Class::publicKey;
  for (auto* text : {&key.tag, &key.label, &key.comment, &key.description})
    *text = storedText(choices);
  const auto bytes = choices.rest();
  key.encoded.assign(bytes.begin(), bytes.end());
  if (choices.byte() == 0xff) key.encoded.resize(16380 + choices.below(8));
  return key;
}

void checkPayload(kvl::fuzz::Input bytes) {
  const auto key = kvl::security::decodePayload(bytes);
  if (!key) return;
  require(isStorable(*key), "what is taken could be stored");
  const auto again = kvl::security::encodePayload(*key);
  const auto readAgain = kvl::security::decodePayload(again);
  require(readAgain && areEqual(*readAgain, *key), "it reads back");
  constexpr std::size_t kVersionPlace = 4;
  require(
      std::ranges::equal(again, bytes) || (bytes[kVersionPlace] == 1 && again[kVersionPlace] > 1),
      "a key has one payload only of a version");
}

void checkMadePayload(const StoredKey& key) {
  const auto payload = kvl::security::encodePayload(key);
  const auto read = kvl::security::decodePayload(payload);
  require(read.has_value() == isStorable(key), "exactly what may be stored is taken");
  require(!read || areEqual(*read, key), "it reads back");
  for (const std::size_t cut : {std::size_t{0}, payload.size() / 2, payload.size() - 1})
    require(!kvl::security::decodePayload({payload.data(), cut}), "half a payload is none");
}

// The bus carries no text that is not UTF-8.
void checkItem(const StoredKey& key) {
  for (const auto* text : {&key.tag, &key.label, &key.comment, &key.description}) {
    if (g_utf8_validate(text->data(), static_cast<gssize>(text->size()), nullptr) == FALSE) return;
  }
  const auto properties = kvl::security::itemProperties(key, "mark");
  const kvl::security::GLibPtr<GVariant> attributes(g_variant_lookup_value(
      properties.get(), "org.freedesktop.Secret.Item.Attributes", G_VARIANT_TYPE("a{ss}")));
  require(kvl::security::makerOfItem(attributes.get()) == "mark", "an item says who made it");
  GVariantBuilder builder;
  g_variant_builder_init(&builder, G_VARIANT_TYPE_VARDICT);
  g_variant_builder_add(&builder, "{sv}", "Label", g_variant_new_string(key.label.c_str()));
  g_variant_builder_add(&builder, "{sv}", "Attributes", attributes.get());
  const kvl::security::GLibPtr<GVariant> received(
      g_variant_ref_sink(g_variant_builder_end(&builder)));
  const auto read = kvl::security::keyOfItem(received.get(), kvl::security::itemValue(key).get());
  require(read.has_value() == isStorable(key), "exactly what may be stored is taken");
  require(!read || areEqual(*read, key), "it reads back");
}

// Items in the shape of any properties.
void checkOtherItem(kvl::fuzz::Input bytes) {
  const kvl::security::GLibPtr<GVariant> raw(g_variant_ref_sink(g_variant_new_from_data(
      G_VARIANT_TYPE_VARDICT, bytes.data(), bytes.size(), FALSE, nullptr, nullptr)));
  StoredKey key;
  key.encoded.assign(bytes.begin(), bytes.end());
  const auto read = kvl::security::keyOfItem(raw.get(), kvl::security::itemValue(key).get());
  require(!read || isStorable(*read), "what is taken could be stored");
}

void checkKeyBytes(kvl::fuzz::Input bytes) {
  for (const auto keyClass : {Key::Class::privateKey, Key::Class::publicKey}) {
    const auto key = kvl::security::decodeKey(bytes, keyClass);
    if (!key) continue;
    require(key->keyClass() == keyClass, "a key is of the class that was asked for");
    const auto encoded = kvl::security::encodeKey(*key);
    if (encoded.empty()) continue;
    require(kvl::security::decodeKey(encoded, keyClass) == key, "it reads back as itself");
    require(kvl::security::SecKeyCopyAttributes(key).has_value(), "it has attributes");
  }
}

// Only what a process of this machine has made can be a mark, and this one has not ended.
void checkMark(std::string_view text) {
  static const kvl::security::ProcessMarks marks;
  static const auto own = marks.own();
  const bool ended = marks.isOfEndedProcess(text);
  require(!own || !marks.isOfEndedProcess(*own), "this process has not ended");
  if (!ended) return;
  require(own && std::ranges::count(text, '.') == 3, "a mark has four parts");
  const auto place = own->substr(0, own->find('.', 2) + 1);
  require(text.starts_with(place), "only the processes of this place can be seen");
}

void checkStoredKey(kvl::fuzz::Input input) {
  checkPayload(input);
  checkKeyBytes(input);
  checkOtherItem(input);
  checkMark(kvl::fuzz::textOf(input));
  Choices choices(input);
  const auto key = storedKeyFrom(choices);
  checkMadePayload(key);
  checkItem(key);
}

const kvl::fuzz::Target storedKeys("storedkey", checkStoredKey);

}  // namespace
