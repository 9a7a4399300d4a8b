#include "photo_parser.h"

#include <libxml/SAX2.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <memory>
#include <mutex>

#include "media_library.h"
#include "platform/file_io.h"
#include "platform/system_log.h"
#include "platform/text_format.h"
#include "platform/user_defaults.h"

namespace corvel {

namespace {

constexpr std::string_view kRollsList = "List of Rolls";
constexpr std::string_view kMasterList = "Master Image List";
constexpr std::string_view kAlbumDataName = "AlbumData.xml";
constexpr std::string_view kUnknownEvent = "Unknown";

CViPhotoParser* parserOf(void* context) {
    return static_cast<CViPhotoParser*>(static_cast<xmlParserCtxtPtr>(context)->_private);
}

void onStartElement(void* ctx, const xmlChar* localname, const xmlChar* /*unused*/, const xmlChar* /*unused*/,
                    int /*unused*/, const xmlChar** /*unused*/, int /*unused*/, int /*unused*/,
                    const xmlChar** /*unused*/) {
    parserOf(ctx)->startElement(reinterpret_cast<const char*>(localname));
}

void onEndElement(void* ctx, const xmlChar* /*unused*/, const xmlChar* /*unused*/,
                  const xmlChar* /*unused*/) {
    parserOf(ctx)->endElement();
}

void onCharacters(void* ctx, const xmlChar* text, int length) {
    if (!parserOf(ctx)->characters(
            std::string_view(reinterpret_cast<const char*>(text), static_cast<std::size_t>(length))))
        xmlStopParser(static_cast<xmlParserCtxtPtr>(ctx));
}

// Entities declared in the file's own DTD are expanded; external ones are never loaded.
xmlEntityPtr onGetEntity(void* ctx, const xmlChar* name) {
    xmlEntityPtr entity = xmlSAX2GetEntity(ctx, name);
    if (entity && entity->etype != XML_INTERNAL_GENERAL_ENTITY &&
        entity->etype != XML_INTERNAL_PREDEFINED_ENTITY)
        return nullptr;
    return entity;
}

xmlParserInputPtr refuseExternalEntity(void* /*unused*/, const xmlChar* /*unused*/,
                                       const xmlChar* /*unused*/) {
    return nullptr;
}

// libxml2 falls back to its own entity lookup and loads external entities through the
// process-wide loader, whatever the handler says; so the loader itself refuses. Corvel
// never needs an external entity or DTD anywhere.
xmlParserInputPtr refuseExternalLoad(const char* /*unused*/, const char* /*unused*/,
                                     xmlParserCtxtPtr /*unused*/) {
    return nullptr;
}

void refuseExternalEntitiesEverywhere() {
    static std::once_flag once;
    std::call_once(once, [] { xmlSetExternalEntityLoader(refuseExternalLoad); });
}

struct ContextDeleter {
    void operator()(xmlParserCtxtPtr ctxt) const {
        if (ctxt->myDoc)
            xmlFreeDoc(ctxt->myDoc);
        xmlFreeParserCtxt(ctxt);
    }
};

} // namespace

CViPhotoParser::CViPhotoParser(UserDefaults& defaults) : m_defaults(defaults) {}

void CViPhotoParser::reset() {
    m_eventDict = PropertyValue::Dictionary{};
    m_inList = false;
    m_expected = Expected::Nothing;
    m_mediaTypeIsMovie = false;
    m_processedMediaType = m_imagePathComplete = false;
    m_keyDepth = 0;
    m_bytesRead = m_elementTextBytes = m_documentTextBytes = 0;
    m_textLimitExceeded = false;
    m_eventID = -1;
    m_currentList = kRollsList;
    m_currentKey.clear();
    m_eventName = kUnknownEvent;
    m_appVersion = "0.0";
    m_currentImagePath.clear();
    m_stringValueParts.clear();
    m_eventNames.clear();
    m_photos.clear();
}

void CViPhotoParser::refreshRemovedPhotosListForPath(const std::string& albumDataPath) {
    std::string library = albumDataPath;
    if (library.ends_with(kAlbumDataName))
        library.resize(library.size() - kAlbumDataName.size());
    const auto removed = m_defaults.arrayForKey(kRemovedPhotosKey);
    if (!removed)
        return;
    PropertyValue::Array kept;
    for (const auto& entry : *removed) {
        const std::string* path = entry.asString();
        if (!path || path->find(library) == std::string::npos)
            kept.push_back(entry);
    }
    m_defaults.setObject(std::move(kept), kRemovedPhotosKey);
}

bool CViPhotoParser::photoContainsInAlreadyRemovedList(const std::string& path) const {
    return m_needToCheckRemovedFiles && m_removedFiles.contains(path);
}

bool CViPhotoParser::parseXMLFile(const std::string& path, bool checkRemovedFiles,
                                  const StopCheck& shouldStop) {
    m_needToCheckRemovedFiles = false;
    m_removedFiles.clear();
    if (checkRemovedFiles) {
        if (const auto removed = m_defaults.arrayForKey(kRemovedPhotosKey)) {
            m_needToCheckRemovedFiles = true;
            for (const auto& entry : *removed)
                if (const std::string* p = entry.asString())
                    m_removedFiles.insert(*p);
        }
    } else {
        refreshRemovedPhotosListForPath(path);
    }
    reset();

    refuseExternalEntitiesEverywhere();
    xmlSAXHandler handler{};
    xmlSAXVersion(&handler, 2);
    handler.startElementNs = onStartElement;
    handler.endElementNs = onEndElement;
    handler.characters = onCharacters;
    handler.cdataBlock = onCharacters;
    handler.ignorableWhitespace = onCharacters;
    handler.getEntity = onGetEntity;
    handler.resolveEntity = refuseExternalEntity;
    handler.warning = nullptr;

    std::unique_ptr<xmlParserCtxt, ContextDeleter> ctxt(
        xmlCreatePushParserCtxt(&handler, nullptr, nullptr, 0, path.c_str()));
    if (!ctxt) {
        systemLog("Failed to create an XML reader for " + path);
        return false;
    }
    ctxt->_private = this;
    xmlCtxtUseOptions(ctxt.get(),
                      XML_PARSE_NOENT | XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
    ctxt->loadsubset = 0;

    bool parsed = true;
    CVError readError;
    const bool read = readRegularFileChunks(
        path, RegularFileRead{kMaxLibraryFileBytes, false, shouldStop},
        [&](std::string_view chunk) {
            m_bytesRead += chunk.size();
            parsed = xmlParseChunk(ctxt.get(), chunk.data(), static_cast<int>(chunk.size()), 0) == 0;
            return parsed;
        },
        &readError);
    if (read)
        parsed = xmlParseChunk(ctxt.get(), nullptr, 0, 1) == 0;
    if (m_textLimitExceeded) {
        systemLog(
            formatf("Photo library description %@ expands to too much text (over %@ bytes in one element "
                    "or %@ bytes beyond its size); reading stopped",
                    path, std::to_string(kMaxLibraryElementTextBytes),
                    std::to_string(kMaxLibraryTextBeyondFileBytes)));
        return false;
    }
    if (!read && parsed) {
        systemLog("Failed to read photo library description " + path + ": " +
                  readError.localizedDescription());
        return false;
    }
    if (!parsed || !ctxt->wellFormed) {
        const xmlError* error = xmlCtxtGetLastError(ctxt.get());
        systemLog(
            formatf("Malformed photo library description %@ (line %i): %@", path, error ? error->line : 0,
                    error && error->message ? std::string(error->message) : std::string("not well-formed")));
        return false;
    }
    return true;
}

void CViPhotoParser::startElement(std::string_view name) {
    m_elementTextBytes = 0;
    m_currentKey.assign(name);
    if (m_inList)
        ++m_keyDepth;
}

void CViPhotoParser::endElement() {
    m_elementTextBytes = 0;
    if (m_inList)
        --m_keyDepth;
}

bool CViPhotoParser::characters(std::string_view text) {
    m_elementTextBytes += text.size();
    m_documentTextBytes += text.size();
    if (m_textLimitExceeded || m_elementTextBytes > kMaxLibraryElementTextBytes ||
        m_documentTextBytes > m_bytesRead + kMaxLibraryTextBeyondFileBytes) {
        m_textLimitExceeded = true;
        return false;
    }
    handleText(std::string(text));
    return true;
}

void CViPhotoParser::emitPhoto() {
    if (!photoContainsInAlreadyRemovedList(m_currentImagePath)) {
        PropertyValue::Dictionary record;
        record[kEventNameKey] = m_eventName;
        record[kEventIDKey] = formatf("%li", static_cast<long long>(m_eventID));
        record[kPhotoPathKey] = m_currentImagePath;
        record[kPhotoVersionKey] = m_appVersion;
        record[kPhotoIsMovieKey] = m_mediaTypeIsMovie;
        m_photos.emplace_back(std::move(record));
    }
    m_currentImagePath.clear();
    m_imagePathComplete = false;
    m_eventID = -1;
    m_eventName = kUnknownEvent;
    m_processedMediaType = false;
    m_mediaTypeIsMovie = false;
}

void CViPhotoParser::handleText(const std::string& text) {
    const bool isKey = m_currentKey == "key";
    const bool isString = m_currentKey == "string";
    const bool isInteger = m_currentKey == "integer";

    if (!m_inList && isKey && text == m_currentList) {
        m_inList = true;
        m_keyDepth = m_currentList == kMasterList ? 2 : 0;
        return;
    }
    if (isKey && text == "Application Version") {
        m_expected = Expected::Version;
        return;
    }
    switch (m_expected) {
    case Expected::Nothing:
        break;
    case Expected::Version:
        if (isString) {
            m_appVersion = text;
            m_expected = Expected::Nothing;
            return;
        }
        break;
    case Expected::RollID:
        if (isInteger) {
            m_eventDict = PropertyValue::Dictionary{
                {kEventIDKey, std::to_string(std::strtoll(text.c_str(), nullptr, 10))}};
            m_expected = Expected::Nothing;
        }
        return;
    case Expected::RollName:
    case Expected::PhotoPath:
        // Text pieces of a roll name or an image path: line feeds are the layout between
        // elements; the first text under another element completes the value.
        if (text.find('\n') != std::string::npos)
            return;
        if (isString) {
            m_stringValueParts += text;
            return;
        }
        completeStringValue();
        handleText(text);
        return;
    case Expected::MediaType:
        if (isString) {
            m_mediaTypeIsMovie = text == "Movie";
            m_processedMediaType = true;
            m_expected = Expected::Nothing;
        }
        return;
    case Expected::PhotoRoll:
        if (isInteger) {
            const long long id = std::strtoll(text.c_str(), nullptr, 10);
            if (auto it = m_eventNames.find(std::to_string(id)); it != m_eventNames.end()) {
                m_eventID = id;
                m_eventName = it->second;
            }
            m_expected = Expected::Nothing;
        }
        return;
    }
    if (m_imagePathComplete && m_processedMediaType) {
        emitPhoto();
        return;
    }
    if (m_inList && isKey)
        expectAfterKey(text);
}

void CViPhotoParser::completeStringValue() {
    if (m_expected == Expected::RollName) {
        if (const std::string* id = m_eventDict[kEventIDKey].asString())
            m_eventNames.emplace(*id, m_stringValueParts);
    } else {
        m_currentImagePath = m_stringValueParts;
        m_imagePathComplete = true;
    }
    m_expected = Expected::Nothing;
    m_stringValueParts.clear();
}

void CViPhotoParser::expectAfterKey(const std::string& key) {
    static const std::pair<std::string_view, Expected> kValueKeys[] = {
        {"RollID", Expected::RollID},  {"RollName", Expected::RollName},   {"MediaType", Expected::MediaType},
        {"Roll", Expected::PhotoRoll}, {"ImagePath", Expected::PhotoPath},
    };
    for (const auto& [name, expected] : kValueKeys) {
        if (key == name) {
            m_expected = expected;
            return;
        }
    }
    if (m_keyDepth == 0) {
        // A key at the list's own level: the list has ended.
        m_inList = false;
        m_currentList = kMasterList;
        if (key == m_currentList) {
            m_inList = true;
            m_keyDepth = 2;
        }
    }
}

} // namespace corvel
