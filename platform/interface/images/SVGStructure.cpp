#include "platform/interface/images/SVGStructure.h"

#include "platform/core/ASCII.h"
#include "platform/interface/images/Limits.h"

#include <glib.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kvl::images {
namespace {

constexpr std::array<std::string_view, 6> kLayerProperties{
    "opacity", "filter", "mask", "clip-path", "mix-blend-mode", "isolation"};
constexpr std::array<std::string_view, 6> kHarmlessValues{"1",    "1.0",    "100%",
                                                          "none", "normal", "auto"};

bool isHarmless(std::string_view value) {
  return std::ranges::count(kHarmlessValues, ascii::trimmed(value)) > 0;
}

bool endsName(std::string_view text, std::size_t position) {
  if (position == 0) return true;
  const char before = text[position - 1];
  return before != '-' && !ascii::isLetter(before);
}

// The value that follows a property's name, or more than that.
std::string_view valueAfter(std::string_view style, std::size_t position) {
  auto rest = ascii::trimmed(style.substr(position));
  if (rest.starts_with(':')) rest.remove_prefix(1);
  return rest.substr(0, rest.find_first_of(";}"));
}

std::size_t layersOfProperty(std::string_view style, std::string_view property) {
  std::size_t layers = 0;
  for (auto found = style.find(property); found != std::string_view::npos;
       found = style.find(property, found + 1)) {
    const bool counts =
        endsName(style, found) && !isHarmless(valueAfter(style, found + property.size()));
    layers += counts ? 1 : 0;
  }
  return layers;
}

// Whether an attribute or a style sheet may hold another file, be it hidden from a plain search: by
// blanks, which addresses drop, or by escapes.
bool mayEmbedFile(std::string_view text) {
  if (text.find('\\') != std::string_view::npos) return true;
  std::string dense;
  for (const char character : text) {
    if (static_cast<unsigned char>(character) > ' ') dense += ascii::toLower(character);
  }
  return dense.find("data:") != std::string::npos;
}

// Whether the property or attribute makes the renderer draw to a surface of its own.
bool makesLayer(std::string_view name, std::string_view value) {
  return std::ranges::count(kLayerProperties, name) > 0 && !isHarmless(value);
}

// How often style declarations name such a property.
std::size_t layersInStyle(std::string_view style) {
  std::string low(style);
  std::ranges::transform(low, low.begin(), ascii::toLower);
  std::size_t layers = 0;
  for (const auto property : kLayerProperties) layers += layersOfProperty(low, property);
  return layers;
}

// Whether the XML declaration, without its brackets, leaves the text in UTF-8.
bool declaresUTF8(std::string_view declaration) {
  auto at = declaration.find("encoding");
  if (at == std::string_view::npos) return true;
  at = declaration.find_first_of("\"'", at);
  if (at == std::string_view::npos) return false;
  std::string name(declaration.substr(at + 1, declaration.find(declaration[at], at + 1) - at - 1));
  std::ranges::transform(name, name.begin(), ascii::toLower);
  return name == "utf-8" || name == "utf8" || name == "us-ascii";
}

constexpr double kMaximumDashes = 100'000;
// A closed curve is longer than the sum of the numbers that place it.
constexpr double kLengthForNumbers = 8;
constexpr std::string_view kDashes = "stroke-dasharray";
constexpr std::array<std::string_view, 5> kWithoutLengths{"id", "class", "fill", "stroke", "href"};

// The sum of all numbers in the text, signs left out.
double sumOfNumbers(std::string_view text) {
  double sum = 0;
  while (!text.empty()) {
    if (!ascii::isDigit(text.front()) && text.front() != '.') {
      text.remove_prefix(1);
      continue;
    }
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error == std::errc::result_out_of_range) return HUGE_VAL;
    sum += number;
    text.remove_prefix(std::max<std::size_t>(static_cast<std::size_t>(end - text.data()), 1));
  }
  return sum;
}

// Adds up a document's elements. Each dash takes memory, however short it is, and lines may go far
// outside the drawing: the longest line is estimated from the numbers of its element.
class DashCosts {
 public:
  // An attribute or a style sheet of the element that is looked at now.
  void take(std::string_view name, std::string_view value);
  void endOfElement();

