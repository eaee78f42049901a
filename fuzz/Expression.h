// Regular expressions as references, since they read as the grammars do.
#pragma once

#include <glib.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kvl::fuzz {

// Matches whole texts of bytes. Immutable.
class Expression {
 public:
  // @pre the pattern is one of Perl's
  explicit Expression(const std::string& pattern)
      : expression_(g_regex_new(("(?s)\\A(?:" + pattern + ")\\z").c_str(),
                                static_cast<GRegexCompileFlags>(G_REGEX_RAW | G_REGEX_OPTIMIZE),
                                static_cast<GRegexMatchFlags>(0), nullptr)) {}

  [[nodiscard]] bool matches(std::string_view text) const { return !groups(text).empty(); }

  // The whole text and what each group matched; nothing when the text does not match.
  [[nodiscard]] std::vector<std::optional<std::string_view>> groups(std::string_view text) const {
    GMatchInfo* found = nullptr;
    const auto size = static_cast<gssize>(text.size());
    const char* const start = text.empty() ? "" : text.data();
    const bool matched = g_regex_match_full(expression_.get(), start, size, 0,
                                            static_cast<GRegexMatchFlags>(0), &found, nullptr);
    const std::unique_ptr<GMatchInfo, decltype(&g_match_info_unref)> owner(found,
                                                                           g_match_info_unref);
    std::vector<std::optional<std::string_view>> groups;
    for (int i = 0; matched && i <= g_regex_get_capture_count(expression_.get()); ++i) {
      int begin = -1;
      int end = -1;
      g_match_info_fetch_pos(found, i, &begin, &end);
      groups.push_back(begin < 0 ? std::optional<std::string_view>()
                                 : text.substr(static_cast<std::size_t>(begin),
                                               static_cast<std::size_t>(end - begin)));
    }
    return groups;
  }

 private:
  struct Release {
    void operator()(GRegex* expression) const noexcept { g_regex_unref(expression); }
  };
  std::unique_ptr<GRegex, Release> expression_;
};

}  // namespace kvl::fuzz
