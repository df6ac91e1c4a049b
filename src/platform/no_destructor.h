// no_destructor.h: a process-wide object that is made on first use and never destroyed.
//
// Detached workers outlive everything: what one of them may touch must still be there while the
// process ends, so it is never torn down. Use as a function's local static.
#pragma once

#include <new>
#include <type_traits>
#include <utility>

namespace korvane {

template <typename T>
class NoDestructor {
 public:
  template <typename... Args>
  explicit NoDestructor(Args&&... args) {
    new (&storage_) T(std::forward<Args>(args)...);
  }
  NoDestructor(const NoDestructor&) = delete;
  NoDestructor& operator=(const NoDestructor&) = delete;

  T& operator*() { return *get(); }
  T* operator->() { return get(); }
  T* get() { return std::launder(reinterpret_cast<T*>(&storage_)); }

 private:
  alignas(T) unsigned char storage_[sizeof(T)];
};

}  // namespace korvane
