#pragma once
// Runs a call that may hang (a read of a fifo, say) in a forked child, so that a test
// can fail instead of waiting forever.

#include <functional>

namespace corvel::test {

// The exit code the child gets when the call did not return within the deadline.
inline constexpr int kChildTimedOut = -1;

// Forks; the child runs body and exits with its answer (0 to 255), or is killed by
// SIGALRM after seconds. Answers the child's exit code, kChildTimedOut when it was
// killed by the alarm, and -2 when it died otherwise or could not be started. The body
// must not use gtest assertions: the child's results never reach the parent's report.
int runInChild(const std::function<int()>& body, unsigned seconds = 5);

} // namespace corvel::test
