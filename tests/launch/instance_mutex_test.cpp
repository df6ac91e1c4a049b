#include "launch/instance_mutex.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/fake_machine.h"

namespace korvane {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(InstanceMutex, IsGivenUpOnceAndOnlyClosedWhereItIsNotOwned) {
  auto& machine = test::FakeMachine::Get();
  ReleaseInstanceMutex();
  SetInstanceMutex(machine.objects.NewHandle("mutex"), true);
  ReleaseInstanceMutex();
  EXPECT_THAT(machine.journal.Take(), ElementsAre("ReleaseMutex(mutex)", "CloseHandle(mutex)"));
  ReleaseInstanceMutex();
  EXPECT_THAT(machine.journal.Take(), IsEmpty());
  SetInstanceMutex(machine.objects.NewHandle("mutex"), false);
  ReleaseInstanceMutex();
  EXPECT_THAT(machine.journal.Take(), ElementsAre("CloseHandle(mutex)"));
}

}  // namespace
}  // namespace korvane
