#include "interface/console.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <utility>
#include <variant>
#include <vector>

#include "interface/dart_message.h"
#include "interface/window_thread.h"
#include "platform/no_destructor.h"

namespace korvane::stand_in {
namespace {

constexpr int kRunOutCode = 3;
constexpr std::uint32_t kWmClose = 0x0010;

Json Line(const char* name, Json value) {
  Json line;
  line[name] = std::move(value);
  return line;
}

std::chrono::milliseconds EndOfInputWait() {
  const auto given = Environment("KORVANE_CONSOLE_END_MS");
  return given ? std::chrono::milliseconds(std::strtoll(given->c_str(), nullptr, 10))
               : kDefaultWaitMs;
}

// KORVANE_CONSOLE_FAIL: a line of the input's form, or words with commas.
std::set<std::string> FailuresFromEnvironment() {
  const auto text = Environment("KORVANE_CONSOLE_FAIL").value_or("");
  if (text.starts_with('{')) {
    const auto parsed = ParseInputLine(text);
    const auto* line = parsed.line ? std::get_if<FailLine>(&*parsed.line) : nullptr;
    return line != nullptr ? std::set{line->what} : std::set<std::string>();
  }
  std::set<std::string> words;
  std::istringstream stream(text);
  for (std::string word; std::getline(stream, word, ',');) {
    words.insert(word);
  }
  return words;
}

// Lines that a script may say before the first frame without asking for it.
bool LeavesFrameAlone(const InputLine& line) {
  return std::holds_alternative<WindowLine>(line) || std::holds_alternative<ConsumeLine>(line) ||
         std::holds_alternative<FailLine>(line) || std::holds_alternative<FrameLine>(line);
}

// Cuts a stream of bytes into lines; the last one needs no line feed. Each byte is looked at once.
class LineReader {
 public:
  explicit LineReader(InputSource& source) : source_(source), chunk_(64 * 1024) {}

  bool Next(std::string& line) {
    line.clear();
    for (;;) {
      const std::string_view left(chunk_.data() + begin_, end_ - begin_);
      const auto feed = left.find('\n');
      line.append(left.substr(0, feed));
      if (feed != std::string_view::npos) {
        begin_ += feed + 1;
        return true;
      }
      begin_ = 0;
      end_ = source_.Read(chunk_.data(), chunk_.size());
      if (end_ == 0) {
        return !line.empty();
      }
    }
  }

