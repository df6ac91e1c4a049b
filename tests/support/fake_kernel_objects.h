// fake_kernel_objects.h: named objects and waits that give what a test says.
//
// Handles are known in the journal by the last part of their object's name. The mutex of the
// startup log always works and isn't journaled. One thread.
#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "platform/kernel_objects.h"
#include "support/call_journal.h"

namespace korvane::test {

class FakeKernelObjects : public platform::KernelObjects {
 public:
  explicit FakeKernelObjects(CallJournal& journal) : journal_(journal) {}

  // A handle for what another subject hands out.
  platform::KernelHandle NewHandle(const std::string& name) {
    names_.push_back(std::make_unique<std::string>(name));
    return {this, names_.back().get()};
  }

  // Of CreateNamedMutex; no handle when the creation is to fail.
  bool mutex_has_handle = true;
  platform::ErrorCode mutex_code = 0;
  platform::WaitOutcome wait_outcome{platform::kWaitSignalled, 0};
  platform::WaitOutcome wait_any_outcome{platform::kWaitSignalled, 0};
  // Events that can't be made or opened, by the last part of their name.
  std::map<std::string, platform::ErrorCode> event_failures;

  platform::CreatedMutex CreateNamedMutex(const std::wstring& name, bool initially_owned) override {
    if (IsLog(LastPart(name))) {
      return {NewHandle(LastPart(name)), 0};
    }
    journal_.Add("CreateNamedMutex(" + Narrow(name) + (initially_owned ? ", owned)" : ")"));
    return {mutex_has_handle ? NewHandle("mutex") : platform::KernelHandle(), mutex_code};
  }

  platform::Result<platform::KernelHandle> CreateNamedEvent(const std::wstring& name) override {
    return Event("CreateNamedEvent", name);
  }
  platform::Result<platform::KernelHandle> OpenNamedEvent(const std::wstring& name) override {
    return Event("OpenNamedEvent", name);
  }
  platform::Status SetEvent(const platform::KernelHandle& event) override {
    journal_.Add("SetEvent(" + NameOf(event) + ")");
    return platform::Status::Ok();
  }

  platform::WaitOutcome Wait(const platform::KernelHandle& object,
                             std::uint32_t milliseconds) override {
    if (IsLog(NameOf(object))) {
      return {platform::kWaitSignalled, 0};
    }
    journal_.Add("Wait(" + NameOf(object) + ", " + std::to_string(milliseconds) + ")");
    return wait_outcome;
  }
  platform::WaitOutcome WaitAny(const std::vector<const platform::KernelHandle*>& objects,
                                std::uint32_t milliseconds) override {
    std::string call = "WaitAny(";
    for (const platform::KernelHandle* object : objects) {
      call += NameOf(*object) + ", ";
    }
    journal_.Add(call + std::to_string(milliseconds) + ")");
    return wait_any_outcome;
  }

  platform::Status ReleaseMutex(const platform::KernelHandle& mutex) override {
    return Quietly(NameOf(mutex), "ReleaseMutex");
  }
  platform::Status Close(platform::KernelHandle& handle) override {
    return Quietly(*static_cast<std::string*>(handle.Release()), "CloseHandle");
  }

 private:
  static std::string NameOf(const platform::KernelHandle& handle) {
    return handle ? *static_cast<std::string*>(handle.native()) : "none";
  }
  static std::string LastPart(const std::wstring& name) {
    return Narrow(name.substr(name.find_last_of(L".\\") + 1));
  }
  static bool IsLog(const std::string& name) { return name == "Korvane_StartupLog"; }

  platform::Status Quietly(const std::string& name, const std::string& operation) {
    if (!IsLog(name)) {
      journal_.Add(operation + "(" + name + ")");
    }
    return platform::Status::Ok();
  }

  platform::Result<platform::KernelHandle> Event(const std::string& operation,
                                                 const std::wstring& name) {
    journal_.Add(operation + "(" + Narrow(name) + ")");
    const auto failure = event_failures.find(LastPart(name));
    if (failure != event_failures.end()) {
      return platform::Result<platform::KernelHandle>::Fail(failure->second);
    }
    return NewHandle(LastPart(name));
  }

  CallJournal& journal_;
  std::vector<std::unique_ptr<std::string>> names_;
};

}  // namespace korvane::test
