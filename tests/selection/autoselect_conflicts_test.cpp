#include <gtest/gtest.h>
#include <map>

#include "platform/user_defaults.h"
#include "selection/autoselect_conflicts.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

CVAutoselectListItem entry(const std::string& path, std::int32_t category, bool enabled = true) {
    CVAutoselectListItem item;
    item.path = path;
    item.category = category;
    item.enabled = enabled;
    return item;
}

// Answers each kind of alert as told (cancel unless told) and keeps what it was shown.
struct FakePresenter : AutoselectConflictPresenter {
    std::map<AutoselectConflictKind, bool> answers;
    std::vector<CVAutoselectConflictAlert> shown;
    bool confirm(const CVAutoselectConflictAlert& alert) override {
        shown.push_back(alert);
        return answers.contains(alert.kind) && answers.at(alert.kind);
    }
};

class AutoselectConflicts : public testing::Test {
protected:
    void SetUp() override { defaults.setBool(true, kAutoSelectDefaultSetKey); }
    void store(const std::vector<CVAutoselectListItem>& items) {
        CVAutoselectLists(defaults).setAutoselectList(items);
    }
    std::vector<CVAutoselectListItem> stored() { return CVAutoselectLists(defaults).list(); }

    test::TempTree tree;
    UserDefaults defaults{tree / "d.plist"};
    CVAutoselectListsEditor editor{defaults};
    FakePresenter presenter;
};

TEST_F(AutoselectConflicts, FoldersWithoutConflictAreAddedAndTheirOwnEntriesReplacedInPlace) {
    CVAutoselectListItem mail = entry("/m/Mail", kAlwaysSelect, false);
    mail.linkedPath = "/m/Linked";
    store({mail, entry("/n", kNeverSelect)});
    editor.addFolders({"/a", "/m/Mail/", "/a"}, kAlwaysSelect, presenter);
    EXPECT_TRUE(presenter.shown.empty());
    CVAutoselectListItem enabledAgain = entry("/m/Mail/", kAlwaysSelect);
    enabledAgain.linkedPath = "/m/Linked";
    EXPECT_EQ(stored(), (std::vector<CVAutoselectListItem>{enabledAgain, entry("/n", kNeverSelect),
                                                           entry("/a", kAlwaysSelect)}))
        << "a folder chosen twice is stored once";
}

TEST_F(AutoselectConflicts, OneAlertPerKindInOrderWithTheirTexts) {
    store(
        {entry("/u/Photos", kNeverSelect), entry("/u/Archive", kNeverSelect), entry("/v/Old", kNeverSelect)});
    editor.addFolders({"/u/Archive/2020", "/u/Photos", "/w/New", "/v/Old/x", "/u/Archive/2021"},
                      kAlwaysSelect, presenter);
    ASSERT_EQ(presenter.shown.size(), 2u);
    const auto& other = presenter.shown[0];
    EXPECT_EQ(other.kind, AutoselectConflictKind::InAnotherList);
    EXPECT_EQ(other.messageText, "“/u/Photos” is already in the other list.");
    EXPECT_EQ(other.informativeText,
              "A folder can be in only one list. Switch it to this list, or cancel to leave it where it is.");
    EXPECT_EQ(other.confirmButtonTitle, "Switch List");
    EXPECT_EQ(other.cancelButtonTitle, "Cancel");
    const auto& inside = presenter.shown[1];
    EXPECT_EQ(inside.kind, AutoselectConflictKind::InsideNeverSelect);
    EXPECT_EQ(inside.messageText, "3 of the folders are inside Never Select folders.");
    EXPECT_EQ(inside.informativeText, "Copies in them will be selected automatically, although copies in the "
                                      "folders around them never are. Add them anyway?");
    EXPECT_EQ(inside.confirmButtonTitle, "Add Anyway");
    EXPECT_EQ(stored(), (std::vector<CVAutoselectListItem>{
                            entry("/u/Photos", kNeverSelect), entry("/u/Archive", kNeverSelect),
                            entry("/v/Old", kNeverSelect), entry("/w/New", kAlwaysSelect)}))
        << "cancelled conflicts change nothing; the folder without one is added";
}

