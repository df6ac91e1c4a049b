#include "support/fake_window_system.h"

#include <sstream>
#include <utility>

namespace korvane::test {

using platform::MessageData;
using platform::MessageParameter;
using platform::MessageResult;
using platform::Rectangle;
using platform::Status;
using platform::WindowHandle;

namespace {

// The details of a call, separated by a comma and a blank.
template <typename... Values>
std::string List(const Values&... values) {
  std::ostringstream text;
  const char* separator = "";
  ((text << separator << values, separator = ", "), ...);
  return text.str();
}

std::string Hex(std::uint32_t value) {
  std::ostringstream text;
  text << "0x" << std::hex << value;
  return text.str();
}

}  // namespace

FakeWindowSystem::Window& FakeWindowSystem::Add(std::string name) {
  windows_.push_back(std::make_unique<Window>());
  windows_.back()->name = std::move(name);
  return *windows_.back();
}

WindowHandle FakeWindowSystem::AddForeign(const std::wstring& window_class,
                                          const std::wstring& title, std::uint32_t owner) {
  Window& window = Add("foreign");
  window.window_class = window_class;
  window.title = title;
  window.owner = owner;
  return &window;
}

WindowHandle FakeWindowSystem::AddNamed(const std::string& name) { return &Add(name); }

std::string FakeWindowSystem::NameOf(WindowHandle window) const {
  for (const auto& known : windows_) {
    if (known.get() == window) {
      return known->name;
    }
  }
  return window == nullptr ? "none" : "unknown";
}

Status FakeWindowSystem::Call(const std::string& operation, const std::string& details) {
  journal_.Add(operation + "(" + details + ")");
  const auto failure = failures_.find(operation);
  return failure == failures_.end() ? Status::Ok() : Status::Fail(failure->second);
}

MessageResult FakeWindowSystem::Send(WindowHandle window, std::uint32_t message,
                                     MessageParameter parameter, MessageData data) {
  return static_cast<Window*>(window)->procedure(window, message, parameter, data);
}

void FakeWindowSystem::RunQueue() {
  while (!queue_.empty()) {
    const platform::Message message = queue_.front();
    queue_.pop_front();
    Dispatch(message);
  }
}

Status FakeWindowSystem::RegisterWindowClass(const platform::WindowClass& window_class) {
  const Status called =
      Call("RegisterWindowClass",
           List(Narrow(window_class.name), window_class.style, window_class.icon_resource));
  if (called) {
    classes_[window_class.name] = window_class.procedure;
  }
  return called;
}

Status FakeWindowSystem::UnregisterWindowClass(const std::wstring& name) {
  classes_.erase(name);
  return Call("UnregisterWindowClass", Narrow(name));
}

platform::Result<WindowHandle> FakeWindowSystem::Create(const platform::WindowCreation& creation) {
  const Status called = Call(
      "Create", List(Narrow(creation.window_class), Narrow(creation.title), Hex(creation.style),
                     creation.x, creation.y, creation.width, creation.height));
  const auto found = classes_.find(creation.window_class);
  if (!called || found == classes_.end()) {
    return platform::Result<WindowHandle>::Fail(called ? 1407 : called.error());
  }
  Window& window = Add("main");
  window.window_class = creation.window_class;
  window.title = creation.title;
  window.procedure = found->second;
  Send(&window, platform::kWmNcCreate, 0, reinterpret_cast<MessageData>(&creation));
  return WindowHandle{&window};
}

void* FakeWindowSystem::CreationParameter(MessageData data) {
  return reinterpret_cast<const platform::WindowCreation*>(data)->parameter;
}

Status FakeWindowSystem::Destroy(WindowHandle window) {
  const Status called = Call("Destroy", NameOf(window));
  auto& destroyed = *static_cast<Window*>(window);
  if (called && std::exchange(destroyed.alive, false)) {
    Send(window, platform::kWmDestroy);
  }
  return called;
}

MessageResult FakeWindowSystem::DefaultProcedure(WindowHandle window, std::uint32_t message,
                                                 MessageParameter /*parameter*/,
                                                 MessageData /*data*/) {
  static_cast<void>(Call("DefaultProcedure", List(NameOf(window), Hex(message))));
  return 77;
}

void FakeWindowSystem::SetUserData(WindowHandle window, void* data) {
  static_cast<Window*>(window)->user_data = data;
}

void* FakeWindowSystem::UserData(WindowHandle window) {
  return static_cast<Window*>(window)->user_data;
}

Status FakeWindowSystem::SetWindowProperty(WindowHandle window, const std::wstring& name,
                                           std::uintptr_t value) {
  const Status called = Call("SetWindowProperty", List(NameOf(window), Narrow(name), value));
  if (called) {
    static_cast<Window*>(window)->properties[name] = value;
  }
  return called;
}

void FakeWindowSystem::RemoveWindowProperty(WindowHandle window, const std::wstring& name) {
  static_cast<void>(Call("RemoveWindowProperty", List(NameOf(window), Narrow(name))));
  static_cast<Window*>(window)->properties.erase(name);
}

std::uintptr_t FakeWindowSystem::WindowProperty(WindowHandle window, const std::wstring& name) {
  const auto& properties = static_cast<Window*>(window)->properties;
  const auto found = properties.find(name);
  return found == properties.end() ? 0 : found->second;
}

Status FakeWindowSystem::AllowMessage(WindowHandle window, std::uint32_t message) {
  return Call("AllowMessage", List(NameOf(window), Hex(message)));
}

Rectangle FakeWindowSystem::ClientRectangle(WindowHandle window) {
  static_cast<void>(Call("ClientRectangle", NameOf(window)));
  return client_area;
}

void FakeWindowSystem::Move(WindowHandle window, const Rectangle& area) {
  static_cast<void>(
      Call("Move", List(NameOf(window), area.left, area.top, area.right, area.bottom)));
}

void FakeWindowSystem::Place(WindowHandle window, std::int32_t x, std::int32_t y,
                             std::int32_t width, std::int32_t height) {
  static_cast<void>(Call("Place", List(NameOf(window), x, y, width, height)));
}

void FakeWindowSystem::SetParent(WindowHandle child, WindowHandle parent) {
  static_cast<void>(Call("SetParent", List(NameOf(child), NameOf(parent))));
}

void FakeWindowSystem::SetFocus(WindowHandle window) {
  static_cast<void>(Call("SetFocus", NameOf(window)));
}

void FakeWindowSystem::Show(WindowHandle window, int command) {
  static_cast<void>(Call("Show", List(NameOf(window), command)));
}

bool FakeWindowSystem::SetForeground(WindowHandle window) {
  return Call("SetForeground", NameOf(window)).ok();
}

void* FakeWindowSystem::MonitorAt(std::int32_t x, std::int32_t y) {
  static_cast<void>(Call("MonitorAt", List(x, y)));
  return this;
}

Status FakeWindowSystem::Post(WindowHandle window, std::uint32_t message,
                              MessageParameter parameter, MessageData data) {
  const Status called = Call("Post", List(NameOf(window), Hex(message), parameter, data));
  if (called) {
    queue_.push_back({.window = window, .number = message, .parameter = parameter, .data = data});
  }
  return called;
}

void FakeWindowSystem::PostQuit(int exit_code) {
  static_cast<void>(Call("PostQuit", std::to_string(exit_code)));
  quit_ = true;
}

int FakeWindowSystem::Next(platform::Message& message) {
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

void FakeWindowSystem::Dispatch(const platform::Message& message) {
  if (static_cast<Window*>(message.window)->procedure != nullptr) {
    Send(message.window, message.number, message.parameter, message.data);
  }
}

WindowHandle FakeWindowSystem::Find(const std::wstring& window_class, const std::wstring& title) {
  for (const auto& window : windows_) {
    if (window->alive && window->window_class == window_class && window->title == title) {
      return window.get();
    }
  }
  return nullptr;
}

std::uint32_t FakeWindowSystem::OwnerProcess(WindowHandle window) {
  return static_cast<Window*>(window)->owner;
}

bool FakeWindowSystem::AllowForeground(std::uint32_t process_id) {
  return Call("AllowForeground", std::to_string(process_id)).ok();
}

int FakeWindowSystem::ShowMessageBox(const std::wstring& text, const std::wstring& caption,
                                     std::uint32_t flags) {
  std::string bytes;  // the code of each character that isn't ASCII, so that none is mistaken
  for (const wchar_t c : caption + L"|" + text) {
    bytes += c < 0x80 ? std::string(1, static_cast<char>(c))
                      : "<" + Hex(static_cast<std::uint32_t>(c)) + ">";
  }
  static_cast<void>(Call("ShowMessageBox", List(Hex(flags), bytes)));
  return 1;
}

Status FakeWindowSystem::RegisterSessionNotification(WindowHandle window) {
  return Call("RegisterSessionNotification", NameOf(window));
}

Status FakeWindowSystem::UnregisterSessionNotification(WindowHandle window) {
  return Call("UnregisterSessionNotification", NameOf(window));
}

}  // namespace korvane::test
