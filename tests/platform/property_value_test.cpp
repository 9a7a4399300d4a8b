#include <gtest/gtest.h>

#include "platform/property_value.h"

namespace corvel {
namespace {

TEST(PropertyValue, LenientConversionsFollowTheSettingsStoreRules) {
    struct Case {
        PropertyValue value;
        bool asBool;
        std::int64_t asInt;
        double asDouble;
    };
    const Case cases[] = {
        {PropertyValue(), false, 0, 0.0},
        {PropertyValue(true), true, 1, 1.0},
        {PropertyValue(42), true, 42, 42.0},
        {PropertyValue(-7), true, -7, -7.0},
        {PropertyValue(2.75), true, 2, 2.75},
        {PropertyValue("YES"), true, 0, 0.0},
        {PropertyValue("true"), true, 0, 0.0},
        {PropertyValue("0"), false, 0, 0.0},
        {PropertyValue("12"), true, 12, 12.0},
        {PropertyValue("1.5"), true, 1, 1.5},
        {PropertyValue(PropertyValue::Array{1}), false, 0, 0.0},
        {PropertyValue(1e300), true, INT64_MAX, 1e300},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.value.description());
        EXPECT_EQ(c.value.toBool(), c.asBool);
        EXPECT_EQ(c.value.toInt64(), c.asInt);
        EXPECT_DOUBLE_EQ(c.value.toDouble(), c.asDouble);
    }
}

TEST(PropertyValue, UnsignedValuesAboveSignedRangeKeepTheirBits) {
    const PropertyValue big(UINT64_MAX - 1);
    EXPECT_TRUE(big.isUnsignedInteger());
    EXPECT_EQ(big.toUInt64(), UINT64_MAX - 1);
    EXPECT_EQ(big.toString(), "18446744073709551614");
    EXPECT_FALSE(big == PropertyValue(-2));
    EXPECT_TRUE(PropertyValue(5u) == PropertyValue(5));
}

TEST(PropertyValue, CopiesDoNotSeeLaterWrites) {
    PropertyValue a(PropertyValue::Dictionary{{"k", 1}});
    PropertyValue b = a;
    b.set("k", 2);
    b.set("new", "x");
    EXPECT_EQ(a["k"].toInt64(), 1);
    EXPECT_TRUE(a["new"].isNull());
    EXPECT_EQ(b["k"].toInt64(), 2);

    PropertyValue list(PropertyValue::Array{1, 2});
    PropertyValue copy = list;
    copy.append(3);
    EXPECT_EQ(list.count(), 2u);
    EXPECT_EQ(copy.count(), 3u);
}

TEST(PropertyValue, MissingMembersAndIndexesAnswerNull) {
    const PropertyValue d(PropertyValue::Dictionary{{"a", PropertyValue::Array{"x"}}});
    EXPECT_TRUE(d["missing"].isNull());
    EXPECT_EQ(*d["a"][0].asString(), "x");
    EXPECT_TRUE(d["a"][5].isNull());
    EXPECT_TRUE(PropertyValue(3)["a"].isNull());
}

TEST(PropertyValue, EqualityIsDeepAndNumeric) {
    EXPECT_TRUE(PropertyValue(1) == PropertyValue(1.0));
    EXPECT_TRUE(PropertyValue(true) == PropertyValue(1));
    EXPECT_FALSE(PropertyValue("1") == PropertyValue(1));
    const PropertyValue a(
        PropertyValue::Dictionary{{"x", PropertyValue::Array{1, "b", PropertyValue::Data{1, 2}}}});
    PropertyValue b = a;
    EXPECT_TRUE(a == b);
    b.mutableDictionary()["x"].append(4);
    EXPECT_FALSE(a == b);
}

} // namespace
} // namespace corvel
