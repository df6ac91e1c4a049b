#include "platform/kernel_objects.h"

#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <sstream>
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

std::wstring Wide(const std::string& ascii) { return {ascii.begin(), ascii.end()}; }
std::string Narrow(const std::wstring& ascii) { return {ascii.begin(), ascii.end()}; }

// Carries out what it is told about one object, and says the number that came of it.
std::string CarryOut(KernelHandle& handle, const std::string& verb, const std::string& argument) {
  KernelObjects& objects = RealKernelObjects();
  if (verb == "own") {
    CreatedMutex created = objects.CreateNamedMutex(Wide(argument), true);
    handle = std::move(created.handle);
    return std::to_string(created.code);
  }
  if (verb == "event") {
    Result<KernelHandle> created = objects.CreateNamedEvent(Wide(argument));
    handle = created ? created.take() : KernelHandle();
    return std::to_string(created.error());
  }
  if (verb == "wait") {
    return std::to_string(
        objects.Wait(handle, static_cast<std::uint32_t>(std::stoul(argument))).result);
  }
  const Status done = verb == "release" ? objects.ReleaseMutex(handle) : objects.Close(handle);
  return std::to_string(done.error());
}

const SecondProcessRole kHolder("kernel_objects", [] {
  KernelHandle handle;
  while (const std::optional<std::string> line = HearLine()) {
    std::istringstream words(*line);
    std::string verb;
    std::string argument;
    words >> verb >> argument;
    SayLine(CarryOut(handle, verb, argument));
  }
  handle.Release();  // what is held at the end is given back by the system alone
  return 0;
});

