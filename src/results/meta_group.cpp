#include "meta_group.h"

#include "platform/string_tables.h"

namespace corvel {

namespace {

struct Category {
    const char* key;
    const char* dot;
    int r, g, b;
};

constexpr Category kCategories[] = {
    {"MetaGroupName_AllFiles", "", 0, 0, 0},
    {"MetaGroupName_Other", "LimeDot", 217, 224, 33},
    {"MetaGroupName_Documents", "GreenDot", 136, 201, 48},
    {"MetaGroupName_Pictures", "OrangeDot", 247, 147, 30},
    {"MetaGroupName_Music", "BlueDot", 0, 153, 255},
    {"MetaGroupName_Movies", "PurpleDot", 207, 50, 207},
    {"MetaGroupName_Archives", "CyanDot", 0, 181, 181},
    {"MetaGroupName_Folders", "RedDot", 237, 30, 121},
};

const Category* category(std::int32_t id) {
    return id >= 0 && id <= 7 ? &kCategories[id] : nullptr;
}

} // namespace

CVMetaGroup::CVMetaGroup(std::int32_t groupID) : m_groupID(groupID), m_name(stringType(groupID)) {}

const char* CVMetaGroup::nameKey(std::int32_t groupID) {
    const Category* c = category(groupID);
    return c ? c->key : "MetaGroupName_Other";
}

std::string CVMetaGroup::stringType(std::int32_t groupID) {
    const PropertyValue value = StringTables::shared().localizedValue(nameKey(groupID));
    return value.isString() ? *value.asString() : std::string();
}

RGBColor CVMetaGroup::colorForID(std::int32_t groupID) {
    const Category* c = category(groupID);
    if (!c)
        return {0, 0, 0};
    return {c->r / 255.0, c->g / 255.0, c->b / 255.0};
}

std::string CVMetaGroup::imageForID(std::int32_t groupID) {
    const Category* c = category(groupID);
    return c ? c->dot : "";
}

} // namespace corvel
