#include "support/other_user.h"

#include <cstdlib>
#include <filesystem>
#include <grp.h>
#include <stdexcept>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/file_io.h"

namespace corvel::test {

namespace {

constexpr uid_t kNobody = 65534;

} // namespace

int runAsAnotherUser(const std::function<int()>& body) {
    const pid_t child = ::fork();
    if (child < 0)
        throw std::runtime_error("fork failed");
    if (child == 0) {
        if (::geteuid() == 0 &&
            (::setgroups(0, nullptr) != 0 || ::setresgid(kNobody, kNobody, kNobody) != 0 ||
             ::setresuid(kNobody, kNobody, kNobody) != 0))
            ::_exit(125);
        ::_exit(body());
    }
    int status = 0;
    if (::waitpid(child, &status, 0) != child)
        return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void makeUnreadableToAnotherUser(const std::string& file) {
    openToAnotherUser(parentPath(file));
    if (::chmod(file.c_str(), 0) != 0)
        throw std::runtime_error("cannot make " + file + " unreadable");
}

void openToAnotherUser(const std::string& folder) {
    if (::chmod(folder.c_str(), 0777) != 0)
        throw std::runtime_error("cannot open " + folder);
    // The folders above, up to the temporary folder (never beyond it), need search permission.
    const char* tmp = std::getenv("TMPDIR");
    const std::string top = std::string(tmp && *tmp ? tmp : "/tmp") + "/";
    for (std::string above = parentPath(folder); (above + "/").starts_with(top) && above + "/" != top;
         above = parentPath(above)) {
        struct stat st {};
        if (::stat(above.c_str(), &st) == 0 && (st.st_mode & 0001) == 0)
            ::chmod(above.c_str(), st.st_mode | 0001);
    }
}

void giveToAnotherUser(const std::string& tree) {
    if (::geteuid() != 0)
        return;
    std::error_code error;
    if (::lchown(tree.c_str(), kNobody, kNobody) != 0)
        throw std::runtime_error("cannot give " + tree + " to another account");
    for (auto it = std::filesystem::recursive_directory_iterator(tree, error);
         !error && it != std::filesystem::recursive_directory_iterator(); it.increment(error))
        if (::lchown(it->path().c_str(), kNobody, kNobody) != 0)
            throw std::runtime_error("cannot give " + it->path().string() + " to another account");
    if (error)
        throw std::runtime_error("cannot list " + tree + ": " + error.message());
    openToAnotherUser(tree);
}

} // namespace corvel::test
