#pragma once

#include <QByteArray>
#include <QCoreApplication>
#include <QObject>
#include <QStringList>
#include <cstdio>

// Prints the daemon's report and ends the client.
class Reports : public QObject
{
    Q_OBJECT

public:
    void installationDidReachProgress(double, const QStringList&) {}
    void postVersion(const QStringList&) {}
    void deleteResultWithUrl(const QByteArray&, const QStringList& error)
    {
        if (error.isEmpty())
            std::printf("removed\n");
        else
            std::printf("error: %s\n", qPrintable(error.first()));
        QCoreApplication::exit(0);
    }
};
