#pragma once

#include <QSettings>
#include <QString>
#include <map>
#include <memory>

namespace quillane
{

// The user's Boolean preferences, stored under fixed keys, with registered defaults for keys
// that were never written.
class UserDefaults
{
public:
    virtual ~UserDefaults() = default;

    virtual void registerDefault(const QString& key, bool value) = 0;
    virtual bool boolValue(const QString& key) const = 0;
    virtual void setBool(const QString& key, bool value) = 0;
    // Picks up what another process wrote meanwhile.
    virtual void synchronize() = 0;
};

// User defaults in a QSettings file: the user's configuration folder for the application, or
// a given file (tests, or a second profile).
class SettingsUserDefaults final : public UserDefaults
{
public:
    SettingsUserDefaults();
    explicit SettingsUserDefaults(const QString& file);

    void registerDefault(const QString& key, bool value) override;
    bool boolValue(const QString& key) const override;
    void setBool(const QString& key, bool value) override;
    void synchronize() override;

private:
    std::unique_ptr<QSettings> m_settings;
    std::map<QString, bool> m_defaults;
};

} // namespace quillane
