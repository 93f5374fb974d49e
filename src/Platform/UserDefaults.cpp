#include "UserDefaults.h"

#include <QCoreApplication>

namespace quillane
{

SettingsUserDefaults::SettingsUserDefaults()
    : m_settings(std::make_unique<QSettings>(QSettings::IniFormat, QSettings::UserScope,
                                             QStringLiteral("Quillane"),
                                             QStringLiteral("Quillane")))
{
}

SettingsUserDefaults::SettingsUserDefaults(const QString& file)
    : m_settings(std::make_unique<QSettings>(file, QSettings::IniFormat))
{
}

void SettingsUserDefaults::registerDefault(const QString& key, bool value)
{
    m_defaults[key] = value;
}

bool SettingsUserDefaults::boolValue(const QString& key) const
{
    const QVariant stored = m_settings->value(key);
    if (stored.isValid())
        return stored.toBool();
    const auto registered = m_defaults.find(key);
    return registered != m_defaults.end() && registered->second;
}

void SettingsUserDefaults::setBool(const QString& key, bool value)
{
    m_settings->setValue(key, value);
}

void SettingsUserDefaults::synchronize()
{
    m_settings->sync();
}

QString SettingsUserDefaults::storageProblem() const
{
    if (m_settings->isWritable() && m_settings->status() != QSettings::AccessError)
        return {};
    return QCoreApplication::translate(
               "quillane::UserDefaults",
               "Your settings cannot be saved: %1 cannot be written. Quillane uses "
               "its defaults until it can.")
        .arg(m_settings->fileName());
}

} // namespace quillane
