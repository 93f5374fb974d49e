#include "CallerTrash.h"

#include <QTest>

using namespace quillane::daemon;
namespace fs = std::filesystem;

// Which requests name an entry of the caller's own trash folders (uid 1000, home /home/me,
// volumes mounted at /media/me/USB and, inside the home, /home/me/disk).
class TestCallerTrash : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void places_data()
    {
        QTest::addColumn<QByteArray>("item");
        QTest::addColumn<QByteArray>("anchor"); // empty: refused
        QTest::addColumn<QByteArray>("trashFolder");
        QTest::addColumn<QByteArray>("name");

        const auto row = [](const char* tag, const char* item, const char* anchor = "",
                            const char* trash = "", const char* name = "") {
            QTest::newRow(tag) << QByteArray(item) << QByteArray(anchor) << QByteArray(trash)
                               << QByteArray(name);
        };
        row("home trash", "/home/me/.local/share/Trash/files/report.pdf", "/home/me",
            ".local/share/Trash", "report.pdf");
        row("name not UTF-8", "/home/me/.local/share/Trash/files/caf\xe9", "/home/me",
            ".local/share/Trash", "caf\xe9");
        row("name with a newline", "/home/me/.local/share/Trash/files/a\nb", "/home/me",
            ".local/share/Trash", "a\nb");
        row("volume trash", "/media/me/USB/.Trash-1000/files/-rf", "/media/me/USB", ".Trash-1000",
            "-rf");
        row("shared volume trash", "/media/me/USB/.Trash/1000/files/old", "/media/me/USB",
            ".Trash/1000", "old");
        row("volume inside the home", "/home/me/disk/.Trash-1000/files/x", "/home/me/disk",
            ".Trash-1000", "x");

        row("inside an item", "/home/me/.local/share/Trash/files/folder/inner");
        row("the files folder itself", "/home/me/.local/share/Trash/files");
        row("an info file", "/home/me/.local/share/Trash/info/report.pdf.trashinfo");
        row("parent component", "/home/me/.local/share/Trash/files/../../../../.bashrc");
        row("dot component", "/home/me/.local/share/Trash/./files/x");
        row("empty component", "/home/me/.local/share/Trash//files/x");
        row("trailing slash", "/home/me/.local/share/Trash/files/x/");
        row("relative", "home/me/.local/share/Trash/files/x");
        row("another user's volume trash", "/media/me/USB/.Trash-1001/files/x");
        row("another user's shared trash", "/media/me/USB/.Trash/1001/files/x");
        row("another user's home trash", "/home/you/.local/share/Trash/files/x");
        row("not a trash", "/etc/passwd");
        row("a trash-like folder below the top", "/media/me/USB/sub/.Trash-1000/files/x");
        row("home trash of the volume in the home", "/home/me/disk/.local/share/Trash/files/x");
    }

    void places()
    {
        QFETCH(QByteArray, item);
        QFETCH(QByteArray, anchor);
        QFETCH(QByteArray, trashFolder);
        QFETCH(QByteArray, name);

        const auto place = findCallerTrash(item.toStdString(), 1000, "/home/me",
                                           {"/", "/home/me/disk", "/media/me/USB"});
        QCOMPARE(place.ok(), !anchor.isEmpty());
        if (!place) {
            QVERIFY(!place.error().empty());
            return;
        }
        QCOMPARE(QByteArray::fromStdString(place->anchor.native()), anchor);
        QCOMPARE(QByteArray::fromStdString(place->trashFolder.native()), trashFolder);
        QCOMPARE(QByteArray::fromStdString(place->itemName), name);
    }
};

QTEST_GUILESS_MAIN(TestCallerTrash)
#include "tst_CallerTrash.moc"
