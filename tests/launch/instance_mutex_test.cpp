#include "launch/instance_mutex.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/fake_machine.h"

namespace korvane {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(InstanceMutex, IsGivenUpOnceAndForGood) {
  auto& machine = test::FakeMachine::Get();
  SetInstanceMutex(machine.objects.NewHandle("mutex"), true);
  ReleaseInstanceMutex();
  EXPECT_THAT(machine.journal.Take(), ElementsAre("ReleaseMutex(mutex)", "CloseHandle(mutex)"));
  ReleaseInstanceMutex();
  EXPECT_THAT(machine.journal.Take(), IsEmpty());
}

TEST(InstanceMutex, OneThatIsNotOwnedIsOnlyClosed) {
  auto& machine = test::FakeMachine::Get();
  InstanceMutexHolder holder;
  holder.Set(machine.objects.NewHandle("mutex"), false);
  holder.Release();
  EXPECT_THAT(machine.journal.Take(), ElementsAre("CloseHandle(mutex)"));
}

TEST(InstanceMutex, WithoutAMutexThereIsNothingToRelease) {
  auto& machine = test::FakeMachine::Get();
  ReleaseInstanceMutex();
  SetInstanceMutex(platform::KernelHandle(), false);
  ReleaseInstanceMutex();
  EXPECT_THAT(machine.journal.Take(), IsEmpty());
}

}  // namespace
}  // namespace korvane
