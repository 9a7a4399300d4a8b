#pragma once
// CORVEL_ASSERT(condition): a condition the code relies on whatever the input, such as an
// index the code itself computed or a pointer it never stores as null. When it does not
// hold, the program is wrong and carrying on could act on the wrong file, so it prints
// "FILE:LINE: FUNCTION: assertion failed: CONDITION" to stderr and aborts. It is on in
// every build (NDEBUG does not remove it); bad input is never checked with it, it gets
// an error value and a message.

namespace corvel {

// Prints the failed assertion to stderr and aborts. Any thread.
[[noreturn]] void assertionFailed(const char* file, int line, const char* function, const char* condition);

} // namespace corvel

#define CORVEL_ASSERT(condition)                                                                             \
    ((condition) ? static_cast<void>(0) : ::corvel::assertionFailed(__FILE__, __LINE__, __func__, #condition))
