#include "client/ClientThreadScope.h"
#include "client/MySQLConnection.h"
#include "core/UuidText.h"
#include "store/AppStore.h"
#include "support/SessionHarness.h"
#include "ui/ConnectionSheet.h"
#include "ui/PathField.h"
#include "ui/RevealablePasswordField.h"
#include "ui/SshTunnelSection.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThreadPool>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>
#include <functional>

using namespace tallowick;
using namespace tallowick::test;

constexpr int timeout = 30000;

// A store in a folder of its own over the fake keyring, and the disposable server.
struct SheetFixture {
    SessionHarness harness;
    QTemporaryDir folder;
    std::unique_ptr<AppStore> store = started();

    // Keyring reads and connection tests still running must not outlive the keyring.
    ~SheetFixture() { QThreadPool::globalInstance()->waitForDone(); }

    // Opens the sheet; for a saved profile with `loaded`, waits until its stored password has
    // arrived. A new profile has none to wait for.
    std::unique_ptr<ConnectionSheet> open(const ConnectionProfile &profile, bool loaded = true)
    {
        const bool saved = std::ranges::any_of(
            store->profiles(), [&profile](const ConnectionProfile &each) { return each.id == profile.id; });
        store->openConnectionSheet(profile);
        auto sheet = std::make_unique<ConnectionSheet>(*store, profile);
        sheet->show();
        QSignalSpy arrived(sheet.get(), &ConnectionSheet::passwordLoaded);
        return !saved || !loaded || arrived.wait(timeout) ? std::move(sheet) : nullptr;
    }

    // The store as a run of the program starts it: the profiles read from the folder, and no
    // password remembered yet.
    std::unique_ptr<AppStore> started()
    {
        return std::make_unique<AppStore>(folder.path().toStdString(),
            std::make_shared<Keychain>(harness.secretStore, std::make_shared<CredentialMemoryCache>()),
            harness.prompts);
    }

    // Saves a profile with the server's password in an earlier run: the next one finds the
    // profile on file and its password only in the keyring.
    bool savedEarlier(const ConnectionProfile &profile)
    {
        std::optional<std::optional<std::string>> outcome;
        store->save(profile, harness.server.password, [&outcome](const auto &error) { outcome = error; });
        if (!QTest::qWaitFor([&outcome] { return outcome.has_value(); }, timeout) || *outcome) {
            return false;
        }
        store = started();
        return true;
    }
};

// Clicks Save and waits for the sheet to close (true) or to show an error (false).
static bool save(ConnectionSheet &sheet)
{
    QSignalSpy accepted(&sheet, &QDialog::accepted);
    QSignalSpy errors(&sheet, &ConnectionSheet::errorTextChanged);
    sheet.saveButton()->click();
    return QTest::qWaitFor([&] { return !accepted.empty() || !errors.empty(); }, timeout) && !accepted.empty();
}

// What the sheet's layout cuts off, one line per piece: a visible widget reaching past the
// sheet's edges, a wrapped label given fewer lines than its text needs, the TLS picker squeezed.
static QStringList clippedParts(const ConnectionSheet &sheet)
{
    QStringList clipped;
    for (const QWidget *part : sheet.findChildren<QWidget *>()) {
        if (!part->isVisible() || part->isWindow()) {
            continue;
        }
        const QRect place(part->mapTo(&sheet, QPoint(0, 0)), part->size());
        const auto *label = qobject_cast<const QLabel *>(part);
        const QString name
            = QStringLiteral("%1 \"%2\" at %3,%4 %5x%6")
                  .arg(QString::fromLatin1(part->metaObject()->className()), label ? label->text() : part->objectName())
                  .arg(place.x())
                  .arg(place.y())
                  .arg(place.width())
                  .arg(place.height());
        if (!sheet.rect().contains(place)) {
            clipped << name + QStringLiteral(" outside the sheet");
        }
        if (label && label->wordWrap() && label->height() < label->heightForWidth(label->width())) {
            clipped << name + QStringLiteral(" needs %1 px").arg(label->heightForWidth(label->width()));
        }
    }
    if (sheet.tlsPicker()->height() < sheet.tlsPicker()->minimumSizeHint().height()) {
        clipped << QStringLiteral("the TLS picker is squeezed");
    }
    return clipped;
}

