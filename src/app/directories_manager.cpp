#include "directories_manager.h"

#include "platform/user_paths.h"

namespace corvel {

CVDirectoriesManager::CVDirectoriesManager()
    : CVDirectoriesManager(homeDirectory(), xdgConfigHome() + "/user-dirs.dirs") {}

CVDirectoriesManager::CVDirectoriesManager(std::string home, std::string userDirsFile)
    : m_home(std::move(home)), m_userDirsFile(std::move(userDirsFile)) {}

std::string CVDirectoriesManager::desktopFolderPath() const {
    return userDirectoryFromFile(UserDirectory::Desktop, m_userDirsFile, m_home);
}

std::string CVDirectoriesManager::documentsFolderPath() const {
    return userDirectoryFromFile(UserDirectory::Documents, m_userDirsFile, m_home);
}

std::string CVDirectoriesManager::downloadsFolderPath() const {
    return userDirectoryFromFile(UserDirectory::Downloads, m_userDirsFile, m_home);
}

std::string CVDirectoriesManager::musicFolderPath() const {
    return userDirectoryFromFile(UserDirectory::Music, m_userDirsFile, m_home);
}

std::string CVDirectoriesManager::moviesFolderPath() const {
    return userDirectoryFromFile(UserDirectory::Videos, m_userDirsFile, m_home);
}

std::string CVDirectoriesManager::picturesFolderPath() const {
    return userDirectoryFromFile(UserDirectory::Pictures, m_userDirsFile, m_home);
}

} // namespace corvel
