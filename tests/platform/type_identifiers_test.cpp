#include <gtest/gtest.h>

#include "platform/type_identifiers.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

struct Case {
    std::string extension;
    std::string conformsTo;
    bool expected;
};

void PrintTo(const Case& c, std::ostream* os) {
    *os << c.extension << " -> " << c.conformsTo;
}

class TypeConformance : public testing::TestWithParam<Case> {};

TEST_P(TypeConformance, FollowsTheRelation) {
    const auto& types = TypeIdentifiers::shared();
    const std::string id = types.preferredIdentifierForExtension(GetParam().extension);
    EXPECT_EQ(types.conformsTo(id, GetParam().conformsTo), GetParam().expected) << id;
}

INSTANTIATE_TEST_SUITE_P(
    Table, TypeConformance,
    testing::Values(Case{"jpg", "public.image", true}, Case{"JPG", "public.image", true},
                    Case{"jpg", "public.data", true}, Case{"jpg", "public.content", true},
                    Case{"jpg", "public.movie", false}, Case{"txt", "public.text", true},
                    Case{"pdf", "com.adobe.pdf", true}, Case{"pdf", "public.composite-content", true},
                    Case{"docx", "public.composite-content", true},
                    Case{"doc", "com.microsoft.word.doc", true}, Case{"xls", "com.microsoft.excel.xls", true},
                    Case{"key", "com.apple.iwork.keynote.key", true},
                    Case{"pptx", "public.presentation", true}, Case{"mkv", "public.movie", true},
                    Case{"mp4", "public.movie", true}, Case{"mp3", "public.audio", true},
                    Case{"mp3", "public.movie", false}, Case{"flac", "public.audio", true},
                    Case{"zip", "public.archive", true}, Case{"iso", "public.disk-image", true},
                    Case{"dmg", "public.archive", true}, Case{"cr2", "public.image", true},
                    Case{"unheardof", "public.data", true}, Case{"unheardof", "public.content", false},
                    Case{"", "public.data", true}, Case{"eps", "public.image", true}));

TEST(TypeIdentifiers, EveryParentInTheShippedTableIsKnownAndNamedTypesExist) {
    const auto& types = TypeIdentifiers::shared();
    EXPECT_GT(types.extensionCount(), 150u);
    for (const char* id :
         {"public.dib", "public.rle", "public.pcx", "public.tpic", "public.jfif", "public.cgm", "public.rmvb",
          "public.vob", "public.swf", "public.ogg", "public.aac", "public.mmf", "com.apple.iwork.pages.pages",
          "com.apple.iwork.numbers.numbers"})
        EXPECT_TRUE(types.conformsTo(id, "public.data")) << id;
    EXPECT_EQ(types.preferredIdentifierForExtension("Weird"), "dyn.weird");
}

TEST(TypeIdentifiers, ABrokenTableIsAnError) {
    test::TempTree tree;
    TypeIdentifiers types;
    CVError error;
    EXPECT_FALSE(types.load(tree.file("t.json", "{\"extensions\": 3}"), &error));
    EXPECT_FALSE(types.load(tree.file("u.json", "not json"), &error));
    EXPECT_FALSE(types.load(tree / "missing.json", &error));
    EXPECT_TRUE(types.load(
        tree.file("ok.json",
                  R"({"extensions": {"abc": "x.a"}, "conformsTo": {"x.a": ["x.b"], "x.b": ["x.a"]}})"),
        &error));
    EXPECT_TRUE(types.conformsTo("x.a", "x.b"));
    EXPECT_FALSE(types.conformsTo("x.a", "x.c")) << "a cycle in the relation ends the search";
}

} // namespace
} // namespace corvel