// The connection sheet over a real store, a fake keyring and the disposable server, and its
// password field.
class TestConnectionSheet final : public QObject
{
    Q_OBJECT

    ClientThreadScope m_clientThread; // the expected texts are read over a connection of the test's own

private Q_SLOTS:
    // One text behind the masked and the plain field, and keyboard focus that follows the shown
    // one unless it was elsewhere: first in the field, then on its button, then in a neighbour.
    void passwordFieldKeepsTextAndFocus()
    {
        for (int focused = 0; focused < 3; ++focused) {
            QWidget window;
            auto *field = new RevealablePasswordField;
            auto *neighbour = new QLineEdit;
            (new QVBoxLayout(&window))->addWidget(field);
            window.layout()->addWidget(neighbour);
            window.show();
            QVERIFY(QTest::qWaitForWindowActive(&window));
            field->setText(QStringLiteral("s3cr€t"));
            QList<QWidget *> { field, field->toggleButton(), neighbour }.at(focused)->setFocus();
            for (const bool revealed : { true, false }) {
                field->toggleButton()->click();
                QLineEdit *shown = revealed ? field->plainField() : field->maskedField();
                QVERIFY(shown->isVisible() && !(revealed ? field->maskedField() : field->plainField())->isVisible());
                QCOMPARE(shown->text(), QStringLiteral("s3cr€t"));
                QCOMPARE(QApplication::focusWidget(), focused == 2 ? neighbour : shown);
            }
            // Typing goes on in whichever field shows, as one text announced once per keystroke.
            QSignalSpy changes(field, &RevealablePasswordField::textChanged);
            QTest::keyClicks(field->maskedField(), QStringLiteral("a"));
            field->setRevealed(true);
            QTest::keyClicks(field->plainField(), QStringLiteral("b"));
            QCOMPARE(field->text(), QStringLiteral("s3cr€tab"));
            field->setText(QStringLiteral("s3cr€tab")); // the same text again: nothing to announce
            QCOMPARE(changes.count(), 2);
        }
    }

    // A test tries the form as typed and never saves; one the profile refuses is not made. Saving
    // then stores every field, and a keyring failure keeps the sheet open to save again.
    void testThenSave()
    {
        SheetFixture fixture;
        ConnectionProfile profile = fixture.harness.profile("Tested");
        const auto sheet = fixture.open(profile);
        QVERIFY(sheet);
        const auto result = [&sheet] {
            sheet->testButton()->click();
            return sheet->isTesting() && QTest::qWaitFor([&sheet] { return !sheet->isTesting(); }, timeout)
                ? sheet->testMessage()
                : QStringLiteral("(not tested)");
        };
        const std::string version = fixture.harness.server.connect(profile)->version();
        // The password as typed, right or wrong.
        sheet->passwordField()->setText(QString::fromStdString(fixture.harness.server.password));
        QCOMPARE(result(), QString::fromStdString("Connected · MySQL " + version + " · unencrypted TCP"));
        sheet->passwordField()->setText(QStringLiteral("wrong"));
        QVERIFY2(result().startsWith(QStringLiteral("MySQL 1045: ")), qPrintable(sheet->testMessage()));
        profile.tls = TLSMode::verify;
        profile.caPath = fixture.harness.server.caPath;
        const std::string cipher = fixture.harness.server.connect(profile)->cipher();
        sheet->passwordField()->setText(QString::fromStdString(fixture.harness.server.password));
        sheet->tlsPicker()->setCurrentText(QStringLiteral("Verify certificate"));
        sheet->caPathField()->setText(QString::fromStdString(profile.caPath));
        QCOMPARE(result(), QString::fromStdString("Connected · MySQL " + version + " · " + cipher));
        sheet->portField()->setText(QStringLiteral("33o6"));
        QCOMPARE(result(), QStringLiteral("(not tested)"));
        QCOMPARE(sheet->errorText(), QStringLiteral("The port must be between 1 and 65535."));
        QVERIFY(fixture.store->profiles().empty() && fixture.harness.secrets.writes == 0);

        profile.name = "Staging";
        profile.host = "db.staging.test";
        profile.port = 3306; // what an empty field means
        profile.user = "deploy";
        profile.database = "shop";
        for (const auto &[field, text] : { std::pair(sheet->nameField(), profile.name),
                 { sheet->hostField(), profile.host },
                 { sheet->portField(), std::string() },
                 { sheet->userField(), profile.user },
                 { sheet->databaseField(), profile.database } }) {
            field->setText(QString::fromStdString(text));
        }
        sheet->passwordField()->setText(QStringLiteral("p@ss word"));
        // Leaving Verify hides the CA row but keeps its path for later.
        QVERIFY(sheet->isCARowVisible());
        sheet->tlsPicker()->setCurrentText(QStringLiteral("Require encryption"));
        profile.tls = TLSMode::require;
        QVERIFY(!sheet->isCARowVisible());
        sheet->readOnlyToggle()->setChecked(profile.readOnly = true);
        sheet->colorPicker()->setCurrentText(QString::fromStdString(profile.color = "teal"));
        fixture.harness.secrets.nextFailure = SecretOutcome::failed(3, "Keyring locked");
        QVERIFY(!save(*sheet));
        QCOMPARE(sheet->errorText(), QStringLiteral("The keyring could not save the password (3)."));
        QVERIFY(save(*sheet));
        QCOMPARE(fixture.store->profiles(), std::vector<ConnectionProfile> { profile });
        QCOMPARE(fixture.harness.secrets.items[uuidText(profile.id)], std::string("p@ss word"));
        QCOMPARE(fixture.store->selected(), std::optional<QUuid>(profile.id));
    }

