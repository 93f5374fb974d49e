#include "App/EmptyCommand.h"
#include "App/ListCommand.h"
#include "Platform/BuildInfo.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <cstdio>

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("quillane"));
    QCoreApplication::setApplicationVersion(QString::fromLatin1(quillane::BuildInfo::versionText));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Quillane shows the trash of every location (your home, each mounted volume, cloud "
        "folders) and empties one at a time.\n\nCommands:\n"
        "  list [--json]            Print every trash location with its item count and size.\n"
        "  empty LOCATION [--yes]   Empty the trash of one location, named as list shows it."));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption jsonOption(QStringLiteral("json"),
                                        QStringLiteral("With list: print a JSON array."));
    parser.addOption(jsonOption);
    const QCommandLineOption yesOption(QStringLiteral("yes"),
                                       QStringLiteral("With empty: do not ask first."));
    parser.addOption(yesOption);
    // For the benchmarks: with empty, the longest main-thread stall on standard error at the end.
    QCommandLineOption stallsOption(QStringLiteral("report-stalls"),
                                    QStringLiteral("With empty: report the longest stall."));
    stallsOption.setFlags(QCommandLineOption::HiddenFromHelp);
    parser.addOption(stallsOption);
    parser.addPositionalArgument(QStringLiteral("command"), QStringLiteral("list"),
                                 QStringLiteral("[command]"));
    parser.process(app);

    const QStringList arguments = parser.positionalArguments();
    if (arguments.isEmpty()) {
        // Without a command, Quillane is the tray application, which is not built yet.
        std::fputs(qPrintable(parser.helpText()), stdout);
        return 0;
    }
    if (arguments.size() == 1 && arguments.first() == QStringLiteral("list"))
        return quillane::runListCommand(parser.isSet(jsonOption));

    if (arguments.size() == 2 && arguments.first() == QStringLiteral("empty"))
        return quillane::runEmptyCommand(arguments[1], parser.isSet(yesOption),
                                         parser.isSet(stallsOption));

    std::fprintf(stderr, "quillane: unknown command \"%s\"; see quillane --help\n",
                 qPrintable(arguments.join(QLatin1Char(' '))));
    return 2;
}
