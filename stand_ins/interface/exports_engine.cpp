// The engine's, the view controller's and the freestanding functions of the library.
#include <clocale>
#include <cstdlib>
#include <ios>
#include <memory>
#include <string>
#include <utility>

#include "interface/channel_value.h"
#include "interface/console.h"
#include "interface/graphics_adapter.h"
#include "interface/handles.h"
#include "interface/window_thread.h"

namespace {

using korvane::MutexLock;
using korvane::stand_in::AdapterKind;
using korvane::stand_in::Console;
using korvane::stand_in::Json;
namespace window_thread = korvane::stand_in::window_thread;

void ReportWindow(const char* change) {
  Json line;
  line["window"] = change;
  Console::Get().journal().Write(line);
}

// Paths of this system are ASCII.
Json WideText(const wchar_t* text) {
  if (text == nullptr) {
    return nullptr;
  }
  std::string narrow;
  for (; *text != L'\0'; ++text) {
    narrow.push_back(*text < 0x80 ? static_cast<char>(*text) : '?');
  }
  return narrow;
}

Json DescribeProperties(const FlutterDesktopEngineProperties& properties) {
  Json engine;
  engine["assets_path"] = WideText(properties.assets_path);
  engine["icu_data_path"] = WideText(properties.icu_data_path);
  engine["aot_library_path"] = WideText(properties.aot_library_path);
  engine["dart_entrypoint"] =
      properties.dart_entrypoint == nullptr ? Json() : Json(properties.dart_entrypoint);
  engine["arguments"] = Json::array();
  for (int i = 0; i < properties.dart_entrypoint_argc; ++i) {
    engine["arguments"].push_back(korvane::stand_in::TextForm(properties.dart_entrypoint_argv[i]));
  }
  engine["engine_words"] = properties.engine_words;
  engine["impeller_mode"] = properties.impeller_mode;
  engine["engine_flag"] = properties.engine_flag;
  Json line;
  line["engine"] = std::move(engine);
  return line;
}

// The messenger may outlive the engine: whoever holds its lock keeps the engine, and whoever takes
// it later finds none.
void CloseMessenger(FlutterDesktopMessenger& messenger) {
  MutexLock lock(messenger.lock);
  messenger.available = false;
}

void EndEngine(std::unique_ptr<FlutterDesktopEngine> engine) {
  CloseMessenger(*engine->messenger);
  FlutterDesktopMessengerRelease(engine->messenger);
}

AdapterKind KindOfAdapter(Console& console) {
  if (console.Fails("adapter_description")) {
    return AdapterKind::kUndescribed;
  }
  if (console.Fails("adapter_encoding")) {
    return AdapterKind::kNotEncodable;
  }
  return AdapterKind::kDescribed;
}

}  // namespace

FlutterDesktopEngineRef FlutterDesktopEngineCreate(
    const FlutterDesktopEngineProperties* properties) {
  auto& console = Console::Get();
  console.journal().Write(DescribeProperties(*properties));
  if (console.Fails("engine")) {
    return nullptr;
  }
  auto engine = std::make_unique<FlutterDesktopEngine>();
  engine->messenger = std::make_unique<FlutterDesktopMessenger>().release();
  return engine.release();
}

bool FlutterDesktopEngineDestroy(FlutterDesktopEngineRef engine) {
  EndEngine(std::unique_ptr<FlutterDesktopEngine>(engine));
  return true;
}

FlutterDesktopMessengerRef FlutterDesktopEngineGetMessenger(FlutterDesktopEngineRef engine) {
  return engine->messenger;
}

FlutterDesktopPluginRegistrarRef FlutterDesktopEngineGetPluginRegistrar(
    FlutterDesktopEngineRef engine, const char* plugin_name) {
  auto& console = Console::Get();
  Json line;
  line["plugin"] = plugin_name;
  console.journal().Write(line);
  const auto [registrar, is_new] =
      engine->registrars.try_emplace(plugin_name, FlutterDesktopPluginRegistrar{plugin_name});
  if (!is_new) {
    console.Violation(std::string("a second registrar for ") + plugin_name);
  }
  return &registrar->second;
}

void FlutterDesktopEngineReloadSystemFonts(FlutterDesktopEngineRef /*engine*/) {
  Json line;
  line["fonts"] = "reloaded";
  Console::Get().journal().Write(line);
}

