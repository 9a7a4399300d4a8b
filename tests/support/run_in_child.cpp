#include "run_in_child.h"

#include <cerrno>
#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

namespace corvel::test {

int runInChild(const std::function<int()>& body, unsigned seconds) {
    const pid_t child = ::fork();
    if (child < 0)
        return -2;
    if (child == 0) {
        std::signal(SIGALRM, SIG_DFL);
        ::alarm(seconds);
        ::_exit(body() & 0xff);
    }
    int status = 0;
    while (::waitpid(child, &status, 0) < 0)
        if (errno != EINTR)
            return -2;
    if (WIFEXITED(status))
        return WEXITSTATUS(status);
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM)
        return kChildTimedOut;
    return -2;
}

} // namespace corvel::test