    void tunnelSection();

    // A CA path too long for its field shows its start and its file name, the whole of it in the
    // tool tip and while it is edited; the profile always gets the whole path.
    void longCAPathShowsItsEnds()
    {
        SheetFixture fixture;
        const auto sheet = fixture.open(fixture.harness.profile("Long path"));
        sheet->tlsPicker()->setCurrentText(QStringLiteral("Verify certificate"));
        QVERIFY(QTest::qWaitForWindowExposed(sheet.get()));
        auto *field = qobject_cast<PathField *>(sheet->caPathField());
        QVERIFY(field);
        const QString path = QStringLiteral("/home/ann/projects/%1/tls/ca.pem").arg(QString(60, u'x'));
        field->setText(path);
        QVERIFY2(field->shownText().startsWith(QStringLiteral("/home/"))
                && field->shownText().endsWith(QStringLiteral("x/tls/ca.pem"))
                && field->shownText().contains(QChar(0x2026)),
            qPrintable(field->shownText()));
        QCOMPARE(field->toolTip(), path);
        field->setFocus();
        QCOMPARE(field->shownText(), path);
        QCOMPARE(sheet->profile().caPath, path.toStdString());
        field->setText(QStringLiteral("/etc/ca.pem")); // short enough: shown as it is
        sheet->nameField()->setFocus();
        QCOMPARE(field->shownText(), QStringLiteral("/etc/ca.pem"));
    }

    // The sheet grows and shrinks with what it shows, so nothing is ever cut off: a wrapping
    // TLS help and the CA row, an error, the tunnel's rows.
    void sheetFitsWhatItShows()
    {
        SheetFixture fixture;
        const auto sheet = fixture.open(fixture.harness.profile("Fitted"));
        QVERIFY(sheet && QTest::qWaitForWindowExposed(sheet.get()));
        const QList<std::pair<QString, std::function<void()>>> steps {
            { QStringLiteral("opened"), [] {} },
            { QStringLiteral("Verify certificate"),
                [&sheet] { sheet->tlsPicker()->setCurrentText(QStringLiteral("Verify certificate")); } },
            { QStringLiteral("an error"),
                [&sheet] {
                    sheet->portField()->setText(QStringLiteral("33o6"));
                    sheet->testButton()->click();
                } },
            { QStringLiteral("the SSH tunnel"),
                [&sheet] {
                    sheet->tunnelSection()->enabledToggle()->setChecked(true);
                    sheet->tunnelSection()->authPicker()->setCurrentText(QStringLiteral("Private key file"));
                } },
        };
        for (const auto &[step, act] : steps) {
            act();
            QTest::qWait(50);
            QVERIFY2(clippedParts(*sheet).isEmpty(), qPrintable(step + u'\n' + clippedParts(*sheet).join(u'\n')));
        }
        QVERIFY(sheet->isCARowVisible() && !sheet->errorText().isEmpty());
        QVERIFY(sheet->tunnelSection()->hostField()->isVisible() && sheet->tunnelSection()->isVerifyConflictShown());
        // The secret fields end where the others do, their reveal buttons inside them.
        const auto rightEdge
            = [&sheet](const QWidget *field) { return field->mapTo(sheet.get(), field->rect().topRight()).x(); };
        for (const RevealablePasswordField *field : { sheet->passwordField(), sheet->tunnelSection()->secretField() }) {
            QVERIFY(field->maskedField()->isVisible());
            QCOMPARE(rightEdge(field->maskedField()), rightEdge(sheet->nameField()));
            QVERIFY(field->maskedField()->geometry().contains(field->toggleButton()->geometry()));
        }
    }

