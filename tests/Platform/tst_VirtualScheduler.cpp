#include "Platform/VirtualScheduler.h"

#include <QTest>
#include <latch>
#include <thread>

using namespace quillane;
using namespace std::chrono_literals;

class TestVirtualScheduler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Each task also sees the clock at its own due time.
    void tasksRunInTimeThenPostingOrder()
    {
        VirtualScheduler scheduler;
        QByteArrayList ran;
        const auto task = [&](const char* name) {
            return [&, name] { ran << name + QByteArray::number(scheduler.now().count()); };
        };
        scheduler.postAfter(30ms, task("a@"));
        scheduler.postAfter(10ms, task("b@"));
        scheduler.postAfter(20ms, task("c@"));
        scheduler.postAfter(10ms, task("d@"));
        scheduler.post(task("e@"));
        QVERIFY(ran.isEmpty());

        scheduler.advance(25ms);
        QCOMPARE(ran, (QByteArrayList{"e@0", "b@10", "d@10", "c@20"}));
        QCOMPARE(scheduler.now().count(), 25);
        QCOMPARE(scheduler.pendingCount(), std::size_t(1));
        scheduler.advance(4ms);
        QCOMPARE(ran.size(), 4);
        scheduler.advance(1ms);
        QCOMPARE(ran.last(), QByteArray("a@30"));
    }

    void repeatingTimerStopsWithItsHandle()
    {
        VirtualScheduler scheduler;
        int ticks = 0;
        auto timer = scheduler.repeat(100ms, [&] { ++ticks; });
        scheduler.advance(350ms);
        QCOMPARE(ticks, 3);
        timer.reset();
        scheduler.advance(1000ms);
        QCOMPARE(ticks, 3);

        // A timer may also be stopped from its own tick.
        int ownTicks = 0;
        std::unique_ptr<RepeatingTimer> own = scheduler.repeat(50ms, [&] {
            if (++ownTicks == 2)
                own.reset();
        });
        scheduler.advance(1000ms);
        QCOMPARE(ownTicks, 2);
    }

    void tasksPostedFromOtherThreadsRunOnAdvance()
    {
        VirtualScheduler scheduler;
        constexpr int threads = 8, perThread = 2000;
        std::vector<int> runs(threads * perThread, 0);
        const auto mainThread = std::this_thread::get_id();
        bool offMain = false;
        std::latch start(threads); // all threads post at once, so that they contend
        std::vector<std::thread> posters;
        for (int t = 0; t < threads; ++t) {
            posters.emplace_back([&, t] {
                start.arrive_and_wait();
                for (int i = 0; i < perThread; ++i) {
                    const auto run = [&, n = t * perThread + i] {
                        ++runs[std::size_t(n)];
                        offMain |= std::this_thread::get_id() != mainThread;
                    };
                    if (i % 2)
                        scheduler.post(run);
                    else
                        scheduler.postAfter(std::chrono::milliseconds(i), run);
                }
            });
        }
        for (auto& poster : posters)
            poster.join();
        QCOMPARE(std::ranges::count(runs, 0), std::ptrdiff_t(runs.size()));

        scheduler.advance(std::chrono::milliseconds(perThread));
        QCOMPARE(std::ranges::count(runs, 1), std::ptrdiff_t(runs.size()));
        QVERIFY(!offMain);
    }

    void taskPostedDuringAdvanceRunsInTheSameAdvance()
    {
        VirtualScheduler scheduler;
        QByteArrayList ran;
        scheduler.postAfter(10ms, [&] {
            ran << "first";
            scheduler.post([&] { ran << "now"; });
            scheduler.postAfter(5ms, [&] { ran << "within"; });
            scheduler.postAfter(50ms, [&] { ran << "beyond"; });
        });
        scheduler.postAfter(12ms, [&] { ran << "second"; });
        scheduler.advance(20ms);
        QCOMPARE(ran, (QByteArrayList{"first", "now", "second", "within"}));
        QCOMPARE(scheduler.now().count(), 20);
        scheduler.advance(40ms);
        QCOMPARE(ran.last(), QByteArray("beyond"));
    }
};

QTEST_GUILESS_MAIN(TestVirtualScheduler)
#include "tst_VirtualScheduler.moc"
