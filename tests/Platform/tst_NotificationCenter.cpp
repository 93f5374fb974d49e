#include "Platform/NotificationCenter.h"

#include <QTest>
#include <atomic>
#include <thread>

using namespace quillane;

namespace
{

Notification named(const char* name, int number = 0)
{
    return {QString::fromLatin1(name), {}, {{QStringLiteral("n"), number}}};
}

int numberOf(const Notification& notification)
{
    return notification.userInfo.value(QStringLiteral("n")).toInt();
}

} // namespace

class TestNotificationCenter : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Only the observers of the posted name hear it, in the order they came; a removed one
    // hears nothing more.
    void deliversByName()
    {
        NotificationCenter center;
        QStringList heard;
        const auto observer = [&heard](QChar tag) {
            return [&heard, tag](const Notification& n) {
                heard << tag + QString::number(numberOf(n));
            };
        };
        const auto first = center.addObserver(QStringLiteral("A"), observer(u'a'));
        center.addObserver(QStringLiteral("A"), observer(u'b'));
        center.addObserver(QStringLiteral("B"), observer(u'c'));
        center.post(named("A", 1));
        center.removeObserver(first);
        center.post(named("A", 2));
        center.post(named("a", 3));
        QCOMPARE(heard.join(u' '), QStringLiteral("a1 b1 b2"));
    }

    // An observer that removes itself and adds another while it is called: the post under way
    // still reaches the rest but not the newcomer; the next one reaches only those now there.
    void observerChangesObserversWhileCalled()
    {
        NotificationCenter center;
        QString calls;
        NotificationCenter::Token self = 0;
        self = center.addObserver(QStringLiteral("A"), [&](const Notification&) {
            calls += u's';
            center.removeObserver(self);
            center.addObserver(QStringLiteral("A"), [&](const Notification&) { calls += u'n'; });
        });
        center.addObserver(QStringLiteral("A"), [&](const Notification&) { calls += u'o'; });
        center.post(named("A"));
        center.post(named("A"));
        QCOMPARE(calls, QStringLiteral("soon"));
    }

    // Threads posting at once while observers come and go: each post reaches the observer
    // exactly once, on the thread that posted it.
    void postsFromSeveralThreads()
    {
        constexpr int threadCount = 8;
        constexpr int posts = 2000;
        NotificationCenter center;
        std::vector<std::atomic<int>> deliveries(threadCount * posts);
        std::vector<std::thread::id> posters(threadCount);
        std::atomic<int> elsewhere = 0;
        center.addObserver(QStringLiteral("post"), [&](const Notification& n) {
            ++deliveries[std::size_t(numberOf(n))];
            if (posters[std::size_t(numberOf(n) / posts)] != std::this_thread::get_id())
                ++elsewhere;
        });

        std::atomic<bool> posting = true;
        std::thread churn([&] {
            const auto ignore = [](const Notification&) {};
            while (posting)
                center.removeObserver(center.addObserver(QStringLiteral("post"), ignore));
        });
        std::vector<std::thread> threads;
        for (int t = 0; t < threadCount; ++t) {
            threads.emplace_back([&, t] {
                posters[std::size_t(t)] = std::this_thread::get_id();
                for (int i = 0; i < posts; ++i)
                    center.post(named("post", t * posts + i));
            });
        }
        for (std::thread& thread : threads)
            thread.join();
        posting = false;
        churn.join();

        for (std::size_t i = 0; i < deliveries.size(); ++i)
            QVERIFY2(deliveries[i] == 1, qPrintable(QString::number(i)));
        QCOMPARE(elsewhere.load(), 0);
    }
};

QTEST_GUILESS_MAIN(TestNotificationCenter)
#include "tst_NotificationCenter.moc"
