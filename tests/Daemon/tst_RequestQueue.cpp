#include "RequestQueue.h"

#include <QTest>

using namespace quillane::daemon;

// What the daemon's queues admit: each user's requests one after another, and no more than
// the limits, whoever else waits.
class TestRequestQueue : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void admission_data()
    {
        // Requests added in turn, as "uid:path bytes" (a batch: "uid:bytes,bytes"); then what
        // became of the last one.
        QTest::addColumn<QByteArrayList>("requests");
        QTest::addColumn<int>("finishedFirst"); // uid whose current request ends before the last
        QTest::addColumn<int>("admission");
        using A = RequestQueue::Admission;
        QTest::newRow("the first of a user") << QByteArrayList{"1:10"} << -1 << int(A::first);
        QTest::newRow("another user is served beside")
            << QByteArrayList{"1:10", "2:10"} << -1 << int(A::first);
        QTest::newRow("behind the user's own")
            << QByteArrayList{"1:10", "1:10"} << -1 << int(A::waiting);
        QTest::newRow("the user's count is full")
            << QByteArrayList{"1:10", "1:10", "1:10", "1:10"} << -1 << int(A::userFull);
        QTest::newRow("another user is not held up by it")
            << QByteArrayList{"1:10", "1:10", "1:10", "2:10"} << -1 << int(A::first);
        QTest::newRow("the user's bytes are full")
            << QByteArrayList{"1:4096", "1:4096"} << -1 << int(A::userFull);
        QTest::newRow("a batch counts each of its paths")
            << QByteArrayList{"1:3000,3000"} << -1 << int(A::userFull);
        QTest::newRow("a batch is one request")
            << QByteArrayList{"1:10,10,10,10", "1:10"} << -1 << int(A::waiting);
        QTest::newRow("too many users")
            << QByteArrayList{"1:10", "2:10", "3:10", "4:10"} << -1 << int(A::full);
        QTest::newRow("a user's place is free once served")
            << QByteArrayList{"1:10", "2:10", "3:10", "4:10"} << 1 << int(A::first);
        QTest::newRow("room again once one is served")
            << QByteArrayList{"1:10", "1:10", "1:10", "1:10"} << 1 << int(A::waiting);
    }

    void admission()
    {
        QFETCH(QByteArrayList, requests);
        QFETCH(int, finishedFirst);
        QFETCH(int, admission);
        // Three requests or 6 KiB a user, three users.
        RequestQueue queue({3, 3 * 512 + 4600, 3});
        std::optional<RequestQueue::Admission> last;
        for (qsizetype i = 0; i < requests.size(); ++i) {
            const QByteArrayList parts = requests[i].split(':');
            if (i + 1 == requests.size() && finishedFirst >= 0)
                queue.finish(static_cast<uid_t>(finishedFirst));
            QList<QByteArray> paths;
            for (const QByteArray& bytes : parts[1].split(','))
                paths << QByteArray(bytes.toInt(), 'x');
            last = queue.add(parts[0].toUInt(),
                             {Request::Kind::deletion, QStringLiteral(":1.1"), paths, {}});
        }
        QCOMPARE(int(*last), admission);
    }

    void servesEachUserInOrderAndEnds()
    {
        RequestQueue queue({10, 1 << 20, 10});
        QCOMPARE(queue.add(1, {Request::Kind::deletion, {}, {"a"}, {}}),
                 RequestQueue::Admission::first);
        QCOMPARE(queue.add(1, {Request::Kind::uninstall, {}, {"b"}, {}}),
                 RequestQueue::Admission::waiting);
        QCOMPARE(queue.current(1).paths, QList<QByteArray>{"a"});
        QVERIFY(queue.finish(1));
        QCOMPARE(queue.current(1).paths, QList<QByteArray>{"b"});
        QVERIFY(!queue.finish(1));
        QVERIFY(queue.empty());
        QVERIFY(!queue.finish(1)); // nothing left to end
    }
};

QTEST_GUILESS_MAIN(TestRequestQueue)
#include "tst_RequestQueue.moc"
