#pragma once
// ResultsView: the face of the results screen that CVResultsViewController drives: the
// categories, groups and files tables, the size diagram, the sort button, alerts and the
// open panel. The desktop application draws it; tests record what it was told. Rows are
// given as the objects themselves and selections as row indexes. Main thread.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/group.h"
#include "results/meta_group.h"
#include "scan_window_view.h"

namespace corvel {

enum class ResultsTable { Categories, Groups, Files };

// The answer of an alert with a "do not ask again" box.
struct SuppressibleAlertReply {
    AlertChoice choice = AlertChoice::Alternate;
    bool suppressed = false;
};

class ResultsView {
public:
    virtual ~ResultsView() = default;

    virtual void showCategories(const std::vector<std::shared_ptr<CVMetaGroup>>& categories,
                                std::optional<std::size_t> selectedRow) = 0;
    virtual void showGroups(const std::vector<std::shared_ptr<CVGroup>>& groups,
                            const std::vector<std::size_t>& selectedRows) = 0;
    virtual void showFiles(const std::vector<std::shared_ptr<CVFile>>& files,
                           const std::vector<std::size_t>& selectedRows) = 0;
    // The marks, counts or removed-outside flags of the rows shown changed.
    virtual void refreshRows() = 0;
    virtual void setFolderName(const std::string& name) = 0;
    // The size diagram shown or hidden, with the diagram button's tool tip.
    virtual void setDiagramShown(bool shown, const std::string& toolTip) = 0;
    // The sort button: type 0 to 5 and its direction.
    virtual void setSortButton(std::int64_t type, bool ascending) = 0;
    virtual void makeFirstResponder(ResultsTable table) = 0;

    // A modal alert with a suppression check box titled suppressionTitle.
    virtual SuppressibleAlertReply runSuppressibleAlert(const std::string& message,
                                                        const std::string& informative,
                                                        const std::string& defaultButton,
                                                        const std::string& alternateButton,
                                                        const std::string& suppressionTitle) = 0;
    // An open panel as a sheet for one item, files and folders allowed; the completion
    // gets the chosen path, or nothing when the user cancelled.
    virtual void showOpenPanelSheet(const std::string& prompt,
                                    std::function<void(std::optional<std::string>)> completion) = 0;
    // A save panel for the list of selected copies; nothing when cancelled.
    virtual void showSavePanel(std::function<void(std::optional<std::string>)> completion) = 0;
    // Tells the user that the list could not be saved.
    virtual void showError(const std::string& message) = 0;
};

} // namespace corvel
