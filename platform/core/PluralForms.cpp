#include "platform/core/PluralForms.h"

#include <array>
#include <charconv>

namespace kvl::core {
namespace {

constexpr std::size_t kMostForms = 8;  // no language is known to have more than six
constexpr int kDeepest = 64;

using Number = std::uint64_t;

// Reads an expression and computes it at once: there are few, and they are short.
class Reading {
 public:
  Reading(std::string_view text, Number n) : text_(text), n_(n) {}

  // Absent for what is no expression.
  std::optional<Number> whole() {
    const Number value = choice();
    skipSpace();
    return isWrong_ || !text_.empty() ? std::nullopt : std::optional(value);
  }

 private:
  struct Operation {
    std::string_view sign;
    Number (*apply)(Number, Number);
  };
  // From those that bind least. A sign that begins another one stands behind that.
  static constexpr std::size_t kLevels = 6;
  using Level = std::array<Operation, 4>;
  static constexpr std::array<Level, kLevels> kOperations{{
      {{{"||", [](Number a, Number b) -> Number { return a != 0 || b != 0; }}}},
      {{{"&&", [](Number a, Number b) -> Number { return a != 0 && b != 0; }}}},
      {{{"==", [](Number a, Number b) -> Number { return a == b; }},
        {"!=", [](Number a, Number b) -> Number { return a != b; }}}},
      {{{"<=", [](Number a, Number b) -> Number { return a <= b; }},
        {">=", [](Number a, Number b) -> Number { return a >= b; }},
        {"<", [](Number a, Number b) -> Number { return a < b; }},
        {">", [](Number a, Number b) -> Number { return a > b; }}}},
      {{{"+", [](Number a, Number b) -> Number { return a + b; }},
        {"-", [](Number a, Number b) -> Number { return a - b; }}}},
      {{{"*", [](Number a, Number b) -> Number { return a * b; }},
        {"/", [](Number a, Number b) -> Number { return b == 0 ? 0 : a / b; }},
        {"%", [](Number a, Number b) -> Number { return b == 0 ? 0 : a % b; }}}},
  }};

  void skipSpace() {
    while (!text_.empty() && (text_.front() == ' ' || text_.front() == '\t'))
      text_.remove_prefix(1);
  }

  bool take(std::string_view sign) {
    skipSpace();
    if (!text_.starts_with(sign)) return false;
    text_.remove_prefix(sign.size());
    return true;
  }

  Number wrong() {
    isWrong_ = true;
    text_ = {};
    return 0;
  }

  Number choice() {
    if (++depth_ > kDeepest) return wrong();
    Number value = operations(0);
    if (take("?")) {
      const Number yes = choice();
      if (!take(":")) return wrong();
      const Number no = choice();
      value = value != 0 ? yes : no;
    }
    --depth_;
    return value;
  }

  Number operations(std::size_t level) {
    if (level == kLevels) return operand();
    Number value = operations(level + 1);
    while (const Operation* const operation = takeOperation(level))
      value = operation->apply(value, operations(level + 1));
    return value;
  }

  const Operation* takeOperation(std::size_t level) {
    for (const Operation& operation : kOperations.at(level))
      if (!operation.sign.empty() && take(operation.sign)) return &operation;
    return nullptr;
  }

  Number operand() {
    bool negates = false;
    bool isNegated = false;
    while (take("!")) {
      negates = !negates;
      isNegated = true;
    }
    const Number value = plainOperand();
    return isNegated ? static_cast<Number>((value != 0) != negates) : value;
  }

  Number plainOperand() {
    if (take("n")) return n_;
    if (take("(")) {
      const Number value = choice();
      return take(")") ? value : wrong();
    }
    Number value = 0;
    const auto [end, fault] = std::from_chars(text_.data(), text_.data() + text_.size(), value);
    if (fault != std::errc{}) return wrong();
    text_.remove_prefix(static_cast<std::size_t>(end - text_.data()));
    return value;
  }

  std::string_view text_;
  const Number n_;
  int depth_ = 0;
  bool isWrong_ = false;
};

// What stands behind `name` up to a semicolon or the end.
std::string_view valueOf(std::string_view name, std::string_view rule) {
  const std::size_t at = rule.find(name);
  if (at == std::string_view::npos) return {};
  rule.remove_prefix(at + name.size());
  return rule.substr(0, rule.find(';'));
}

}  // namespace

std::optional<PluralForms> PluralForms::parse(std::string_view rule) {
  const auto count = Reading(valueOf("nplurals=", rule), 0).whole();
  const auto expression = valueOf("plural=", rule);
  if (!count || *count == 0 || *count > kMostForms || !Reading(expression, 1).whole())
    return std::nullopt;
  return PluralForms(*count, expression);
}

std::size_t PluralForms::formFor(std::uint64_t number) const {
  const Number form = Reading(expression_, number).whole().value_or(0);
  return form < count_ ? form : 0;
}

}  // namespace kvl::core
