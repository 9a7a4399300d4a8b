#include <deque>
#include <gtest/gtest.h>
#include <random>

#include "app/scan_scenario.h"
#include "platform/property_list.h"
#include "platform/string_tables.h"
#include "platform/system_log.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

using Array = PropertyValue::Array;

// Answers the numbers it was given, in order, then zeros.
RandomSource scripted(std::deque<std::uint64_t> numbers) {
    auto queue = std::make_shared<std::deque<std::uint64_t>>(std::move(numbers));
    return [queue] {
        if (queue->empty())
            return std::uint64_t{0};
        const auto n = queue->front();
        queue->pop_front();
        return n;
    };
}

class Scenario : public testing::Test {
protected:
    Scenario() {
        const Array keys = {
            Array{Array{"s0a", "s0b", "s0c"}, Array{"s1a"}},
            Array{"f0", "f1", "f2"},
            Array{"n0"},
            Array{},
            Array{"st0", "st1"},
        };
        EXPECT_TRUE(writePropertyListFile(resource, PropertyValue(keys), nullptr));
        PropertyValue::Dictionary texts;
        for (const char* key : {"s0a", "s0b", "s0c", "s1a", "f0", "f1", "f2", "n0", "st0", "st1"})
            texts[key] = std::string("Text ") + key;
        EXPECT_TRUE(
            writePropertyListFile(scratch / "lproj/Scenarios.strings", PropertyValue(texts), nullptr));
    }
    CVScanScenario make(std::int64_t use, std::deque<std::uint64_t> numbers) {
        return CVScanScenario(use, scripted(std::move(numbers)), resource, tables);
    }

    test::TempTree scratch;
    std::string resource = scratch / "ScanTextScenarios.plist";
    std::string lproj = scratch.folder("lproj");
    StringTables tables{lproj};
};

TEST_F(Scenario, ScenariosRunInOrderAndANewOnesFirstPhraseShowsTwice) {
    auto scenario = make(0, {1, 0, 2});
    EXPECT_EQ(scenario.currentScenarioIndex(), 1);
    std::vector<std::string> shown;
    for (int i = 0; i < 7; ++i)
        shown.push_back(scenario.nextPhrase());
    EXPECT_EQ(shown, (std::vector<std::string>{"Text s1a", "Text s0a", "Text s0a", "Text s0b", "Text s0c",
                                               // 2 modulo 2 scenarios picks scenario 0 again.
                                               "Text s0a", "Text s0a"}));
}

TEST_F(Scenario, FlatSetsPickOnePhraseAtRandom) {
    EXPECT_EQ(make(1, {5}).randomPhrase(), "Text f2");
    EXPECT_EQ(make(1, {3}).randomPhrase(), "Text f0");
    EXPECT_EQ(make(2, {99}).randomPhrase(), "Text n0");
    EXPECT_EQ(make(4, {1}).randomPhrase(), "Text st1");
    EXPECT_EQ(make(3, {4}).randomPhrase(), "") << "an empty set has no phrase";
    EXPECT_EQ(make(9, {4}).randomPhrase(), "") << "a use the resource lacks has no phrase";
    EXPECT_FALSE(make(9, {}).errorOpeningScenario());
}

TEST_F(Scenario, TheNextScenarioIsAnnouncedOnlyOnePastTheEnd) {
    auto scenario = make(0, {0, 0});
    for (int i = 0; i < 3; ++i) {
        scenario.nextPhrase();
        scenario.checkWillUseNextScenario();
        EXPECT_FALSE(scenario.usingNextScenario()) << i;
    }
    // The index stops at the length (3), so length + 1 is never reached through nextPhrase.
    EXPECT_EQ(scenario.currentPhraseIndex(), 3);
    scenario.nextPhrase();
    EXPECT_EQ(scenario.currentPhraseIndex(), 0);
    scenario.checkWillUseNextScenario();
    EXPECT_FALSE(scenario.usingNextScenario());
}

TEST_F(Scenario, AMissingOrEmptyResourceGivesEmptyPhrasesAndALogLine) {
    const std::vector<std::pair<const char*, std::string>> damaged = {
        {"missing", ""},
        {"empty array", "<plist><array/></plist>"},
        {"not an array", "<plist><dict/></plist>"},
        {"not a list", "phrases"}};
    for (const auto& [name, content] : damaged) {
        SCOPED_TRACE(name);
        const std::string path = scratch / (std::string(name) + ".plist");
        if (!content.empty())
            scratch.file(std::string(name) + ".plist", content);
        ScopedLogCapture log;
        CVScanScenario scenario(0, scripted({1}), path, tables);
        EXPECT_TRUE(scenario.errorOpeningScenario());
        EXPECT_TRUE(log.contains("Error openning Scenarios"));
        EXPECT_EQ(scenario.nextPhrase(), "");
        EXPECT_EQ(scenario.randomPhrase(), "");
        scenario.checkWillUseNextScenario();
    }
}

TEST(ShippedScenarios, ASeededSourceReplaysTheSamePhrases) {
    for (std::uint64_t randomStart : {1u, 42u, 2024u}) {
        SCOPED_TRACE(randomStart);
        std::mt19937_64 engine(randomStart);
        CVScanScenario scenario(0, [&engine] { return engine(); });
        ASSERT_FALSE(scenario.errorOpeningScenario());
        const auto& scenarios = scenario.scenariosArray();
        ASSERT_GE(scenarios.size(), 2u);
        std::mt19937_64 replay(randomStart);
        const auto first = static_cast<std::int64_t>(replay() % scenarios.size());
        EXPECT_EQ(scenario.currentScenarioIndex(), first);
        const auto& keys = *scenarios[static_cast<std::size_t>(first)].asArray();
        for (const auto& key : keys)
            EXPECT_EQ(scenario.nextPhrase(), localized(*key.asString(), "Scenarios"));
        const auto second = static_cast<std::size_t>(replay() % scenarios.size());
        const std::string opening = localized(*(*scenarios[second].asArray())[0].asString(), "Scenarios");
        EXPECT_EQ(scenario.nextPhrase(), opening);
        EXPECT_EQ(scenario.nextPhrase(), opening) << "a new scenario's first phrase shows twice";
    }
}

} // namespace
} // namespace corvel
