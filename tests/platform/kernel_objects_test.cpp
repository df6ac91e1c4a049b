#include "platform/kernel_objects.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "platform/real_os.h"
#include "support/scoped_environment.h"
#include "support/second_process_role.h"
#include "support/temporary_folder.h"

namespace korvane::platform {
namespace {

using test::HearLine;
using test::SayLine;
using test::SecondProcess;
using test::SecondProcessRole;

constexpr std::uint32_t kNoWaitMs = 0;
constexpr std::uint32_t kShortWaitMs = 20;
// Long enough for a loaded machine; no test that passes waits for it.
constexpr std::uint32_t kPatientWaitMs = 60000;
constexpr ErrorCode kErrorNoSuchName = 2;
constexpr ErrorCode kErrorNotOwner = 288;

// Owns the mutex whose name it hears, and gives it back when it is told to.
const SecondProcessRole kOwner("mutex owner", [] {
  const std::string name = HearLine().value_or("");
  const CreatedMutex mutex =
      RealKernelObjects().CreateNamedMutex(std::wstring(name.begin(), name.end()), true);
  SayLine(std::to_string(mutex.code));
  HearLine();
  SayLine(std::to_string(RealKernelObjects().ReleaseMutex(mutex.handle).error()));
  return 0;
});

class KernelObjectsTest : public testing::Test {
 protected:
  void LetOwn(SecondProcess& owner) {
    owner.Say(std::string(name_.begin(), name_.end()));
    ASSERT_EQ(owner.Hear(), "0");
  }

  KernelHandle CreateMutex(ErrorCode expected_code, bool initially_owned = false) {
    CreatedMutex created = objects_.CreateNamedMutex(name_, initially_owned);
    EXPECT_EQ(created.code, expected_code);
    EXPECT_TRUE(created.handle);
    return std::move(created.handle);
  }

  KernelHandle CreateEvent() {
    Result<KernelHandle> created = objects_.CreateNamedEvent(name_);
    EXPECT_TRUE(created) << created.error();
    return created ? created.take() : KernelHandle();
  }

  // A thread is an owner of its own.
  WaitOutcome WaitOnAnotherThread(const KernelHandle& handle, std::uint32_t milliseconds) {
    WaitOutcome outcome;
    std::thread([&] { outcome = objects_.Wait(handle, milliseconds); }).join();
    return outcome;
  }

  KernelObjects& objects_ = RealKernelObjects();
  const std::wstring name_ = L"Local\\Korvane.Test." + std::to_wstring(RealProcess().Id());

