#include "support/scoped_environment.h"

#include <cstdlib>

namespace korvane::test {
namespace {

// NOLINTBEGIN(concurrency-mt-unsafe): the header asks for a single thread
std::optional<std::string> Get(const std::string& name) {
  const char* value = std::getenv(name.c_str());
  return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
}

void Set(const std::string& name, const std::optional<std::string>& value) {
  if (value) {
    ::setenv(name.c_str(), value->c_str(), 1);
  } else {
    ::unsetenv(name.c_str());
  }
}
// NOLINTEND(concurrency-mt-unsafe)

}  // namespace

ScopedEnvironment::ScopedEnvironment(const char* name, const std::optional<std::string>& value)
    : name_(name), previous_(Get(name_)) {
  Set(name_, value);
}

ScopedEnvironment::~ScopedEnvironment() { Set(name_, previous_); }

}  // namespace korvane::test