 private:
  InputSource& source_;
  std::vector<char> chunk_;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
};

}  // namespace

Console& Console::Get() {
  static NoDestructor<Console> console;
  return *console;
}

Console::Console()
    : dart_(journal_),
      manual_frames_(Environment("KORVANE_CONSOLE_FRAMES") == "manual"),
      end_of_input_wait_(EndOfInputWait()),
      failing_(FailuresFromEnvironment()) {}

bool Console::Fails(const std::string& what) {
  MutexLock lock(mutex_);
  return failing_.contains(what);
}

void Console::EngineStarted(FlutterDesktopEngine& engine) {
  engine_ = &engine;
  window_thread_ = std::this_thread::get_id();
  {
    MutexLock lock(mutex_);
    running_ = true;
  }
  std::thread([this] { ReadLines(); }).detach();
}

void Console::EngineEnded() {
  engine_ = nullptr;
  dart_.End();
  window_thread::Close();
  MutexLock lock(mutex_);
  running_ = false;
  ended_.notify_all();
}

bool Console::OnWindowThread() const { return window_thread_.load() == std::this_thread::get_id(); }

void Console::FrameRequested() {
  if (manual_frames_) {
    return;
  }
  {
    MutexLock lock(mutex_);
    frame_due_ = !frames_released_;
    if (frame_due_) {
      return;
    }
  }
  window_thread::Run([this] { DrawFrame(); });
}

bool Console::Consumes(std::uint32_t message) { return consumed_.contains(message); }

void Console::Violation(const std::string& what) { journal_.Write(Line("violation", what)); }

void Console::ReadLines() {
  InputSource source;
  if (source.kind() == InputSource::Kind::kMissing) {
    Complain("the input file can't be opened");
    EndProcess(kRunOutCode);
  }
  if (source.kind() != InputSource::Kind::kFile) {
    ReleaseFrames();
  }
  if (source.kind() == InputSource::Kind::kNone) {
    return;
  }
  LineReader reader(source);
  for (std::string line; reader.Next(line);) {
    ReadLine(line);
  }
  EndOfInput();
}

void Console::ReadLine(std::string_view text) {
  if (IsBlank(text)) {
    return;
  }
  const auto parsed = ParseInputLine(text);
  if (!parsed.line) {
    return Complain(parsed.error);
  }
  if (!LeavesFrameAlone(*parsed.line)) {
    ReleaseFrames();
  }
  std::visit([this](const auto& line) { Execute(line); }, *parsed.line);
  last_was_wait_ = std::holds_alternative<WaitLine>(*parsed.line);
}

void Console::EndOfInput() {
  ReleaseFrames();
  if (!closing_) {
    if (!dart_.WaitForReplies(end_of_input_wait_)) {
      RunOut(Line("replies", dart_.OpenCalls()));
    }
    Execute(CloseLine{});
  }
  MutexLock lock(mutex_);
  const auto deadline = std::chrono::steady_clock::now() + end_of_input_wait_;
  while (running_) {
    if (ended_.wait_until(mutex_, deadline) == std::cv_status::timeout && running_) {
      RunOut(Line("window", "destroyed"));
    }
  }
}

void Console::Execute(const SendLine& line) {
  const auto handle = dart_.OpenCall(line.id);
  if (handle == nullptr) {
    return Complain("the call " + line.id.dump() + " is still open");
  }
  window_thread::Run([this, handle, line] { Deliver(handle, line); });
}

void Console::Execute(const WaitLine& line) {
  if (line.kind == WaitLine::Kind::kReply && !dart_.Knows(line.operand)) {
    return Complain("there was no call " + line.operand.dump());
  }
  if (!journal_.Wait(line, last_was_wait_)) {
    RunOut(line.what);
  }
}

void Console::Execute(const FrameLine& /*line*/) {
  window_thread::Run([this] { DrawFrame(); });
}

void Console::Execute(const WindowLine& line) {
  auto lparam = line.lparam;
  if (line.text) {
    lparam = reinterpret_cast<std::intptr_t>(texts_.emplace_back(*line.text).c_str());
  }
  if (line.rectangle) {
    lparam = reinterpret_cast<std::intptr_t>(&rectangles_.emplace_back(*line.rectangle));
  }
  const bool points = line.text || line.rectangle;
  if (!window_thread::PostToHost(line.message, line.wparam, lparam, points)) {
    Complain("the window doesn't take the message " + std::to_string(line.message));
  }
}

void Console::Execute(const ConsumeLine& line) {
  window_thread::Run([this, line] { consumed_ = line.messages; });
}

void Console::Execute(const FailLine& line) {
  MutexLock lock(mutex_);
  failing_.insert(line.what);
}

void Console::Execute(const SleepLine& line) { std::this_thread::sleep_for(line.time); }

void Console::Execute(const MeasureLine& /*line*/) {
  dart_.Forget();
  journal_.Forget();
  const Holdings held = HoldingsOfProcess();
  journal_.Write(Line("holds", {{"heap", held.heap_bytes ? Json(*held.heap_bytes) : Json()},
                                {"handles", held.handles ? Json(*held.handles) : Json()}}));
}

void Console::Execute(const CloseLine& /*line*/) {
  closing_ = true;
  if (!window_thread::PostToHost(kWmClose, 0, 0, false)) {
    Complain("there is no window to close");
  }
}

void Console::Execute(const AbortLine& /*line*/) { CrashProcess(); }

void Console::ReleaseFrames() {
  {
    MutexLock lock(mutex_);
    frames_released_ = true;
    if (!frame_due_) {
      return;
    }
    frame_due_ = false;
  }
  window_thread::Run([this] { DrawFrame(); });
}

void Console::DrawFrame() {
  if (engine_ == nullptr || engine_->next_frame == nullptr) {
    return;
  }
  const auto callback = std::exchange(engine_->next_frame, nullptr);
  callback(engine_->next_frame_data);
}

void Console::Deliver(DartSide::ResponseHandle handle, const SendLine& line) {
  if (engine_ == nullptr) {
    return;
  }
  auto* messenger = engine_->messenger;
  FlutterDesktopMessenger::Receiver receiver;
  {
    MutexLock lock(messenger->receivers_mutex);
    const auto found = messenger->receivers.find(line.channel);
    if (found != messenger->receivers.end()) {
      receiver = found->second;
    }
  }
  if (receiver.callback == nullptr) {
    dart_.TakeReply(handle, {}, true);
    return;
  }
  // A copy of their exact size: a host that keeps or overruns them is caught by the sanitizers.
  const auto bytes = std::make_unique<std::uint8_t[]>(line.message.size());
  std::copy(line.message.begin(), line.message.end(), bytes.get());
  const auto channel = line.channel;
  const FlutterDesktopMessage message{sizeof(FlutterDesktopMessage), channel.c_str(),
                                      line.message.empty() ? nullptr : bytes.get(),
                                      line.message.size(), handle};
  receiver.callback(messenger, &message, receiver.user_data);
}

void Console::Complain(const std::string& what) { journal_.Write(Line("console_error", what)); }

void Console::RunOut(const Json& what) {
  journal_.Write(Line("timeout", what));
  EndProcess(kRunOutCode);
}

}  // namespace korvane::stand_in
