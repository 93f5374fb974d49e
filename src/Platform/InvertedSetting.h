#pragma once

#include "Platform/UserDefaults.h"

#include <QString>

namespace quillane
{

// A stored Boolean seen the other way round: a switch that reads "ask" or "warn" over a key that
// stores "suppress". Reading gives the negation of the stored value; setting stores the negation
// of the new one. Nothing is cached, so every switch bound to the same key agrees at once.
struct InvertedSetting {
    UserDefaults& defaults;
    QString key;

    bool value() const { return !defaults.boolValue(key); }
    void set(bool value) const { defaults.setBool(key, !value); }
};

} // namespace quillane
