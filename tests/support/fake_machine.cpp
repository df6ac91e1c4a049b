#include "support/fake_machine.h"

#include <algorithm>
#include <sstream>

#include "platform/no_destructor.h"

namespace korvane::test {

namespace {

platform::Os OsOf(FakeMachine& machine) {
  platform::Os os = platform::RealOs();
  os.appearance = &machine.appearance;
  os.clocks = &machine.clock;
  os.dynamic_libraries = &machine.libraries;
  os.elevation = &machine.elevation;
  os.error_stream = &machine.errors;
  os.files = &machine.files;
  os.identifiers = &machine.identifiers;
  os.kernel_objects = &machine.objects;
  os.process = &machine.process;
  os.registry = &machine.registry;
  os.windows = &machine.windows;
  return os;
}

}  // namespace

FakeMachine& FakeMachine::Get() {
  static NoDestructor<FakeMachine> machine;
  return *machine;
}

FakeMachine::FakeMachine() : scope_(OsOf(*this)) {
  files.on_write = [this](const std::string& name, std::string_view bytes) {
    journal.Add(name == "startup.log"
                    ? "log: " + nlohmann::json::parse(bytes).at("stage").get<std::string>()
                    : "file: " + name);
  };
}

std::vector<nlohmann::json> FakeMachine::Logged(const std::string& stage) const {
  std::vector<nlohmann::json> found;
  std::istringstream log(files.Content("startup.log").value_or(""));
  for (std::string line; std::getline(log, line);) {
    nlohmann::json fields = nlohmann::json::parse(line);
    if (fields.at("stage") == stage) {
      for (const char* key : {"ms", "pid", "run_id", "stage"}) {
        fields.erase(key);
      }
      found.push_back(std::move(fields));
    }
  }
  return found;
}

std::vector<std::string> FakeMachine::TakeCallsWithout(const std::vector<std::string>& beginnings) {
  std::vector<std::string> calls = journal.Take();
  std::erase_if(calls, [&](const std::string& call) {
    return std::ranges::any_of(
        beginnings, [&](const std::string& beginning) { return call.starts_with(beginning); });
  });
  return calls;
}

}  // namespace korvane::test
