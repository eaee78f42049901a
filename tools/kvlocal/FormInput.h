// The inputs of a form as the command line has them.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace kvlocal {

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
// lines is refused, and so are texts that are not UTF-8.
[[nodiscard]] std::variant<TextInput, std::string> parseTextInput(std::string_view text);
[[nodiscard]] std::variant<FileInput, std::string> parseFileInput(std::string_view text);

}  // namespace kvlocal
