#include "ui/ConnectionSheet.h"

#include "core/AppError.h"
#include "session/ProfileTest.h"
#include "store/AppStore.h"
#include "ui/FormParts.h"
#include "ui/PathField.h"
#include "ui/ProfileColors.h"
#include "ui/RevealablePasswordField.h"
#include "ui/SshTunnelSection.h"
#include "ui/Symbols.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QPixmap>
#include <QPushButton>
#include <QSignalBlocker>
#include <QTimer>
#include <QVBoxLayout>
#include <algorithm>

namespace tallowick
{

namespace
{

QString tlsHelpText(TLSMode mode)
{
    switch (mode) {
    case TLSMode::verify:
        return QStringLiteral(
            "Uses the system CA bundle when no custom CA is selected. Hostname verification is enabled.");
    case TLSMode::require:
        return QStringLiteral("Encrypts traffic without verifying the server certificate.");
    case TLSMode::disabled:
        return QStringLiteral("Traffic is unencrypted. Choose Verify certificate for a server that supports TLS.");
    }
    return {};
}

QIcon colorSwatch(const QColor &color)
{
    QPixmap swatch(12, 12);
    swatch.fill(Qt::transparent);
    QPainter painter(&swatch);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(color);
    painter.drawEllipse(QRectF(0.5, 0.5, 11, 11));
    return QIcon(swatch);
}

} // namespace

ConnectionSheet::ConnectionSheet(
    AppStore &store, const ConnectionProfile &profile, const std::optional<SshTunnelSettings> &tunnel, QWidget *parent)
    : QDialog(parent)
    , m_store(&store)
    , m_profile(profile)
    , m_isNew(std::none_of(store.profiles().begin(),
          store.profiles().end(),
          [&profile](const ConnectionProfile &saved) { return saved.id == profile.id; }))
    , m_title(titleLabel({}))
    , m_form(new QFormLayout)
    , m_name(new QLineEdit)
    , m_host(new QLineEdit)
    , m_port(new QLineEdit)
    , m_user(new QLineEdit)
    , m_password(new RevealablePasswordField)
    , m_database(new QLineEdit)
    , m_tls(new QComboBox)
    , m_tlsHelp(captionLabel({}))
    , m_caRow(new QWidget)
    , m_caPath(new PathField)
    , m_readOnly(new QCheckBox(QStringLiteral("Open this connection in read-only mode")))
    , m_tunnel(new SshTunnelSection)
    , m_color(new QComboBox)
    , m_error(errorLabel(QStringLiteral("sheetError")))
    , m_testMessage(new QLabel)
    , m_test(new QPushButton(QStringLiteral("Test connection")))
    , m_cancel(new QPushButton(QStringLiteral("Cancel")))
    , m_save(new QPushButton(QStringLiteral("Save connection")))
{
    setModal(true);
    setWindowTitle(title());
    setMinimumWidth(520);
    buildForm();

    m_name->setText(QString::fromStdString(profile.name));
    m_host->setText(QString::fromStdString(profile.host));
    m_port->setText(QString::number(profile.port));
    m_user->setText(QString::fromStdString(profile.user));
    m_database->setText(QString::fromStdString(profile.database));
    m_tls->setCurrentIndex(
        static_cast<int>(std::find(allTLSModes.begin(), allTLSModes.end(), profile.tls) - allTLSModes.begin()));
    m_caPath->setText(QString::fromStdString(profile.caPath));
    m_readOnly->setChecked(profile.readOnly);
    m_tunnel->setTunnel(tunnel);
    const QString color = QString::fromStdString(profile.color);
    if (m_color->findData(color) < 0) {
        // A name this build does not know is kept as it is rather than silently replaced.
        m_color->addItem(colorSwatch(profileColor(profile.color)), color, color);
    }
    m_color->setCurrentIndex(m_color->findData(color));

    QObject::connect(m_tls, &QComboBox::currentIndexChanged, this, &ConnectionSheet::showTLSMode);
    QObject::connect(m_password, &RevealablePasswordField::textChanged, this, [this] {
        m_passwordEdited = true;
        refreshButtons();
    });
    QObject::connect(m_tunnel, &SshTunnelSection::secretEdited, this, [this] {
        m_sshSecretEdited = true;
        refreshButtons();
    });
    QObject::connect(m_tunnel, &SshTunnelSection::enabledChanged, this, &ConnectionSheet::showTLSMode);
    QObject::connect(m_tunnel, &SshTunnelSection::rowsChanged, this, &ConnectionSheet::refit);
    QObject::connect(m_test, &QPushButton::clicked, this, &ConnectionSheet::testConnection);
    QObject::connect(m_cancel, &QPushButton::clicked, this, &ConnectionSheet::reject);
    QObject::connect(m_save, &QPushButton::clicked, this, &ConnectionSheet::saveConnection);
    showTLSMode();
    m_name->setFocus(Qt::OtherFocusReason);
    // A profile that was never saved has no secrets in the keyring (a duplicate's stay with the
    // original), so there is nothing to wait for, and no keyring error to show for them.
    if (!m_isNew) {
        loadPassword();
        if (tunnel && tunnel->auth != SshAuth::agent) {
            loadSshSecret();
        }
    }
}

void ConnectionSheet::buildForm()
{
    auto *root = new QVBoxLayout(this);
    root->setContentsMargins(24, 22, 24, 20);
    root->setSpacing(14);

    auto *symbol = new QLabel;
    showSymbol(symbol, Symbol::server, 34);
    m_title->setText(title());
    m_title->setObjectName(QStringLiteral("sheetTitle"));
    auto *headerTexts = new QVBoxLayout;
    headerTexts->setSpacing(2);
    headerTexts->addWidget(m_title);
    headerTexts->addWidget(captionLabel(QStringLiteral("Connect directly to a MySQL or MariaDB server.")));
    auto *header = new QHBoxLayout;
    header->setSpacing(12);
    header->addWidget(symbol, 0, Qt::AlignTop);
    header->addLayout(headerTexts, 1);
    root->addLayout(header);

    m_form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    m_form->setHorizontalSpacing(12);
    m_form->setVerticalSpacing(8);
    m_port->setPlaceholderText(QStringLiteral("Default 3306"));
    m_form->addRow(QStringLiteral("Connection name"), m_name);
    m_form->addRow(QStringLiteral("Hostname / IP"), m_host);
    m_form->addRow(QStringLiteral("Port"), m_port);
    m_form->addRow(QStringLiteral("Username"), m_user);
    m_form->addRow(QStringLiteral("Password"), m_password);
    m_form->addRow(QStringLiteral("Default database (optional)"), m_database);

    for (const TLSMode mode : allTLSModes) {
        m_tls->addItem(QString::fromUtf8(displayName(mode).data(), static_cast<qsizetype>(displayName(mode).size())));
    }
    auto *tls = new QWidget;
    auto *tlsLayout = new QVBoxLayout(tls);
    tlsLayout->setContentsMargins(0, 0, 0, 0);
    tlsLayout->setSpacing(4);
    tlsLayout->addWidget(m_tls);
    tlsLayout->addWidget(m_tlsHelp);
    m_form->addRow(QStringLiteral("TLS security"), tls);

    auto *choose = new QPushButton(QStringLiteral("Choose…"));
    choose->setObjectName(QStringLiteral("chooseCA"));
    QObject::connect(choose, &QPushButton::clicked, this, &ConnectionSheet::chooseCAFile);
    m_caPath->setPlaceholderText(QStringLiteral("None selected"));
    auto *caLayout = new QHBoxLayout(m_caRow);
    caLayout->setContentsMargins(0, 0, 0, 0);
    caLayout->setSpacing(6);
    caLayout->addWidget(m_caPath, 1);
    caLayout->addWidget(choose);
    m_form->addRow(QStringLiteral("CA certificate (optional)"), m_caRow);

    for (const QString &name : profileColorNames()) {
        m_color->addItem(colorSwatch(profileColor(name.toStdString())), name, name);
    }
    m_form->addRow(QStringLiteral("Colour"), m_color);
    m_form->addRow(QString(), m_readOnly);
    root->addLayout(m_form);
    root->addWidget(m_tunnel);

    auto *key = new QLabel;
    showSymbol(key, Symbol::key, 14);
    auto *note = new QHBoxLayout;
    note->setSpacing(6);
    note->addWidget(key);
    note->addWidget(captionLabel(QStringLiteral("Passwords are stored in your system keyring.")), 1);
    root->addLayout(note);

    m_testMessage->setObjectName(QStringLiteral("testMessage"));
    m_testMessage->setWordWrap(true);
    m_testMessage->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_testMessage->hide();
    root->addWidget(m_error);
    root->addWidget(m_testMessage);
    root->addStretch(1);

    m_save->setDefault(true);
    m_test->setAutoDefault(false);
    m_cancel->setAutoDefault(false);
    auto *buttons = new QHBoxLayout;
    buttons->setSpacing(8);
    buttons->addWidget(m_test);
    buttons->addStretch(1);
    buttons->addWidget(m_cancel);
    buttons->addWidget(m_save);
    root->addLayout(buttons);
}

ConnectionProfile ConnectionSheet::profile() const
{
    ConnectionProfile current = m_profile;
    current.name = m_name->text().toStdString();
    current.host = m_host->text().toStdString();
    const QString port = m_port->text().trimmed();
    if (port.isEmpty()) {
        current.port = 3306;
    } else {
        bool ok = false;
        const qlonglong number = port.toLongLong(&ok);
        current.port = ok ? number : -1;
    }
    current.user = m_user->text().toStdString();
    current.database = m_database->text().toStdString();
    current.tls = allTLSModes[static_cast<std::size_t>(std::max(m_tls->currentIndex(), 0))];
    current.caPath = m_caPath->text().toStdString();
    current.readOnly = m_readOnly->isChecked();
    current.color = m_color->currentData().toString().toStdString();
    return current;
}

QString ConnectionSheet::title() const
{
    return m_isNew ? QStringLiteral("New connection") : QStringLiteral("Connection settings");
}

QString ConnectionSheet::errorText() const
{
    return m_error->text();
}

QString ConnectionSheet::testMessage() const
{
    return m_testMessage->text();
}

bool ConnectionSheet::isCARowVisible() const
{
    return m_form->isRowVisible(m_caRow);
}

void ConnectionSheet::fitContents()
{
    // The minimum a layout reports leaves wrapped captions one line high; at the sheet's width
    // they need more, and the sheet grows (or shrinks back) to exactly that.
    layout()->activate();
    const int needed = layout()->totalHeightForWidth(width());
    setMinimumHeight(needed);
    resize(width(), needed);
}

void ConnectionSheet::showEvent(QShowEvent *event)
{
    QDialog::showEvent(event);
    // The tunnel's fields line up with the connection's: one label column for both forms.
    QList<QWidget *> labels;
    for (const QFormLayout *form : { m_form, m_tunnel->form() }) {
        for (int row = 0; row < form->rowCount(); ++row) {
            if (QLayoutItem *label = form->itemAt(row, QFormLayout::LabelRole); label && label->widget()) {
                labels << label->widget();
            }
        }
    }
    int widest = 0;
    for (const QWidget *label : labels) {
        widest = std::max(widest, label->sizeHint().width());
    }
    for (QWidget *label : labels) {
        label->setMinimumWidth(widest);
    }
    fitContents();
}

void ConnectionSheet::loadPassword()
{
    m_passwordLoading = true;
    refreshButtons();
    const QPointer<ConnectionSheet> self(this);
    m_store->loadPassword(
        m_profile.id, [self](const std::optional<std::string> &password, const std::optional<std::string> &error) {
            if (!self) {
                return;
            }
            self->m_passwordLoading = false;
            self->refreshButtons();
            if (error) {
                // The user may type the password again; saving stores the new one.
                self->m_passwordUnavailable = true;
                self->setErrorText(QString::fromStdString(*error));
            } else if (!self->m_passwordEdited) {
                // Not counted as an edit, and never over what the user typed meanwhile.
                const QSignalBlocker quiet(self->m_password);
                self->m_password->setText(QString::fromStdString(password.value_or(std::string())));
            }
            Q_EMIT self->passwordLoaded();
        });
}

void ConnectionSheet::loadSshSecret()
{
    m_sshSecretLoading = true;
    refreshButtons();
    const QPointer<ConnectionSheet> self(this);
    m_store->loadPassword(sshSecretID(m_profile.id),
        [self](const std::optional<std::string> &secret, const std::optional<std::string> &error) {
            if (!self) {
                return;
            }
            self->m_sshSecretLoading = false;
            self->refreshButtons();
            // Without the keyring the person types the passphrase again; the password's own
            // message already says the keyring is unavailable.
            if (!error && !self->m_sshSecretEdited) {
                self->m_tunnel->setSecret(QString::fromStdString(secret.value_or(std::string())));
            }
            Q_EMIT self->sshSecretLoaded();
        });
}

void ConnectionSheet::showTLSMode()
{
    const TLSMode mode = profile().tls;
    m_tunnel->showVerifyConflict(mode == TLSMode::verify);
    m_tlsHelp->setText(tlsHelpText(mode));
    // Hiding the row keeps the path in its field, so switching back to verify finds it again.
    m_form->setRowVisible(m_caRow, mode == TLSMode::verify);
    refit();
}

void ConnectionSheet::chooseCAFile()
{
    const QString current = m_caPath->text();
    const QString path = QFileDialog::getOpenFileName(this,
        QStringLiteral("Choose CA certificate"),
        current.isEmpty() ? QString() : QFileInfo(current).absolutePath(),
        QStringLiteral("Certificates (*.pem *.crt *.cer);;All files (*)"));
    if (!path.isEmpty()) {
        m_caPath->setText(path);
    }
}

void ConnectionSheet::testConnection()
{
    if (m_testing || awaitingPassword()) {
        return;
    }
    const ConnectionProfile candidate = profile();
    const std::optional<SshTunnelSettings> tunnel = m_tunnel->tunnel();
    try {
        candidate.validate();
        if (tunnel) {
            tunnel->validate();
        }
    } catch (const AppError &failure) {
        setErrorText(QString::fromStdString(failure.message()));
        return;
    }
    if (!m_passwordUnavailable) {
        setErrorText({});
    }
    setTesting(true);
    m_testMessage->setText(QStringLiteral("Testing connection…"));
    m_testMessage->show();

    testProfile(candidate,
        m_password->text().toStdString(),
        tunnel,
        m_tunnel->secret().toStdString(),
        this,
        [this](const std::string &result) { finishTest(QString::fromStdString(result)); });
}

void ConnectionSheet::finishTest(const QString &message)
{
    m_testMessage->setText(message);
    m_testMessage->setVisible(!message.isEmpty());
    refit();
    setTesting(false);
}

void ConnectionSheet::saveConnection()
{
    if (m_saving || !m_store || awaitingPassword()) {
        return;
    }
    m_saving = true;
    refreshButtons();
    const QPointer<ConnectionSheet> self(this);
    m_store->save(profile(),
        m_password->text().toStdString(),
        m_tunnel->tunnel(),
        m_tunnel->secret().toStdString(),
        [self](const std::optional<std::string> &error) {
            if (self) {
                self->finishSave(error);
            }
        });
}

void ConnectionSheet::finishSave(const std::optional<std::string> &error)
{
    m_saving = false;
    refreshButtons();
    if (error) {
        setErrorText(QString::fromStdString(*error));
        return;
    }
    // Whoever shows the sheet may delete it once it is finished or the store closes it, so
    // nothing of `this` is touched after accept().
    const QPointer<AppStore> store = m_store;
    const QUuid id = m_profile.id;
    if (store) {
        store->setSelected(id);
    }
    accept();
    if (store) {
        store->closeConnectionSheet();
    }
}

void ConnectionSheet::reject()
{
    const QPointer<AppStore> store = m_store;
    QDialog::reject();
    if (store) {
        store->closeConnectionSheet();
    }
}

void ConnectionSheet::refit()
{
    if (isVisible()) {
        // After the layouts have taken in what changed.
        QTimer::singleShot(0, this, &ConnectionSheet::fitContents);
    }
}

void ConnectionSheet::setErrorText(const QString &text)
{
    if (m_error->text() == text) {
        return;
    }
    showError(m_error, text);
    refit();
    Q_EMIT errorTextChanged(text);
}

void ConnectionSheet::refreshButtons()
{
    m_save->setEnabled(!m_saving && !awaitingPassword());
    m_test->setEnabled(!m_testing && !awaitingPassword());
}

void ConnectionSheet::setTesting(bool testing)
{
    if (m_testing == testing) {
        return;
    }
    m_testing = testing;
    refreshButtons();
    Q_EMIT testingChanged(testing);
}

} // namespace tallowick
