#include "library_app_driver.h"

#include "platform/text_format.h"

namespace corvel {

std::string iPhotoTrashScript(const std::string& path, bool useAdd, bool isVideo) {
    std::string script = "tell application \"iPhoto\"\nwith timeout of 11 seconds\n";
    script += useAdd ? "add " : "select photo library album\nremove ";
    script += formatf("(photo 1 whose image path is equal to \"%@\"", path);
    if (isVideo)
        script += formatf(" or original path is equal to \"%@\"", path);
    script += ")";
    if (useAdd)
        script += " to trash album";
    script += "\nend timeout\nend tell";
    return script;
}

std::string iTunesDeleteScript(const std::string& path) {
    return "tell application \"iTunes\"\nwith timeout of 10 seconds\n"
           "set fileTracksList to every file track in library playlist 1\n"
           "repeat with currTrack in fileTracksList\n"
           "set trackPath to POSIX path of (location of currTrack as text)\n" +
           formatf("if trackPath is equal to \"%@\" then delete currTrack\n", path) +
           "end repeat\nend timeout\n end tell";
}

} // namespace corvel
