// host_user.h: one user of the machine, for as long as a test runs.
//
// Processes of the same user share what processes of a user share: the folders, the registry, the
// proxy settings, named kernel objects, windows. Users don't see each other, so scenarios may run
// at once. On Linux a user is a temporary folder to which HOME and the XDG variables point. Under
// Wine it is a prefix of its own, a hard-linked copy of one that is made by the first user of all.
// Everything is removed at the end; no process of the user may be running then.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

namespace korvane::test {

class HostUser {
 public:
  // Throws std::runtime_error where the machine refuses a folder or Wine a prefix.
  HostUser();
  ~HostUser();
  HostUser(const HostUser&) = delete;
  HostUser& operator=(const HostUser&) = delete;

  // A folder for the test's own files.
  [[nodiscard]] std::filesystem::path folder() const { return folder_; }
  // %APPDATA%\Korvane: configuration files, evidence.
  [[nodiscard]] std::filesystem::path korvane_folder() const;
  // The folder of startup.log.
  [[nodiscard]] std::filesystem::path startup_log_folder() const;

  // The lines of startup.log; a line that is no JSON object fails the test.
  [[nodiscard]] std::vector<nlohmann::json> StartupLog() const;

  // Waits until startup.log satisfies a condition; false when it doesn't within the time. Nobody
  // tells of the file, so it is looked at again and again.
  [[nodiscard]] bool AwaitStartupLog(
      const std::function<bool(const std::vector<nlohmann::json>&)>& condition,
      std::chrono::milliseconds patience = std::chrono::seconds(60)) const;

  // The environment that makes a process one of this user's: names and values.
  [[nodiscard]] const std::vector<std::pair<std::string, std::string>>& environment() const {
    return environment_;
  }

  // A path as the host understands it.
  [[nodiscard]] static std::string PathForHost(const std::filesystem::path& path);

 private:
  void MakeFolders();
  void MakePrefix();

  std::filesystem::path folder_;
  std::filesystem::path roaming_;
  std::filesystem::path local_;
  std::vector<std::pair<std::string, std::string>> environment_;
};

}  // namespace korvane::test
