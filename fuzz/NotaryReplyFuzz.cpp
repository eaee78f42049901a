// Replies made from the bytes, of types that the protocol has and of others: they read as what they
// were made from, or not at all. Any bytes in place of a reply: they read as what GLib takes them
// for. What is read can be sent, and reads back.
#include "fuzz/Choices.h"
#include "platform/ipc/NotaryMessage.h"

#include <local/KVLNotary.h>

#include <cstring>
#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace {

using kvl::Value;
using kvl::fuzz::Choices;
using kvl::fuzz::require;
using kvl::ipc::VariantPtr;

// A variant, and the value that it stands for: none when no reply may hold it.
struct Sent {
  VariantPtr variant;
  std::optional<Value> value;
};

VariantPtr owned(GVariant* floating) {
  return VariantPtr(g_variant_ref_sink(floating));
}

// Something of UTF-8 without NUL.
std::string textFrom(Choices& choices) {
  const std::string bytes(choices.text(choices.byte() & 31U));
  const std::unique_ptr<char, decltype(&g_free)> valid(
      g_utf8_make_valid(bytes.data(), static_cast<gssize>(bytes.size())), g_free);
  return valid.get();
}

std::string keyFrom(Choices& choices) {
  constexpr std::array<const char*, 5> kKeys{"url", "anchor", "certificate", "", "x"};
  return choices.yes() ? choices.of(kKeys) : textFrom(choices);
}

Sent sentTexts(Choices& choices) {
  GVariantBuilder builder;
  g_variant_builder_init(&builder, G_VARIANT_TYPE_STRING_ARRAY);
  kvl::Array texts;
  for (auto count = choices.below(4); count > 0; --count) {
    const auto text = textFrom(choices);
    g_variant_builder_add(&builder, "s", text.c_str());
    texts.append(text);
  }
  return {owned(g_variant_builder_end(&builder)), texts};
}

Sent sentBytes(Choices& choices) {
  const auto text = choices.text();
  return {owned(g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, text.data(), text.size(), 1)),
          Value(kvl::Data::fromText(text))};
}

Value largeNumber(std::uint64_t number) {
  constexpr auto kLargest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  return number <= kLargest ? Value(static_cast<std::int64_t>(number))
                            : Value(static_cast<double>(number));
}

Sent sentNumber(Choices& choices, std::size_t kind) {
  const auto number = choices.number(8);
  double real = 0;
  std::memcpy(&real, &number, sizeof real);
  if (kind == 0) return {owned(g_variant_new_boolean((number & 1U) != 0)), (number & 1U) != 0};
  if (kind == 1)
    return {owned(g_variant_new_int64(static_cast<gint64>(number))),
            Value(static_cast<std::int64_t>(number))};
  if (kind == 2) return {owned(g_variant_new_uint64(number)), largeNumber(number)};
  return {owned(g_variant_new_double(real)), Value(real)};
}

// Of a type that no reply may hold.
Sent sentOther(Choices& choices) {
  constexpr std::array<const char*, 12> kOthers{
      "uint32 1",          "int32 1",     "byte 0x01",  "int16 1", "<true>",
      "('a', 'b')",        "[true]",      "{'a': 'b'}", "@ao []",  "objectpath '/'",
      "signature 'a{sv}'", "@mas nothing"};
  return {owned(g_variant_new_parsed(choices.of(kOthers))), std::nullopt};
}

Sent sentDictionary(Choices& choices, int depth);

Sent sentValue(Choices& choices, int depth) {
  const auto kind = choices.below(10);
  if (kind < 4) return sentNumber(choices, kind);
  if (kind == 4) return sentTexts(choices);
  if (kind == 5) return sentBytes(choices);
  if (kind == 6 && choices.below(4) == 0) return sentOther(choices);
  if (kind >= 8) return sentDictionary(choices, depth + 1);
  const auto text = textFrom(choices);
  return {owned(g_variant_new_string(text.c_str())), Value(text)};
}

// Of two entries with one key the later counts.
Sent sentDictionary(Choices& choices, int depth) {
  GVariantBuilder builder;
  g_variant_builder_init(&builder, G_VARIANT_TYPE_VARDICT);
  kvl::Dictionary all;
  bool readable = depth <= kvl::ipc::kMaximumDictionaryDepth;
  for (auto count = choices.below(4); count > 0 && depth < 20; --count) {
    const auto key = keyFrom(choices);
    const auto sent = sentValue(choices, depth);
    g_variant_builder_add(&builder, "{sv}", key.c_str(), sent.variant.get());
    readable = readable && sent.value;
    if (sent.value) all.set(key, *sent.value);
  }
  return {owned(g_variant_builder_end(&builder)),
          readable ? std::optional<Value>(all) : std::nullopt};
}

// What is in a reply: what the framework must make of it.
struct Reply {
  VariantPtr variant;
  bool readable = true;
  std::optional<Value> entries;
  std::optional<std::pair<std::int64_t, Value>> error;
};

