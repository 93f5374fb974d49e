#include "Platform/VirtualScheduler.h"

#include <QTest>
#include <latch>
#include <thread>

using namespace quillane;

// The other suites drive the virtual clock from one thread only; this one posts from many.
class TestVirtualScheduler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void tasksPostedFromOtherThreadsRunOnAdvance()
    {
        VirtualScheduler scheduler;
        constexpr int threads = 8, perThread = 20000;
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
};

QTEST_GUILESS_MAIN(TestVirtualScheduler)
#include "tst_VirtualScheduler.moc"
