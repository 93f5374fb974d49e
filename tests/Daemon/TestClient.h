#pragma once

#include <QByteArray>
#include <QObject>
#include <QStringList>
#include <cstdio>
#include <functional>

// Prints each of the daemon's reports on one line and says when one came.
class Reports : public QObject
{
    Q_OBJECT

public:
    explicit Reports(std::function<void()> answered) : m_answered(std::move(answered)) {}

    void installationDidReachProgress(double, const QStringList&) {}
    void postVersion(const QStringList&) {}
    void deleteResultWithUrl(const QByteArray& url, const QStringList& error)
    {
        if (namesItems)
            std::printf("%s: ", url.constData());
        if (error.isEmpty())
            std::printf("removed\n");
        else
            std::printf("error: %s\n", qPrintable(error.first()));
        m_answered();
    }

    bool namesItems = false; // each answer starts with the item's path

private:
    std::function<void()> m_answered;
};
