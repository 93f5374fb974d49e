#include "ModelHarness.h"
#include "Platform/Constant.h"
#include "Platform/FileSystem.h"
#include "Platform/NotificationCenter.h"
#include "Platform/SoundPlayer.h"
#include "TestSupport.h"

#include <QSignalSpy>
#include <QTest>
#include <sys/mount.h>

using namespace quillane;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace
{

// Records the sounds asked for; no sound card here.
class RecordingSound final : public SoundPlayer
{
public:
    void play(const fs::path& file, std::function<void(const std::string&)>) override
    {
        played.push_back(file);
    }
    std::vector<fs::path> played;
};

// The model on a real home trash, emptying on the work queue run inline, on a virtual clock.
struct EmptyingHarness {
    EmptyingHarness()
    {
        model.setMounts({{"/", "ext4", "rw"}});
        model.makeHomeTrash();
        model.emptying.deleteWithPrivilege = [this](const fs::path& item) {
            handedOver.push_back(item);
        };
        model.emptying.alert = [this](const QString& message) { alerts << message; };
        model.emptying.sound = &sound;
        model.emptying.findResource = [](const std::string& name) {
            return std::optional<fs::path>("/resources" / fs::path(name));
        };
    }
    fs::path files() const { return model.homeTrash(); }
    fs::path info() const { return model.homeTrash().parent_path() / "info"; }
    void trash(const std::string& name)
    {
        test::writeFile(files() / name / "inner", "x");
        test::writeFile(info() / (name + ".trashinfo"), "[Trash Info]\n");
    }
    VolumeObserver& start()
    {
        VolumeObserver& observer = model.start();
        progress = std::make_unique<QSignalSpy>(&observer, &VolumeObserver::progressChanged);
        return observer;
    }
    test::ModelHarness model;
    RecordingSound sound;
    std::vector<fs::path> handedOver;
    QStringList alerts;
    std::unique_ptr<QSignalSpy> progress;
};

} // namespace

