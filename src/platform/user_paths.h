#pragma once
// The account and its standard folders.

#include <string>
#include <string_view>

namespace corvel {

// The account's home from the password database (not $HOME), e.g. "/home/ada".
std::string realHomeDirectory();
// $HOME when set and absolute, otherwise realHomeDirectory(); what "~" expands to.
std::string homeDirectory();
// The account's login name from the password database; empty when unknown.
std::string accountName();
// "~" or "~/..." expanded with homeDirectory(); other paths unchanged.
std::string expandTilde(std::string_view path);

// $XDG_CONFIG_HOME when absolute, otherwise ~/.config.
std::string xdgConfigHome();
// $XDG_DATA_HOME when absolute, otherwise ~/.local/share.
std::string xdgDataHome();
// $XDG_STATE_HOME when absolute, otherwise ~/.local/state.
std::string xdgStateHome();

enum class UserDirectory { Desktop, Documents, Downloads, Music, Pictures, Videos, Templates, PublicShare };

// The XDG user folder of that kind as user-dirs.dirs in xdgConfigHome() names it,
// falling back to ~/Desktop, ~/Documents, ~/Downloads, ~/Music, ~/Pictures, ~/Videos,
// ~/Templates, ~/Public.
std::string userDirectory(UserDirectory kind);
// The same, read from the given user-dirs.dirs file with the given home folder. A
// missing file, a missing entry or a malformed line gives the fallback; an entry that
// names the home folder itself means "not set" and also gives the fallback.
std::string userDirectoryFromFile(UserDirectory kind, const std::string& userDirsFile,
                                  const std::string& home);

} // namespace corvel
