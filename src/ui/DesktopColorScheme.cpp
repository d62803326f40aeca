#include "ui/DesktopColorScheme.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>

namespace tallowick
{

namespace
{

const QString portalService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString portalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString settingsInterface = QStringLiteral("org.freedesktop.portal.Settings");
const QString appearanceGroup = QStringLiteral("org.freedesktop.appearance");
const QString colorSchemeKey = QStringLiteral("color-scheme");

// Read() answers a variant holding the value's variant; a signal carries the value's variant.
std::optional<uint> colorSchemeIn(QVariant value)
{
    while (value.userType() == qMetaTypeId<QDBusVariant>()) {
        value = value.value<QDBusVariant>().variant();
    }
    bool ok = false;
    const uint scheme = value.toUInt(&ok);
    return ok ? std::optional<uint>(scheme) : std::nullopt;
}

} // namespace

DesktopColorScheme::DesktopColorScheme(QObject *parent)
    : QObject(parent)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        return;
    }
    bus.connect(portalService,
        portalPath,
        settingsInterface,
        QStringLiteral("SettingChanged"),
        this,
        SLOT(settingChanged(QString, QString, QDBusVariant)));
    QDBusMessage read
        = QDBusMessage::createMethodCall(portalService, portalPath, settingsInterface, QStringLiteral("Read"));
    read << appearanceGroup << colorSchemeKey;
    // Asynchronous, so startup never waits for the portal (which may first have to be started).
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(read, 2000), this);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher *call) {
        const QDBusPendingReply<QDBusVariant> reply = *call;
        if (!reply.isError()) {
            if (const std::optional<uint> scheme = colorSchemeIn(QVariant::fromValue(reply.value()))) {
                Q_EMIT colorSchemeChanged(*scheme);
            }
        }
        call->deleteLater();
    });
}

void DesktopColorScheme::settingChanged(const QString &group, const QString &key, const QDBusVariant &value)
{
    if (group != appearanceGroup || key != colorSchemeKey) {
        return;
    }
    if (const std::optional<uint> scheme = colorSchemeIn(value.variant())) {
        Q_EMIT colorSchemeChanged(*scheme);
    }
}

} // namespace tallowick
