#pragma once
// What the results view and the collector work with, given once to the
// CVResultsRolesFactory that makes them. The references must outlive every controller
// made; the pointers may be null (no preview panel, no reminder service, no sharing).

namespace corvel {

class ApplicationCatalog;
class CVIgnoreList;
class CVPreferences;
class CVStatisticsController;
class FileRevealing;
class HVAchievementsController;
class LibraryAppDriver;
class MainQueue;
class MainTimers;
class NotificationCenter;
class PreviewPanel;
class ReminderScheduling;
class SharingService;
class Tracker;
class Trash;
class UserDefaults;

struct ResultsServices {
    UserDefaults& defaults;
    CVPreferences& preferences;
    CVIgnoreList& ignoreList;
    NotificationCenter& center;
    MainQueue& mainQueue;
    MainTimers& timers;
    Tracker& tracker;
    FileRevealing& reveal;
    ApplicationCatalog& applications;
    // The removal pass.
    Trash& trash;
    LibraryAppDriver& libraryAppDriver;
    CVStatisticsController& statistics;
    HVAchievementsController& achievements;
    PreviewPanel* preview = nullptr;
    ReminderScheduling* reminder = nullptr;
    SharingService* sharing = nullptr;
};

} // namespace corvel
