#pragma once

#include <QLocale>

namespace quillane
{

// Loads the program's own texts for a language into the application, with Qt's own for its
// standard buttons where the system has them; English where there are none for it: the counts'
// singular and plural forms come from there. By default the language is the user's (LANGUAGE,
// then LC_ALL, LC_MESSAGES, LANG). Call it once the application object exists; a later call
// replaces what an earlier one loaded.
void installTranslations(const QLocale& locale = QLocale());

} // namespace quillane
