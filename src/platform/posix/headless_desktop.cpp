#include "platform/posix/headless_desktop.h"

#include <cstdint>
#include <exception>
#include <string>
#include <utility>
#include <vector>

#include "platform/no_destructor.h"
#include "platform/posix/window_requests.h"
#include "platform/real_os.h"

namespace korvane::platform {

namespace {

constexpr MessageParameter kActivated = 1;
constexpr MessageParameter kDeactivated = 0;

enum class ShowEffect { kHide, kMinimise, kShowOnly, kShowAndActivate };

ShowEffect EffectOf(int command) {
  switch (command) {
    case 0:
      return ShowEffect::kHide;
    case 2:
    case 6:
    case 7:
    case 11:
      return ShowEffect::kMinimise;
    case 4:
    case 8:
      return ShowEffect::kShowOnly;
    default:
      return ShowEffect::kShowAndActivate;
  }
}

MessageData SizeData(const Rectangle& area) {
  const WindowSize size = SizeOf(area);
  const auto width = static_cast<std::uint16_t>(size.width);
  const auto height = static_cast<std::uint16_t>(size.height);
  return static_cast<MessageData>((std::uint32_t{height} << 16) | width);
}

// What a procedure threw while an operation runs; the first is kept. Each public operation ends
// with ThrowHeld, and one within another throws into the procedure that called it.
thread_local std::exception_ptr held_exception;

void ThrowHeld() {
  if (held_exception != nullptr) {
    std::rethrow_exception(std::exchange(held_exception, nullptr));
  }
}

// Stands in a thread from its first window on.
class ThreadEnd {
 public:
  explicit ThreadEnd(std::shared_ptr<MessageQueue> queue) : queue_(std::move(queue)) {}
  ~ThreadEnd() { HeadlessDesktop::Instance().ForgetThread(queue_.get()); }
  ThreadEnd(const ThreadEnd&) = delete;
  ThreadEnd& operator=(const ThreadEnd&) = delete;

