#pragma once

#include "Platform/Result.h"

#include <QByteArray>
#include <QString>
#include <QUrl>
#include <optional>

namespace quillane
{

// One release listed in the update feed.
struct AppcastItem {
    quint64 build = 0;    // the build number, compared with ours
    QString shortVersion; // the version shown to people; the build number when the feed has none
    QUrl releasePage;     // a web page about the release; empty when the item names none
};

// The newest release (the highest build) of an appcast: an RSS 2.0 feed whose items carry
// their build and version as attributes of the item's <enclosure> or as elements of the item,
// in the appcast namespace. Items without a decimal build are passed over. The error says why
// the bytes are not such a feed, or that it lists no release.
Result<AppcastItem> newestAppcastItem(const QByteArray& feed);

// A build number: decimal digits only (surrounding white space aside), no sign.
std::optional<quint64> buildNumber(const QString& text);

} // namespace quillane
