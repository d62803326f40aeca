#include "ui/ThemeController.h"

#include "ui/DesktopColorScheme.h"

#include <QApplication>
#include <QDir>
#include <QSettings>

namespace tallowick
{

namespace
{

const QString themeKey = QStringLiteral("view/theme");

} // namespace

ThemeController::ThemeController(const QString &folder, QObject *parent)
    : QObject(parent)
    , m_settingsPath(QDir(folder).filePath(QStringLiteral("settings.ini")))
{
    const QSettings settings(m_settingsPath, QSettings::IniFormat);
    m_choice = choiceFromName(settings.value(themeKey).toString());
    if (auto *app = qobject_cast<QApplication *>(QCoreApplication::instance())) {
        applyAppearance(*app, appearance());
    }
}

void ThemeController::setChoice(ThemeChoice choice)
{
    if (choice == m_choice) {
        return;
    }
    m_choice = choice;
    QSettings settings(m_settingsPath, QSettings::IniFormat);
    settings.setValue(themeKey, choiceName(choice));
    settings.sync();
    apply();
    Q_EMIT choiceChanged(choice);
}

void ThemeController::setDesktopColorScheme(uint value)
{
    m_desktopColorScheme = value;
    apply();
}

void ThemeController::followDesktop()
{
    if (m_following) {
        return;
    }
    m_following = true;
    auto *desktop = new DesktopColorScheme(this);
    QObject::connect(desktop, &DesktopColorScheme::colorSchemeChanged, this, &ThemeController::setDesktopColorScheme);
}

void ThemeController::apply()
{
    // A desktop setting that does not change what is on screen must not restyle every widget.
    if (appearance() == currentAppearance()) {
        return;
    }
    if (auto *app = qobject_cast<QApplication *>(QCoreApplication::instance())) {
        applyAppearance(*app, appearance());
    }
}

} // namespace tallowick