Reply replyFrom(Choices& choices) {
  Reply reply;
  const auto shape = choices.byte();
  const auto replies = shape % 4 == 3 ? 2U : shape % 4 == 2 ? 0U : 1U;
  const auto errors = shape / 4 % 4 == 3 ? 2U : shape / 4 % 4 == 2 ? 1U : 0U;
  GVariantBuilder first;
  GVariantBuilder second;
  g_variant_builder_init(&first, G_VARIANT_TYPE("aa{sv}"));
  g_variant_builder_init(&second, G_VARIANT_TYPE("a(sxa{sv})"));
  Sent entries;
  Sent userInfo;
  std::int64_t code = 0;
  for (auto i = 0U; i < replies; ++i) {
    entries = sentDictionary(choices, 0);
    g_variant_builder_add_value(&first, entries.variant.get());
  }
  for (auto i = 0U; i < errors; ++i) {
    userInfo = sentDictionary(choices, 0);
    code = static_cast<std::int64_t>(choices.number(8));
    g_variant_builder_add(&second, "(sx@a{sv})", "domain", code, userInfo.variant.get());
  }
  reply.variant = owned(g_variant_new("(aa{sv}a(sxa{sv}))", &first, &second));
  const auto& counting = errors == 1 ? userInfo : entries;
  reply.readable = replies <= 1 && errors <= 1 && (replies + errors == 0 || counting.value);
  if (errors == 1 && userInfo.value) reply.error = {code, *userInfo.value};
  if (errors == 0) reply.entries = entries.value;
  return reply;
}

void checkCertificates(const kvl::Dictionary& entries) {
  const auto url = KVLNotary::baseURL(entries["url"]);
  require(!url || (url->scheme() == "https" && !url->host().value_or("").empty()),
          "the service's address is secure and names a host");
  for (const char* key : {"anchor", "certificate"}) {
    kvl::CertificateRef certificate;
    const auto error = KVLNotary::decode(entries[key].string(), &certificate);
    require(!error || !certificate, "there is no certificate beside an error");
  }
}

void sendBack(const kvl::Dictionary& entries) {
  const auto again = kvl::ipc::variantFromDictionary(entries);
  require(again != nullptr, "what was read can be sent");
  const auto read = kvl::ipc::dictionaryFromVariant(again.get());
  // Not compared as values: a number that is none equals nothing.
  require(read && Value(*read).description() == Value(entries).description(), "it reads back");
  const auto request = kvl::ipc::makeNotaryRequest({"path", entries});
  require(request && g_variant_is_of_type(request.get(), G_VARIANT_TYPE("(asa{sv})")),
          "it can be asked for");
}

void checkMadeReply(Choices& choices) {
  const auto made = replyFrom(choices);
  const auto read = kvl::ipc::readNotaryReply(made.variant.get());
  require(read.has_value() == made.readable, "exactly what the protocol has is read");
  if (!read) return;
  require(read->error.has_value() == made.error.has_value(), "an error is read as one");
  if (read->error) {
    require(read->error->code() == made.error->first && read->error->domain() == "domain",
            "the error is the same");
    require(Value(read->error->userInfo()).description() == made.error->second.description(),
            "the error says the same");
    require(!read->entries, "the error wins");
    return;
  }
  const auto entries = made.entries ? *made.entries->dictionary() : kvl::Dictionary();
  require(read->entries.has_value() == !entries.empty(), "a reply without entries is absent");
  if (!read->entries) return;
  require(Value(*read->entries).description() == Value(entries).description(),
          "the entries are the same");
  checkCertificates(*read->entries);
  sendBack(*read->entries);
}

std::string descriptionOf(const std::optional<kvl::ipc::ServiceReply>& reply) {
  if (!reply) return "none";
  return reply->error ? reply->error->description()
                      : Value(reply->entries.value_or(kvl::Dictionary())).description();
}

// On the bus nothing arrives that is not in normal form; whatever else would read as that.
void checkRawReply(Choices& choices) {
  const std::string bytes(choices.rest());
  const auto raw =
      owned(g_variant_new_from_data(G_VARIANT_TYPE(kvl::ipc::kNotaryReplyType), bytes.data(),
                                    bytes.size(), FALSE, nullptr, nullptr));
  const VariantPtr normal(g_variant_get_normal_form(raw.get()));
  require(descriptionOf(kvl::ipc::readNotaryReply(raw.get())) ==
              descriptionOf(kvl::ipc::readNotaryReply(normal.get())),
          "any bytes read as their normal form");
}

void checkNotaryReply(kvl::fuzz::Input input) {
  Choices choices(input);
  if (choices.byte() % 8 == 7) {
    checkRawReply(choices);
  } else {
    checkMadeReply(choices);
  }
}

const kvl::fuzz::Target notaryReply("notaryreply", checkNotaryReply);

}  // namespace
