// system_calls.h: what the system libraries' stand-ins wrote down, and what they are told to do.
//
// Both files are this object's own, so cases at one time don't meet. Windows only.
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "support/scoped_environment.h"
#include "support/temporary_folder.h"

namespace korvane::test {

class SystemCalls {
 public:
  SystemCalls();

  // The settings from now on: lines of KEY=VALUE.
  void Tell(const std::string& settings);

  // The calls so far, in their order; of one library alone where one is named.
  std::vector<nlohmann::json> All(const std::string& library = "") const;

 private:
  TemporaryFolder folder_;
  ScopedEnvironment record_;
  ScopedEnvironment settings_;
};

}  // namespace korvane::test
