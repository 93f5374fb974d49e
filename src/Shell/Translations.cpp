#include "Translations.h"

#include <QCoreApplication>
#include <QLibraryInfo>
#include <QPointer>
#include <QTranslator>

namespace quillane
{

namespace
{

// Where the build puts the compiled translations among the program's resources.
const QString translationFolder = QStringLiteral(":/i18n");
const QString baseName = QStringLiteral("quillane");
const QString separator = QStringLiteral("_");

// The translators installed last, so that a later call replaces them rather than adds to them.
QPointer<QTranslator> ownTexts;
QPointer<QTranslator> qtTexts;

void uninstall(QPointer<QTranslator>& translator)
{
    if (!translator)
        return;
    QCoreApplication::removeTranslator(translator);
    delete translator;
}

} // namespace

void installTranslations(const QLocale& locale)
{
    QCoreApplication* application = QCoreApplication::instance();
    if (!application)
        return;
    uninstall(ownTexts);
    uninstall(qtTexts);

    // Qt's own texts (the standard buttons, the command line's --help) where the system has them
    // for this language; English needs none.
    auto* qt = new QTranslator(application);
    if (qt->load(locale, QStringLiteral("qtbase"), separator,
                 QLibraryInfo::path(QLibraryInfo::TranslationsPath))) {
        QCoreApplication::installTranslator(qt);
        qtTexts = qt;
    } else {
        delete qt;
    }

    // English is the fallback: its file gives the plural forms the source texts leave open.
    auto* own = new QTranslator(application);
    if (!own->load(locale, baseName, separator, translationFolder) &&
        !own->load(baseName + QStringLiteral("_en"), translationFolder)) {
        delete own;
        return;
    }
    QCoreApplication::installTranslator(own);
    ownTexts = own;
}

} // namespace quillane
