#include "synthetic_results.h"

#include <memory>
#include <string>

#include "engine/group.h"
#include "engine/node.h"
#include "results/duplicates_controller.h"

namespace corvel {

void addSyntheticPairs(CVDuplicatesController& results, std::size_t groups) {
    const char* words[] = {"holiday", "Report", "scan", "Invoice", "track", "Movie", "backup", "notes"};
    const char* extensions[] = {"bin", "txt", "jpg", "mp3", "mp4", "zip", ""};
    for (std::size_t i = 0; i < groups; ++i) {
        const auto type = static_cast<NodeType>(i % 7 + 1);
        const std::string stem = std::string(words[i % 8]) + " " + std::to_string(i);
        const std::string name = type == 7 ? stem : stem + "." + extensions[type - 1];
        const std::uint64_t size = 50'000 + (i * 7919) % 5'000'000;
        const std::string folderA = "/home/user/Folder" + std::to_string(i % 97) + "/";
        const std::string folderB = "/home/user/Backup" + std::to_string(i % 89) + "/";
        auto a = std::make_shared<CVFile>(folderA + name, name, size, size);
        auto b = std::make_shared<CVFile>(folderB + name, name, size, size);
        a->setType(type);
        b->setType(type);
        auto group = CVGroup::initWithCVFile(a);
        group->addFile(b);
        results.addGroup(group);
    }
}

} // namespace corvel
