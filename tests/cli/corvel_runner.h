#pragma once
// Runs the real corvel binary with a scratch home folder and collects what it printed.

#include <array>
#include <cstdio>
#include <string>
#include <sys/wait.h>

#include "support/temp_tree.h"

namespace corvel::test {

struct CorvelOutcome {
    int status;
    std::string out;
    std::string err;
};

// environment: extra "NAME='value' " assignments put before the command. The session
// bus is the test program's (isolated_environment.cpp: none) unless environment names one.
inline CorvelOutcome runCorvel(const std::string& arguments, const TempTree& home,
                               const std::string& environment = {}) {
    const std::string errFile = home / "stderr.txt";
    const std::string command = "HOME='" + home.path() + "' XDG_CONFIG_HOME='" + home.path() + "/.config' " +
                                "XDG_STATE_HOME='" + home.path() + "/.local/state' " + environment +
                                CORVEL_BINARY + " " + arguments + " 2>'" + errFile + "'";
    CorvelOutcome run{};
    FILE* pipe = ::popen(command.c_str(), "r");
    std::array<char, 4096> buffer{};
    std::size_t n;
    while ((n = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0)
        run.out.append(buffer.data(), n);
    const int status = ::pclose(pipe);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    run.err = TempTree::read(errFile);
    return run;
}

inline std::string shellQuoted(const std::string& path) {
    return "'" + path + "'";
}

} // namespace corvel::test