  [[nodiscard]] bool areModest() const;

 private:
  void takeDashes(std::string_view value);

  bool dashed_ = false;
  bool unknown_ = false;  // lengths that numbers alone do not tell
  double shortest_ = 1e9;
  double length_ = 0;
  double longest_ = 0;
};

void DashCosts::takeDashes(std::string_view value) {
  const auto text = value.substr(0, value.find_first_of(";}"));
  const bool remarked = text.find("/*") != std::string_view::npos;
  if (!remarked && text.find("none") != std::string_view::npos) return;
  dashed_ = true;
  shortest_ = std::min(shortest_, sumOfNumbers(text));
  unknown_ = unknown_ || remarked || text.find_first_of("%emi") != std::string_view::npos;
}

void DashCosts::take(std::string_view name, std::string_view value) {
  if (name.starts_with("xmlns") || std::ranges::count(kWithoutLengths, name) > 0) return;
  if (name == kDashes) return takeDashes(value);
  for (auto found = value.find(kDashes); found != std::string_view::npos;
       found = value.find(kDashes, found + 1)) {
    takeDashes(value.substr(found + kDashes.size()));
  }
  const bool mirrors = name == "d" && value.find_first_of("tT") != std::string_view::npos;
  unknown_ = unknown_ || mirrors || name == "vector-effect" ||
             value.find("vector-effect") != std::string_view::npos;
  length_ += sumOfNumbers(value);
}

void DashCosts::endOfElement() {
  longest_ = std::max(longest_, length_);
  length_ = 0;
}

bool DashCosts::areModest() const {
  return !dashed_ || (!unknown_ && longest_ * kLengthForNumbers <= kMaximumDashes * shortest_);
}

std::string_view localName(std::string_view name) {
  const auto colon = name.rfind(':');
  return colon == std::string_view::npos ? name : name.substr(colon + 1);
}

// Attributes of editors' own vocabularies are not looked at by the renderer.
bool isRendered(std::string_view attribute) {
  return attribute.find(':') == std::string_view::npos || attribute.starts_with("xlink:") ||
         localName(attribute) == "href";
}

// Elements that draw other elements once more, wherever those stand.
bool drawsOthers(std::string_view element) {
  return element == "use" || element == "marker" || element == "mask" || element == "clipPath" ||
         element == "feImage" || element == "switch";
}

// Adds up what a document would cost while a parser goes through it.
class Costs {
 public:
  // False when the document is not to be drawn.
  bool begin(std::string_view element, const char** names, const char** values) {
    const auto name = localName(element);
    if (elements_ == 0 && name != "svg") return false;
    // The renderer would read the sheet without what stands in there.
    if (isWithin(&Element::inStyle)) return false;
    referring_ = referring_ || drawsOthers(name);
    effects_ += name.starts_with("fe") ? 1 : 0;
    std::size_t layers = 0;
    for (; *names != nullptr; ++names, ++values) {
      if (isRendered(*names) && !takeAttribute(*names, *values)) return false;
      layers += std::string_view(*names) == "style" ? layersInStyle(*values)
                                                    : std::size_t{makesLayer(*names, *values)};
    }
    dashes_.endOfElement();
    return name != "pattern" &&
           push({layers, name == "text" || isWithin(&Element::inText), name == "style"});
  }

  void end() {
    nested_ -= open_.back().layers;
    // Each sheet ends what it left open.
    if (open_.back().inStyle) styles_ += '}';
    open_.pop_back();
  }

  bool text(std::string_view text) {
    if (isWithin(&Element::inStyle)) styles_ += text;
    if (isWithin(&Element::inText)) glyphs_ += text.size();
    return glyphs_ <= kMaximumSVGGlyphs && styles_.size() <= kMaximumSVGText;
  }

  // The style sheets, once all of them are there: comments and the like may stand between the
  // pieces of a word. False when the document is not to be drawn.
  bool takeStyles() {
    styledLayers_ = layersInStyle(styles_) > 0;
    dashes_.take("style", styles_);
    dashes_.endOfElement();
    return !mayEmbedFile(styles_);
  }