    // Until a saved profile's password arrives, saving the untouched field would delete it, and a
    // test would try an empty one; what the user types meanwhile is never overwritten.
    void storedPasswordArrivesAfterOpening_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<bool>("keyringFails");
        QTest::newRow("untouched") << QString() << false;
        QTest::newRow("typed before it arrives") << QStringLiteral("typed first") << false;
        QTest::newRow("keyring locked") << QString() << true;
    }

    void storedPasswordArrivesAfterOpening()
    {
        QFETCH(QString, typed);
        QFETCH(bool, keyringFails);
        SheetFixture fixture;
        const ConnectionProfile profile = fixture.harness.profile("Loaded");
        QVERIFY(fixture.savedEarlier(profile));
        fixture.harness.secrets.nextFailure
            = keyringFails ? std::optional(SecretOutcome::failed(3, "Keyring locked")) : std::nullopt;
        const auto sheet = fixture.open(profile, false);
        QSignalSpy loaded(sheet.get(), &ConnectionSheet::passwordLoaded);
        QVERIFY(!sheet->saveButton()->isEnabled() && !sheet->testButton()->isEnabled());
        if (!typed.isEmpty()) {
            sheet->passwordField()->setText(typed);
            QVERIFY(sheet->saveButton()->isEnabled() && sheet->testButton()->isEnabled());
        }
        QVERIFY(loaded.wait(timeout));
        QCOMPARE(sheet->errorText().startsWith("Could not access the saved password: Keyring locked."), keyringFails);
        const QString stored = QString::fromStdString(fixture.harness.server.password);
        QCOMPARE(sheet->passwordField()->text(), keyringFails ? QString() : typed.isEmpty() ? stored : typed);
        // After a failure the user types the password again, and saving stores it.
        sheet->passwordField()->setText(QStringLiteral("retyped"));
        QVERIFY(save(*sheet));
        QCOMPARE(fixture.harness.secrets.items[uuidText(profile.id)], std::string("retyped"));
    }

    // A new profile has nothing stored: the sheet neither waits nor reads, so a broken keyring
    // is no error there.
    void newProfileLoadsNoPassword()
    {
        SheetFixture fixture;
        fixture.harness.secrets.nextFailure = SecretOutcome::failed(3, "Keyring locked");
        const auto sheet = fixture.open(fixture.harness.profile("Brand new"));
        QVERIFY(sheet->saveButton()->isEnabled() && sheet->testButton()->isEnabled());
        QThreadPool::globalInstance()->waitForDone();
        QCoreApplication::processEvents();
        QCOMPARE(sheet->errorText(), QString());
        QCOMPARE(fixture.harness.secrets.reads, 0);
        QCOMPARE(sheet->passwordField()->text(), QString());
    }
};

