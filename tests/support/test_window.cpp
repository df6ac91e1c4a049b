#include "support/test_window.h"

#include <algorithm>
#include <utility>

#include "platform/os.h"

namespace korvane::test {

namespace {

platform::WindowSystem& Windows() { return *platform::os().windows; }

}  // namespace

TestWindow::TestWindow(const std::wstring& name, Answer answer)
    : class_(name), answer_(std::move(answer)) {
  static_cast<void>(Windows().RegisterWindowClass(
      {.name = class_, .style = 0, .icon_resource = 0, .procedure = &Procedure}));
}

TestWindow::~TestWindow() {
  answer_ = nullptr;
  if (handle_ != nullptr) {
    static_cast<void>(Windows().Destroy(handle_));
  }
  static_cast<void>(Windows().UnregisterWindowClass(class_));
}

platform::Result<platform::WindowHandle> TestWindow::Create(const std::wstring& title,
                                                            std::uint32_t style) {
  return Windows().Create({.window_class = class_,
                           .title = title,
                           .style = style,
                           .x = 10,
                           .y = 20,
                           .width = 300,
                           .height = 200,
                           .parameter = this});
}

std::vector<ReceivedMessage> TestWindow::Received(const std::vector<std::uint32_t>& numbers) const {
  std::vector<ReceivedMessage> chosen;
  std::copy_if(received_.begin(), received_.end(), std::back_inserter(chosen),
               [&numbers](const ReceivedMessage& message) {
                 return std::find(numbers.begin(), numbers.end(), message.number) != numbers.end();
               });
  return chosen;
}

std::vector<ReceivedMessage> TestWindow::Received(std::uint32_t number) const {
  return Received(std::vector{number});
}

platform::MessageResult TestWindow::Procedure(platform::WindowHandle window, std::uint32_t number,
                                              platform::MessageParameter parameter,
                                              platform::MessageData data) {
  if (number == platform::kWmNcCreate) {
    Windows().SetUserData(window, Windows().CreationParameter(data));
  }
  auto* self = static_cast<TestWindow*>(Windows().UserData(window));
  if (self == nullptr) {
    return Windows().DefaultProcedure(window, number, parameter, data);
  }
  if (number == platform::kWmNcCreate) {
    self->handle_ = window;
  } else if (number == platform::kWmDestroy) {
    self->handle_ = nullptr;
  }
  const ReceivedMessage message = {number, parameter, data};
  self->received_.push_back(message);
  const auto answer = self->answer_ != nullptr ? self->answer_(message) : std::nullopt;
  return answer.has_value() ? *answer : Windows().DefaultProcedure(window, number, parameter, data);
}

std::wstring UniqueName(const std::wstring& prefix) {
  return prefix + L"." + std::to_wstring(platform::os().process->Id());
}

bool DispatchThrough(std::uint32_t number) {
  platform::Message message;
  while (Windows().Next(message) != 0) {
    Windows().Dispatch(message);
    if (message.number == number) {
      return true;
    }
  }
  return false;
}

}  // namespace korvane::test