 private:
  std::shared_ptr<MessageQueue> queue_;
};

const std::shared_ptr<MessageQueue>& QueueOfWindowThread() {
  static thread_local const ThreadEnd end(MessageQueue::OfThisThread());
  return MessageQueue::OfThisThread();
}

}  // namespace

HeadlessDesktop& HeadlessDesktop::Instance() {
  static NoDestructor<HeadlessDesktop> desktop;
  return *desktop;
}

HeadlessDesktop::HeadlessDesktop()
    : service_(
          [this](const WindowRequest& request) { return AnswerWindowRequest(*this, request); }) {}

Result<WindowHandle> HeadlessDesktop::Create(const WindowCreation& creation) {
  using Created = Result<WindowHandle>;
  const WindowProcedure procedure = registry_.ClassProcedure(creation.window_class);
  if (procedure == nullptr) {
    return Created::Fail(kErrorClassNotFound);
  }
  const WindowHandle window =
      registry_.Add({.queue = QueueOfWindowThread(),
                     .recipient = {.procedure = procedure},
                     .top_level = true,
                     .elevated = RealElevation().IsAdministrator(),
                     .window_class = creation.window_class,
                     .title = creation.title,
                     .area = AreaOf(creation.x, creation.y, creation.width, creation.height)});
  const HeadlessCreation data = {creation.parameter};
  if (Send(window, kWmNcCreate, 0, reinterpret_cast<MessageData>(&data)) == 0) {
    Remove(window);
    ThrowHeld();
    return Created::Fail(0);
  }
  const Status announced = Announce(window);
  return announced ? Created(window) : Created::Fail(announced.error());
}

WindowHandle HeadlessDesktop::CreateChild(KorvaneChildProcedure procedure, void* data) {
  return registry_.Add({.queue = QueueOfWindowThread(),
                        .recipient = {.child_procedure = procedure, .child_data = data}});
}

// From here on other processes find it. It may have destroyed itself in its kWmNcCreate.
Status HeadlessDesktop::Announce(WindowHandle window) {
  const Status reachable = service_.Enter();
  if (!registry_.With(window, [](HeadlessWindow& target) { target.created = true; })) {
    service_.Leave();
    return Status::Fail(kErrorInvalidWindow);
  }
  if (!reachable) {
    RealErrorStream().WriteLine("[WARNING] Other processes can't reach this window. Error: " +
                                std::to_string(reachable.error()));
  }
  Tell(kKorvaneWindowCreated, window);
  return Status::Ok();
}

Status HeadlessDesktop::Destroy(WindowHandle window) {
  bool refused = false;
  bool announced = false;
  const MessageQueue* here = MessageQueue::OfThisThread().get();
  const bool found = registry_.With(window, [&](HeadlessWindow& target) {
    refused = target.queue.get() != here || std::exchange(target.destroying, true);
    announced = target.created;
  });
  if (!found || refused) {
    return Status::Fail(found ? kErrorAccessDenied : kErrorInvalidWindow);
  }
  Send(window, kWmDestroy, 0, 0);
  DestroyChildren(window);
  Remove(window);
  if (announced) {
    observer_.Tell(kKorvaneWindowDestroyed, window);
  }
  ThrowHeld();
  return Status::Ok();
}

void HeadlessDesktop::DestroyChildren(WindowHandle parent) {
  for (const WindowHandle child :
       registry_.All([parent](const HeadlessWindow& window) { return window.parent == parent; })) {
    static_cast<void>(OnOwnThread(child, [this, child] { static_cast<void>(Destroy(child)); }));
  }
}

void HeadlessDesktop::Remove(WindowHandle window) {
  bool announced = false;
  std::shared_ptr<MessageQueue> queue;
  registry_.With(window, [&](const HeadlessWindow& target) {
    announced = target.created;
    queue = target.queue;
  });
  registry_.Remove(window);
  if (queue != nullptr) {
    queue->Drop(window);
  }
  if (announced) {
    service_.Leave();
  }
}

void HeadlessDesktop::ForgetThread(const MessageQueue* queue) {
  for (const WindowHandle window :
       registry_.All([queue](const HeadlessWindow& other) { return other.queue.get() == queue; })) {
    Remove(window);
  }
}

void HeadlessDesktop::Dispatch(const Message& message) {
  if (QueueOf(message.window) == MessageQueue::OfThisThread()) {
    Send(message.window, message.number, message.parameter, message.data);
    ThrowHeld();
  }
}

Status HeadlessDesktop::Post(const Message& message) {
  const std::shared_ptr<MessageQueue> queue = QueueOf(message.window);
  return queue != nullptr ? queue->Post(message) : Status::Fail(kErrorInvalidWindow);
}

Status HeadlessDesktop::Show(WindowHandle window, int command) {
  return OnOwnThread(window, [this, window, command] { ShowNow(window, command); });
}

Status HeadlessDesktop::ShowLater(WindowHandle window, int command) {
  return Later(window, [this, window, command] { ShowNow(window, command); });
}

Status HeadlessDesktop::SetForeground(WindowHandle window) {
  return OnOwnThread(window, [this, window] { SetForegroundNow(window); });
}

Status HeadlessDesktop::SetForegroundLater(WindowHandle window) {
  return Later(window, [this, window] { SetForegroundNow(window); });
}

Status HeadlessDesktop::Place(WindowHandle window, const Rectangle& area) {
  return OnOwnThread(window, [this, window, area] { PlaceNow(window, area); });
}

WindowHandle HeadlessDesktop::Find(const std::wstring& window_class, const std::wstring& title) {
  const std::vector<WindowHandle> found = registry_.All([&](const HeadlessWindow& window) {
    return window.created && window.window_class == window_class && window.title == title;
  });
  return found.empty() ? nullptr : found.front();
}

std::shared_ptr<MessageQueue> HeadlessDesktop::QueueOf(WindowHandle window) {
  std::shared_ptr<MessageQueue> queue;
  registry_.With(window, [&queue](const HeadlessWindow& target) { queue = target.queue; });
  return queue;
}

Status HeadlessDesktop::OnOwnThread(WindowHandle window, std::function<void()> call) {
  if (QueueOf(window) != MessageQueue::OfThisThread()) {
    return Later(window, std::move(call));
  }
  call();
  return Status::Ok();
}

Status HeadlessDesktop::Later(WindowHandle window, std::function<void()> call) {
  const std::shared_ptr<MessageQueue> queue = QueueOf(window);
  return queue != nullptr ? queue->Send(std::move(call)) : Status::Fail(kErrorInvalidWindow);
}

MessageResult HeadlessDesktop::Send(WindowHandle window, std::uint32_t message,
                                    MessageParameter parameter, MessageData data) {
  WindowRecipient recipient;
  registry_.With(window,
                 [&recipient](const HeadlessWindow& target) { recipient = target.recipient; });
  try {
    return recipient.Receive(window, message, parameter, data);
  } catch (...) {  // thrown on by ThrowHeld
    if (held_exception == nullptr) {
      held_exception = std::current_exception();
    }
    return 0;
  }
}

void HeadlessDesktop::SendSize(WindowHandle window) {
  Rectangle area;
  registry_.With(window, [&area](const HeadlessWindow& target) { area = target.area; });
  Send(window, kWmSize, 0, SizeData(area));
}

void HeadlessDesktop::ShowNow(WindowHandle window, int command) {
  const ShowEffect effect = EffectOf(command);
  const bool shows = effect == ShowEffect::kShowOnly || effect == ShowEffect::kShowAndActivate;
  bool first_time = false;
  registry_.With(window, [&](HeadlessWindow& target) {
    target.visible = effect != ShowEffect::kHide;
    target.active = target.active && shows;
    first_time = shows && !std::exchange(target.size_told, target.size_told || shows);
  });
  if (first_time) {
    SendSize(window);
  }
  if (effect == ShowEffect::kShowAndActivate) {
    Activate(window);
  }
  if (shows) {
    Tell(command == kShowRestore ? kKorvaneWindowRestored : kKorvaneWindowShown, window);
  }
  ThrowHeld();
}

void HeadlessDesktop::SetForegroundNow(WindowHandle window) {
  bool visible = false;
  registry_.With(window, [&visible](const HeadlessWindow& target) { visible = target.visible; });
  if (visible) {
    Activate(window);
  }
  Tell(kKorvaneWindowForeground, window);
  ThrowHeld();
}

void HeadlessDesktop::PlaceNow(WindowHandle window, const Rectangle& area) {
  bool resized = false;
  registry_.With(window, [&](HeadlessWindow& target) {
    resized = SizeOf(std::exchange(target.area, area)) != SizeOf(area);
  });
  if (resized) {
    SendSize(window);
    ThrowHeld();
  }
}

void HeadlessDesktop::Activate(WindowHandle window) {
  bool was_active = true;
  registry_.With(window, [&was_active](HeadlessWindow& target) {
    was_active = std::exchange(target.active, true);
  });
  if (was_active) {
    return;
  }
  const MessageQueue* here = MessageQueue::OfThisThread().get();
  for (const WindowHandle other : registry_.All([=](const HeadlessWindow& candidate) {
         return candidate.active && candidate.queue.get() == here && candidate.handle != window;
       })) {
    registry_.With(other, [](HeadlessWindow& target) { target.active = false; });
    Send(other, kWmActivate, kDeactivated, 0);
  }
  Send(window, kWmActivate, kActivated, 0);
}

void HeadlessDesktop::Tell(KorvaneWindowChange change, WindowHandle window) {
  bool announced = false;
  registry_.With(window,
                 [&announced](const HeadlessWindow& target) { announced = target.created; });
  if (announced) {
    observer_.Tell(change, window);
  }
}

}  // namespace korvane::platform