// The SSH tunnel section: off until switched on; the rows each way of logging in needs; the
// tunnel it describes (defaults, ~ and bad ports); a warning where verification cannot work; a
// test through both hops; and the tunnel and its secret saved and loaded again.
void TestConnectionSheet::tunnelSection()
{
    const TestSshServer ssh = TestSshServer::fromEnvironment();
    QTemporaryDir home;
    const QByteArray realHome = qgetenv("HOME");
    const auto restore = qScopeGuard([&realHome] { qputenv("HOME", realHome); });
    qputenv("HOME", home.path().toUtf8());
    qputenv("SSH_AUTH_SOCK", QByteArray::fromStdString(ssh.agentSocket));
    QVERIFY(QDir(home.path()).mkpath(QStringLiteral(".ssh")));
    QVERIFY(QFile::copy(QString::fromStdString(ssh.knownHosts), home.filePath(QStringLiteral(".ssh/known_hosts"))));

    SheetFixture fixture;
    ConnectionProfile profile = fixture.harness.profile("Through SSH");
    auto sheet = fixture.open(profile);
    SshTunnelSection *section = sheet->tunnelSection();
    QVERIFY(!section->enabledToggle()->isChecked() && !section->hostField()->isVisible());
    QCOMPARE(section->tunnel(), std::nullopt);
    section->enabledToggle()->setChecked(true);
    QVERIFY(section->hostField()->isVisible());
    QVERIFY(!section->isKeyRowVisible() && !section->isSecretRowVisible()); // the agent by default
    section->authPicker()->setCurrentText(QStringLiteral("Private key file"));
    QVERIFY(section->isKeyRowVisible() && section->isSecretRowVisible());
    section->authPicker()->setCurrentText(QStringLiteral("Password"));
    QVERIFY(!section->isKeyRowVisible() && section->isSecretRowVisible());

    section->authPicker()->setCurrentText(QStringLiteral("Private key file"));
    section->hostField()->setText(QStringLiteral("127.0.0.1"));
    section->userField()->setText(QString::fromStdString(ssh.user));
    section->keyFileField()->setText(QStringLiteral("~/keys/id"));
    QCOMPARE(section->tunnel()->port, 22);
    QCOMPARE(section->tunnel()->keyFile, home.filePath(QStringLiteral("keys/id")).toStdString());
    section->portField()->setText(QStringLiteral("22x"));
    QVERIFY(!save(*sheet));
    QCOMPARE(sheet->errorText(), QStringLiteral("The SSH port must be between 1 and 65535."));

    sheet->tlsPicker()->setCurrentText(QStringLiteral("Verify certificate"));
    QVERIFY(section->isVerifyConflictShown());
    section->enabledToggle()->setChecked(false);
    QVERIFY(!section->isVerifyConflictShown());
    section->enabledToggle()->setChecked(true);
    QVERIFY(section->isVerifyConflictShown());
    sheet->tlsPicker()->setCurrentText(QStringLiteral("Require encryption"));
    QVERIFY(!section->isVerifyConflictShown());

    // Both hops, with the password and the passphrase as typed.
    sheet->passwordField()->setText(QString::fromStdString(fixture.harness.server.password));
    section->portField()->setText(QString::number(ssh.port));
    section->keyFileField()->setText(QString::fromStdString(ssh.passphraseKey));
    section->secretField()->setText(QString::fromStdString(ssh.passphrase));
    sheet->testButton()->click();
    QVERIFY(QTest::qWaitFor([&sheet] { return !sheet->isTesting(); }, timeout));
    QVERIFY2(sheet->testMessage().startsWith("Connected · MySQL ")
            && sheet->testMessage().endsWith(" · through SSH 127.0.0.1"),
        qPrintable(sheet->testMessage()));

    QVERIFY(save(*sheet));
    const SshTunnelSettings saved { "127.0.0.1", ssh.port, ssh.user, SshAuth::keyFile, ssh.passphraseKey };
    QCOMPARE(fixture.store->tunnel(profile.id), saved);
    QCOMPARE(fixture.harness.secrets.items[uuidText(sshSecretID(profile.id))], ssh.passphrase);
    sheet = std::make_unique<ConnectionSheet>(*fixture.store, profile, saved);
    QSignalSpy secretLoaded(sheet.get(), &ConnectionSheet::sshSecretLoaded);
    QVERIFY(secretLoaded.wait(timeout));
    QCOMPARE(sheet->tunnelSection()->tunnel(), saved);
    QCOMPARE(sheet->tunnelSection()->secret(), QString::fromStdString(ssh.passphrase));
}

QTEST_MAIN(TestConnectionSheet)
#include "TestConnectionSheet.moc"
