#include "engine/crash_output.h"

#include <fstream>

#include "engine/call_script.h"
#include "platform/mutex.h"
#include "platform/no_destructor.h"

namespace korvane::stand_in {
namespace {

struct Sink {
  Mutex mutex;
  std::ofstream file KORVANE_GUARDED_BY(mutex);
};

Sink& TheSink() {
  static NoDestructor<Sink> sink;
  return *sink;
}

}  // namespace

bool SetCrashOutput(const std::string& utf8_path) {
  Sink& sink = TheSink();
  const MutexLock lock(sink.mutex);
  sink.file = {};
  if (utf8_path.empty()) {
    return true;
  }
  sink.file.open(PathFromUtf8(utf8_path), std::ios::binary);
  sink.file << "crash-output armed by the engine stand-in\n" << std::flush;
  return sink.file.good();
}

void WriteCrashOutput() {
  Sink& sink = TheSink();
  const MutexLock lock(sink.mutex);
  if (!sink.file.is_open()) {
    return;
  }
  sink.file << "fatal error: crash on request\n\ngoroutine 1 [running]:\nmain.main()\n"
            << std::flush;
}

}  // namespace korvane::stand_in
