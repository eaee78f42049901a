#include "platform/ipc/NotaryMessage.h"

#include <utility>

namespace kvl::ipc {
namespace {

VariantPtr adopt(GVariant* floating) {
  return VariantPtr(g_variant_ref_sink(floating));
}

VariantPtr variantFromData(const Data& data) {
  return adopt(g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, data.data(), data.size(), 1));
}

VariantPtr variantFromTexts(const Array& array) {
  GVariantBuilder builder;
  g_variant_builder_init(&builder, G_VARIANT_TYPE_STRING_ARRAY);
  bool carried = true;
  for (const Value& element : array) {
    const std::optional<std::string_view> text = element.string();
    const VariantPtr variant = text ? variantFromText(*text) : nullptr;
    carried = variant != nullptr;
    if (!carried) break;
    g_variant_builder_add_value(&builder, variant.get());
  }
  if (carried) return adopt(g_variant_builder_end(&builder));
  g_variant_builder_clear(&builder);
  return nullptr;
}

bool addEntry(GVariantBuilder& builder, const Dictionary::Entry& entry, int depth) {
  const VariantPtr key = variantFromText(entry.first);
  const VariantPtr value = variantFromValue(entry.second, depth);
  if (!key || !value) return false;
  g_variant_builder_add_value(
      &builder, g_variant_new_dict_entry(key.get(), g_variant_new_variant(value.get())));
  return true;
}

std::string_view textOf(GVariant* variant) {
  gsize length = 0;
  const char* text = g_variant_get_string(variant, &length);
  return {text, length};
}

Value dataFromVariant(GVariant* variant) {
  gsize size = 0;
  const auto* bytes =
      static_cast<const std::uint8_t*>(g_variant_get_fixed_array(variant, &size, 1));
  return Data(Bytes(bytes, bytes + size));
}

Value textsFromVariant(GVariant* variant) {
  std::vector<Value> texts;
  const gsize count = g_variant_n_children(variant);
  for (gsize index = 0; index < count; ++index) {
    const VariantPtr text(g_variant_get_child_value(variant, index));
    texts.emplace_back(textOf(text.get()));
  }
  return Array(std::move(texts));
}

VariantPtr optionalText(const std::optional<std::string>& text) {
  VariantPtr element = text ? variantFromText(*text) : nullptr;
  if (text && !element) return nullptr;
  GVariant* children[] = {element.get()};
  return VariantPtr(
      g_variant_ref_sink(g_variant_new_array(G_VARIANT_TYPE_STRING, children, element ? 1 : 0)));
}

std::optional<Error> readError(GVariant* element) {
  const char* domain = nullptr;
  gint64 code = 0;
  GVariant* entries = nullptr;
  g_variant_get(element, "(&sx@a{sv})", &domain, &code, &entries);
  const VariantPtr owner(entries);
  const std::optional<Dictionary> userInfo = dictionaryFromVariant(entries);
  if (!userInfo) return std::nullopt;
  return Error(domain, code, *userInfo);
}

}  // namespace

VariantPtr variantFromText(std::string_view text) {
  // With a length given, GLib takes an embedded NUL for invalid too.
  if (!g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr)) return nullptr;
  return adopt(g_variant_new_take_string(g_strndup(text.data(), text.size())));
}

VariantPtr variantFromDictionary(const Dictionary& dictionary, int depth) {
  if (depth > kMaximumDictionaryDepth) return nullptr;
  GVariantBuilder builder;
  g_variant_builder_init(&builder, G_VARIANT_TYPE_VARDICT);
  for (const Dictionary::Entry& entry : dictionary) {
    if (addEntry(builder, entry, depth + 1)) continue;
    g_variant_builder_clear(&builder);
    return nullptr;
  }
  return adopt(g_variant_builder_end(&builder));
}

VariantPtr variantFromValue(const Value& value, int depth) {
  switch (value.kind()) {
    case Value::Kind::boolean:
      return adopt(g_variant_new_boolean(*value.boolean() ? TRUE : FALSE));
    case Value::Kind::integer:
      return adopt(g_variant_new_int64(*value.integer()));
    case Value::Kind::real:
      return adopt(g_variant_new_double(*value.real()));
    case Value::Kind::string:
      return variantFromText(*value.string());
    case Value::Kind::data:
      return variantFromData(*value.data());
    case Value::Kind::array:
      return variantFromTexts(*value.array());
    case Value::Kind::dictionary:
      return variantFromDictionary(*value.dictionary(), depth);
    case Value::Kind::null:
    case Value::Kind::date:
    case Value::Kind::object:
      break;
  }
  return nullptr;
}

std::optional<Value> valueFromVariant(GVariant* variant, int depth) {
  const std::string_view type = g_variant_get_type_string(variant);
  if (type == "s") return textOf(variant);
  if (type == "b") return g_variant_get_boolean(variant) != FALSE;
  if (type == "x") return std::int64_t{g_variant_get_int64(variant)};
  if (type == "t") return std::uint64_t{g_variant_get_uint64(variant)};
  if (type == "d") return g_variant_get_double(variant);
  if (type == "as") return textsFromVariant(variant);
  if (type == "ay") return dataFromVariant(variant);
  if (type != "a{sv}") return std::nullopt;
  std::optional<Dictionary> dictionary = dictionaryFromVariant(variant, depth);
  return dictionary ? std::optional<Value>(*dictionary) : std::nullopt;
}

std::optional<Dictionary> dictionaryFromVariant(GVariant* variant, int depth) {
  if (depth > kMaximumDictionaryDepth) return std::nullopt;
  Dictionary dictionary;
  const gsize count = g_variant_n_children(variant);
  for (gsize index = 0; index < count; ++index) {
    const VariantPtr entry(g_variant_get_child_value(variant, index));
    const VariantPtr key(g_variant_get_child_value(entry.get(), 0));
    const VariantPtr box(g_variant_get_child_value(entry.get(), 1));
    const VariantPtr content(g_variant_get_variant(box.get()));
    std::optional<Value> value = valueFromVariant(content.get(), depth + 1);
    if (!value) return std::nullopt;
    dictionary.set(textOf(key.get()), std::move(*value));
  }
  return dictionary;
}

VariantPtr makeNotaryRequest(const ServiceRequest& request) {
  const VariantPtr pathVariant = optionalText(request.path);
  const VariantPtr requestVariant = variantFromDictionary(request.entries);
  if (!pathVariant || !requestVariant) return nullptr;
  GVariant* children[] = {pathVariant.get(), requestVariant.get()};
  return VariantPtr(g_variant_ref_sink(g_variant_new_tuple(children, std::size(children))));
}

std::optional<ServiceReply> readNotaryReply(GVariant* reply) {
  const VariantPtr replies(g_variant_get_child_value(reply, 0));
  const VariantPtr errors(g_variant_get_child_value(reply, 1));
  const gsize replyCount = g_variant_n_children(replies.get());
  const gsize errorCount = g_variant_n_children(errors.get());
  if (replyCount > 1 || errorCount > 1) return std::nullopt;

  ServiceReply result;
  if (errorCount == 1) {
    const VariantPtr element(g_variant_get_child_value(errors.get(), 0));
    result.error = readError(element.get());
    if (!result.error) return std::nullopt;
  } else if (replyCount == 1) {
    const VariantPtr element(g_variant_get_child_value(replies.get(), 0));
    result.entries = dictionaryFromVariant(element.get());
    if (!result.entries) return std::nullopt;
    if (result.entries->empty()) result.entries.reset();
  }
  return result;
}

}  // namespace kvl::ipc