TEST_F(AutoselectConflicts, AnsweredAlertsSwitchListsOrAddAnyway) {
    store({entry("/u/Downloads", kAlwaysSelect), entry("/u/Photos", kAlwaysSelect),
           entry("/x/Keep", kNeverSelect)});
    presenter.answers = {{AutoselectConflictKind::InAnotherList, true},
                         {AutoselectConflictKind::ContainsAlwaysSelect, true}};
    editor.addFolders({"/u/Photos", "/u"}, kNeverSelect, presenter);
    ASSERT_EQ(presenter.shown.size(), 2u);
    EXPECT_EQ(presenter.shown[1].kind, AutoselectConflictKind::ContainsAlwaysSelect);
    EXPECT_EQ(presenter.shown[1].messageText, "“/u” contains the Always Select folder “/u/Photos”.")
        << "the last stored entry that relates decides";
    EXPECT_EQ(presenter.shown[1].informativeText,
              "Copies in the Always Select folder will still be selected automatically; copies in the rest "
              "of the folder never will. Add it anyway?");
    EXPECT_EQ(stored(), (std::vector<CVAutoselectListItem>{
                            entry("/u/Downloads", kAlwaysSelect), entry("/u/Photos", kNeverSelect),
                            entry("/x/Keep", kNeverSelect), entry("/u", kNeverSelect)}))
        << "a switched folder takes its old place";
}

TEST_F(AutoselectConflicts, SeveralFoldersInTheOtherListAreNamedByCount) {
    store({entry("/a", kAlwaysSelect), entry("/b", kAlwaysSelect)});
    const auto conflicts = editor.addFolders({"/a", "/b"}, kNeverSelect);
    const auto alert = CVAutoselectListsEditor::alertForConflicts(conflicts);
    ASSERT_TRUE(alert);
    EXPECT_EQ(alert->messageText, "2 of the folders are already in the other list.");
    EXPECT_EQ(alert->informativeText, "A folder can be in only one list. Switch them to this list, or cancel "
                                      "to leave them where they are.");
    EXPECT_FALSE(CVAutoselectListsEditor::alertForConflicts({}));
}

TEST(AutoselectConflictAlerts, EveryKindHasEnglishTextsForOneAndForSeveral) {
    const auto pair = std::make_pair(entry("/new", kNeverSelect), entry("/old", kAlwaysSelect));
    for (const auto kind : {AutoselectConflictKind::InAnotherList, AutoselectConflictKind::InsideNeverSelect,
                            AutoselectConflictKind::ContainsAlwaysSelect}) {
        for (const std::size_t count : {1u, 2u}) {
            CVConflictAutoselectItemsContainer conflicts;
            auto& list = kind == AutoselectConflictKind::InAnotherList ? conflicts.sameitemsInAnotherListItems
                         : kind == AutoselectConflictKind::InsideNeverSelect
                             ? conflicts.superitemsInNeverSelectListItems
                             : conflicts.subitemsInPrefferedListItems;
            list.assign(count, pair);
            const auto alert = CVAutoselectListsEditor::alertForConflicts(conflicts);
            ASSERT_TRUE(alert);
            EXPECT_EQ(alert->kind, kind);
            for (const std::string& text : {alert->messageText, alert->informativeText,
                                            alert->confirmButtonTitle, alert->cancelButtonTitle}) {
                EXPECT_FALSE(text.empty());
                EXPECT_EQ(text.find('_'), std::string::npos) << "a key without its text: " << text;
                EXPECT_EQ(text.find('%'), std::string::npos) << "an unfilled placeholder: " << text;
            }
            if (count == 1)
                EXPECT_NE(alert->messageText.find("/new"), std::string::npos) << alert->messageText;
            else
                EXPECT_EQ(alert->messageText.substr(0, 2), "2 ") << alert->messageText;
        }
    }
}

TEST_F(AutoselectConflicts, TheLaterStoredEntryDecidesTheRelation) {
    // Its own entry after the Never Select folder: a plain replacement, no alert.
    store({entry("/u", kNeverSelect), entry("/u/a", kAlwaysSelect, false)});
    editor.addFolders({"/u/a"}, kAlwaysSelect, presenter);
    EXPECT_TRUE(presenter.shown.empty());
    EXPECT_EQ(stored(),
              (std::vector<CVAutoselectListItem>{entry("/u", kNeverSelect), entry("/u/a", kAlwaysSelect)}));

    // The Never Select folder after its own entry: the alert, and adding anyway replaces it.
    store({entry("/u/a", kAlwaysSelect, false), entry("/u", kNeverSelect)});
    presenter.answers = {{AutoselectConflictKind::InsideNeverSelect, true}};
    editor.addFolders({"/u/a"}, kAlwaysSelect, presenter);
    ASSERT_EQ(presenter.shown.size(), 1u);
    EXPECT_EQ(presenter.shown[0].messageText, "“/u/a” is inside the Never Select folder “/u”.");
    EXPECT_EQ(stored(),
              (std::vector<CVAutoselectListItem>{entry("/u/a", kAlwaysSelect), entry("/u", kNeverSelect)}))
        << "never two entries for one folder";
}

} // namespace
} // namespace corvel