class TestEmptying : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void threeItemsCompleteWithASoundAndARefresh()
    {
        EmptyingHarness harness;
        for (const char* name : {"a", "b", "c"})
            harness.trash(name);
        VolumeObserver& observer = harness.start();
        QList<double> published;
        connect(&observer, &VolumeObserver::progressChanged, this,
                [&] { published << observer.progress(); });
        QSignalSpy refreshed(&observer, &VolumeObserver::listPublished);

        observer.emptySelectedTrash(observer.volumes()[0]);
        // The watched trash folder reports the removals while the emptying is under way: the
        // list waits for the completion's one rebuild.
        QCoreApplication::processEvents();
        harness.model.scheduler.runPending();
        QCOMPARE(published, (QList<double>{1.0 / 3, 2.0 / 3, 1.0, 1.0}));
        QVERIFY(!observer.activeVolume()); // cleared once the loop is over
        QVERIFY(harness.sound.played.empty());

        harness.model.scheduler.advance(500ms);
        QCOMPARE(harness.sound.played, std::vector<fs::path>{"/resources/empty trash.aif"});
        QCOMPARE(observer.progress(), 0.0);
        QCOMPARE(observer.itemsToDelete(), std::optional<long long>(0));
        QCOMPARE(observer.itemsDeleted(), 0);
        harness.model.settle();
        QCOMPARE(refreshed.count(), 1);
        QVERIFY(listDirectory(harness.files())->empty());
        QVERIFY(listDirectory(harness.info())->empty()); // the records went with the items
    }

    void skippedNamesAreSettledFirst_data()
    {
        QTest::addColumn<QStringList>("names");
        QTest::addColumn<long long>("counted");
        QTest::newRow("trailing") << QStringList{QStringLiteral("a"), QStringLiteral(".DS_Store")}
                                  << 1LL;
        QTest::newRow("leading and inside")
            << QStringList{QStringLiteral(".DS_Store"), QStringLiteral("a"),
                           QStringLiteral("x.DS_Storey"), QStringLiteral("b")}
            << 2LL;
    }

    void skippedNamesAreSettledFirst()
    {
        QFETCH(QStringList, names);
        QFETCH(long long, counted);
        EmptyingHarness harness;
        for (const QString& name : names)
            harness.trash(name.toStdString());
        VolumeObserver& observer = harness.start();
        QSignalSpy completed(&observer, &VolumeObserver::emptyingCompleted);
        observer.emptySelectedTrash(observer.volumes()[0]);
        harness.model.scheduler.runPending();
        QCOMPARE(observer.itemsToDelete(), std::optional(counted));
        harness.model.scheduler.advance(500ms);
        QCOMPARE(completed.count(), 1);
        for (const QString& name : names)
            QCOMPARE(fs::exists(harness.files() / name.toStdString()),
                     name.contains(QStringLiteral(".DS_Store")));
    }

    void emptyTrashCompletesNothing()
    {
        EmptyingHarness harness;
        VolumeObserver& observer = harness.start();
        QSignalSpy active(&observer, &VolumeObserver::activeVolumeChanged);
        observer.emptySelectedTrash(observer.volumes()[0]);
        harness.model.scheduler.advance(2s);
        QCOMPARE(active.count(), 2); // set, then cleared
        QCOMPARE(observer.itemsToDelete(), std::optional<long long>(0));
        QVERIFY(harness.sound.played.empty());
        QCOMPARE(harness.progress->count(), 0);
    }

    void itemsTheUserMayNotRemoveGoToTheHelper()
    {
        EmptyingHarness harness;
        harness.trash("mine");
        harness.trash("locked");
        harness.trash("locked too");
        // An immutable folder refuses even root, as a foreign folder refuses a user.
        for (const char* name : {"locked", "locked too"})
            QVERIFY(
                test::run(QStringLiteral("chattr"),
                          {QStringLiteral("+i"),
                           QString::fromStdString((harness.files() / name / "inner").native())}));
        VolumeObserver& observer = harness.start();
        QSignalSpy completed(&observer, &VolumeObserver::emptyingCompleted);
        test::ConsoleCapture console;
        observer.emptySelectedTrash(observer.volumes()[0]);
        harness.model.scheduler.runPending();
        for (const char* name : {"locked", "locked too"})
            test::run(QStringLiteral("chattr"),
                      {QStringLiteral("-i"),
                       QString::fromStdString((harness.files() / name / "inner").native())});

        QCOMPARE(harness.handedOver.size(), std::size_t(2));
        QCOMPARE(observer.progress(), 1.0 / 3);
        QVERIFY(harness.alerts.isEmpty());
        QVERIFY(fs::exists(harness.info() / "locked.trashinfo")); // the record stays with its item

        // The helper's reports arrive as notifications on the main thread.
        for (const fs::path& item : harness.handedOver)
            NotificationCenter::defaultCenter().post(
                {Constant::xpcDeleteName, QByteArray::fromStdString(item.native()), {}});
        QCOMPARE(console.count("xpcDidDelete"), 2);
        QCOMPARE(observer.progress(), 1.0);
        harness.model.scheduler.advance(500ms);
        QCOMPARE(completed.count(), 1);
    }

    void reportWithoutAnEmptyingChangesNothing()
    {
        EmptyingHarness harness;
        VolumeObserver& observer = harness.start();
        NotificationCenter::defaultCenter().post({Constant::xpcDeleteName, QByteArray("/x"), {}});
        harness.model.scheduler.advance(1s);
        QVERIFY(!observer.itemsToDelete());
        QCOMPARE(observer.progress(), 0.0);
        QVERIFY(harness.sound.played.empty());
    }

    void otherFailuresAlertOneByOneAndStillComplete()
    {
        if (!test::canMount())
            QSKIP("needs root in a private mount namespace");
        EmptyingHarness harness;
        for (const char* name : {"first", "fine", "second"})
            harness.trash(name);
        std::vector<fs::path> mounts;
        for (const char* name : {"first", "second"}) {
            mounts.push_back(harness.files() / name / "mounted");
            fs::create_directories(mounts.back());
            QVERIFY(mount("item", mounts.back().c_str(), "tmpfs", 0, nullptr) == 0);
        }
        VolumeObserver& observer = harness.start();
        QSignalSpy completed(&observer, &VolumeObserver::emptyingCompleted);
        observer.emptySelectedTrash(observer.volumes()[0]);
        harness.model.scheduler.advance(500ms);
        for (const fs::path& point : mounts)
            QVERIFY(umount(point.c_str()) == 0);

        QCOMPARE(harness.alerts.size(), 2);
        for (const QString& alert : harness.alerts)
            QVERIFY(alert.startsWith(QStringLiteral("There was a problem deleting the file.\n(")));
        QVERIFY(harness.alerts[0].contains(QStringLiteral("first")) ||
                harness.alerts[1].contains(QStringLiteral("first")));
        QCOMPARE(completed.count(), 1); // failed items count as accounted for
        QVERIFY(!fs::exists(harness.files() / "fine"));
        QVERIFY(fs::exists(harness.files() / "first" / "inner"));
    }

    void oddEntriesGoAndNothingOutside()
    {
        EmptyingHarness harness;
        const std::string oddName = "caf\xe9\n-rf";
        test::writeFile(harness.files() / oddName, "odd");
        const fs::path outside = harness.model.home / "Documents";
        test::writeFile(outside / "keep", "keep");
        fs::create_directory_symlink(outside, harness.files() / "link");
        test::writeFile(harness.files().parent_path() / "directorysizes",
                        "4096 1700000000 link\n8192 1700000000 other%20folder\n");
        VolumeObserver& observer = harness.start();
        observer.emptySelectedTrash(observer.volumes()[0]);
        harness.model.scheduler.advance(500ms);
        QVERIFY(listDirectory(harness.files())->empty());
        QVERIFY(fs::exists(outside / "keep"));
        QCOMPARE(QByteArray::fromStdString(
                     test::readFile(harness.files().parent_path() / "directorysizes")),
                 QByteArray("8192 1700000000 other%20folder\n"));
    }
};

QTEST_GUILESS_MAIN(TestEmptying)
#include "tst_Emptying.moc"
