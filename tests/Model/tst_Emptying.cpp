#include "ModelHarness.h"
#include "Platform/FileSystem.h"
#include "Platform/SoundPlayer.h"
#include "TestSupport.h"

#include <QProcess>
#include <QSignalSpy>
#include <QTest>
#include <sys/mount.h>

using namespace quillane;
using namespace std::chrono_literals;
using namespace Qt::StringLiterals;
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

// The model on a real home trash holding the given folders, emptying on the work queue run
// inline, on a virtual clock.
struct EmptyingHarness {
    explicit EmptyingHarness(const std::vector<std::string>& items = {})
    {
        model.plainHome();
        model.emptying.sound.emplace(CompletionSound{sound, "/resources/empty trash.aif"});
        for (const std::string& name : items)
            trash(name);
    }
    fs::path files() const { return model.homeTrash(); }
    fs::path info() const { return model.homeTrash().parent_path() / "info"; }
    void trash(const std::string& name)
    {
        test::writeFile(files() / name / "inner", "x");
        test::writeFile(info() / (name + ".trashinfo"), "[Trash Info]\n");
    }
    fs::path stickTrash() const { return model.home / "stick/.Trash-1000/files"; }
    Volume fillStick() const
    {
        for (int i = 0; i < 40; ++i)
            test::writeFile(stickTrash() / std::to_string(i), "x");
        return Volume(model.home / "stick", stickTrash());
    }
    VolumeObserver& start()
    {
        VolumeObserver& observer = model.start();
        progress = std::make_unique<QSignalSpy>(&observer, &VolumeObserver::progressChanged);
        finished = std::make_unique<QSignalSpy>(&observer, &VolumeObserver::emptyingFinished);
        completed = std::make_unique<QSignalSpy>(&observer, &VolumeObserver::emptyingCompleted);
        QObject::connect(&observer, &VolumeObserver::itemNeedsHelper,
                         [this](const fs::path& item) { handedOver.push_back(item); });
        QObject::connect(&observer, &VolumeObserver::removalFailed,
                         [this](const QString& message) { alerts << message; });
        return observer;
    }
    // Empties the home trash, or the named items of it, as far as runs without waiting.
    void emptyHome(std::optional<std::set<std::string>> only = std::nullopt)
    {
        model.observer->emptySelectedTrash(model.observer->volumes()[0], std::move(only));
        model.scheduler.runPending();
    }
    EmptyingResult result(int index = 0) const
    {
        return (*finished)[index][0].value<EmptyingResult>();
    }
    test::ModelHarness model;
    RecordingSound sound;
    std::vector<fs::path> handedOver;
    QStringList alerts;
    std::unique_ptr<QSignalSpy> progress, finished, completed;
};

// An immutable folder refuses even root, as a foreign folder refuses a user.
bool setImmutable(const fs::path& path, bool on)
{
    return test::run(u"chattr"_s, {on ? u"+i"_s : u"-i"_s, QString::fromStdString(path.native())});
}

} // namespace

