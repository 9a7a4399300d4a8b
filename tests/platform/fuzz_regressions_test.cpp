#include <gtest/gtest.h>
#include <set>
#include <string>

#include "platform/predicate.h"
#include "platform/property_list.h"
#include "support/fuzz_regressions.h"

namespace corvel {
namespace {

using test::fuzzRegressions;

// The property-list harness: read; a list that reads is written in both formats and
// each written text reads back to a list that writes the same XML text.
TEST(FuzzRegressions, PropertyListsReadCleanlyAndRoundTrip) {
    const auto inputs = fuzzRegressions("property_list");
    ASSERT_GE(inputs.size(), 4u);
    for (const auto& input : inputs) {
        SCOPED_TRACE(input.name);
        PropertyValue value;
        CVError error;
        if (!readPropertyList(input.bytes, value, &error)) {
            EXPECT_FALSE(error.localizedDescription().empty());
            continue;
        }
        for (const auto format : {PropertyListFormat::XML, PropertyListFormat::Binary}) {
            const std::string written = propertyListData(value, format);
            if (written.empty())
                continue;
            PropertyValue back;
            ASSERT_TRUE(readPropertyList(written, back, nullptr));
            // XML keeps every value exactly; binary lists go through libplist, whose dates
            // cover only 1901 to 2038, so they need only read back.
            if (format == PropertyListFormat::XML) {
                EXPECT_EQ(propertyListData(back, PropertyListFormat::XML),
                          propertyListData(value, PropertyListFormat::XML));
            }
        }
    }
}

// The NUL and reference-bomb inputs are refused, not read.
TEST(FuzzRegressions, KnownHostileListsAreRefused) {
    const std::set<std::string> hostile = {"binary-nul-in-key.bplist", "binary-nul-in-string.bplist",
                                           "binary-reference-bomb.bplist", "xml-raw-nul-in-string.plist"};
    std::size_t seen = 0;
    for (const auto& input : fuzzRegressions("property_list")) {
        if (!hostile.contains(input.name))
            continue;
        SCOPED_TRACE(input.name);
        ++seen;
        PropertyValue value = "untouched";
        CVError error;
        EXPECT_FALSE(readPropertyList(input.bytes, value, &error));
        EXPECT_EQ(value.toString(), "untouched");
    }
    EXPECT_EQ(seen, hostile.size());
}

TEST(FuzzRegressions, PredicatesParseOrGiveAnError) {
    const auto inputs = fuzzRegressions("predicate");
    ASSERT_GE(inputs.size(), 1u);
    const PropertyValue object(PropertyValue::Dictionary{{"a", PropertyValue(PropertyValue::Array{1, "x"})}});
    for (const auto& input : inputs) {
        SCOPED_TRACE(input.name);
        CVError error;
        const auto predicate = Predicate::parse(input.bytes, &error);
        if (predicate)
            (void)predicate->evaluate(object);
        else
            EXPECT_FALSE(error.localizedDescription().empty());
    }
}

} // namespace
} // namespace corvel
