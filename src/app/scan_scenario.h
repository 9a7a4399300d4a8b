#pragma once
// CVScanScenario: the phrases shown under the status line. The resource
// "ScanTextScenarios.plist" is an array whose element n is the phrase set for use n:
// element 0 (while scanning) is an array of scenarios, each an array of phrase keys shown
// in order; elements 1 to 4 (duplicates found, nothing found, scan error, the status
// line at scan start) are flat arrays of keys from which one is picked at random. Every
// key is looked up in the string table "Scenarios".
//
// Randomness comes from the injected source, so tests replay a seeded sequence. A
// missing, unreadable or empty resource sets errorOpeningScenario, logs "Error openning
// Scenarios" and makes every phrase empty. Main thread (one scenario per scan).

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/property_value.h"

namespace corvel {

class StringTables;

// Uniform random 64-bit numbers.
using RandomSource = std::function<std::uint64_t()>;
// A source seeded from the system's entropy.
RandomSource systemRandomSource();

enum ScenarioUse : std::int64_t {
    ScenarioUseScanning = 0,
    ScenarioUseFound = 1,
    ScenarioUseNothingFound = 2,
    ScenarioUseError = 3,
    ScenarioUseStartStatus = 4,
};

class CVScanScenario {
public:
    // The phrases of use phrasesIndex from the shipped resource and string tables.
    CVScanScenario(std::int64_t phrasesIndex, RandomSource random);
    // From the resource at resourceFile, texts from tables.
    CVScanScenario(std::int64_t phrasesIndex, RandomSource random, const std::string& resourceFile,
                   StringTables& tables);

    // The text of the phrase picked at creation (flat sets); empty when there is none.
    std::string randomPhrase() const;
    // The next phrase of the current scenario (use 0). Past its end a new scenario is
    // picked at random (possibly the same one) and its first phrase is answered without
    // advancing, so that phrase shows twice in a row. Clears usingNextScenario.
    std::string nextPhrase();
    // Sets usingNextScenario when currentPhraseIndex − 1 equals the current scenario's
    // length, clears it otherwise.
    void checkWillUseNextScenario();

    bool usingNextScenario() const { return m_usingNextScenario; }
    bool errorOpeningScenario() const { return m_errorOpeningScenario; }
    std::int64_t currentScenarioIndex() const { return m_currentScenarioIndex; }
    std::int64_t currentPhraseIndex() const { return m_currentPhraseIndex; }
    const PropertyValue::Array& scenariosArray() const { return m_scenariosArray; }

    static std::string defaultResourceFile();

private:
    const PropertyValue::Array& currentScenario() const;
    std::uint64_t randomBelow(std::size_t count);
    std::string textOfKey(const PropertyValue& key) const;

    RandomSource m_random;
    StringTables& m_tables;
    PropertyValue::Array m_scenariosArray;
    std::int64_t m_currentScenarioIndex = 0;
    std::int64_t m_currentPhraseIndex = 0;
    bool m_usingNextScenario = false;
    bool m_errorOpeningScenario = false;
};

} // namespace corvel
