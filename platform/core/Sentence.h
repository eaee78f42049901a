// Sentences that can be translated after they were made, and errors that consist of such.
#pragma once

#include <local/platform/Error.h>
#include <local/platform/Log.h>
#include <local/platform/Translation.h>

#include <string>
#include <string_view>
#include <vector>

namespace kvl::core {

// A pattern with %@ for each argument, in order; translations may have %2$@ where theirs is
// another.
struct Sentence {
  std::string_view pattern;  // of static storage
  std::vector<std::string> arguments = {};

  [[nodiscard]] std::string english() const { return fillPattern(pattern, arguments); }
  [[nodiscard]] std::string localised() const {
    return fillPattern(translated(pattern), arguments);
  }
};

// The error with the sentence as its description: in English in the user information, and in the
// user's language where it is asked for. What `userInfo` has comes behind it.
[[nodiscard]] KVL_EXPORT Error errorWithSentence(std::string_view domain, std::int64_t code,
                                                 const Sentence& sentence,
                                                 const Dictionary& userInfo = {});

}  // namespace kvl::core
