#include "ui/SshTunnelSection.h"

#include "ui/FormParts.h"
#include "ui/PathField.h"
#include "ui/RevealablePasswordField.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalBlocker>
#include <QVBoxLayout>
#include <array>

namespace tallowick
{

namespace
{

constexpr std::array<SshAuth, 3> authOrder { SshAuth::agent, SshAuth::keyFile, SshAuth::password };

QString authTitle(SshAuth auth)
{
    switch (auth) {
    case SshAuth::agent:
        return QStringLiteral("SSH agent");
    case SshAuth::keyFile:
        return QStringLiteral("Private key file");
    case SshAuth::password:
        return QStringLiteral("Password");
    }
    return {};
}

} // namespace

SshTunnelSection::SshTunnelSection(QWidget *parent)
    : QWidget(parent)
    , m_enabled(new QCheckBox(QStringLiteral("Connect through an SSH tunnel")))
    , m_fields(new QWidget)
    , m_form(new QFormLayout(m_fields))
    , m_host(new QLineEdit)
    , m_port(new QLineEdit)
    , m_user(new QLineEdit)
    , m_auth(new QComboBox)
    , m_keyRow(new QWidget)
    , m_keyFile(new PathField)
    , m_secret(new RevealablePasswordField)
    , m_verifyConflict(errorLabel(QStringLiteral("sshVerifyConflict")))
{
    auto *root = new QVBoxLayout(this);
    root->setContentsMargins(0, 0, 0, 0);
    root->setSpacing(8);
    auto *title = new QLabel(QStringLiteral("SSH tunnel"));
    QFont bold = title->font();
    bold.setBold(true);
    title->setFont(bold);
    root->addWidget(title);
    m_enabled->setObjectName(QStringLiteral("sshEnabled"));
    root->addWidget(m_enabled);

    m_form->setContentsMargins(0, 0, 0, 0);
    m_form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    m_form->setHorizontalSpacing(12);
    m_form->setVerticalSpacing(8);
    m_host->setPlaceholderText(QStringLiteral("bastion.example.com"));
    m_port->setPlaceholderText(QStringLiteral("Default 22"));
    for (const SshAuth auth : authOrder) {
        m_auth->addItem(authTitle(auth));
    }
    auto *choose = new QPushButton(QStringLiteral("Choose…"));
    choose->setObjectName(QStringLiteral("chooseKey"));
    QObject::connect(choose, &QPushButton::clicked, this, &SshTunnelSection::chooseKeyFile);
    m_keyFile->setPlaceholderText(QStringLiteral("~/.ssh/id_ed25519"));
    auto *keyLayout = new QHBoxLayout(m_keyRow);
    keyLayout->setContentsMargins(0, 0, 0, 0);
    keyLayout->setSpacing(6);
    keyLayout->addWidget(m_keyFile, 1);
    keyLayout->addWidget(choose);

    m_form->addRow(QStringLiteral("SSH host"), m_host);
    m_form->addRow(QStringLiteral("SSH port"), m_port);
    m_form->addRow(QStringLiteral("SSH username"), m_user);
    m_form->addRow(QStringLiteral("Log in with"), m_auth);
    m_form->addRow(QStringLiteral("Private key"), m_keyRow);
    m_form->addRow(QStringLiteral("Key passphrase"), m_secret);
    m_form->addRow(QString(),
        captionLabel(QStringLiteral("The database host and port above are reached from the SSH host. Host keys are "
                                    "checked against ~/.ssh/known_hosts.")));
    root->addWidget(m_fields);
    root->addWidget(m_verifyConflict);

    QObject::connect(m_enabled, &QCheckBox::toggled, this, [this](bool on) {
        m_fields->setVisible(on);
        showVerifyConflict(m_conflict);
        Q_EMIT enabledChanged(on);
    });
    QObject::connect(m_auth, &QComboBox::currentIndexChanged, this, &SshTunnelSection::showAuth);
    QObject::connect(m_secret, &RevealablePasswordField::textChanged, this, &SshTunnelSection::secretEdited);
    m_fields->setVisible(false);
    showAuth();
}

void SshTunnelSection::setTunnel(const std::optional<SshTunnelSettings> &tunnel)
{
    const SshTunnelSettings shown = tunnel.value_or(SshTunnelSettings {});
    m_host->setText(text(shown.host));
    m_port->setText(tunnel ? QString::number(shown.port) : QString());
    m_user->setText(text(shown.user));
    m_auth->setCurrentIndex(
        static_cast<int>(std::find(authOrder.begin(), authOrder.end(), shown.auth) - authOrder.begin()));
    m_keyFile->setText(text(shown.keyFile));
    m_enabled->setChecked(tunnel.has_value());
    m_fields->setVisible(tunnel.has_value());
    showAuth();
    showVerifyConflict(m_conflict);
}

std::optional<SshTunnelSettings> SshTunnelSection::tunnel() const
{
    if (!m_enabled->isChecked()) {
        return std::nullopt;
    }
    SshTunnelSettings tunnel;
    tunnel.host = m_host->text().trimmed().toStdString();
    const QString port = m_port->text().trimmed();
    if (!port.isEmpty()) {
        bool ok = false;
        const qlonglong number = port.toLongLong(&ok);
        tunnel.port = ok ? number : -1;
    }
    tunnel.user = m_user->text().toStdString();
    tunnel.auth = authOrder[static_cast<std::size_t>(std::max(m_auth->currentIndex(), 0))];
    if (tunnel.auth == SshAuth::keyFile) {
        QString path = m_keyFile->text().trimmed();
        if (path.startsWith(QStringLiteral("~/"))) {
            path = QDir::home().filePath(path.mid(2));
        }
        tunnel.keyFile = path.toStdString();
    }
    return tunnel;
}

QString SshTunnelSection::secret() const
{
    return m_secret->text();
}

void SshTunnelSection::setSecret(const QString &secret)
{
    const QSignalBlocker quiet(m_secret);
    m_secret->setText(secret);
}

bool SshTunnelSection::isKeyRowVisible() const
{
    return m_form->isRowVisible(m_keyRow);
}

bool SshTunnelSection::isSecretRowVisible() const
{
    return m_form->isRowVisible(m_secret);
}

void SshTunnelSection::showAuth()
{
    const SshAuth auth = authOrder[static_cast<std::size_t>(std::max(m_auth->currentIndex(), 0))];
    m_form->setRowVisible(m_keyRow, auth == SshAuth::keyFile);
    m_form->setRowVisible(m_secret, auth != SshAuth::agent);
    Q_EMIT rowsChanged();
    if (auto *label = qobject_cast<QLabel *>(m_form->labelForField(m_secret))) {
        label->setText(auth == SshAuth::password ? QStringLiteral("SSH password") : QStringLiteral("Key passphrase"));
    }
}

void SshTunnelSection::showVerifyConflict(bool conflict)
{
    m_conflict = conflict;
    showError(m_verifyConflict,
        conflict && m_enabled->isChecked() ? QStringLiteral(
            "Verify certificate cannot be used through an SSH tunnel: the MySQL client library would "
            "check the tunnel's local address instead of the server's name. Choose Require encryption.")
                                           : QString());
}

bool SshTunnelSection::isVerifyConflictShown() const
{
    return !m_verifyConflict->text().isEmpty();
}

void SshTunnelSection::chooseKeyFile()
{
    const QString current = m_keyFile->text();
    const QString path = QFileDialog::getOpenFileName(this,
        QStringLiteral("Choose SSH private key"),
        current.isEmpty() ? QDir::home().filePath(QStringLiteral(".ssh")) : QFileInfo(current).absolutePath(),
        QStringLiteral("All files (*)"));
    if (!path.isEmpty()) {
        m_keyFile->setText(path);
    }
}

} // namespace tallowick