class KernelObjectsTest : public testing::Test {
 protected:
  std::string Ask(SecondProcess& process, const std::string& line) {
    process.Say(line);
    return process.Hear().value_or("nothing, it is dead");
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
  const std::string narrow_name_ = Narrow(name_);

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

TEST_F(MutexTest, ClosingTheLastHandleFreesTheNameWhoeverOwnsTheMutex) {
  std::promise<void> owned;
  std::promise<void> done;
  KernelHandle mutex = CreateMutex(0);
  std::thread owner([&] {
    objects_.Wait(mutex, kNoWaitMs);
    owned.set_value();
    done.get_future().wait();
  });
  owned.get_future().wait();
  EXPECT_TRUE(objects_.Close(mutex));
  const KernelHandle fresh = CreateMutex(0, true);
  EXPECT_EQ(WaitOnAnotherThread(fresh, kNoWaitMs).result, kWaitTimeout);
  done.set_value();
  owner.join();
  EXPECT_TRUE(objects_.ReleaseMutex(fresh)) << "the end of the other owner changed nothing";
}

TEST_F(MutexTest, PassesFromOneProcessToAnother) {
  SecondProcess other("kernel_objects");
  ASSERT_EQ(Ask(other, "own " + narrow_name_), "0");
  const KernelHandle mutex = CreateMutex(kErrorAlreadyExists, true);
  EXPECT_EQ(objects_.Wait(mutex, kNoWaitMs).result, kWaitTimeout);
  EXPECT_EQ(objects_.Wait(mutex, kShortWaitMs).result, kWaitTimeout);
  EXPECT_EQ(objects_.ReleaseMutex(mutex).error(), kErrorNotOwner);

  other.Say("release");
  EXPECT_EQ(objects_.Wait(mutex, kPatientWaitMs).result, kWaitSignalled);
  EXPECT_EQ(other.Hear(), "0");
  EXPECT_EQ(Ask(other, "wait 0"), std::to_string(kWaitTimeout));
  EXPECT_TRUE(objects_.ReleaseMutex(mutex));
  EXPECT_EQ(Ask(other, "wait 0"), std::to_string(kWaitSignalled));
}

TEST_F(MutexTest, IsAbandonedByAKilledProcessWhoeverWaitsOrComesLater) {
  SecondProcess owner("kernel_objects");
  ASSERT_EQ(Ask(owner, "own " + narrow_name_), "0");
  const KernelHandle mutex = CreateMutex(kErrorAlreadyExists);
  WaitOutcome outcome;
  std::thread waiter([&] { outcome = objects_.Wait(mutex, kPatientWaitMs); });
  owner.Kill();
  waiter.join();
  EXPECT_EQ(outcome.result, kWaitAbandoned);
  // The waiter's thread has ended with it in its turn.
  EXPECT_EQ(objects_.Wait(mutex, kWaitForever).result, kWaitAbandoned);
}

TEST_F(MutexTest, StaysWithAnOwnerThatClosedItsHandle) {
  SecondProcess owner("kernel_objects");
  ASSERT_EQ(Ask(owner, "own " + narrow_name_), "0");
  const KernelHandle mutex = CreateMutex(kErrorAlreadyExists);
  ASSERT_EQ(Ask(owner, "close"), "0");
  EXPECT_EQ(objects_.Wait(mutex, kShortWaitMs).result, kWaitTimeout);
  EXPECT_EQ(owner.Finish(), 0);
  EXPECT_EQ(objects_.Wait(mutex, kPatientWaitMs).result, kWaitAbandoned);
}

// What a start after a crash comes upon: the dead process had the only handle.
TEST_F(MutexTest, LastOwnersDeathLeavesNothingInTheWay) {
  for (int round = 0; round < 5; ++round) {
    SecondProcess owner("kernel_objects");
    ASSERT_EQ(Ask(owner, "own " + narrow_name_), "0") << "round " << round;
    owner.Kill();
    CreatedMutex created = objects_.CreateNamedMutex(name_, true);
    ASSERT_TRUE(created.handle);
    if (created.code == kErrorAlreadyExists) {
      EXPECT_EQ(objects_.Wait(created.handle, kNoWaitMs).result, kWaitAbandoned);
    }
    EXPECT_TRUE(objects_.ReleaseMutex(created.handle)) << "it is ours";
  }
}

TEST_F(EventTest, LetsOneWaitThroughHoweverOftenItWasSet) {
  const KernelHandle event = CreateEvent();
  EXPECT_EQ(objects_.Wait(event, kNoWaitMs).result, kWaitTimeout) << "not signalled at first";
  EXPECT_TRUE(objects_.SetEvent(event));
  EXPECT_TRUE(objects_.SetEvent(event));
  EXPECT_EQ(objects_.Wait(event, kNoWaitMs).result, kWaitSignalled);
  EXPECT_EQ(objects_.Wait(event, kShortWaitMs).result, kWaitTimeout);
}

TEST_F(EventTest, EachSignalFreesOneOfManyWaiters) {
  constexpr int kWaiters = 4;
  const KernelHandle event = CreateEvent();
  const Result<KernelHandle> freed = objects_.CreateNamedEvent(name_ + L".freed");
  ASSERT_TRUE(freed);
  std::vector<std::thread> waiters;
  for (int count = 0; count < kWaiters; ++count) {
    waiters.emplace_back([&] {
      EXPECT_EQ(objects_.Wait(event, kPatientWaitMs).result, kWaitSignalled);
      EXPECT_TRUE(objects_.SetEvent(freed.value()));
    });
  }
  for (int count = 0; count < kWaiters; ++count) {
    EXPECT_TRUE(objects_.SetEvent(event));
    EXPECT_EQ(objects_.Wait(freed.value(), kPatientWaitMs).result, kWaitSignalled);
  }
  for (std::thread& waiter : waiters) {
    waiter.join();
  }
  EXPECT_EQ(objects_.Wait(event, kNoWaitMs).result, kWaitTimeout);
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

TEST_F(EventTest, NameAndSignalEndWithAKilledProcess) {
  SecondProcess owner("kernel_objects");
  ASSERT_EQ(Ask(owner, "event " + narrow_name_), "0");
  {
    const Result<KernelHandle> opened = objects_.OpenNamedEvent(name_);
    ASSERT_TRUE(opened);
    EXPECT_TRUE(objects_.SetEvent(opened.value()));
  }
  owner.Kill();
  EXPECT_EQ(objects_.OpenNamedEvent(name_).error(), kErrorNoSuchName);
  EXPECT_EQ(objects_.Wait(CreateEvent(), kNoWaitMs).result, kWaitTimeout);
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

TEST_F(KernelObjectsTest, NamesAreToldApartCharacterByCharacter) {
  const std::vector<std::wstring> endings = {L"a",  L"A",     L"%61",    L"/",   L".",
                                             L" a", L"\x44F", L"\x8DEF", L"%2F", L"{a}"};
  const std::wstring global = L"Global\\" + name_.substr(name_.find(L'\\') + 1);
  std::vector<CreatedMutex> created;
  created.push_back(objects_.CreateNamedMutex(global + endings[0], false));
  for (const std::wstring& ending : endings) {
    created.push_back(objects_.CreateNamedMutex(name_ + ending, false));
  }
  for (const CreatedMutex& mutex : created) {
    EXPECT_EQ(mutex.code, 0U) << &mutex - created.data();
    EXPECT_TRUE(mutex.handle) << &mutex - created.data();
  }
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
  EXPECT_EQ(objects_.SetEvent(none).error(), kInvalidHandle);
  EXPECT_EQ(objects_.ReleaseMutex(none).error(), kInvalidHandle);
  EXPECT_EQ(objects_.ReleaseMutex(event).error(), kInvalidHandle);
  EXPECT_EQ(objects_.Wait(none, kNoWaitMs).result, kWaitFailed);
  EXPECT_EQ(objects_.Wait(none, kNoWaitMs).error, kInvalidHandle);
  EXPECT_EQ(objects_.WaitAny({&event, &none}, kNoWaitMs).result, kWaitFailed);
  EXPECT_EQ(objects_.WaitAny({}, kNoWaitMs).result, kWaitFailed);
}

}  // namespace
}  // namespace korvane::platform
