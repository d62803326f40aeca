#pragma once

#include "ui/Theme.h"

#include <QObject>
#include <QString>
#include <optional>

namespace tallowick
{

// Holds the View › Theme choice, keeps it between runs in a settings file in the store's folder,
// and applies the appearance it resolves to, following the desktop's colour scheme for System.
// Main thread only.
class ThemeController final : public QObject
{
    Q_OBJECT

public:
    // Reads the choice kept in `folder` (System without one) and applies it to the application.
    explicit ThemeController(const QString &folder, QObject *parent = nullptr);

    ThemeChoice choice() const { return m_choice; }
    Appearance appearance() const { return appearanceFor(m_choice, m_desktopColorScheme); }

    // Applies `choice` and keeps it for the next run.
    void setChoice(ThemeChoice choice);
    // The desktop's color-scheme value as the settings portal gives it; applied when System is chosen.
    void setDesktopColorScheme(uint value);
    // Starts reading and following the desktop's setting over D-Bus.
    void followDesktop();

Q_SIGNALS:
    void choiceChanged(tallowick::ThemeChoice choice);

private:
    void apply();

    QString m_settingsPath;
    ThemeChoice m_choice = ThemeChoice::system;
    std::optional<uint> m_desktopColorScheme;
    bool m_following = false;
};

} // namespace tallowick
