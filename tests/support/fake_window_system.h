// fake_window_system.h: windows of this process in memory, and those of others as a test puts them.
//
// Everything that changes something is written to the journal; questions are not. Windows of this
// process are called "main" there. One thread.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/window_system.h"
#include "support/call_journal.h"

namespace korvane::test {

class FakeWindowSystem : public platform::WindowSystem {
 public:
  explicit FakeWindowSystem(CallJournal& journal) : journal_(journal) {}

  // From now on the operation of this name fails with the error, or answers no.
  void Fail(const std::string& operation, platform::ErrorCode error = 5) {
    failures_[operation] = error;
  }

  // A window of another process. An owner of 0 is one that can't be asked for.
  platform::WindowHandle AddForeign(const std::wstring& window_class, const std::wstring& title,
                                    std::uint32_t owner);
  // A window for the journal to name, not made by Create.
  platform::WindowHandle AddNamed(const std::string& name);

  // What the system would do: calls the window's procedure.
  platform::MessageResult Send(platform::WindowHandle window, std::uint32_t message,
                               platform::MessageParameter parameter = 0,
                               platform::MessageData data = 0);

  // Dispatches what is queued now.
  void RunQueue();

  // Called by Next when nothing is queued; it may queue something. Without it, or when nothing
  // came, Next ends the loop.
  std::function<void()> on_idle;

  platform::Rectangle client_area{0, 0, 800, 600};

  platform::Status RegisterWindowClass(const platform::WindowClass& window_class) override;
  platform::Status UnregisterWindowClass(const std::wstring& name) override;
  platform::Result<platform::WindowHandle> Create(
      const platform::WindowCreation& creation) override;
  void* CreationParameter(platform::MessageData data) override;
  platform::Status Destroy(platform::WindowHandle window) override;
  platform::MessageResult DefaultProcedure(platform::WindowHandle window, std::uint32_t message,
                                           platform::MessageParameter parameter,
                                           platform::MessageData data) override;
  void SetUserData(platform::WindowHandle window, void* data) override;
  void* UserData(platform::WindowHandle window) override;
  platform::Status SetWindowProperty(platform::WindowHandle window, const std::wstring& name,
                                     std::uintptr_t value) override;
  void RemoveWindowProperty(platform::WindowHandle window, const std::wstring& name) override;
  std::uintptr_t WindowProperty(platform::WindowHandle window, const std::wstring& name) override;
  platform::Status AllowMessage(platform::WindowHandle window, std::uint32_t message) override;
  platform::Rectangle ClientRectangle(platform::WindowHandle window) override;
  void Move(platform::WindowHandle window, const platform::Rectangle& area) override;
  void Place(platform::WindowHandle window, std::int32_t x, std::int32_t y, std::int32_t width,
             std::int32_t height) override;
  void SetParent(platform::WindowHandle child, platform::WindowHandle parent) override;
  void SetFocus(platform::WindowHandle window) override;
  void Show(platform::WindowHandle window, int command) override;
  bool SetForeground(platform::WindowHandle window) override;
  void* MonitorAt(std::int32_t x, std::int32_t y) override;
  platform::Status Post(platform::WindowHandle window, std::uint32_t message,
                        platform::MessageParameter parameter, platform::MessageData data) override;
  void PostQuit(int exit_code) override;
  int Next(platform::Message& message) override;
  void Dispatch(const platform::Message& message) override;
  platform::WindowHandle Find(const std::wstring& window_class, const std::wstring& title) override;
  std::uint32_t OwnerProcess(platform::WindowHandle window) override;
  bool AllowForeground(std::uint32_t process_id) override;
  int ShowMessageBox(const std::wstring& text, const std::wstring& caption,
                     std::uint32_t flags) override;
  platform::Status RegisterSessionNotification(platform::WindowHandle window) override;
  platform::Status UnregisterSessionNotification(platform::WindowHandle window) override;
  bool RemoteSession() override { return false; }
  std::int32_t DisplayCount() override { return 1; }

 private:
  struct Window {
    std::string name;
    std::wstring window_class;
    std::wstring title;
    platform::WindowProcedure procedure = nullptr;
    void* user_data = nullptr;
    std::map<std::wstring, std::uintptr_t> properties;
    std::uint32_t owner = 0;
    bool alive = true;
  };

  Window& Add(std::string name);
  std::string NameOf(platform::WindowHandle window) const;
  // Writes the call down; fails as the test has said.
  platform::Status Call(const std::string& operation, const std::string& details);

  CallJournal& journal_;
  std::map<std::string, platform::ErrorCode> failures_;
  std::map<std::wstring, platform::WindowProcedure> classes_;
  std::vector<std::unique_ptr<Window>> windows_;  // dead ones stay, so a handle is never reused
  std::deque<platform::Message> queue_;
  bool quit_ = false;
};

}  // namespace korvane::test
