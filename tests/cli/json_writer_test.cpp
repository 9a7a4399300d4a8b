#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "json_writer.h"

namespace corvel::cli {
namespace {

TEST(JsonWriter, StringsEscapeWhatJsonNeedsAndRoundTripEveryByte) {
    struct Case {
        std::string bytes;
        std::string literal;
    };
    for (const Case& c :
         {Case{"plain", "\"plain\""}, Case{"a\"b\\c", R"("a\"b\\c")"},
          Case{"tab\tline\n", R"("tab\tline\n")"}, Case{std::string("\x01", 1), R"("\u0001")"},
          Case{"caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80", "\"caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80\""},
          Case{"caf\xE9.jpg", R"("caf\udce9.jpg")"}, Case{"\xC3", R"("\udcc3")"}, // truncated sequence
          Case{"\xC0\xAF", R"("\udcc0\udcaf")"},                                  // overlong form
          Case{"\xED\xA0\x80", R"("\udced\udca0\udc80")"},                        // encoded surrogate
          Case{"\xFF\xFE", R"("\udcff\udcfe")"}}) {
        EXPECT_EQ(jsonString(c.bytes), c.literal);
        const std::string& l = c.literal;
        EXPECT_EQ(decodeJsonString(std::string_view(l).substr(1, l.size() - 2)), c.bytes);
    }
}

TEST(JsonWriter, DocumentsParseAsJson) {
    JsonWriter json;
    json.beginObject();
    json.key("list");
    json.beginArray();
    json.value(std::uint64_t{1});
    json.value("two");
    json.value(true);
    json.beginObject();
    json.key("n");
    json.value(std::int64_t{-3});
    json.endObject();
    json.endArray();
    json.key("empty");
    json.beginArray();
    json.endArray();
    json.endObject();
    const auto parsed = nlohmann::json::parse(json.text());
    EXPECT_EQ(parsed["list"][1], "two");
    EXPECT_EQ(parsed["list"][3]["n"], -3);
    EXPECT_TRUE(parsed["empty"].empty());
}

} // namespace
} // namespace corvel::cli
