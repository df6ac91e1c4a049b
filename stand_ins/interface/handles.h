// handles.h: the records behind the library's opaque handles.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <thread>

#include "flutter_boundary/flutter_windows_abi.h"
#include "platform/mutex.h"

// Counted; the engine holds one reference, and whoever else holds one may ask it whether the engine
// is there after the engine has gone.
struct FlutterDesktopMessenger {
  struct Receiver {
    FlutterDesktopMessageCallback callback = nullptr;
    void* user_data = nullptr;
  };

  std::atomic<int> references{1};
  std::atomic<bool> available{true};

  // Lock and Unlock. The engine ends with it held.
  korvane::Mutex lock;
  std::atomic<std::thread::id> lock_owner;

  korvane::Mutex receivers_mutex;
  std::map<std::string, Receiver> receivers KORVANE_GUARDED_BY(receivers_mutex);
};

struct FlutterDesktopPluginRegistrar {
  std::string plugin;
};

struct FlutterDesktopEngine {
  FlutterDesktopMessenger* messenger = nullptr;
  std::map<std::string, FlutterDesktopPluginRegistrar> registrars;
  FlutterDesktopVoidCallback next_frame = nullptr;
  void* next_frame_data = nullptr;
};

struct FlutterDesktopView {
  void* window = nullptr;
};

struct FlutterDesktopViewController {
  std::unique_ptr<FlutterDesktopEngine> engine;
  FlutterDesktopView view;
};
