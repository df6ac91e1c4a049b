// small_stack.h: runs a function on a thread with 1 MiB of stack, as little as a worker of the host
// may have, and waits for it.
#pragma once

#include <pthread.h>

#include <cstddef>
#include <functional>

#include "gtest/gtest.h"

namespace korvane::test {

inline void RunOnSmallStack(std::function<void()> work) {
  constexpr std::size_t kStackBytes = std::size_t{1} << 20;
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, kStackBytes), 0);
  pthread_t thread;
  const auto run = [](void* data) -> void* {
    (*static_cast<std::function<void()>*>(data))();
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attributes, run, &work), 0);
  ASSERT_EQ(pthread_join(thread, nullptr), 0);
  pthread_attr_destroy(&attributes);
}

}  // namespace korvane::test