void FlutterDesktopEngineSetNextFrameCallback(FlutterDesktopEngineRef engine,
                                              FlutterDesktopVoidCallback callback,
                                              void* user_data) {
  auto& console = Console::Get();
  if (!console.OnWindowThread()) {
    console.Violation("SetNextFrameCallback off the window thread");
  }
  if (engine->next_frame != nullptr) {
    console.Violation("a second next-frame callback at a time");
  }
  engine->next_frame = callback;
  engine->next_frame_data = user_data;
}

bool FlutterDesktopEngineGetGraphicsAdapter(FlutterDesktopEngineRef /*engine*/, void** adapter) {
  auto& console = Console::Get();
  if (console.Fails("graphics_adapter")) {
    return false;
  }
  *adapter = korvane::stand_in::MakeGraphicsAdapter(KindOfAdapter(console));
  return true;
}

FlutterDesktopViewControllerRef FlutterDesktopViewControllerCreate(int width, int height,
                                                                   FlutterDesktopEngineRef engine) {
  auto& console = Console::Get();
  auto controller = std::make_unique<FlutterDesktopViewController>();
  controller->engine.reset(engine);
  const bool opened = !console.Fails("view_controller") && window_thread::Open();
  if (opened) {
    controller->view.window = window_thread::CreateView(width, height);
  }
  if (controller->view.window == nullptr) {
    if (opened) {
      window_thread::Close();
    }
    EndEngine(std::move(controller->engine));
    return nullptr;
  }
  console.EngineStarted(*engine);
  return controller.release();
}

void FlutterDesktopViewControllerDestroy(FlutterDesktopViewControllerRef controller) {
  const std::unique_ptr<FlutterDesktopViewController> ended(controller);
  auto& console = Console::Get();
  if (!console.OnWindowThread()) {
    console.Violation("the engine ended off the window thread");
  }
  // First of all: from here on no worker can answer a call that the console has given up.
  CloseMessenger(*ended->engine->messenger);
  console.EngineEnded();
  window_thread::DestroyView(ended->view.window);
  EndEngine(std::move(ended->engine));
}

FlutterDesktopViewRef FlutterDesktopViewControllerGetView(
    FlutterDesktopViewControllerRef controller) {
  return Console::Get().Fails("view") ? nullptr : &controller->view;
}

void FlutterDesktopViewControllerForceRedraw(FlutterDesktopViewControllerRef /*controller*/) {
  Console::Get().FrameRequested();
}

bool FlutterDesktopViewControllerHandleTopLevelWindowProc(
    FlutterDesktopViewControllerRef /*controller*/, void* /*window*/, uint32_t message,
    uintptr_t /*wparam*/, intptr_t /*lparam*/, intptr_t* result) {
  auto& console = Console::Get();
  if (!console.Consumes(message)) {
    return false;
  }
  Json line;
  line["engine_consumed"] = message;
  console.journal().Write(line);
  *result = 0;
  return true;
}

void* FlutterDesktopViewGetHWND(FlutterDesktopViewRef view) { return view->window; }

uint32_t FlutterDesktopGetDpiForMonitor(void* monitor) {
  // The host asks this right before it makes its window.
  window_thread::Watch(ReportWindow);
  const auto given = korvane::stand_in::Environment("KORVANE_CONSOLE_DPI");
  const auto dpi = given ? std::strtoul(given->c_str(), nullptr, 10) : 0;
  return dpi != 0 ? static_cast<uint32_t>(dpi) : window_thread::DpiOfMonitor(monitor);
}

void FlutterDesktopResyncOutputStreams(void) { std::ios::sync_with_stdio(); }

// No function of the real library: by it the plug-in libraries' stand-ins tell that they were
// called.
extern "C" KORVANE_FLUTTER_API void KorvaneStandInPluginRegistered(
    FlutterDesktopPluginRegistrarRef registrar, const char* plugin) {
  auto& console = Console::Get();
  Json line;
  line["plugin_registered"] = plugin;
  console.journal().Write(line);
  if (registrar == nullptr || registrar->plugin != plugin) {
    console.Violation(std::string("no registrar of its own for ") + plugin);
  }
}
