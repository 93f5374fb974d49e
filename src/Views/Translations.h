#pragma once

namespace quillane
{

// Loads the program's own texts for the user's language into the application, English where
// there are none for it: the counts' singular and plural forms come from there. Call it once
// the application object exists; a second call changes nothing.
void installTranslations();

} // namespace quillane
