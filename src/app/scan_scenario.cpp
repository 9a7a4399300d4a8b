#include "scan_scenario.h"

#include <random>

#include "platform/property_list.h"
#include "platform/resources.h"
#include "platform/string_tables.h"
#include "platform/system_log.h"

namespace corvel {

namespace {

const PropertyValue::Array& emptyArray() {
    static const PropertyValue::Array empty;
    return empty;
}

const PropertyValue::Array& arrayOf(const PropertyValue& value) {
    const auto* array = value.asArray();
    return array ? *array : emptyArray();
}

} // namespace

RandomSource systemRandomSource() {
    auto engine = std::make_shared<std::mt19937_64>(std::random_device{}());
    return [engine] { return (*engine)(); };
}

std::string CVScanScenario::defaultResourceFile() {
    return resourcePath("ScanTextScenarios.plist");
}

CVScanScenario::CVScanScenario(std::int64_t phrasesIndex, RandomSource random)
    : CVScanScenario(phrasesIndex, std::move(random), defaultResourceFile(), StringTables::shared()) {}

CVScanScenario::CVScanScenario(std::int64_t phrasesIndex, RandomSource random,
                               const std::string& resourceFile, StringTables& tables)
    : m_random(std::move(random)), m_tables(tables) {
    PropertyValue resource;
    CVError error;
    if (!readPropertyListFile(resourceFile, resource, &error) || !resource.isArray() ||
        resource.count() == 0) {
        m_errorOpeningScenario = true;
        systemLog("Error openning Scenarios");
        return;
    }
    m_currentPhraseIndex = 0;
    if (phrasesIndex >= 0 && static_cast<std::size_t>(phrasesIndex) < resource.count())
        m_scenariosArray = arrayOf(resource[static_cast<std::size_t>(phrasesIndex)]);
    if (phrasesIndex == ScenarioUseScanning)
        m_currentScenarioIndex = static_cast<std::int64_t>(randomBelow(m_scenariosArray.size()));
    else
        m_currentPhraseIndex = static_cast<std::int64_t>(randomBelow(m_scenariosArray.size()));
}

std::uint64_t CVScanScenario::randomBelow(std::size_t count) {
    if (count == 0)
        return 0;
    return m_random() % count;
}

const PropertyValue::Array& CVScanScenario::currentScenario() const {
    if (m_currentScenarioIndex < 0 ||
        static_cast<std::size_t>(m_currentScenarioIndex) >= m_scenariosArray.size())
        return emptyArray();
    return arrayOf(m_scenariosArray[static_cast<std::size_t>(m_currentScenarioIndex)]);
}

std::string CVScanScenario::textOfKey(const PropertyValue& key) const {
    const auto* text = key.asString();
    return text ? m_tables.localizedString(*text, "Scenarios") : std::string();
}

std::string CVScanScenario::randomPhrase() const {
    if (m_errorOpeningScenario || m_currentPhraseIndex < 0 ||
        static_cast<std::size_t>(m_currentPhraseIndex) >= m_scenariosArray.size())
        return {};
    return textOfKey(m_scenariosArray[static_cast<std::size_t>(m_currentPhraseIndex)]);
}

std::string CVScanScenario::nextPhrase() {
    m_usingNextScenario = false;
    if (m_errorOpeningScenario)
        return {};
    const auto& scenario = currentScenario();
    if (m_currentPhraseIndex < static_cast<std::int64_t>(scenario.size())) {
        std::string phrase = textOfKey(scenario[static_cast<std::size_t>(m_currentPhraseIndex)]);
        ++m_currentPhraseIndex;
        return phrase;
    }
    m_currentScenarioIndex = static_cast<std::int64_t>(randomBelow(m_scenariosArray.size()));
    m_currentPhraseIndex = 0;
    const auto& next = currentScenario();
    return next.empty() ? std::string() : textOfKey(next.front());
}

void CVScanScenario::checkWillUseNextScenario() {
    m_usingNextScenario = m_currentPhraseIndex - 1 == static_cast<std::int64_t>(currentScenario().size());
}

} // namespace corvel
