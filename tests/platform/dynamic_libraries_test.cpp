#include "platform/dynamic_libraries.h"

#include <gtest/gtest.h>

#include <atomic>
#include <bit>
#include <filesystem>
#include <future>
#include <thread>
#include <vector>

#ifdef _WIN32
#include <windows.h>
#endif

#include "platform/real_os.h"
#include "support/second_process_role.h"
#include "support/temporary_folder.h"

namespace korvane::platform {
namespace {

using std::filesystem::path;
using test::HearLine;
using test::SayLine;
using test::SecondProcess;
using test::SecondProcessRole;

constexpr ErrorCode kErrorModuleNotFound = 126;
constexpr ErrorCode kErrorNoLibrary = 193;

#ifdef _WIN32
constexpr char kLibrarySuffix[] = ".dll";
#else
constexpr char kLibrarySuffix[] = ".so";
#endif

path TestLibrary() {
  const path folder = path(RealProcess().Executable().value().path).parent_path();
  return folder / (std::string("platform_test_library") + kLibrarySuffix);
}

using Crash = void (*)(void*);

Crash FindCrash(const std::string& name) {
  const Result<ModuleHandle> library = RealDynamicLibraries().Load(TestLibrary());
  return library
             ? std::bit_cast<Crash>(RealDynamicLibraries().Symbol(library.value(), name.c_str()))
             : nullptr;
}

TEST(DynamicLibrariesTest, ExportsAreFoundByNameWhenTheSearchIsRestricted) {
  ASSERT_TRUE(RealDynamicLibraries().RestrictSearchPath());
  const Result<ModuleHandle> library = RealDynamicLibraries().Load(TestLibrary());
  ASSERT_TRUE(library) << library.error();
  auto* answer =
      std::bit_cast<int (*)(int)>(RealDynamicLibraries().Symbol(library.value(), "test_add_one"));
  ASSERT_NE(answer, nullptr);
  EXPECT_EQ(answer(41), 42);
  EXPECT_EQ(RealDynamicLibraries().Symbol(library.value(), "test_no_such_export"), nullptr);
  EXPECT_EQ(RealDynamicLibraries().Load(TestLibrary()).value(), library.value()) << "loaded once";

  const test::TemporaryFolder folder(u8"\u041F\u0443\u0442\u044C \u8DEF");
  const path copy = folder / (std::string("copy") + kLibrarySuffix);
  std::filesystem::copy_file(TestLibrary(), copy);
  EXPECT_TRUE(RealDynamicLibraries().Load(copy)) << "in a folder in another script";
}

TEST(DynamicLibrariesTest, WhatCanNotBeLoadedHasTheSameNumbersEverywhere) {
  const test::TemporaryFolder folder;
  const path text = folder / "text.dll";
  test::WriteBytes(text, std::string(4096, 'x'));
  test::WriteBytes(folder / "empty.dll", "");
  EXPECT_EQ(RealDynamicLibraries().Load(folder / "absent.dll").error(), kErrorModuleNotFound);
  EXPECT_EQ(RealDynamicLibraries().Load(text).error(), kErrorNoLibrary);
  EXPECT_EQ(RealDynamicLibraries().Load(folder / "empty.dll").error(), kErrorNoLibrary);
}

TEST(DynamicLibrariesTest, OneThatWasPlantedInTheWorkingFolderIsNotFound) {
  ASSERT_TRUE(RealDynamicLibraries().RestrictSearchPath());
  const std::string name = std::string("planted_library") + kLibrarySuffix;
  const test::TemporaryFolder folder;
  std::filesystem::copy_file(TestLibrary(), folder / name);
  const path before = std::filesystem::current_path();
  std::filesystem::current_path(folder.path());
  EXPECT_EQ(RealDynamicLibraries().Load(name).error(), kErrorModuleNotFound);
#ifdef _WIN32
  EXPECT_EQ(::LoadLibraryA(name.c_str()), nullptr) << "as the libraries of the system look for it";
#endif
  std::filesystem::current_path(before);
}

TEST(CallGuardedTest, EveryKindOfCrashIsSurvivedAgainAndAgain) {
  const std::vector<const char*> crashes = {
      "test_write_to_null",  "test_call_null",      "test_illegal_instruction",
      "test_divide_by_zero", "test_overflow_stack", "test_throw",
#ifndef _WIN32
      "test_abort",  // on Windows no exception: the C library ends the process
#endif
  };
  for (const char* name : crashes) {
    const Crash crash = FindCrash(name);
    ASSERT_NE(crash, nullptr) << name;
    for (int round = 0; round < 3; ++round) {
      EXPECT_FALSE(RealDynamicLibraries().CallGuarded(crash, nullptr)) << name << ' ' << round;
      EXPECT_TRUE(RealDynamicLibraries().CallGuarded([](void*) {}, nullptr)) << name;
    }
  }
}

TEST(CallGuardedTest, ThreadsCrashSideBySide) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 25;
  std::atomic<int> survived = 0;
  std::vector<std::thread> threads;
  for (int count = 0; count < kThreads; ++count) {
    threads.emplace_back([&survived, even = count % 2 == 0] {
      const Crash crash = FindCrash(even ? "test_write_to_null" : "test_overflow_stack");
      for (int round = 0; round < kRounds; ++round) {
        survived += RealDynamicLibraries().CallGuarded(crash, nullptr) ? 0 : 1;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(survived, kThreads * kRounds);
}

// One thread is inside a guarded call for good while another one, which is in none, crashes.
const SecondProcessRole kBystander("guarded bystander", [] {
  static std::promise<void> inside;
  std::thread([] {
    RealDynamicLibraries().CallGuarded(
        [](void*) {
          inside.set_value();
          std::promise<void>().get_future().wait();
        },
        nullptr);
  }).detach();
  inside.get_future().wait();
  const Crash crash = FindCrash(HearLine().value_or(""));
  SayLine(crash != nullptr ? "crashing" : "no such crash");
  crash(nullptr);
  SayLine("survived");
  return 0;
});

TEST(CallGuardedTest, CrashOfAThreadOutsideIsNotSurvived) {
  for (const char* name : {"test_write_to_null", "test_abort"}) {
    SecondProcess bystander("guarded bystander");
    bystander.Say(name);
    EXPECT_EQ(bystander.Hear(), "crashing");
    EXPECT_EQ(bystander.Hear(), std::nullopt) << name;
    EXPECT_NE(bystander.Finish(), 0) << name;
  }
}

}  // namespace
}  // namespace korvane::platform
