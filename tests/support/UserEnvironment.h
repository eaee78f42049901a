// The variables of the user's locale and zone: nobody's while it lives, put back at its end.
#pragma once

#include <cstdlib>
#include <map>
#include <optional>
#include <string>

namespace kvltest {

class UserEnvironment {
 public:
  UserEnvironment() {
    for (const char* name : {"LC_ALL", "LC_TIME", "LC_MESSAGES", "LANG", "LANGUAGE", "TZ"}) {
      const char* value = std::getenv(name);
      saved_[name] = value != nullptr ? std::optional<std::string>(value) : std::nullopt;
      unsetenv(name);
    }
  }
  UserEnvironment(const std::string& locale, const std::string& zone) : UserEnvironment() {
    set("LC_ALL", locale);
    set("TZ", zone);
  }
  ~UserEnvironment() {
    for (const auto& [name, value] : saved_) {
      value ? setenv(name, value->c_str(), 1) : unsetenv(name);
    }
  }
  UserEnvironment(const UserEnvironment&) = delete;
  UserEnvironment& operator=(const UserEnvironment&) = delete;

  // One of those above.
  static void set(const char* name, const std::string& value) { setenv(name, value.c_str(), 1); }

 private:
  std::map<const char*, std::optional<std::string>> saved_;
};

}  // namespace kvltest
