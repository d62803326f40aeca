#pragma once

#include "core/ConnectionProfile.h"
#include "core/SshTunnelSettings.h"

#include <QDialog>
#include <QPointer>

class QCheckBox;
class QComboBox;
class QFormLayout;
class QLabel;
class QLineEdit;
class QPushButton;

namespace tallowick
{

class AppStore;
class RevealablePasswordField;
class SshTunnelSection;

// The modal form that creates or edits a saved connection (with its SSH tunnel, when it has
// one), tests it against the server and saves it with its password and SSH secret. It edits a working copy; nothing
// reaches the store until "Save connection". Every failure lands in the sheet's own error line or test result line.
//
// Main thread only. The connection test runs on the global background pool; loading and saving
// the password run through the store's background work.
class ConnectionSheet final : public QDialog
{
    Q_OBJECT

public:
    ConnectionSheet(AppStore &store,
        const ConnectionProfile &profile,
        const std::optional<SshTunnelSettings> &tunnel = std::nullopt,
        QWidget *parent = nullptr);

    // The working copy as the fields describe it now. An empty port means the default 3306; a
    // port that is not a number becomes -1, so validation reports it instead of saving a 0.
    ConnectionProfile profile() const;

    QString title() const;
    QString errorText() const;
    QString testMessage() const;
    bool isTesting() const { return m_testing; }
    bool isSaving() const { return m_saving; }
    bool passwordUnavailable() const { return m_passwordUnavailable; }
    bool isCARowVisible() const;

    QLineEdit *nameField() const { return m_name; }
    QLineEdit *hostField() const { return m_host; }
    QLineEdit *portField() const { return m_port; }
    QLineEdit *userField() const { return m_user; }
    RevealablePasswordField *passwordField() const { return m_password; }
    QLineEdit *databaseField() const { return m_database; }
    QComboBox *tlsPicker() const { return m_tls; }
    QLabel *tlsHelp() const { return m_tlsHelp; }
    QLineEdit *caPathField() const { return m_caPath; }
    QCheckBox *readOnlyToggle() const { return m_readOnly; }
    SshTunnelSection *tunnelSection() const { return m_tunnel; }
    QComboBox *colorPicker() const { return m_color; }
    QPushButton *testButton() const { return m_test; }
    QPushButton *cancelButton() const { return m_cancel; }
    QPushButton *saveButton() const { return m_save; }

    void testConnection();
    void saveConnection();

public Q_SLOTS:
    void reject() override;

protected:
    void showEvent(QShowEvent *event) override;

Q_SIGNALS:
    void testingChanged(bool testing);
    void errorTextChanged(const QString &text);
    // A saved profile's stored password arrived (or could not be read) after opening; likewise
    // the SSH secret. A new profile loads neither.
    void passwordLoaded();
    void sshSecretLoaded();

private:
    void buildForm();
    void fitContents();
    void refit();
    void loadPassword();
    void loadSshSecret();
    void showTLSMode();
    void chooseCAFile();
    void finishTest(const QString &message);
    void finishSave(const std::optional<std::string> &error);
    void setErrorText(const QString &text);
    void setTesting(bool testing);
    // Until the saved password has arrived, an untouched password field is not the password:
    // saving it would delete the stored one, and a test would try an empty one.
    bool awaitingPassword() const
    {
        return (m_passwordLoading && !m_passwordEdited) || (m_sshSecretLoading && !m_sshSecretEdited);
    }
    void refreshButtons();

    QPointer<AppStore> m_store;
    // Fields without an input of their own (the id, and the CA path while it is hidden) live
    // here; the rest is read from the inputs.
    ConnectionProfile m_profile;
    const bool m_isNew;
    bool m_testing = false;
    bool m_saving = false;
    bool m_passwordUnavailable = false;
    bool m_passwordEdited = false;
    bool m_passwordLoading = false;
    bool m_sshSecretEdited = false;
    bool m_sshSecretLoading = false;

    QLabel *m_title;
    QFormLayout *m_form;
    QLineEdit *m_name;
    QLineEdit *m_host;
    QLineEdit *m_port;
    QLineEdit *m_user;
    RevealablePasswordField *m_password;
    QLineEdit *m_database;
    QComboBox *m_tls;
    QLabel *m_tlsHelp;
    QWidget *m_caRow;
    QLineEdit *m_caPath;
    QCheckBox *m_readOnly;
    SshTunnelSection *m_tunnel;
    QComboBox *m_color;
    QLabel *m_error;
    QLabel *m_testMessage;
    QPushButton *m_test;
    QPushButton *m_cancel;
    QPushButton *m_save;
};

} // namespace tallowick
