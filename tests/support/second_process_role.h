// second_process_role.h: what this test program does when it is started as a second process.
//
// A test file names its roles at file level and starts them from its cases:
//
//   const SecondProcessRole kEcho("echo", [] {
//     while (const auto line = HearLine()) SayLine(*line);
//     return 0;
//   });
//   ...
//   SecondProcess echo("echo");
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

#include "support/second_process.h"

namespace korvane::test {

// Makes the process play before any test when it was started for this role, and exit with what
// `play` returns.
class SecondProcessRole {
 public:
  SecondProcessRole(const char* name, int (*play)()) {
    if (RoleOfThisProcess() == name) {
      testing::AddGlobalTestEnvironment(std::make_unique<Stage>(play).release());
    }
  }

 private:
  class Stage : public testing::Environment {
   public:
    explicit Stage(int (*play)()) : play_(play) {}
    void SetUp() override {
      std::exit(play_());  // NOLINT(concurrency-mt-unsafe): no other thread runs yet
    }

   private:
    int (*play_)();
  };
};

}  // namespace korvane::test
