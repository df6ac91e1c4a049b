// scoped_environment.h: an environment variable of this process, set for a scope.
//
// What the system's own call reads; on Windows the C library's snapshot stays as it was. No other
// thread may read the environment meanwhile.
#pragma once

#include <optional>
#include <string>

namespace korvane::test {

class ScopedEnvironment {
 public:
  // The value is UTF-8; none unsets the variable.
  ScopedEnvironment(const char* name, const std::optional<std::string>& value);
  ~ScopedEnvironment();
  ScopedEnvironment(const ScopedEnvironment&) = delete;
  ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

 private:
  std::string name_;
  std::optional<std::string> previous_;
};

}  // namespace korvane::test
