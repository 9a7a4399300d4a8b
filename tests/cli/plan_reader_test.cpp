// Reading a removal plan: the groups, identities and marks it records, and a clear refusal
// of every document that is not such a plan, whatever is wrong with it.

#include <cstdio>
#include <gtest/gtest.h>
#include <limits>

#include "engine/folder.h"
#include "engine/group.h"
#include "plan_reader.h"
#include "platform/main_queue.h"
#include "report.h"
#include "results/duplicates_controller.h"
#include "support/temp_tree.h"

namespace corvel::cli {
namespace {

// A file member of a plan; fields are spliced in as written (a test may break them).
std::string member(const std::string& path, bool marked, const std::string& extra = "") {
    return R"({"path": ")" + path + R"(", "isFolder": false, "size": 211, "sizeOnDisk": 4096, )" +
           R"("removeForbidden": false, "needToRemove": )" + (marked ? "true" : "false") +
           R"(, "selectionType": "manual", "device": 65024, "inode": 17, "mtime": 1795537290862670218)" +
           extra + "}";
}

std::string group(const std::string& members) {
    return R"({"category": "Documents", "size": 211, "files": [)" + members + "]}";
}

class PlanReader : public testing::Test {
protected:
    void SetUp() override { MainQueue::shared().setMainThread(); }

    bool read(const std::string& text, bool allowAllCopies = false) {
        plan = Plan();
        message.clear();
        return readPlan(tree.file("plan.json", text), allowAllCopies, &plan, &message);
    }

