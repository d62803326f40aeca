#pragma once

#include "core/SshTunnelSettings.h"

#include <QWidget>
#include <optional>

class QCheckBox;
class QComboBox;
class QFormLayout;
class QLabel;
class QLineEdit;

namespace tallowick
{

class RevealablePasswordField;

// The connection sheet's "SSH tunnel" section: off by default; when on, the SSH host, port, user
// and the way of logging in, with the key file or the secret field that way needs. The secret (a
// key's passphrase or the password) is the sheet's to load and save through the keyring.
class SshTunnelSection final : public QWidget
{
    Q_OBJECT

public:
    explicit SshTunnelSection(QWidget *parent = nullptr);

    void setTunnel(const std::optional<SshTunnelSettings> &tunnel);
    // No value while the section is off. An empty port means 22; one that is not a number
    // becomes -1, so validation reports it.
    std::optional<SshTunnelSettings> tunnel() const;

    QString secret() const;
    void setSecret(const QString &secret); // not counted as an edit

    QCheckBox *enabledToggle() const { return m_enabled; }
    QLineEdit *hostField() const { return m_host; }
    QLineEdit *portField() const { return m_port; }
    QLineEdit *userField() const { return m_user; }
    QComboBox *authPicker() const { return m_auth; }
    QLineEdit *keyFileField() const { return m_keyFile; }
    RevealablePasswordField *secretField() const { return m_secret; }
    QFormLayout *form() const { return m_form; }
    bool isKeyRowVisible() const;
    bool isSecretRowVisible() const;
    // Says, while the tunnel is on, that certificate verification cannot go through it.
    void showVerifyConflict(bool conflict);
    bool isVerifyConflictShown() const;

Q_SIGNALS:
    void enabledChanged(bool enabled);
    // Rows appeared or went: the sheet fits itself to them.
    void rowsChanged();
    void secretEdited();

private:
    void showAuth();
    void chooseKeyFile();

    QCheckBox *m_enabled;
    QWidget *m_fields;
    QFormLayout *m_form;
    QLineEdit *m_host;
    QLineEdit *m_port;
    QLineEdit *m_user;
    QComboBox *m_auth;
    QWidget *m_keyRow;
    QLineEdit *m_keyFile;
    RevealablePasswordField *m_secret;
    QLabel *m_verifyConflict;
    bool m_conflict = false;
};

} // namespace tallowick
