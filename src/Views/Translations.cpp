#include "Translations.h"

#include <QCoreApplication>
#include <QLocale>
#include <QPointer>
#include <QTranslator>

namespace quillane
{

namespace
{

// Where the build puts the compiled translations among the program's resources.
const QString translationFolder = QStringLiteral(":/i18n");
const QString baseName = QStringLiteral("quillane");

} // namespace

void installTranslations()
{
    static QPointer<QTranslator> installed;
    QCoreApplication* application = QCoreApplication::instance();
    if (!application || installed)
        return;
    auto* translator = new QTranslator(application);
    // English is the fallback: its file gives the plural forms the source texts leave open.
    if (!translator->load(QLocale(), baseName, QStringLiteral("_"), translationFolder) &&
        !translator->load(baseName + QStringLiteral("_en"), translationFolder)) {
        delete translator;
        return;
    }
    QCoreApplication::installTranslator(translator);
    installed = translator;
}

} // namespace quillane