class TestEmptying : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void threeItemsCompleteWithASoundAndARefresh()
    {
        EmptyingHarness harness({"a", "b", "c"});
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

    // Counting and emptying leave out the same one name, so a trash whose count says it holds
    // items can be emptied of them, and one that holds nothing else ends at once.
    void skippedNamesAreSettledFirst_data()
    {
        QTest::addColumn<std::vector<std::string>>("names");
        QTest::addColumn<long long>("counted");
        using Names = std::vector<std::string>;
        QTest::newRow("trailing") << Names{"a", ".DS_Store"} << 1LL;
        QTest::newRow("look-alikes are items")
            << Names{".DS_Store", "._.DS_Store", "old.DS_Store"} << 2LL;
        QTest::newRow("only the skipped one") << Names{".DS_Store"} << 0LL;
        QTest::newRow("empty") << Names{} << 0LL;
    }
    void skippedNamesAreSettledFirst()
    {
        QFETCH(std::vector<std::string>, names);
        QFETCH(long long, counted);
        EmptyingHarness harness(names);
        VolumeObserver& observer = harness.start();
        QCOMPARE(observer.volumes()[0].itemCount(), counted);
        QSignalSpy active(&observer, &VolumeObserver::activeVolumeChanged);
        harness.emptyHome();
        QCOMPARE(observer.itemsToDelete(), std::optional(counted));
        harness.model.scheduler.advance(2s);
        QCOMPARE(active.count(), 2); // set, then cleared
        QCOMPARE(harness.finished->count(), 1);
        QVERIFY(!observer.isEmptying());
        QCOMPARE(harness.result().ending, counted > 0 ? EmptyingResult::Ending::Completed
                                                      : EmptyingResult::Ending::NothingToRemove);
        // Nothing removed, nothing to celebrate: no sound, no progress.
        QCOMPARE(harness.completed->count(), counted > 0 ? 1 : 0);
        QCOMPARE(harness.sound.played.size(), std::size_t(counted > 0 ? 1 : 0));
        if (counted == 0)
            QCOMPARE(harness.progress->count(), 0);
        for (const std::string& name : names)
            QCOMPARE(fs::exists(harness.files() / name), name == ".DS_Store");
    }

    // Removing chosen items is an emptying of those items only: they go with their records,
    // everything else stays, and a name that went meanwhile is nothing to count.
    void selectedItemsOnly_data()
    {
        QTest::addColumn<std::set<std::string>>("chosen");
        QTest::addColumn<long long>("counted");
        using Names = std::set<std::string>;
        QTest::newRow("one") << Names{"b"} << 1LL;
        QTest::newRow("two, one of them Latin-1") << Names{"a", "caf\xe9"} << 2LL;
        QTest::newRow("one gone meanwhile") << Names{"c", "gone"} << 1LL;
    }
    void selectedItemsOnly()
    {
        QFETCH(std::set<std::string>, chosen);
        QFETCH(long long, counted);
        const std::vector<std::string> all = {"a", "b", "c", "caf\xe9"};
        EmptyingHarness harness(all);
        VolumeObserver& observer = harness.start();
        harness.emptyHome(chosen);
        QCOMPARE(observer.itemsToDelete(), std::optional(counted));
        harness.model.scheduler.advance(2s);
        QCOMPARE(harness.finished->count(), 1);
        QCOMPARE(harness.result().ending, EmptyingResult::Ending::Completed);
        for (const std::string& name : all) {
            QCOMPARE(fs::exists(harness.files() / name), !chosen.contains(name));
            QCOMPARE(fs::exists(harness.info() / (name + ".trashinfo")), !chosen.contains(name));
        }
        fs::remove_all(harness.files().parent_path()); // names QTemporaryDir cannot remove
    }

    // A request for chosen items while another trash is emptied waits, joined with the next
    // one for the same trash; a whole emptying asked for meanwhile takes them in.
    void selectedItemsWaitTheirTurn()
    {
        EmptyingHarness harness({"a", "b", "c", "d"});
        const Volume stick = harness.fillStick();
        VolumeObserver& observer = harness.start();
        const Volume home = observer.volumes()[0];
        observer.emptySelectedTrash(stick);
        harness.model.scheduler.advance(20ms);
        observer.emptySelectedTrash(home, std::set<std::string>{"a"});
        observer.emptySelectedTrash(home, std::set<std::string>{"b"});
        QVERIFY(fs::exists(harness.files() / "a"));
        harness.model.scheduler.advance(2s);
        QCOMPARE(harness.finished->count(), 2);
        QCOMPARE(harness.result(1).volume.trashURL(), home.trashURL());
        QVERIFY(!fs::exists(harness.files() / "a"));
        QVERIFY(!fs::exists(harness.files() / "b"));
        QVERIFY(fs::exists(harness.files() / "c"));
        // Chosen items, then the whole trash, while the stick's trash fills and empties again.
        harness.fillStick();
        observer.emptySelectedTrash(stick);
        harness.model.scheduler.advance(20ms);
        observer.emptySelectedTrash(home, std::set<std::string>{"c"});
        observer.emptySelectedTrash(home);
        harness.model.scheduler.advance(2s);
        QCOMPARE(harness.finished->count(), 4);
        QVERIFY(fs::is_empty(harness.files()));
    }

    // An item this user may not remove goes to the helper, and the emptying waits for its answer,
    // within a deadline, whatever became of the daemon. What the helper did not remove counts as
    // settled: the emptying still completes, and says what stayed.
    void itemsTheUserMayNotRemoveGoToTheHelper_data()
    {
        QTest::addColumn<QString>("answer");
        QTest::addColumn<int>("sentEach");   // times the item went to the helper
        QTest::addColumn<QString>("reason"); // why it stayed; empty when it went
        const QString silent = u"the helper daemon stopped answering"_s;
        QTest::newRow("removed") << "removed" << 1 << QString();
        QTest::newRow("refused") << "refused" << 1 << u"not authorized"_s;
        QTest::newRow("the daemon never answers") << "silence" << 1 << silent;
        QTest::newRow("the daemon left, and cannot be started again") << "left" << 1 << silent;
        QTest::newRow("the daemon left, and the bus starts a new one")
            << "restarted" << 2 << QString();
    }
    void itemsTheUserMayNotRemoveGoToTheHelper()
    {
        QFETCH(QString, answer);
        QFETCH(int, sentEach);
        QFETCH(QString, reason);
        EmptyingHarness harness({"mine", "locked"});
        QVERIFY(setImmutable(harness.files() / "locked/inner", true));
        VolumeObserver& observer = harness.start();
        test::ConsoleCapture console;
        harness.emptyHome();
        setImmutable(harness.files() / "locked/inner", false);
        QCOMPARE(harness.handedOver, std::vector<fs::path>{harness.files() / "locked"});
        QCOMPARE(observer.progress(), 1.0 / 2);
        QVERIFY(harness.alerts.isEmpty());
        QVERIFY(fs::exists(harness.info() / "locked.trashinfo")); // the record stays with its item
        harness.model.scheduler.advance(VolumeObserver::helperDeadline - 1s);
        QVERIFY(observer.isEmptying()); // the item is still with the helper, within the deadline
        observer.xpcDidDelete(harness.files() / "mine"); // not one the helper was given: no step
        QCOMPARE(observer.progress(), 1.0 / 2);
        const fs::path item = harness.handedOver[0];
        if (answer == u"removed"_s)
            observer.xpcDidDelete(item);
        else if (answer == u"refused"_s)
            observer.xpcDidFail(item, reason);
        else if (answer != u"silence"_s)
            observer.helperLeft(answer == u"restarted"_s);
        if (answer == u"restarted"_s) {
            harness.model.scheduler.advance(VolumeObserver::helperDeadline - 1s);
            observer.xpcDidDelete(harness.handedOver.back());
        }
        harness.model.scheduler.advance(VolumeObserver::helperDeadline + 1s);
        QCOMPARE(harness.handedOver.size(), std::size_t(sentEach));
        QCOMPARE(console.count("xpcDidDelete"), reason.isEmpty() ? 2 : 1);
        QCOMPARE(harness.completed->count(), 1);
        QCOMPARE(harness.finished->count(), 1);
        const auto ended = harness.result();
        QCOMPARE(ended.ending, EmptyingResult::Ending::Completed);
        QCOMPARE(ended.helperStoppedAnswering, answer == u"silence"_s || answer == u"left"_s);
        QCOMPARE(ended.refused.size(), std::size_t(reason.isEmpty() ? 0 : 1));
        if (!reason.isEmpty())
            QCOMPARE(ended.refused[0], std::pair(item, reason));
        QVERIFY(fs::exists(harness.files() / "locked")); // nothing else touched it
        // A late report for an emptying that has ended counts for nothing.
        observer.xpcDidDelete(item);
        harness.model.scheduler.advance(1s);
        QCOMPARE(harness.completed->count(), 1);
        QCOMPARE(harness.sound.played.size(), std::size_t(1));
    }

    // The space an emptying gave back is what the trash lost: what the helper refused and left
    // is not counted.
    void freedSpaceIsWhatTheTrashLost_data()
    {
        QTest::addColumn<bool>("asked");
        QTest::addColumn<bool>("oneStays");
        QTest::newRow("not asked") << false << false;
        QTest::newRow("all removed") << true << false;
        QTest::newRow("one stays with the helper") << true << true;
    }
    void freedSpaceIsWhatTheTrashLost()
    {
        QFETCH(bool, asked);
        QFETCH(bool, oneStays);
        EmptyingHarness harness;
        harness.model.emptying.measureFreedSpace = asked;
        test::writeFile(harness.files() / "big", std::string(200000, 'x'));
        test::writeFile(harness.files() / "folder" / "inner", std::string(50000, 'y'));
        const fs::path locked = harness.files() / "stays" / "inner";
        test::writeFile(locked, std::string(30000, 'z'));
        const auto total = allocatedSizeOfDirectory(harness.files());
        const auto kept = allocatedSizeOfDirectory(locked.parent_path());
        QVERIFY(total && kept && *kept > 0);
        if (oneStays)
            QVERIFY(setImmutable(locked, true));
        VolumeObserver& observer = harness.start();
        harness.emptyHome();
        if (oneStays) {
            setImmutable(locked, false);
            QCOMPARE(harness.handedOver.size(), std::size_t(1));
            observer.xpcDidFail(harness.handedOver[0], u"not authorized"_s);
        }
        harness.model.scheduler.advance(1s);
        QCOMPARE(harness.finished->count(), 1);
        QCOMPARE(harness.result().ending, EmptyingResult::Ending::Completed);
        QCOMPARE(fs::exists(locked), oneStays);
        QCOMPARE(harness.result().freedBytes,
                 asked ? std::optional(*total - (oneStays ? *kept : 0)) : std::nullopt);
    }

    // A second emptying asked for while the first still runs waits for it: each completes
    // once, with its own sound and its own progress.
    void emptyingsRunOneAtATime()
    {
        EmptyingHarness harness({"a", "b", "c"});
        const Volume stick = harness.fillStick();
        VolumeObserver& observer = harness.start();
        const Volume home = observer.volumes()[0];
        using Step = std::pair<double, std::optional<fs::path>>; // progress, active trash
        std::vector<Step> published;
        connect(&observer, &VolumeObserver::progressChanged, this, [&] {
            const auto& active = observer.activeVolume();
            published.emplace_back(observer.progress(), active ? active->trashURL() : std::nullopt);
        });
        observer.emptySelectedTrash(home);
        harness.model.scheduler.advance(20ms);
        observer.emptySelectedTrash(stick);
        observer.emptySelectedTrash(stick);              // already waiting: asked for once
        QVERIFY(fs::exists(harness.stickTrash() / "0")); // waits for the first
        harness.model.scheduler.advance(2s);
        QCOMPARE(harness.completed->count(), 2);
        QCOMPARE(harness.sound.played.size(), std::size_t(2));
        QCOMPARE(harness.finished->count(), 2);
        QCOMPARE(harness.result().volume.trashURL(), home.trashURL());
        QCOMPARE(harness.result(1).volume.trashURL(), stick.trashURL());
        QVERIFY(fs::is_empty(harness.stickTrash()));
        // The second emptying's bar starts at its own first item, on its own row.
        const auto firstOfStick = std::ranges::find(published, Step(1.0 / 40, stick.trashURL()));
        QVERIFY(firstOfStick != published.end());
        QCOMPARE(std::count_if(firstOfStick, published.end(),
                               [](const Step& step) { return step.first == 1.0; }),
                 2L); // its end, and the completion's rise to 1.0
        QCOMPARE(observer.progress(), 0.0);
        QVERIFY(!observer.isEmptying());
    }

    // Another program of ours emptying the same trash holds it: nothing is removed, and the
    // emptying ends at once saying so.
    void aTrashBeingEmptiedElsewhereIsLeftAlone()
    {
        EmptyingHarness harness({"a"});
        VolumeObserver& observer = harness.start();
        QProcess holder;
        holder.start(u"flock"_s, {QString::fromStdString(harness.files().native()), u"-c"_s,
                                  u"echo locked; sleep 30"_s});
        QVERIFY(holder.waitForReadyRead(5000));
        harness.emptyHome();
        harness.model.scheduler.advance(1s);
        holder.kill();
        holder.waitForFinished();
        QCOMPARE(harness.finished->count(), 1);
        QCOMPARE(harness.result().ending, EmptyingResult::Ending::NotStarted);
        QVERIFY(harness.result().busy);
        QVERIFY(fs::exists(harness.files() / "a"));
        QVERIFY(!observer.isEmptying());
    }

    void otherFailuresAlertOneByOneAndStillComplete()
    {
        if (!test::canMount())
            QSKIP("needs root in a private mount namespace");
        EmptyingHarness harness({"first", "fine", "second"});
        std::vector<fs::path> mounts;
        for (const char* name : {"first", "second"}) {
            mounts.push_back(harness.files() / name / "mounted");
            fs::create_directories(mounts.back());
            QVERIFY(mount("item", mounts.back().c_str(), "tmpfs", 0, nullptr) == 0);
        }
        harness.start();
        harness.emptyHome();
        harness.model.scheduler.advance(500ms);
        for (const fs::path& point : mounts)
            QVERIFY(umount(point.c_str()) == 0);
        QCOMPARE(harness.alerts.size(), 2);
        for (const QString& alert : harness.alerts)
            QVERIFY(alert.startsWith(u"There was a problem deleting the file.\n("_s));
        QVERIFY(harness.alerts[0].contains(u"first"_s) || harness.alerts[1].contains(u"first"_s));
        QCOMPARE(harness.completed->count(), 1); // failed items count as accounted for
        QVERIFY(!fs::exists(harness.files() / "fine"));
        QVERIFY(fs::exists(harness.files() / "first" / "inner"));
    }

    void oddEntriesGoAndNothingOutside()
    {
        EmptyingHarness harness;
        test::writeFile(harness.files() / "caf\xe9\n-rf", "odd");
        const fs::path outside = harness.model.home / "Documents";
        test::writeFile(outside / "keep", "keep");
        fs::create_directory_symlink(outside, harness.files() / "link");
        const fs::path sizes = harness.files().parent_path() / "directorysizes";
        test::writeFile(sizes, "4096 1700000000 link\n8192 1700000000 other%20folder\n");
        harness.start();
        harness.emptyHome();
        harness.model.scheduler.advance(500ms);
        QVERIFY(listDirectory(harness.files())->empty());
        QVERIFY(fs::exists(outside / "keep"));
        QCOMPARE(test::readFile(sizes), std::string()); // no line names a folder that is gone
    }
};

QTEST_GUILESS_MAIN(TestEmptying)
#include "tst_Emptying.moc"
