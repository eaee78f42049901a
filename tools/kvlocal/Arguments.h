// What the words of the command line mean, and what is wrong with them.
#pragma once

#include <local/platform/Geometry.h>

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace kvlocal {

// The longest duration that options take, in seconds: deadlines stay within the clock's range.
inline constexpr double kLongestSeconds = 1e6;

// For options that take seconds.
[[nodiscard]] CLI::Validator secondsCheck();

// For the identifier under which keys are kept.
[[nodiscard]] CLI::Validator identifierCheck();

// For texts that the notary gets.
[[nodiscard]] CLI::Validator textCheck();

// For options that take a number of things.
[[nodiscard]] CLI::Validator countCheck();

// An input with a text: NAME=VALUE.
struct TextInput {
  std::string name;
  std::string value;
};

// An input with a file: NAME=@PATH[;type=TYPE][;filename=NAME], the two in any order.
struct FileInput {
  std::string name;
  std::string path;
  std::optional<std::string> contentType;
  std::string filename;  // the path's last part unless the user says otherwise; empty for none
};

// The input, or what is wrong with the text. What holds a character that would break the form's
// lines is refused, and so are texts that are not UTF-8 and parameters of a file that are none.
[[nodiscard]] std::variant<TextInput, std::string> parseTextInput(std::string_view text);
[[nodiscard]] std::variant<FileInput, std::string> parseFileInput(std::string_view text);

// An empty text when the text is WIDTHxHEIGHT with two numbers above 0, else what is wrong.
[[nodiscard]] std::string sizeFault(const std::string& text);

// The size that a text without fault names; none at all for the empty one.
[[nodiscard]] kvl::Size sizeOf(const std::string& text);

// "16 x 16"
[[nodiscard]] std::string sizeText(kvl::Size size);

}  // namespace kvlocal