  // Comments, declarations, instructions and sections of plain text.
  bool passthrough(std::string_view text) {
    if (text.starts_with("<?xml ")) return declaresUTF8(text);
    if (text.starts_with("<!DOCTYPE")) return text.find('[') == std::string_view::npos;
    if (text.starts_with("<?")) return !mayEmbedFile(text);
    return true;
  }

  [[nodiscard]] std::size_t layers() const {
    const auto all = total_ + (styledLayers_ ? elements_ : 0);
    // A mask takes two surfaces, and the drawing itself one.
    return 2 * (referring_ || styledLayers_ ? all : deepest_) + effects_ + 1;
  }

  [[nodiscard]] bool areModest() const { return elements_ > 0 && dashes_.areModest(); }

 private:
  struct Element {
    std::size_t layers;
    bool inText;
    bool inStyle;
  };

  [[nodiscard]] bool isWithin(bool Element::* kind) const {
    return !open_.empty() && open_.back().*kind;
  }

  bool takeAttribute(std::string_view name, std::string_view value) {
    dashes_.take(name, value);
    return value.size() <= kMaximumSVGText && !mayEmbedFile(value);
  }

  bool push(Element element) {
    open_.push_back(element);
    nested_ += element.layers;
    total_ += element.layers;
    deepest_ = std::max(deepest_, nested_);
    return ++elements_ <= kMaximumSVGElements && open_.size() <= kMaximumSVGDepth;
  }

  std::vector<Element> open_;  // what is not closed yet
  std::size_t nested_ = 0;
  std::size_t deepest_ = 0;
  std::size_t total_ = 0;
  std::size_t elements_ = 0;
  std::size_t effects_ = 0;
  std::string styles_;
  std::size_t glyphs_ = 0;
  DashCosts dashes_;
  bool referring_ = false;
  bool styledLayers_ = false;
};

void stopUnless(bool good, GError** error) {
  if (!good) g_set_error_literal(error, G_MARKUP_ERROR, G_MARKUP_ERROR_INVALID_CONTENT, "refused");
}

Costs& costsOf(gpointer data) {
  return *static_cast<Costs*>(data);
}

void onBegin(GMarkupParseContext* /*context*/, const char* element, const char** names,
             const char** values, gpointer data, GError** error) {
  stopUnless(costsOf(data).begin(element, names, values), error);
}

void onEnd(GMarkupParseContext* /*context*/, const char* /*element*/, gpointer data,
           GError** /*error*/) {
  costsOf(data).end();
}

void onText(GMarkupParseContext* /*context*/, const char* text, gsize size, gpointer data,
            GError** error) {
  stopUnless(costsOf(data).text({text, size}), error);
}

void onPassthrough(GMarkupParseContext* /*context*/, const char* text, gsize size, gpointer data,
                   GError** error) {
  stopUnless(costsOf(data).passthrough({text, size}), error);
}

struct ContextRelease {
  void operator()(GMarkupParseContext* context) const noexcept {
    g_markup_parse_context_free(context);
  }
};

Span withoutByteOrderMark(Span bytes) {
  const bool marked = bytes.size() >= 3 && bytes[0] == 0xEF && bytes[1] == 0xBB && bytes[2] == 0xBF;
  return bytes.subspan(marked ? 3 : 0);
}

}  // namespace

// GLib's parser knows no entities but the predefined ones, so it ends at any that is declared.
std::optional<std::size_t> layersOfSVG(Span bytes) {
  if (bytes.size() > kMaximumSVGBytes) return {};
  constexpr GMarkupParser parser{onBegin, onEnd, onText, onPassthrough, nullptr};
  Costs costs;
  const std::unique_ptr<GMarkupParseContext, ContextRelease> context(
      g_markup_parse_context_new(&parser, G_MARKUP_TREAT_CDATA_AS_TEXT, &costs, nullptr));
  const auto text = withoutByteOrderMark(bytes);
  const bool whole =
      g_markup_parse_context_parse(context.get(), reinterpret_cast<const char*>(text.data()),
                                   static_cast<gssize>(text.size()), nullptr) &&
      g_markup_parse_context_end_parse(context.get(), nullptr);
  const bool drawn = whole && costs.takeStyles() && costs.areModest();
  return drawn ? std::optional(costs.layers()) : std::nullopt;
}

}  // namespace kvl::images