 private:
  test::TemporaryFolder runtime_;
  test::ScopedEnvironment environment_{"XDG_RUNTIME_DIR", runtime_.path().string()};
};

using MutexTest = KernelObjectsTest;
using EventTest = KernelObjectsTest;

TEST_F(MutexTest, TwoHandlesOfOneNameAreOneMutexOfOneThread) {
  const KernelHandle first = CreateMutex(0, true);
  const KernelHandle second = CreateMutex(kErrorAlreadyExists, true);
  EXPECT_EQ(objects_.Wait(second, kNoWaitMs).result, kWaitSignalled) << "owned by this thread";
  EXPECT_EQ(WaitOnAnotherThread(second, kNoWaitMs).result, kWaitTimeout);
  std::thread([&] { EXPECT_EQ(objects_.ReleaseMutex(first).error(), kErrorNotOwner); }).join();

  // Two acquisitions: the flag of the second creation had no effect.
  EXPECT_TRUE(objects_.ReleaseMutex(second));
  EXPECT_EQ(WaitOnAnotherThread(first, kShortWaitMs).result, kWaitTimeout);
  EXPECT_TRUE(objects_.ReleaseMutex(first));
  EXPECT_EQ(objects_.ReleaseMutex(first).error(), kErrorNotOwner) << "one too many";
  EXPECT_EQ(WaitOnAnotherThread(second, kNoWaitMs).result, kWaitSignalled);
}

TEST_F(MutexTest, IsAbandonedByAThreadThatEndsWithIt) {
  const KernelHandle mutex = CreateMutex(0);
  ASSERT_EQ(WaitOnAnotherThread(mutex, kNoWaitMs).result, kWaitSignalled);
  EXPECT_EQ(objects_.Wait(mutex, kPatientWaitMs).result, kWaitAbandoned);
  EXPECT_TRUE(objects_.ReleaseMutex(mutex));
  EXPECT_EQ(objects_.Wait(mutex, kNoWaitMs).result, kWaitSignalled) << "told once";
}

TEST_F(MutexTest, NameEndsWithItsLastHandle) {
  KernelHandle first = CreateMutex(0);
  KernelHandle second = CreateMutex(kErrorAlreadyExists);
  EXPECT_TRUE(objects_.Close(first));
  EXPECT_FALSE(first);
  CreateMutex(kErrorAlreadyExists);  // closed again at once
  EXPECT_TRUE(objects_.Close(second));
  CreateMutex(0);
}

TEST_F(MutexTest, PassesFromOneProcessToAnother) {
  SecondProcess other("mutex owner");
  LetOwn(other);
  const KernelHandle mutex = CreateMutex(kErrorAlreadyExists, true);
  EXPECT_EQ(objects_.Wait(mutex, kNoWaitMs).result, kWaitTimeout);
  EXPECT_EQ(objects_.Wait(mutex, kShortWaitMs).result, kWaitTimeout);
  EXPECT_EQ(objects_.ReleaseMutex(mutex).error(), kErrorNotOwner);

  other.Say("release");
  EXPECT_EQ(objects_.Wait(mutex, kPatientWaitMs).result, kWaitSignalled);
  EXPECT_EQ(other.Hear(), "0");
}

TEST_F(MutexTest, IsAbandonedByAKilledProcessWhoeverWaitsOrComesLater) {
  SecondProcess owner("mutex owner");
  LetOwn(owner);
  const KernelHandle mutex = CreateMutex(kErrorAlreadyExists);
  WaitOutcome outcome;
  std::thread waiter([&] { outcome = objects_.Wait(mutex, kPatientWaitMs); });
  owner.Kill();
  waiter.join();
  EXPECT_EQ(outcome.result, kWaitAbandoned);
  // The waiter's thread has ended with it in its turn.
  EXPECT_EQ(objects_.Wait(mutex, kWaitForever).result, kWaitAbandoned);
}

TEST_F(EventTest, LetsOneWaitThroughHoweverOftenItWasSet) {
  const KernelHandle event = CreateEvent();
  EXPECT_EQ(objects_.Wait(event, kNoWaitMs).result, kWaitTimeout) << "not signalled at first";
  EXPECT_TRUE(objects_.SetEvent(event));
  EXPECT_TRUE(objects_.SetEvent(event));
  EXPECT_EQ(objects_.Wait(event, kNoWaitMs).result, kWaitSignalled);
  EXPECT_EQ(objects_.Wait(event, kShortWaitMs).result, kWaitTimeout);
}

TEST_F(EventTest, NameIsAbsentBeforeTheFirstHandleAndAfterTheLast) {
  EXPECT_EQ(objects_.OpenNamedEvent(name_).error(), kErrorNoSuchName);
  KernelHandle event = CreateEvent();
  {
    const Result<KernelHandle> opened = objects_.OpenNamedEvent(name_);
    ASSERT_TRUE(opened) << opened.error();
    EXPECT_TRUE(objects_.Close(event));
    EXPECT_TRUE(objects_.OpenNamedEvent(name_)) << "the opened handle keeps it";
  }
  EXPECT_EQ(objects_.OpenNamedEvent(name_).error(), kErrorNoSuchName);
}

TEST_F(EventTest, WaitForAnyTellsTheFirstInOrder) {
  const KernelHandle one = CreateEvent();
  const Result<KernelHandle> two = objects_.CreateNamedEvent(name_ + L".2");
  ASSERT_TRUE(two);
  const std::vector<const KernelHandle*> both = {&one, &two.value()};
  EXPECT_EQ(objects_.WaitAny(both, kShortWaitMs).result, kWaitTimeout);
  EXPECT_TRUE(objects_.SetEvent(two.value()));
  EXPECT_TRUE(objects_.SetEvent(one));
  EXPECT_EQ(objects_.WaitAny(both, kNoWaitMs).result, 0U);
  EXPECT_EQ(objects_.WaitAny(both, kNoWaitMs).result, 1U);
  EXPECT_EQ(objects_.WaitAny(both, kNoWaitMs).result, kWaitTimeout);
}

TEST_F(KernelObjectsTest, UnusableNamesAndKindsFailWithTheirNumbers) {
  constexpr ErrorCode kInvalidHandle = 6;
  constexpr ErrorCode kPathNotFound = 3;
  const KernelHandle event = CreateEvent();
  const CreatedMutex over_event = objects_.CreateNamedMutex(name_, true);
  EXPECT_FALSE(over_event.handle);
  EXPECT_EQ(over_event.code, kInvalidHandle) << "an event has the name";
  const CreatedMutex in_folder = objects_.CreateNamedMutex(name_ + L".folder\\x", true);
  EXPECT_FALSE(in_folder.handle);
  EXPECT_EQ(in_folder.code, kPathNotFound);

  const KernelHandle none;
  EXPECT_EQ(objects_.ReleaseMutex(none).error(), kInvalidHandle);
  EXPECT_EQ(objects_.Wait(none, kNoWaitMs).error, kInvalidHandle);
  EXPECT_EQ(objects_.WaitAny({&event, &none}, kNoWaitMs).result, kWaitFailed);
}

}  // namespace
}  // namespace korvane::platform
