// fake_window_system.h: windows of this process in memory, and those of others as a test puts them.
//
// Everything that changes something is written to the journal; questions are not. Windows of this
// process are called "main" there. One thread.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
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
                                    std::uint32_t owner) {
    Window& window = Add("foreign");
    window.window_class = window_class;
    window.title = title;
    window.owner = owner;
    return &window;
  }

  // A window for the journal to name, not made by Create.
  platform::WindowHandle AddNamed(const std::string& name) { return &Add(name); }

  // What the system would do: calls the window's procedure.
  platform::MessageResult Send(platform::WindowHandle window, std::uint32_t message,
                               platform::MessageParameter parameter = 0,
                               platform::MessageData data = 0) {
    return static_cast<Window*>(window)->procedure(window, message, parameter, data);
  }

  // Dispatches what is queued now.
  void RunQueue() {
    while (!queue_.empty()) {
      const platform::Message message = queue_.front();
      queue_.pop_front();
      Dispatch(message);
    }
  }

  // Called by Next when nothing is queued; it may queue something. Without it, or when nothing
  // came, Next ends the loop.
  std::function<void()> on_idle;

  platform::Rectangle client_area{0, 0, 800, 600};

  platform::Status RegisterWindowClass(const platform::WindowClass& window_class) override {
    const platform::Status called = Call("RegisterWindowClass", Narrow(window_class.name),
                                         window_class.style, window_class.icon_resource);
    if (called) {
      classes_[window_class.name] = window_class.procedure;
    }
    return called;
  }
  platform::Status UnregisterWindowClass(const std::wstring& name) override {
    classes_.erase(name);
    return Call("UnregisterWindowClass", Narrow(name));
  }
  platform::Result<platform::WindowHandle> Create(
      const platform::WindowCreation& creation) override {
    const platform::Status called =
        Call("Create", Narrow(creation.window_class), Narrow(creation.title), Hex(creation.style),
             creation.x, creation.y, creation.width, creation.height);
    const auto found = classes_.find(creation.window_class);
    if (!called || found == classes_.end()) {
      return platform::Result<platform::WindowHandle>::Fail(called ? 1407 : called.error());
    }
    Window& window = Add("main");
    window.window_class = creation.window_class;
    window.title = creation.title;
    window.procedure = found->second;
    Send(&window, platform::kWmNcCreate, 0, reinterpret_cast<platform::MessageData>(&creation));
    return platform::WindowHandle{&window};
  }
  void* CreationParameter(platform::MessageData data) override {
    return reinterpret_cast<const platform::WindowCreation*>(data)->parameter;
  }
  platform::Status Destroy(platform::WindowHandle window) override {
    const platform::Status called = Call("Destroy", NameOf(window));
    auto& destroyed = *static_cast<Window*>(window);
    if (called && std::exchange(destroyed.alive, false)) {
      Send(window, platform::kWmDestroy);
    }
    return called;
  }
  platform::MessageResult DefaultProcedure(platform::WindowHandle window, std::uint32_t message,
                                           platform::MessageParameter /*parameter*/,
                                           platform::MessageData /*data*/) override {
    Note("DefaultProcedure", NameOf(window), Hex(message));
    return 77;
  }
  void SetUserData(platform::WindowHandle window, void* data) override {
    static_cast<Window*>(window)->user_data = data;
  }
  void* UserData(platform::WindowHandle window) override {
    return static_cast<Window*>(window)->user_data;
  }
  platform::Status SetWindowProperty(platform::WindowHandle window, const std::wstring& name,
                                     std::uintptr_t value) override {
    const platform::Status called = Call("SetWindowProperty", NameOf(window), Narrow(name), value);
    if (called) {
      static_cast<Window*>(window)->properties[name] = value;
    }
    return called;
  }
  void RemoveWindowProperty(platform::WindowHandle window, const std::wstring& name) override {
    Note("RemoveWindowProperty", NameOf(window), Narrow(name));
    static_cast<Window*>(window)->properties.erase(name);
  }
  std::uintptr_t WindowProperty(platform::WindowHandle window, const std::wstring& name) override {
    const auto& properties = static_cast<Window*>(window)->properties;
    const auto found = properties.find(name);
    return found == properties.end() ? 0 : found->second;
  }
  platform::Status AllowMessage(platform::WindowHandle window, std::uint32_t message) override {
    return Call("AllowMessage", NameOf(window), Hex(message));
  }
  platform::Rectangle ClientRectangle(platform::WindowHandle window) override {
    Note("ClientRectangle", NameOf(window));
    return client_area;
  }
  void Move(platform::WindowHandle window, const platform::Rectangle& area) override {
    Note("Move", NameOf(window), area.left, area.top, area.right, area.bottom);
  }
  void Place(platform::WindowHandle window, std::int32_t x, std::int32_t y, std::int32_t width,
             std::int32_t height) override {
    Note("Place", NameOf(window), x, y, width, height);
  }
  void SetParent(platform::WindowHandle child, platform::WindowHandle parent) override {
    Note("SetParent", NameOf(child), NameOf(parent));
  }
  void SetFocus(platform::WindowHandle window) override { Note("SetFocus", NameOf(window)); }
  void Show(platform::WindowHandle window, int command) override {
    Note("Show", NameOf(window), command);
  }
  bool SetForeground(platform::WindowHandle window) override {
    return Call("SetForeground", NameOf(window)).ok();
  }
  void* MonitorAt(std::int32_t x, std::int32_t y) override {
    Note("MonitorAt", x, y);
    return this;
  }
  platform::Status Post(platform::WindowHandle window, std::uint32_t message,
                        platform::MessageParameter parameter, platform::MessageData data) override {
    const platform::Status called = Call("Post", NameOf(window), Hex(message), parameter, data);
    if (called) {
      queue_.push_back({.window = window, .number = message, .parameter = parameter, .data = data});
    }
    return called;
  }
  void PostQuit(int exit_code) override {
    Note("PostQuit", exit_code);
    quit_ = true;
  }
  int Next(platform::Message& message) override {
    if (queue_.empty() && on_idle) {
      on_idle();
    }
    if (queue_.empty() || quit_) {
      return 0;
    }
    message = queue_.front();
    queue_.pop_front();
    return 1;
  }
  void Dispatch(const platform::Message& message) override {
    if (static_cast<Window*>(message.window)->procedure != nullptr) {
      Send(message.window, message.number, message.parameter, message.data);
    }
  }
  platform::WindowHandle Find(const std::wstring& window_class,
                              const std::wstring& title) override {
    for (const auto& window : windows_) {
      if (window->alive && window->window_class == window_class && window->title == title) {
        return window.get();
      }
    }
    return nullptr;
  }
  std::uint32_t OwnerProcess(platform::WindowHandle window) override {
    return static_cast<Window*>(window)->owner;
  }
  bool AllowForeground(std::uint32_t process_id) override {
    return Call("AllowForeground", process_id).ok();
  }
  int ShowMessageBox(const std::wstring& text, const std::wstring& caption,
                     std::uint32_t flags) override {
    std::string bytes;  // the code of each character that isn't ASCII, so that none is mistaken
    for (const wchar_t c : caption + L"|" + text) {
      bytes += c < 0x80 ? std::string(1, static_cast<char>(c))
                        : "<" + Hex(static_cast<std::uint32_t>(c)) + ">";
    }
    Note("ShowMessageBox", Hex(flags), bytes);
    return 1;
  }
  platform::Status RegisterSessionNotification(platform::WindowHandle window) override {
    return Call("RegisterSessionNotification", NameOf(window));
  }
  platform::Status UnregisterSessionNotification(platform::WindowHandle window) override {
    return Call("UnregisterSessionNotification", NameOf(window));
  }
  bool RemoteSession() override { return false; }
  std::int32_t DisplayCount() override { return 1; }

 private:
  static std::string Hex(std::uint32_t value) {
    std::ostringstream text;
    text << "0x" << std::hex << value;
    return text.str();
  }

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

  Window& Add(std::string name) {
    windows_.push_back(std::make_unique<Window>());
    windows_.back()->name = std::move(name);
    return *windows_.back();
  }

  std::string NameOf(platform::WindowHandle window) const {
    for (const auto& known : windows_) {
      if (known.get() == window) {
        return known->name;
      }
    }
    return window == nullptr ? "none" : "unknown";
  }

  // Writes the call down; fails as the test has said.
  template <typename... Details>
  platform::Status Call(const std::string& operation, const Details&... details) {
    std::ostringstream text;
    const char* separator = "";
    ((text << separator << details, separator = ", "), ...);
    journal_.Add(operation + "(" + text.str() + ")");
    const auto failure = failures_.find(operation);
    return failure == failures_.end() ? platform::Status::Ok()
                                      : platform::Status::Fail(failure->second);
  }
  // The same of a call that can't fail.
  template <typename... Details>
  void Note(const std::string& operation, const Details&... details) {
    static_cast<void>(Call(operation, details...));
  }

  CallJournal& journal_;
  std::map<std::string, platform::ErrorCode> failures_;
  std::map<std::wstring, platform::WindowProcedure> classes_;
  std::vector<std::unique_ptr<Window>> windows_;  // dead ones stay, so a handle is never reused
  std::deque<platform::Message> queue_;
  bool quit_ = false;
};

}  // namespace korvane::test
