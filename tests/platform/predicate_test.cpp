#include <cmath>
#include <gtest/gtest.h>
#include <limits>

#include "platform/predicate.h"

namespace corvel {
namespace {

// An object shaped like a scanned file: plain values, a library record and a root folder.
class FakeItem : public KeyValueObject {
public:
    PropertyValue::Dictionary values;
    const FakeItem* root = nullptr;

    PropertyValue valueForKey(std::string_view key) const override {
        auto it = values.find(key);
        return it == values.end() ? PropertyValue() : it->second;
    }
    const KeyValueObject* objectForKey(std::string_view key) const override {
        return key == "rootFolder" ? root : nullptr;
    }
};

struct Case {
    std::string format;
    std::vector<PropertyValue> args;
    bool expected;
};

void PrintTo(const Case& c, std::ostream* os) {
    *os << c.format;
}

class PredicateEvaluation : public testing::TestWithParam<Case> {
protected:
    static const FakeItem& item() {
        static const FakeItem instance = [] {
            static FakeItem root;
            root.values = {{"type", 11}, {"path", "/Users/ada/Music/iTunes"}};
            FakeItem f;
            f.root = &root;
            f.values = {
                {"path", "/Users/ada/Music/iTunes/Song Copy.mp3"},
                {"title", "Song Copy.mp3"},
                {"type", 4},
                {"needToRemove", true},
                {"selectionType", 4},
                {"removeForbidden", false},
                {"statMTime", static_cast<unsigned long long>(1700000000)},
                {"size", 0.5},
                {"info", PropertyValue::Dictionary{{"EventID", "12"}, {"Rating", 80}, {"Name", "Café"}}},
                {"emptyInfo", PropertyValue::Dictionary{}},
                {"tags", PropertyValue::Array{"a", "B"}},
            };
            return f;
        }();
        return instance;
    }
};

TEST_P(PredicateEvaluation, AnswersAsExpected) {
    const Case& c = GetParam();
    CVError error;
    const auto predicate = Predicate::parse(c.format, c.args, &error);
    ASSERT_TRUE(predicate) << error.localizedDescription();
    EXPECT_EQ(predicate->evaluate(item()), c.expected) << c.format;
}

INSTANTIATE_TEST_SUITE_P(
    Forms, PredicateEvaluation,
    testing::Values(
        // comparisons on numbers, booleans and arguments
        Case{"selectionType == %i", {4}, true}, Case{"selectionType == %i", {1}, false},
        Case{"selectionType != 1", {}, true}, Case{"selectionType < 5 && selectionType > 3", {}, true},
        Case{"selectionType <= 4", {}, true}, Case{"selectionType >= 5", {}, false},
        Case{"selectionType =< 4 AND selectionType => 4", {}, true}, Case{"selectionType = 4", {}, true},
        Case{"selectionType <> 4", {}, false}, Case{"needToRemove == YES", {}, true},
        Case{"needToRemove == 1", {}, true}, Case{"(removeForbidden == YES)", {}, false},
        Case{"removeForbidden == FALSE", {}, true},
        Case{"(statMTime != %lu)", {static_cast<unsigned long long>(1700000000)}, false},
        Case{"statMTime > %lu", {static_cast<unsigned long long>(1699999999)}, true},
        Case{"size > 0.25", {}, true}, Case{"size < -1", {}, false},
        // strings with and without modifiers
        Case{"path BEGINSWITH[c] %@", {"/users/ADA/music/"}, true},
        Case{"path BEGINSWITH %@", {"/users/ADA/music/"}, false}, Case{"path beginswith '/Users'", {}, true},
        Case{"title contains[c] 'copy'", {}, true}, Case{"title CONTAINS 'copy'", {}, false},
        Case{"title ENDSWITH[c] '.MP3'", {}, true}, Case{"info.Name == 'Cafe'", {}, false},
        Case{"info.Name ==[cd] 'CAFE'", {}, true}, Case{"info.Name CONTAINS[d] 'afe'", {}, true},
        Case{"title contains[c] 'ab\\'c'", {}, false},
        Case{"!(path BEGINSWITH '/Application') && !(path BEGINSWITH %@)", {"/Users/ada/Applications"}, true},
        Case{"NOT path BEGINSWITH '/Users'", {}, false},
        // key paths, SIZE and key substitution
        Case{"(rootFolder.type == %i) && (info[SIZE] > 0)", {11}, true},
        Case{"(rootFolder.type == %i) && (info[SIZE] > 0)", {14}, false},
        Case{"emptyInfo[SIZE] > 0", {}, false}, Case{"missing[SIZE] == 0", {}, true},
        Case{"(info.%@ == %@)", {"EventID", "12"}, true}, Case{"(info.%@ == %@)", {"EventID", 12}, true},
        Case{"info.EventID == 13", {}, false}, Case{"%K == 80", {"info.Rating"}, true},
        Case{"rootFolder.path BEGINSWITH[c] '/USERS/ADA/'", {}, true}, Case{"tags CONTAINS 'B'", {}, true},
        Case{"tags[1] == 'B'", {}, true}, Case{"tags[18446744073709551615] == nil", {}, true},
        // the limits of each kind of number literal still parse
        Case{"statMTime < 18446744073709551615", {}, true},
        Case{"statMTime > -9223372036854775808", {}, true}, Case{"size > +0.25", {}, true},
        Case{"size > 1e-310", {}, true}, Case{"size < .75", {}, true},
        // null, precedence and constants
        Case{"missing == nil", {}, true}, Case{"missing != NULL", {}, false}, Case{"missing > 0", {}, false},
        Case{"missing == 0", {}, false},
        Case{"selectionType == 1 || selectionType == 4 && needToRemove == NO", {}, false},
        Case{"(selectionType == 1 || selectionType == 4) && needToRemove == YES", {}, true},
        Case{"TRUEPREDICATE", {}, true}, Case{"NOT FALSEPREDICATE", {}, true},
        Case{"title == \"Song Copy.mp3\"", {}, true}, Case{"%@ == 'x'", {"x"}, true}));

// Modification times are signed seconds: before 1970, around 0 and far out they compare
// exactly, whether the argument comes as a signed or unsigned integer, a real or a
// numeric string.
struct TimeCase {
    std::string label;
    PropertyValue time;
    std::string format;
    PropertyValue argument;
    bool expected;
};

void PrintTo(const TimeCase& c, std::ostream* os) {
    *os << c.label;
}

class PredicateTimes : public testing::TestWithParam<TimeCase> {};

TEST_P(PredicateTimes, CompareExactly) {
    const TimeCase& c = GetParam();
    FakeItem file;
    file.values = {{"statMTime", c.time}};
    CVError error;
    const auto predicate = Predicate::parse(c.format, std::vector<PropertyValue>{c.argument}, &error);
    ASSERT_TRUE(predicate) << error.localizedDescription();
    EXPECT_EQ(predicate->evaluate(file), c.expected);
}

constexpr long long kTwo53 = 1LL << 53;
constexpr long long kInt64Max = std::numeric_limits<long long>::max();
constexpr long long kInt64Min = std::numeric_limits<long long>::min();
constexpr unsigned long long kUInt64Max = std::numeric_limits<unsigned long long>::max();

INSTANTIATE_TEST_SUITE_P(
    Times, PredicateTimes,
    testing::Values(
        TimeCase{"before 1970, equal", -100LL, "(statMTime != %lu)", -100LL, false},
        TimeCase{"before 1970, differ", -100LL, "(statMTime != %lu)", -50LL, true},
        TimeCase{"before 1970, less", -100LL, "statMTime < %lu", -50LL, true},
        TimeCase{"before 1970 against a positive", -1LL, "statMTime < %lu", 1ULL, true},
        TimeCase{"zero against -1", 0LL, "statMTime > %ld", -1LL, true},
        TimeCase{"zero equal", 0LL, "statMTime == %lu", 0ULL, true},
        TimeCase{"a negative time is below every unsigned", -1LL, "statMTime < %lu", kUInt64Max, true},
        TimeCase{"negative against a negative literal", -100LL, "statMTime == -100", PropertyValue(), true},
        TimeCase{"the smallest time", kInt64Min, "statMTime < %ld", kInt64Min + 1, true},
        TimeCase{"the largest time", kInt64Max, "statMTime == %lu",
                 static_cast<unsigned long long>(kInt64Max), true},
        TimeCase{"an integer beyond double precision against a real", kTwo53 + 1, "statMTime != %f",
                 static_cast<double>(kTwo53), true},
        TimeCase{"an integer beyond double precision above a real", kTwo53 + 1, "statMTime > %f",
                 static_cast<double>(kTwo53), true},
        TimeCase{"the largest time is below 2^63 as a real", kInt64Max, "statMTime < %f",
                 9223372036854775808.0, true},
        TimeCase{"the smallest time equals -2^63 as a real", kInt64Min, "statMTime == %f",
                 -9223372036854775808.0, true},
        TimeCase{"a fraction above", -1LL, "statMTime < %f", -0.5, true},
        TimeCase{"a fraction below", -1LL, "statMTime > %f", -1.5, true},
        TimeCase{"the largest unsigned is below 2^64 as a real", kUInt64Max, "statMTime < %f",
                 18446744073709551616.0, true},
        TimeCase{"a numeric string beyond double precision", kTwo53, "statMTime != %@", "9007199254740993",
                 true},
        TimeCase{"a negative numeric string", -100LL, "statMTime == %@", "-100", true},
        TimeCase{"a real numeric string", -1LL, "statMTime < %@", "-0.5", true},
        TimeCase{"not a number is not less", -1LL, "statMTime < %f", std::nan(""), false},
        TimeCase{"not a number equals nothing", 0LL, "statMTime == %f", std::nan(""), false}));

struct Malformed {
    std::string format;
    std::size_t position;
};

void PrintTo(const Malformed& m, std::ostream* os) {
    *os << '"' << m.format << '"';
}

class PredicateErrors : public testing::TestWithParam<Malformed> {};

TEST_P(PredicateErrors, ReportTheProblemAndWhereItIs) {
    CVError error;
    const auto predicate = Predicate::parse(GetParam().format, {}, &error);
    EXPECT_FALSE(predicate);
    EXPECT_EQ(error.domain, kPredicateErrorDomain);
    EXPECT_EQ(error.userInfo["position"].toUInt64(), GetParam().position) << error.localizedDescription();
}

INSTANTIATE_TEST_SUITE_P(Forms, PredicateErrors,
                         testing::Values(Malformed{"", 0}, Malformed{"path", 4}, Malformed{"path ==", 7},
                                         Malformed{"(a == 1", 7}, Malformed{"a == 1)", 6},
                                         Malformed{"a == 'open", 5}, Malformed{"a BEGINSWITH[x] 'b'", 13},
                                         Malformed{"a == %@", 7}, Malformed{"a == 1 &&", 9},
                                         Malformed{"a[foo] == 1", 2}, Malformed{"a. == 1", 2},
                                         Malformed{"a == %q", 5}, Malformed{"== 1", 0}));

// Numbers that do not fit their type are errors at the number, never an abort or a silent
// clamp to the largest value.
INSTANTIATE_TEST_SUITE_P(NumbersOutOfRange, PredicateErrors,
                         testing::Values(Malformed{"a[99999999999999999999] == 1", 2},
                                         Malformed{"a[18446744073709551616] == 1", 2},
                                         Malformed{"a == 18446744073709551616", 5},
                                         Malformed{"a == -9223372036854775809", 5},
                                         Malformed{"a == 1e999", 5}, Malformed{"a == -1e999", 5},
                                         Malformed{"a == 1e-999", 5}, Malformed{"a == 1.2.3", 5},
                                         Malformed{"a == 1e", 5}, Malformed{"a == +-1", 5}));

TEST(Predicate, AbsurdNestingIsAnErrorNotACrash) {
    const std::string format = std::string(100000, '(') + "a == 1" + std::string(100000, ')');
    CVError error;
    EXPECT_FALSE(Predicate::parse(format, &error));
    EXPECT_NE(error.localizedDescription().find("nested"), std::string::npos);
}

TEST(Predicate, EvaluatesAgainstPlainDictionaries) {
    const auto p = Predicate::parsef("Category == %i", nullptr, 3);
    ASSERT_TRUE(p);
    EXPECT_TRUE(p->evaluate(PropertyValue(PropertyValue::Dictionary{{"Category", 3}})));
    EXPECT_FALSE(p->evaluate(PropertyValue(PropertyValue::Dictionary{{"Category", "3x"}})));
}

} // namespace
} // namespace corvel
