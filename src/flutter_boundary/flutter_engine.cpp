#include "flutter_boundary/flutter_engine.h"

#include <cstring>
#include <utility>
#include <vector>

#include "flutter_boundary/binary_messenger_impl.h"
#include "platform/os.h"

namespace flutter {

namespace {

FlutterDesktopEngineRef CreateEngine(const DartProject& project) {
  std::vector<const char*> arguments;
  arguments.reserve(project.dart_entrypoint_arguments.size());
  for (const std::string& argument : project.dart_entrypoint_arguments) {
    arguments.push_back(argument.c_str());
  }
  FlutterDesktopEngineProperties properties;
  // With the padding: a library that knows more fields than we do finds zeros there.
  std::memset(&properties, 0, sizeof(properties));
  properties.assets_path = project.assets_path.c_str();
  properties.icu_data_path = project.icu_data_path.c_str();
  properties.aot_library_path = project.aot_library_path.c_str();
  properties.dart_entrypoint = project.dart_entrypoint.c_str();
  properties.dart_entrypoint_argc = static_cast<int>(arguments.size());
  properties.dart_entrypoint_argv = arguments.empty() ? nullptr : arguments.data();
  std::copy(project.engine_words.begin(), project.engine_words.end(), properties.engine_words);
  properties.impeller_mode = static_cast<std::int32_t>(project.impeller_mode);
  properties.engine_flag = project.engine_flag;
  return FlutterDesktopEngineCreate(&properties);
}

}  // namespace

FlutterEngine::FlutterEngine(const DartProject& project)
    : engine_(CreateEngine(project)), owns_engine_(engine_ != nullptr) {
  if (engine_ != nullptr) {
    messenger_ = std::make_unique<BinaryMessengerImpl>(FlutterDesktopEngineGetMessenger(engine_));
  }
}

FlutterEngine::~FlutterEngine() {
  if (owns_engine_) {
    FlutterDesktopEngineDestroy(engine_);
  }
}

FlutterDesktopEngineRef FlutterEngine::RelinquishEngine() {
  owns_engine_ = false;
  return engine_;
}

void FlutterEngine::ForgetEngine() {
  engine_ = nullptr;
  owns_engine_ = false;
  messenger_.reset();
  next_frame_callback_ = nullptr;
}

FlutterDesktopPluginRegistrarRef FlutterEngine::GetRegistrarForPlugin(
    const std::string& plugin_name) {
  if (engine_ == nullptr) {
    korvane::platform::WriteErrorLine(
        "Cannot get plugin registrar on an engine that isn't running; call Run first.");
    return nullptr;
  }
  return FlutterDesktopEngineGetPluginRegistrar(engine_, plugin_name.c_str());
}

void FlutterEngine::ReloadSystemFonts() {
  if (engine_ != nullptr) {
    FlutterDesktopEngineReloadSystemFonts(engine_);
  }
}

void FlutterEngine::SetNextFrameCallback(std::function<void()> callback) {
  if (engine_ == nullptr) {
    return;
  }
  next_frame_callback_ = std::move(callback);
  FlutterDesktopEngineSetNextFrameCallback(engine_, OnNextFrame, this);
}

void FlutterEngine::OnNextFrame(void* user_data) {
  // Taken out before it runs, so that it may register the next one.
  const auto callback =
      std::exchange(static_cast<FlutterEngine*>(user_data)->next_frame_callback_, nullptr);
  if (!callback) {  // coverage: the library calls once for each that was set
    return;
  }
  try {
    callback();
  } catch (...) {  // told in the header
  }
}

}  // namespace flutter
