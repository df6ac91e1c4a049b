// flutter_engine.h: the interface engine behind its handle.
//
// Owns the engine until a view controller takes it over; from then on the engine ends with the
// controller, and this object must be destroyed after it. When the engine could not be created, or
// is gone, every operation is harmless. Window's thread.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "flutter_boundary/binary_messenger.h"
#include "flutter_boundary/dart_project.h"
#include "flutter_boundary/flutter_windows_abi.h"
#include "flutter_boundary/plugin_registry.h"

namespace flutter {

class FlutterEngine : public PluginRegistry {
 public:
  // Creates the engine, which isn't started yet.
  explicit FlutterEngine(const DartProject& project);
  ~FlutterEngine() override;

  // Null when there is no engine; not owned by the reader.
  FlutterDesktopEngineRef handle() const { return engine_; }

  // Null when there is no engine. Lives as long as this object.
  BinaryMessenger* messenger() const { return messenger_.get(); }

  // Gives the engine away to a view controller. Null when there is none.
  FlutterDesktopEngineRef RelinquishEngine();

  // The engine that was given away has been destroyed: forget it.
  void ForgetEngine();

  // With no engine, writes "Cannot get plugin registrar on an engine that isn't running; call Run
  // first." to the error stream and gives null.
  FlutterDesktopPluginRegistrarRef GetRegistrarForPlugin(const std::string& plugin_name) override;

  void ReloadSystemFonts();

  // Calls `callback` once, on this thread, after the next frame was drawn. One at a time: a second
  // registration before that frame replaces the first. What it throws goes no further.
  void SetNextFrameCallback(std::function<void()> callback);

 private:
  static void OnNextFrame(void* user_data);

  FlutterDesktopEngineRef engine_ = nullptr;
  bool owns_engine_ = false;
  std::unique_ptr<BinaryMessenger> messenger_;
  std::function<void()> next_frame_callback_;
};

}  // namespace flutter
