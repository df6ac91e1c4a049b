// A library with a good export and some that crash, each in a way of its own.
#include <cstdint>
#include <cstdlib>
#include <stdexcept>

#ifdef _WIN32
#define TEST_EXPORT extern "C" __declspec(dllexport)
#else
#define TEST_EXPORT extern "C" __attribute__((visibility("default")))
#endif

// The crash is to be the machine's, not a sanitizer's report of it.
#define TEST_AS_WRITTEN __attribute__((noinline, no_sanitize("undefined")))

namespace {

// A frame must not step over the page at the stack's end. Only Windows' compilers probe the stack
// before they use it, and there a large frame is needed: Wine 8 keeps too little of the stack for a
// handler when a small one runs into its end.
#ifdef _WIN32
constexpr int kFrameBytes = 64 * 1024;
#else
constexpr int kFrameBytes = 2 * 1024;
#endif

int* volatile null_pointer = nullptr;
void (*volatile null_function)() = nullptr;
volatile int zero = 0;
volatile int one = 1;

TEST_AS_WRITTEN int Recurse(volatile unsigned char* caller) {  // NOLINT(misc-no-recursion)
  volatile unsigned char block[kFrameBytes];
  block[0] = *caller;
  return block[0] == 0 ? 0 : Recurse(block) + block[0];  // never 0: without an end
}

}  // namespace

TEST_EXPORT int test_add_one(int number) { return number + 1; }

TEST_EXPORT TEST_AS_WRITTEN void test_write_to_null(void* /*unused*/) { *null_pointer = 1; }

TEST_EXPORT TEST_AS_WRITTEN void test_call_null(void* /*unused*/) { null_function(); }

TEST_EXPORT void test_illegal_instruction(void* /*unused*/) { __builtin_trap(); }

TEST_EXPORT TEST_AS_WRITTEN void test_divide_by_zero(void* /*unused*/) { zero = one / zero; }

TEST_EXPORT void test_overflow_stack(void* /*unused*/) {
  volatile unsigned char first = 1;
  zero = Recurse(&first);
}

TEST_EXPORT void test_throw(void* /*unused*/) { throw std::runtime_error("thrown"); }

TEST_EXPORT void test_abort(void* /*unused*/) { std::abort(); }
