#include "Appcast.h"

#include <QCoreApplication>
#include <QXmlStreamReader>
#include <optional>

namespace quillane
{

namespace
{

const QString appcastNamespace =
    QStringLiteral("http://www.andymatuschak.org/xml-namespaces/sparkle");

// What one <item> says, before it is known to be usable.
struct ItemFields {
    QString buildElement;
    QString buildAttribute;
    QString versionElement;
    QString versionAttribute;
    QString link;
    QString releaseNotesLink;
};

// Only a web page is worth handing to the desktop's opener; anything else in a feed is ignored.
QUrl webPage(const QString& text)
{
    const QUrl url(text.trimmed(), QUrl::StrictMode);
    const bool web = url.scheme() == u"https" || url.scheme() == u"http";
    return url.isValid() && web && !url.host().isEmpty() ? url : QUrl();
}

std::optional<AppcastItem> itemFrom(const ItemFields& fields)
{
    // The item's own element says more precisely what it is than its enclosure.
    const std::optional<quint64> build =
        buildNumber(fields.buildElement.isEmpty() ? fields.buildAttribute : fields.buildElement);
    if (!build)
        return std::nullopt;
    QString version =
        (fields.versionElement.isEmpty() ? fields.versionAttribute : fields.versionElement)
            .trimmed();
    if (version.isEmpty())
        version = QString::number(*build);
    QUrl page = webPage(fields.link);
    if (page.isEmpty())
        page = webPage(fields.releaseNotesLink);
    return AppcastItem{*build, version, page};
}

ItemFields readItem(QXmlStreamReader& xml)
{
    ItemFields fields;
    while (xml.readNextStartElement()) {
        const bool ours = xml.namespaceUri() == appcastNamespace;
        const bool plain = xml.namespaceUri().isEmpty();
        const auto name = xml.name();
        if (plain && name == u"enclosure") {
            const QXmlStreamAttributes attributes = xml.attributes();
            fields.buildAttribute =
                attributes.value(appcastNamespace, QLatin1String("version")).toString();
            fields.versionAttribute =
                attributes.value(appcastNamespace, QLatin1String("shortVersionString")).toString();
            xml.skipCurrentElement();
        } else if (plain && name == u"link") {
            fields.link = xml.readElementText(QXmlStreamReader::SkipChildElements);
        } else if (ours && name == u"version") {
            fields.buildElement = xml.readElementText(QXmlStreamReader::SkipChildElements);
        } else if (ours && name == u"shortVersionString") {
            fields.versionElement = xml.readElementText(QXmlStreamReader::SkipChildElements);
        } else if (ours && name == u"releaseNotesLink") {
            fields.releaseNotesLink = xml.readElementText(QXmlStreamReader::SkipChildElements);
        } else {
            xml.skipCurrentElement();
        }
    }
    return fields;
}

std::string xmlError(const QXmlStreamReader& xml)
{
    return QCoreApplication::translate("quillane::Appcast",
                                       "The feed is not well-formed XML (line %1: %2).")
        .arg(xml.lineNumber())
        .arg(xml.errorString())
        .toStdString();
}

} // namespace

std::optional<quint64> buildNumber(const QString& text)
{
    const QString trimmed = text.trimmed();
    if (trimmed.isEmpty())
        return std::nullopt;
    for (const QChar c : trimmed)
        if (c < u'0' || c > u'9')
            return std::nullopt;
    bool ok = false;
    const quint64 build = trimmed.toULongLong(&ok); // false past the largest build
    return ok ? std::optional(build) : std::nullopt;
}

Result<AppcastItem> newestAppcastItem(const QByteArray& feed)
{
    if (feed.trimmed().isEmpty())
        return Result<AppcastItem>::failure(
            QCoreApplication::translate("quillane::Appcast", "The feed is empty.").toStdString());
    QXmlStreamReader xml(feed);
    if (!xml.readNextStartElement())
        return Result<AppcastItem>::failure(xmlError(xml));
    if (xml.name() != u"rss" || !xml.namespaceUri().isEmpty())
        return Result<AppcastItem>::failure(
            QCoreApplication::translate("quillane::Appcast",
                                        "The feed is not an RSS feed (it starts with <%1>).")
                .arg(xml.qualifiedName())
                .toStdString());

    std::optional<AppcastItem> newest;
    while (xml.readNextStartElement()) {
        if (xml.name() != u"channel") {
            xml.skipCurrentElement();
            continue;
        }
        while (xml.readNextStartElement()) {
            if (xml.name() != u"item") {
                xml.skipCurrentElement();
                continue;
            }
            const std::optional<AppcastItem> item = itemFrom(readItem(xml));
            // The first of equal builds wins: feeds list the newest first.
            if (item && (!newest || item->build > newest->build))
                newest = item;
        }
    }
    // Whatever follows the feed must still be well-formed, or the download was not a feed.
    while (!xml.atEnd())
        xml.readNext();
    if (xml.hasError())
        return Result<AppcastItem>::failure(xmlError(xml));
    if (!newest)
        return Result<AppcastItem>::failure(
            QCoreApplication::translate("quillane::Appcast",
                                        "The feed lists no release with a build number.")
                .toStdString());
    return Result<AppcastItem>::success(*newest);
}

} // namespace quillane
