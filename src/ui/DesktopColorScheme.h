#pragma once

#include <QDBusVariant>
#include <QObject>

namespace tallowick
{

// The desktop's colour-scheme setting, read from the freedesktop settings portal on the session
// bus and followed as it changes. Asks without waiting: the answer arrives as a signal, and
// nothing arrives when there is no bus or no portal. Main thread only.
class DesktopColorScheme final : public QObject
{
    Q_OBJECT

public:
    explicit DesktopColorScheme(QObject *parent = nullptr);

Q_SIGNALS:
    // The portal's color-scheme value: 0 no preference, 1 prefers dark, 2 prefers light.
    void colorSchemeChanged(uint value);

private Q_SLOTS:
    void settingChanged(const QString &group, const QString &key, const QDBusVariant &value);
};

} // namespace tallowick
