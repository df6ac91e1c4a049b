#include "support/host_driver/host_user.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "support/host_driver/host_target.h"
#include "support/host_driver/run_command.h"

namespace korvane::test {
namespace {

namespace fs = std::filesystem;

fs::path MakeTemporaryFolder() {
  std::string name = (fs::temp_directory_path() / "korvane-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) {
    throw std::runtime_error("no temporary folder");
  }
  return name;
}

// Held by whoever makes the first prefix or copies it: no Wine server may run on it meanwhile.
class BaseLock {
 public:
  BaseLock()
      : descriptor_(open(KORVANE_WINE_BASE ".copy-lock", O_CREAT | O_RDWR | O_CLOEXEC, 0600)) {
    if (flock(descriptor_, LOCK_EX) != 0) {
      throw std::runtime_error("no lock on the Wine prefix");
    }
  }
  ~BaseLock() { close(descriptor_); }
  BaseLock(const BaseLock&) = delete;
  BaseLock& operator=(const BaseLock&) = delete;

 private:
  int descriptor_;
};

void MakeBasePrefix() {
  if (fs::exists(KORVANE_WINE_BASE "/.base")) {
    return;
  }
  const Environment environment{{"WINEPREFIX", KORVANE_WINE_BASE}};
  if (RunCommand({KORVANE_WINE_RUN, "cmd", "/c", "exit"}, environment) != 0) {
    throw std::runtime_error("Wine makes no prefix");
  }
  RunCommand({"wineserver", "-k"}, environment);
  RunCommand({"wineserver", "-w"}, environment);
  std::ofstream(KORVANE_WINE_BASE "/.base").put('\n');
}

// A prefix is large, so its files are hard links; what a program writes in place is copied.
void CopyPrefix(const fs::path& base, const fs::path& prefix) {
  RunCommand({"cp", "-al", base.string(), prefix.string()}, {});
  for (const auto* name : {"system.reg", "user.reg", "userdef.reg"}) {
    fs::remove(prefix / name);
    fs::copy_file(base / name, prefix / name);
  }
  fs::remove_all(prefix / "drive_c/users");
  RunCommand({"cp", "-a", (base / "drive_c/users").string(), (prefix / "drive_c").string()}, {});
}

fs::path ProfileOf(const fs::path& prefix) {
  for (const auto& entry : fs::directory_iterator(prefix / "drive_c/users")) {
    if (entry.path().filename() != "Public") {
      return entry.path();
    }
  }
  throw std::runtime_error("the Wine prefix has no user");
}

}  // namespace

HostUser::HostUser() : folder_(MakeTemporaryFolder()) {
  if (DrivesWindows()) {
    MakePrefix();
  } else {
    MakeFolders();
  }
}

HostUser::~HostUser() {
  if (DrivesWindows()) {
    RunCommand({"wineserver", "-k"}, environment_);
  }
  std::error_code ignored;
  fs::remove_all(folder_, ignored);
}

fs::path HostUser::korvane_folder() const { return roaming_ / "Korvane"; }

fs::path HostUser::startup_log_folder() const { return local_ / "com.sundrelak" / "dramvex"; }

std::vector<nlohmann::json> HostUser::StartupLog() const {
  std::ifstream file(startup_log_folder() / "startup.log");
  std::vector<nlohmann::json> lines;
  for (std::string text; std::getline(file, text) && !file.eof();) {  // whole lines
    lines.push_back(nlohmann::json::parse(text, nullptr, false));
    EXPECT_TRUE(lines.back().is_object()) << "startup.log holds: " << text;
  }
  return lines;
}

bool HostUser::AwaitStartupLog(
    const std::function<bool(const std::vector<nlohmann::json>&)>& condition,
    std::chrono::milliseconds patience) const {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (!condition(StartupLog())) {
    if (std::chrono::steady_clock::now() >= deadline) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

std::string HostUser::PathForHost(const fs::path& path) {
  return DrivesWindows() ? "Z:" + path.string() : path.string();
}

void HostUser::MakeFolders() {
  const auto make = [this](const char* name) {
    fs::create_directory(folder_ / name);
    fs::permissions(folder_ / name, fs::perms::owner_all);
    return (folder_ / name).string();
  };
  roaming_ = make("roaming");
  local_ = make("local");
  environment_ = {{"HOME", make("home")},
                  {"XDG_RUNTIME_DIR", make("run")},
                  {"XDG_CONFIG_HOME", make("config")},
                  {"XDG_DATA_HOME", local_.string()},
                  {"TMPDIR", make("temporary")},
                  {"APPDATA", roaming_.string()}};
}

void HostUser::MakePrefix() {
  const auto prefix = folder_ / "prefix";
  {
    const BaseLock lock;
    MakeBasePrefix();
    CopyPrefix(KORVANE_WINE_BASE, prefix);
  }
  roaming_ = ProfileOf(prefix) / "AppData/Roaming";
  local_ = ProfileOf(prefix) / "AppData/Local";
  environment_ = {{"WINEPREFIX", prefix.string()}};
}

}  // namespace korvane::test