    test::TempTree tree;
    Plan plan;
    std::string message;
};

TEST_F(PlanReader, BuildsTheGroupsWithTheRecordedIdentitiesAndMarks) {
    const std::string text =
        R"({"roots": ["/r", "/r\udcff"], "summary": {"groups": [1, {"x": []}]}, "groups": [)" +
        group(member("/r/a", true) + ", " + member("/r/b", false)) + ", " +
        group(member("/r/c\\udcff", false, R"(, "nested": {"path": 3})") + ", " +
              R"({"path": "/r/d", "isFolder": true, "size": 9, "device": 1, "inode": 2, )" +
              R"("mtime": -5, "needToRemove": true})") +
        "]}";
    ASSERT_TRUE(read(text)) << message;
    EXPECT_EQ(plan.roots, (std::vector<std::string>{"/r", "/r\xff"}));
    const auto groups = plan.results->allDuplicatesGroups();
    ASSERT_EQ(groups.size(), 2u);
    const auto first = groups[0]->files();
    ASSERT_EQ(first.size(), 2u);
    EXPECT_EQ(first[0]->path(), "/r/a");
    EXPECT_TRUE(first[0]->needToRemove());
    EXPECT_FALSE(first[1]->needToRemove());
    EXPECT_EQ(first[0]->device(), 65024u);
    EXPECT_EQ(first[0]->inodeNumber(), 17u);
    EXPECT_EQ(first[0]->size(), 211u);
    EXPECT_EQ(first[0]->sizeOnDisk(), 4096u);
    EXPECT_EQ(first[0]->statMTimeNanoseconds(), 1795537290862670218);
    const auto second = groups[1]->files();
    ASSERT_EQ(second.size(), 2u);
    EXPECT_EQ(second[0]->path(), "/r/c\xff"); // a byte that is not UTF-8 comes back as written
    EXPECT_NE(dynamic_cast<CVFolder*>(second[1].get()), nullptr);
    EXPECT_EQ(second[1]->statMTimeNanoseconds(), -5);
    EXPECT_TRUE(second[1]->needToRemove());
    EXPECT_FALSE(groups[1]->userForcedAllCopies());
}

// What corvel scan --json writes reads back as it was, extreme values included.
TEST_F(PlanReader, ReadsBackWhatTheScanWrites) {
    auto file = [](const std::string& path, std::uint64_t inode) {
        auto node = std::make_shared<CVFile>(path, "", std::numeric_limits<std::uint64_t>::max(), 8192);
        node->setDevice(std::numeric_limits<std::uint64_t>::max());
        node->setInodeNumber(inode);
        node->setStatMTimeNanoseconds(std::numeric_limits<std::int64_t>::min());
        return node;
    };
    auto folder = [](const std::string& path, std::uint64_t inode) {
        auto node = std::make_shared<CVFolder>(path, "", 0, 0);
        node->setDevice(3);
        node->setInodeNumber(inode);
        node->setStatMTimeNanoseconds(std::numeric_limits<std::int64_t>::max());
        return node;
    };
    CVDuplicatesController written;
    const auto marked = file("/r/\xff \"quoted\"\n", 1);
    const auto kept = file("/r/kept", 2);
    kept->setRemoveForbidden(true);
    const auto files = CVGroup::initWithCVFile(marked);
    files->addFile(kept);
    written.addGroup(files);
    const auto folders = CVGroup::initWithCVFile(folder("/r/one", 3));
    folders->addFile(folder("/r/two", 4));
    written.addGroup(folders);
    marked->setNeedToRemove(true);
    const std::string path = tree / "written.json";
    std::FILE* out = std::fopen(path.c_str(), "w");
    ASSERT_NE(out, nullptr);
    writeJsonReport({"/r", "/\xfe"}, written, out);
    std::fclose(out);

    ASSERT_TRUE(readPlan(path, false, &plan, &message)) << message;
    EXPECT_EQ(plan.roots, (std::vector<std::string>{"/r", "/\xfe"}));
    const auto groups = plan.results->allDuplicatesGroups();
    ASSERT_EQ(groups.size(), 2u);
    const auto back = groups[0]->files();
    ASSERT_EQ(back.size(), 2u);
    EXPECT_EQ(back[0]->path(), marked->path());
    EXPECT_TRUE(back[0]->needToRemove());
    EXPECT_FALSE(back[0]->removeForbidden());
    EXPECT_EQ(back[1]->path(), "/r/kept");
    EXPECT_FALSE(back[1]->needToRemove());
    EXPECT_TRUE(back[1]->removeForbidden());
    EXPECT_EQ(back[0]->size(), std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ(back[0]->sizeOnDisk(), 8192u);
    EXPECT_EQ(back[0]->device(), std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ(back[1]->inodeNumber(), 2u);
    EXPECT_EQ(back[0]->statMTimeNanoseconds(), std::numeric_limits<std::int64_t>::min());
    const auto backFolders = groups[1]->files();
    ASSERT_EQ(backFolders.size(), 2u);
    EXPECT_NE(dynamic_cast<CVFolder*>(backFolders[1].get()), nullptr);
    EXPECT_EQ(backFolders[1]->path(), "/r/two");
    EXPECT_EQ(backFolders[1]->statMTimeNanoseconds(), std::numeric_limits<std::int64_t>::max());
}

TEST_F(PlanReader, EveryCopyOfAGroupMarkedNeedsTheUsersWord) {
    const std::string text =
        R"({"roots": ["/r"], "groups": [)" + group(member("/r/a", true) + ", " + member("/r/b", true)) + "]}";
    EXPECT_FALSE(read(text));
    EXPECT_NE(message.find("group 1 has every copy marked; add --allow-all-copies"), std::string::npos)
        << message;
    ASSERT_TRUE(read(text, true)) << message;
    EXPECT_TRUE(plan.results->allDuplicatesGroups().at(0)->userForcedAllCopies());
}

TEST_F(PlanReader, RefusesWhatIsNoPlanWithTheFirstProblem) {
    const std::string good = group(member("/r/a", true) + ", " + member("/r/b", false));
    const std::string lacking = " lacks its path, size, device, inode or mtime";
    const struct {
        const char* name;
        std::string text;
        std::string message;
    } cases[] = {
        {"not JSON", "not json", "is not a scan document: parse error at line 1"},
        {"a syntax error after a bad group", R"({"roots": ["/r"], "groups": [{"files": []}, )",
         "is not a scan document: parse error"},
        {"a list", "[]", R"(is not a scan document (no "groups"))"},
        // A raw byte is written as \udc80 to \udcff; any other such escape is a lone
        // surrogate, as JSON has it, and no path.
        {"a byte escape below 0x80",
         R"({"roots": ["/r"], "groups": [)" +
             group(member("/r/\\udc41", true) + ", " + member("/r/b", false)) + "]}",
         "is not a scan document: parse error"},
        {"a byte escape of NUL",
         R"({"roots": ["/r"], "groups": [)" +
             group(member("/r/a\\udc00b", true) + ", " + member("/r/b", false)) + "]}",
         "is not a scan document: parse error"},
        {"a byte escape of a slash",
         R"({"roots": ["/r"], "groups": [)" +
             group(member("/r/a\\uDC2f", true) + ", " + member("/r/b", false)) + "]}",
         "is not a scan document: parse error"},
        {"a number", "5", R"(is not a scan document (no "groups"))"},
        {"no groups", R"({"roots": []})", R"(is not a scan document (no "groups"))"},
        {"groups not a list", R"({"roots": ["/r"], "groups": {"files": []}})",
         R"(is not a scan document (no "groups"))"},
        {"a group that is a number", R"({"roots": ["/r"], "groups": [)" + good + ", 3]}",
         "group 2 has no files to compare"},
        {"a group that is a list", R"({"roots": ["/r"], "groups": [[], )" + good + "]}",
         "group 1 has no files to compare"},
        {"one file", R"({"roots": ["/r"], "groups": [)" + group(member("/r/a", true)) + "]}",
         "group 1 has no files to compare"},
        {"files not a list", R"({"roots": ["/r"], "groups": [{"files": {"path": "/r/a"}}]})",
         "group 1 has no files to compare"},
        {"no inode",
         R"({"roots": ["/r"], "groups": [)" + good + ", " +
             group(member("/r/c", true) + R"(, {"path": "/r/d"})") + "]}",
         "group 2" + lacking},
        {"a member that is a string",
         R"({"roots": ["/r"], "groups": [)" + group(member("/r/a", true) + R"(, "/r/b")") + "]}",
         "a file of group 1 is not an object"},
        {"a size in words",
         R"({"roots": ["/r"], "groups": [)" +
             group(member("/r/a", true, R"(, "size": "big")") + ", " + member("/r/b", false)) + "]}",
         R"(a file of group 1 has "size" of the wrong type)"},
        {"a negative inode",
         R"({"roots": ["/r"], "groups": [)" +
             group(member("/r/a", true, R"(, "inode": -1)") + ", " + member("/r/b", false)) + "]}",
         R"(a file of group 1 has "inode" of the wrong type)"},
        {"a mark that is a number",
         R"({"roots": ["/r"], "groups": [)" +
             group(member("/r/a", true, R"(, "needToRemove": "true")") + ", " + member("/r/b", false)) + "]}",
         R"(a file of group 1 has "needToRemove" of the wrong type)"},
        {"a path that is an object",
         R"({"roots": ["/r"], "groups": [)" +
             group(member("/r/a", true, R"(, "path": {})") + ", " + member("/r/b", false)) + "]}",
         R"(a file of group 1 has "path" of the wrong type)"},
        {"a relative path",
         R"({"roots": ["/r"], "groups": [)" + group(member("r/a", true) + ", " + member("/r/b", false)) +
             "]}",
         R"(group 1 names "r/a", which is not an absolute path)"},
        {"a path through ..",
         R"({"roots": ["/r"], "groups": [)" +
             group(member("/r/x/../a", true) + ", " + member("/r/b", false)) + "]}",
         R"(group 1 names "/r/x/../a", which holds a "." or ".." component)"},
        {"a path with two slashes in a row",
         R"({"roots": ["/r"], "groups": [)" + group(member("/r//a", true) + ", " + member("/r/b", false)) +
             "]}",
         R"(group 1 names "/r//a", which holds two slashes in a row)"},
        {"a path ending in a slash",
         R"({"roots": ["/r"], "groups": [)" + group(member("/r/a/", true) + ", " + member("/r/b", false)) +
             "]}",
         R"(group 1 names "/r/a/", which ends with a slash)"},
        {"a path named twice",
         R"({"roots": ["/r"], "groups": [)" + group(member("/r/a", true) + ", " + member("/r/a", false)) +
             "]}",
         "group 1 names /r/a twice"},
        {"a path in two groups",
         R"({"roots": ["/r"], "groups": [)" + good + ", " +
             group(member("/r/c", true) + ", " + member("/r/a", false)) + "]}",
         "/r/a is in group 1 and in group 2; a file belongs to one group only"},
        {"groups twice", R"({"roots": ["/r"], "groups": [)" + good + R"(], "groups": []})",
         R"("groups" is given twice)"},
        {"a mark given twice, the last counts",
         R"({"roots": ["/r"], "groups": [)" +
             group(member("/r/a", true) + ", " + member("/r/b", false, R"(, "needToRemove": true)")) + "]}",
         "group 1 has every copy marked"},
        {"a path with a NUL byte",
         R"({"roots": ["/r"], "groups": [)" +
             group(member("/r/b\\u0000junk", true) + ", " + member("/r/c", false)) + "]}",
         R"(group 1 names "/r/b)" + std::string(1, '\0') + R"(junk", which holds a NUL byte)"},
        {"no roots", R"({"groups": [)" + good + "]}", R"("roots" does not list the scanned folders)"},
        {"no root in the list", R"({"roots": [], "groups": [)" + good + "]}",
         R"("roots" does not list the scanned folders)"},
        {"roots in a string", R"({"roots": "/r", "groups": [)" + good + "]}", R"("roots" is not a list)"},
        {"roots in an object", R"({"roots": {"a": "/r"}, "groups": [)" + good + "]}",
         R"("roots" is not a list)"},
        {"a root that is a number", R"({"roots": ["/r", 7], "groups": [)" + good + "]}",
         R"("roots" holds something other than a path)"},
        {"a root that is a list", R"({"roots": [["/r"]], "groups": [)" + good + "]}",
         R"("roots" holds something other than a path)"},
        {"a relative root", R"({"roots": ["r"], "groups": [)" + good + "]}",
         R"("roots" names "r", which is not an absolute path)"},
        {"a root with a NUL byte", R"({"roots": ["/r\u0000"], "groups": [)" + good + "]}",
         R"("roots" names "/r)" + std::string(1, '\0') + R"(", which holds a NUL byte)"},
        {"roots that hold none of the marked copies", R"({"roots": ["/s"], "groups": [)" + good + "]}",
         R"(/r/a lies in none of the folders "roots" lists)"},
        {"a root that is only a prefix of the name",
         R"({"roots": ["/r/a", "/r/b", "/r/d"], "groups": [)" + good + ", " +
             group(member("/r/dx", true) + ", " + member("/r/d", false)) + "]}",
         R"(/r/dx lies in none)"},
        {"a marked copy that may not be removed",
         R"({"roots": ["/r"], "groups": [)" +
             group(member("/r/a", true, R"(, "removeForbidden": true)") + ", " + member("/r/b", false)) +
             "]}",
         "/r/a is marked but may not be removed"},
    };
    for (const auto& c : cases) {
        EXPECT_FALSE(read(c.text)) << c.name;
        EXPECT_NE(message.find(c.message), std::string::npos) << c.name << ": " << message;
        EXPECT_EQ(message.find("[json.exception"), std::string::npos) << c.name << ": " << message;
    }
}

} // namespace
} // namespace corvel::cli
