// test_window.h: a real top-level window of the platform layer in force that writes down what its
// procedure gets.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/window_system.h"

namespace korvane::test {

// A style whose client area is the whole window on both systems (WS_POPUP).
inline constexpr std::uint32_t kBareWindow = 0x80000000;

struct ReceivedMessage {
  std::uint32_t number = 0;
  platform::MessageParameter parameter = 0;
  platform::MessageData data = 0;
  bool operator==(const ReceivedMessage&) const = default;
};

// Registers its class, creates the window, and destroys both with itself. For the thread that makes
// it. The window must not outlive the object unless the thread ends with it.
class TestWindow {
 public:
  // Called for each message before the default procedure; a value is the answer. May throw.
  using Answer = std::function<std::optional<platform::MessageResult>(const ReceivedMessage&)>;

  explicit TestWindow(const std::wstring& name, Answer answer = nullptr);
  ~TestWindow();
  TestWindow(const TestWindow&) = delete;
  TestWindow& operator=(const TestWindow&) = delete;

  // Throws what the procedure throws.
  platform::Result<platform::WindowHandle> Create(const std::wstring& title,
                                                  std::uint32_t style = kBareWindow);

  // Null before the creation and after kWmDestroy.
  platform::WindowHandle handle() const { return handle_; }
  const std::wstring& window_class() const { return class_; }

  // Forgets what came so far.
  void Forget() { received_.clear(); }

  // What came with one of these numbers, in order; the rest of the system's talk is left out.
  std::vector<ReceivedMessage> Received(const std::vector<std::uint32_t>& numbers) const;
  std::vector<ReceivedMessage> Received(std::uint32_t number) const;

 private:
  static platform::MessageResult Procedure(platform::WindowHandle window, std::uint32_t number,
                                           platform::MessageParameter parameter,
                                           platform::MessageData data);

  std::wstring class_;
  Answer answer_;
  platform::WindowHandle handle_ = nullptr;
  std::vector<ReceivedMessage> received_;
};

// A text that no other process on this machine uses at the moment: the prefix and the process id.
std::wstring UniqueName(const std::wstring& prefix);

// Takes and dispatches until a message of this number was dispatched; false when the loop ended
// before.
bool DispatchThrough(std::uint32_t number);

}  // namespace korvane::test
