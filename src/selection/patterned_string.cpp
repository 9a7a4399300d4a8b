#include "patterned_string.h"

#include <limits>

#include "engine/node_type_generator.h"
#include "platform/text.h"
#include "platform/text_format.h"

namespace corvel {

namespace {

constexpr const char* kCopyWords = "(copy|копия|kopie|copie|copia|копія|のコピー|-kopia|Cópia de)";
constexpr const char* kDigits = "[0,1,2,3,4,5,6,7,8,9]";
constexpr const char* kUntitledFolders =
    "untitled folder|Neuer ordner|carpeta sin título|dossier sans titre|cartella senza titolo|Новая папка|"
    "名称未設定フォルダ|katalog bez nazwy|Pasta Sem Título|безіменна папка";
constexpr const char* kFoldersWithItems = "New Folder With Items|Neuer Ordner mit Objekten|Nueva carpeta con "
                                          "ítems|Nouveau dossier contenant des éléments|"
                                          "Nuova cartella con elementi|Новая папка с "
                                          "объектами|選択項目から作成したフォルダ|Nowy katalog z rzeczami|"
                                          "Nova Pasta Com Itens|Нова папка з елементами";

// The copy marks Linux file managers append in brackets: "name (copy)", "name (another
// copy)", "name (3rd copy)", "name (copy 2)". The mark ends the name or stands just before
// a last extension ("a (copy).tar" of "a (copy).tar.gz").
constexpr const char* kBracketedCopyMark =
    R"re( +\((%@( +[0-9]+)?|another +copy|[0-9]+(st|nd|rd|th) +copy)\)(?=\.[^ .]+$|$))re";
constexpr const char* kOrdinalCopy = "^[0-9]+(st|nd|rd|th) +copy";
constexpr const char* kAnotherCopy = "another +copy";

// The patterns, compiled once, with the word lists in decomposed form.
struct Patterns {
    RegularExpression prefix;
    RegularExpression suffix;
    RegularExpression trailingNumber;
    RegularExpression autoName;
    RegularExpression bracketedCopy;
    RegularExpression ordinalCopy;
    RegularExpression anotherCopy;
};

RegularExpression compiled(const std::string& pattern) {
    return *RegularExpression::compile(nfd(pattern), nullptr);
}

const Patterns& patterns() {
    static const Patterns p{
        compiled(formatf("^[ ,-,_]*%@[ ,-,_]+", kCopyWords)),
        compiled(formatf("[ ,-,_]+%@", kCopyWords)),
        compiled(formatf("([ ,-]+(%@+|\\(%@+\\)))+$", kDigits, kDigits)),
        compiled(formatf("^(%@|%@)$", kUntitledFolders, kFoldersWithItems)),
        compiled(formatf(kBracketedCopyMark, kCopyWords)),
        compiled(kOrdinalCopy),
        compiled(kAnotherCopy),
    };
    return p;
}

std::uint64_t saturatingAdd(std::uint64_t a, std::uint64_t b) {
    return b > std::numeric_limits<std::uint64_t>::max() - a ? std::numeric_limits<std::uint64_t>::max()
                                                             : a + b;
}

// The number formed by all decimal digits of the text run together (saturating).
std::uint64_t digitsValue(std::string_view text) {
    std::uint64_t value = 0;
    for (const char c : text)
        if (c >= '0' && c <= '9')
            value = value > (std::numeric_limits<std::uint64_t>::max() - 9) / 10
                        ? std::numeric_limits<std::uint64_t>::max()
                        : value * 10 + static_cast<std::uint64_t>(c - '0');
    return value;
}

// How strongly a bracketed mark says copy: "(copy)" 1, "(another copy)" 2, "(3rd copy)" 3,
// "(copy 2)" 1 + 2, as a copy word and a number count elsewhere.
std::uint64_t bracketedCopyRate(std::string_view mark) {
    if (patterns().anotherCopy.search(mark))
        return 2;
    if (patterns().ordinalCopy.search(mark.substr(mark.find('(') + 1)))
        return digitsValue(mark);
    const std::uint64_t number = digitsValue(mark);
    return saturatingAdd(1, number);
}

std::vector<std::string> splitPath(const std::string& path) {
    std::vector<std::string> components;
    if (path.starts_with("/"))
        components.emplace_back("/");
    std::size_t start = 0;
    while (start < path.size()) {
        const std::size_t slash = path.find('/', start);
        const std::size_t end = slash == std::string::npos ? path.size() : slash;
        if (end > start)
            components.push_back(nfd(std::string_view(path).substr(start, end - start)));
        start = end + 1;
    }
    return components;
}

} // namespace

CVPatternedString::CVPatternedString(std::string path)
    : m_pathComponents(splitPath(path)), m_mainString(std::move(path)) {
    resetCurrentPathComponent();
}

void CVPatternedString::resetCurrentPathComponent() {
    m_currentComponentIndex = m_pathComponents.size();
    moveToNextPathComponent();
}

void CVPatternedString::moveToNextPathComponent() {
    if (m_currentComponentIndex == 0) {
        m_currentPathComponent.reset();
        return;
    }
    --m_currentComponentIndex;
    std::string component = m_pathComponents[m_currentComponentIndex];
    const std::string_view extension = pathExtension(component);
    if (!extension.empty())
        component.resize(component.size() - extension.size() - 1);
    m_currentPathComponent = std::move(component);
}

void CVPatternedString::removePrefixCopyPattern() {
    if (!m_currentPathComponent)
        return;
    std::string& component = *m_currentPathComponent;
    const auto match = patterns().prefix.firstMatch(component);
    if (match && match->first == 0 && match->second <= component.size()) {
        component.erase(0, match->second);
        m_patternsRate = saturatingAdd(m_patternsRate, 1);
    }
}

void CVPatternedString::removeSufixCopyPattern() {
    if (!m_currentPathComponent)
        return;
    std::string& component = *m_currentPathComponent;
    // Marks in brackets first: the copy word inside them would otherwise be cut alone.
    while (const auto mark = patterns().bracketedCopy.firstMatch(component)) {
        m_patternsRate = saturatingAdd(
            m_patternsRate, bracketedCopyRate(std::string_view(component).substr(mark->first, mark->second)));
        component.erase(mark->first, mark->second);
    }
    // The ranges are those of the unshortened component and are not shifted after a
    // deletion: with two copy marks the second range may cut elsewhere or be skipped.
    std::uint64_t count = 0;
    for (const auto& [start, length] : patterns().suffix.allMatches(component)) {
        if (start + length <= component.size()) {
            component.erase(start, length);
            ++count;
        }
    }
    m_patternsRate = saturatingAdd(m_patternsRate, count);
    const auto number = patterns().trailingNumber.firstMatch(component);
    if (number && number->first + number->second <= component.size()) {
        m_patternsRate = saturatingAdd(
            m_patternsRate, digitsValue(std::string_view(component).substr(number->first, number->second)));
        component.erase(number->first, number->second);
    }
}

bool CVPatternedString::isCurrentPathComponentAutonamed() {
    removePrefixCopyPattern();
    removeSufixCopyPattern();
    return m_currentPathComponent && patterns().autoName.matchesWhole(*m_currentPathComponent);
}

} // namespace corvel
