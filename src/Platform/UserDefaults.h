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
    // Why the preferences cannot be kept (the store cannot be written), or nothing when they
    // can. Values set meanwhile hold until the program ends; at the next start, the defaults.
    virtual QString storageProblem() const { return {}; }
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
    QString storageProblem() const override;

private:
    std::unique_ptr<QSettings> m_settings;
    std::map<QString, bool> m_defaults;
};

} // namespace quillane
