#pragma once
// CVDirectoriesManager: the favourite folders the Scan menu offers. The home folder is
// $HOME; the others are the XDG user folders named in user-dirs.dirs (read as
// xdg-user-dir reads it: "$HOME/…" or absolute paths), each falling back to $HOME/Name
// when the file does not name it. Movies is the Videos folder. The file is read at each
// question, so a change shows at once. Any thread.

#include <string>

namespace corvel {

class CVDirectoriesManager {
public:
    // $HOME and $XDG_CONFIG_HOME/user-dirs.dirs.
    CVDirectoriesManager();
    CVDirectoriesManager(std::string home, std::string userDirsFile);

    std::string homeFolderPath() const { return m_home; }
    std::string desktopFolderPath() const;
    std::string documentsFolderPath() const;
    std::string downloadsFolderPath() const;
    std::string musicFolderPath() const;
    std::string moviesFolderPath() const;
    std::string picturesFolderPath() const;

private:
    std::string m_home;
    std::string m_userDirsFile;
};

} // namespace corvel
