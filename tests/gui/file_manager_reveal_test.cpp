// Revealing copies in the file manager over a private D-Bus bus: a file manager of the
// test's own answers ShowItems with what it was asked; without one, or without a bus, the
// folder of the first item is opened instead.

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QObject>
#include <QStringList>
#include <QTest>
#include <string>
#include <vector>

#include "file_manager_reveal.h"
#include "support/private_session_bus.h"

using namespace corvel;
using namespace corvel::gui;

namespace {

// Owns org.freedesktop.FileManager1 and records each ShowItems call.
class FakeFileManager : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")
public:
    QList<QStringList> shown;
    QStringList startupIds;

public Q_SLOTS: // NOLINT(readability-redundant-access-specifiers): moc reads the slots from this section
    void ShowItems(const QStringList& uris, const QString& startupId) {
        shown.append(uris);
        startupIds.append(startupId);
    }
};

class FileManagerRevealTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void theFileManagerIsAskedToShowTheItems() {
        test::PrivateSessionBus bus;
        if (bus.address().empty())
            QSKIP(("no private bus: " + bus.why()).c_str());
        QDBusConnection service = QDBusConnection::connectToBus(QString::fromStdString(bus.address()), "fm");
        QDBusConnection client = QDBusConnection::connectToBus(QString::fromStdString(bus.address()), "app");
        FakeFileManager fileManager;
        QVERIFY(service.registerObject("/org/freedesktop/FileManager1", &fileManager,
                                       QDBusConnection::ExportAllSlots));
        QVERIFY(service.registerService("org.freedesktop.FileManager1"));

        FileManagerReveal reveal;
        reveal.setBus(client);
        std::vector<std::string> opened;
        reveal.setFolderOpener([&](const std::string& folder) { opened.push_back(folder); });
        // The third name is Latin-1, not UTF-8: its byte goes as it is.
        reveal.revealInFileManager({"/tmp/holiday photos/été.jpg", "/tmp/b.txt", "/tmp/caf\xe9.txt"});
        QTRY_COMPARE_WITH_TIMEOUT(fileManager.shown.size(), 1, 5000);
        QCOMPARE(fileManager.shown.front(), (QStringList{"file:///tmp/holiday%20photos/%C3%A9t%C3%A9.jpg",
                                                         "file:///tmp/b.txt", "file:///tmp/caf%E9.txt"}));
        QCOMPARE(fileManager.startupIds.front(), QString());
        QTest::qWait(100);
        QVERIFY2(opened.empty(), "a file manager that answered is not second-guessed");

        service.unregisterService("org.freedesktop.FileManager1");
        QDBusConnection::disconnectFromBus("fm");
        QDBusConnection::disconnectFromBus("app");
    }

    void withoutAFileManagerTheFolderIsOpened() {
        test::PrivateSessionBus bus;
        if (bus.address().empty())
            QSKIP(("no private bus: " + bus.why()).c_str());
        QDBusConnection client =
            QDBusConnection::connectToBus(QString::fromStdString(bus.address()), "lonely");
        FileManagerReveal reveal;
        reveal.setBus(client);
        std::vector<std::string> opened;
        reveal.setFolderOpener([&](const std::string& folder) { opened.push_back(folder); });
        reveal.revealInFileManager({"/tmp/a/b/c.txt", "/elsewhere/d.txt"});
        QTRY_COMPARE_WITH_TIMEOUT(opened.size(), std::size_t{1}, 5000);
        QCOMPARE(opened.front(), std::string("/tmp/a/b"));
        QDBusConnection::disconnectFromBus("lonely");
    }

    void withoutABusTheFolderIsOpenedAtOnce() {
        QDBusConnection nowhere =
            QDBusConnection::connectToBus("unix:path=/nonexistent/corvel-bus", "nowhere");
        QVERIFY(!nowhere.isConnected());
        FileManagerReveal reveal;
        reveal.setBus(nowhere);
        std::vector<std::string> opened;
        reveal.setFolderOpener([&](const std::string& folder) { opened.push_back(folder); });
        reveal.revealInFileManager({"/top.txt"});
        QCOMPARE(opened, (std::vector<std::string>{"/"}));
        QDBusConnection::disconnectFromBus("nowhere");
    }
};

} // namespace

int runFileManagerRevealTests(int argc, char** argv) {
    FileManagerRevealTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "file_manager_reveal_test.moc"
