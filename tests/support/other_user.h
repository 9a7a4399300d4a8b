#pragma once
// Runs code where the file permissions of another account apply. Tests run as root,
// and root reads every file whatever its mode; to meet a file the program may not read,
// the code runs in a child process that drops to the unprivileged "nobody" account
// (uid and gid 65534) when the test runs as root, and as the same user otherwise.

#include <functional>
#include <string>

namespace corvel::test {

// Forks, drops privileges in the child when running as root, runs body there and exits
// with its answer. Answers the child's exit status, or -1 when it did not exit normally.
int runAsAnotherUser(const std::function<int()>& body);

// Makes a file that the code given to runAsAnotherUser cannot read (mode 0000), while
// its folder and everything up to it stay open to that code for reading and writing:
// the program could replace the file, so only its own guard stops it.
void makeUnreadableToAnotherUser(const std::string& file);

// Opens a folder (and the folders above it up to the temporary folder) to the other
// account: mode 0777 on the folder, search permission on the ones above.
void openToAnotherUser(const std::string& folder);

// Gives a whole tree to the other account (every entry, links themselves), so that code
// given to runAsAnotherUser meets it as its owner; nothing when not running as root.
void giveToAnotherUser(const std::string& tree);

} // namespace corvel::test
