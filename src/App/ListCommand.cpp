#include "ListCommand.h"

#include "Model/VolumeObserver.h"
#include "Platform/DisplayText.h"
#include "Platform/linux/LinuxPlatform.h"

#include <QCoreApplication>
#include <QFutureWatcher>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>
#include <QtConcurrent>
#include <cstdio>

namespace quillane
{

namespace
{

QString kindName(Volume::Kind kind)
{
    switch (kind) {
    case Volume::Kind::CloudStorage:
        return QStringLiteral("cloud");
    case Volume::Kind::Volume:
    case Volume::Kind::None:
        break;
    }
    return QStringLiteral("volume");
}

} // namespace

LocationReport reportLocation(const Volume& volume, const VolumeNames& volumeNames)
{
    LocationReport report;
    report.name = displayText(volume.name(volumeNames));
    report.kind = kindName(volume.kind());
    report.location = volume.volPath() ? displayPath(*volume.volPath()) : QString();
    if (volume.trashURL())
        report.trash = displayPath(*volume.trashURL());
    report.items = volume.itemCount();
    report.bytes = volume.allocatedSize();
    return report;
}

QJsonArray toJson(const std::vector<LocationReport>& reports)
{
    QJsonArray array;
    for (const LocationReport& report : reports) {
        array.append(QJsonObject{
            {QStringLiteral("name"), report.name},
            {QStringLiteral("kind"), report.kind},
            {QStringLiteral("location"), report.location},
            {QStringLiteral("trash"), report.trash ? QJsonValue(*report.trash) : QJsonValue()},
            {QStringLiteral("items"), report.items},
            {QStringLiteral("bytes"), static_cast<qint64>(report.bytes)},
        });
    }
    return array;
}

QString toTable(const std::vector<LocationReport>& reports)
{
    const QStringList header = {QCoreApplication::translate("quillane::ListCommand", "NAME"),
                                QCoreApplication::translate("quillane::ListCommand", "TRASH"),
                                QCoreApplication::translate("quillane::ListCommand", "ITEMS"),
                                QCoreApplication::translate("quillane::ListCommand", "SIZE")};
    std::vector<QStringList> rows = {header};
    for (const LocationReport& report : reports) {
        // The terminal gets names with their control bytes escaped; the JSON keeps them exact.
        const auto shown = [](const QString& text) { return messageText(text.toStdString()); };
        rows.push_back({shown(report.name),
                        report.trash ? shown(*report.trash)
                                     : QCoreApplication::translate("quillane::ListCommand",
                                                                   "(no trash folder)"),
                        QLocale().toString(report.items), formatByteCount(report.bytes)});
    }
    std::vector<qsizetype> widths(header.size(), 0);
    for (const QStringList& row : rows)
        for (qsizetype column = 0; column < row.size(); ++column)
            widths[column] = std::max(widths[column], row[column].size());

    QString table;
    for (const QStringList& row : rows) {
        QStringList cells;
        for (qsizetype column = 0; column < row.size(); ++column) {
            const bool numeric = column >= 2; // counts and sizes line up on the right
            cells << (numeric ? row[column].rightJustified(widths[column])
                              : row[column].leftJustified(widths[column]));
        }
        table += cells.join(QStringLiteral("  ")).trimmed() + QLatin1Char('\n');
    }
    return table;
}

void whenFirstListed(VolumeObserver& observer, std::function<void()> ready)
{
    auto connection = std::make_shared<QMetaObject::Connection>();
    *connection = QObject::connect(&observer, &VolumeObserver::listPublished, &observer,
                                   [connection, ready = std::move(ready)] {
                                       QObject::disconnect(*connection);
                                       ready();
                                   });
}

int runListCommand(bool json)
{
    LinuxPlatform linux;
    const Platform platform = linux.platform();
    VolumeObserver observer(platform, {}, ObserverPace::immediate());

    QFutureWatcher<std::vector<LocationReport>> reports;
    whenFirstListed(observer, [&] {
        reports.setFuture(QtConcurrent::run([volumes = observer.volumes(), &platform] {
            std::vector<LocationReport> result;
            for (const Volume& volume : volumes)
                result.push_back(reportLocation(volume, platform.volumeNames));
            return result;
        }));
    });
    QObject::connect(&reports, &QFutureWatcher<std::vector<LocationReport>>::finished, [&] {
        const auto result = reports.result();
        const QByteArray text = json ? QJsonDocument(toJson(result)).toJson(QJsonDocument::Indented)
                                     : toTable(result).toUtf8();
        std::fwrite(text.constData(), 1, static_cast<std::size_t>(text.size()), stdout);
        std::fflush(stdout);
        QCoreApplication::exit(0);
    });
    return QCoreApplication::exec();
}

} // namespace quillane
