#include "client/ClientThreadScope.h"
#include "client/MySQLConnection.h"
#include "core/UuidText.h"
#include "store/AppStore.h"
#include "support/SessionHarness.h"
#include "ui/ConnectionSheet.h"
#include "ui/RevealablePasswordField.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThreadPool>

using namespace tallowick;
using namespace tallowick::test;

namespace
{

constexpr int serverTimeout = 30000;

// Everything a sheet needs: a store in a folder of its own over the fake keyring, and the
// disposable server for connection tests.
struct SheetFixture {
    SessionHarness harness;
    QTemporaryDir folder;
    AppStore store { folder.path().toStdString(), harness.keychain, harness.prompts };

    ~SheetFixture()
    {
        // Keyring reads and connection tests still running must not outlive the keyring.
        QThreadPool::globalInstance()->waitForDone();
    }

    std::unique_ptr<ConnectionSheet> open(const ConnectionProfile &profile)
    {
        store.openConnectionSheet(profile);
        auto sheet = std::make_unique<ConnectionSheet>(store, profile);
        sheet->show();
        return sheet;
    }

    // Opens the sheet and lets the stored password arrive.
    std::unique_ptr<ConnectionSheet> openLoaded(const ConnectionProfile &profile)
    {
        auto sheet = open(profile);
        QSignalSpy loaded(sheet.get(), &ConnectionSheet::passwordLoaded);
        if (!loaded.wait(serverTimeout)) {
            return nullptr;
        }
        return sheet;
    }
};

void fill(ConnectionSheet &sheet, const ConnectionProfile &profile, const std::string &password)
{
    sheet.nameField()->setText(QString::fromStdString(profile.name));
    sheet.hostField()->setText(QString::fromStdString(profile.host));
    sheet.portField()->setText(QString::number(profile.port));
    sheet.userField()->setText(QString::fromStdString(profile.user));
    sheet.passwordField()->setText(QString::fromStdString(password));
    sheet.databaseField()->setText(QString::fromStdString(profile.database));
    sheet.tlsPicker()->setCurrentText(QString::fromUtf8(displayName(profile.tls).data()));
    sheet.caPathField()->setText(QString::fromStdString(profile.caPath));
}

QLineEdit *textField(const ConnectionSheet &sheet, const QString &name)
{
    if (name == QLatin1String("name")) {
        return sheet.nameField();
    }
    if (name == QLatin1String("host")) {
        return sheet.hostField();
    }
    if (name == QLatin1String("port")) {
        return sheet.portField();
    }
    return sheet.userField();
}

bool finishTest(ConnectionSheet &sheet)
{
    return QTest::qWaitFor([&sheet] { return !sheet.isTesting(); }, serverTimeout);
}

} // namespace

// The connection sheet against a real store and the disposable server.
class TestConnectionSheet final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void invalidFormSendsNothing_data();
    void invalidFormSendsNothing();
    void testConnectionReportsTheLink_data();
    void testConnectionReportsTheLink();
    void savingANewProfileStoresAndSelectsIt();
    void keyringFailureKeepsTheSheetOpen();
    void savedPasswordIsLoadedOnOpening_data();
    void savedPasswordIsLoadedOnOpening();
    void caRowFollowsTheModeAndKeepsItsPath();
    void cancelSavesNothing();

private:
    ClientThreadScope m_clientThread; // the expected texts are read over a connection of the test's own
};

void TestConnectionSheet::invalidFormSendsNothing_data()
{
    QTest::addColumn<QString>("field");
    QTest::addColumn<QString>("value");
    QTest::addColumn<bool>("save"); // otherwise "Test connection"
    QTest::addColumn<QString>("message");

    // Which field says what is checked on the profile itself; here, that the sheet reads its
    // fields, shows the message inline and sends nothing, from either button.
    const QString port = QStringLiteral("The port must be between 1 and 65535.");
    QTest::newRow("save: blank name") << "name"
                                      << " \t " << true << "Give this connection a name.";
    QTest::newRow("test: blank host") << "host"
                                      << "  " << false << "Enter the MySQL server hostname.";
    QTest::newRow("save: port 70000") << "port"
                                      << "70000" << true << port;
    QTest::newRow("test: port not a number") << "port"
                                             << "33o6" << false << port;
    QTest::newRow("test: empty user") << "user"
                                      << "" << false << "Enter a MySQL username.";
}

void TestConnectionSheet::invalidFormSendsNothing()
{
    QFETCH(QString, field);
    QFETCH(QString, value);
    QFETCH(bool, save);
    QFETCH(QString, message);

    SheetFixture fixture;
    const ConnectionProfile profile = fixture.harness.profile("Valid until edited");
    const auto sheet = fixture.openLoaded(profile);
    QVERIFY(sheet);
    fill(*sheet, profile, fixture.harness.server.password);
    QLineEdit *edited = textField(*sheet, field);
    edited->setText(value);
    const int writesBefore = fixture.harness.secrets.writes;

    (save ? sheet->saveButton() : sheet->testButton())->click();

    QCOMPARE(sheet->errorText(), message);
    QVERIFY(!sheet->isTesting());
    QVERIFY(sheet->isVisible());
    QVERIFY(fixture.store.profiles().empty());
    QCOMPARE(fixture.harness.secrets.writes, writesBefore);
    QCOMPARE(edited->text(), value);
}

void TestConnectionSheet::testConnectionReportsTheLink_data()
{
    QTest::addColumn<TLSMode>("mode");
    QTest::addColumn<bool>("withCA");
    QTest::addColumn<bool>("rightPassword");
    QTest::newRow("TLS disabled on a TLS-capable server") << TLSMode::disabled << false << true;
    QTest::newRow("verify against the test CA") << TLSMode::verify << true << true;
    // The keyring holds the right password; the test must use the typed, wrong one.
    QTest::newRow("typed password is wrong") << TLSMode::disabled << false << false;
}

void TestConnectionSheet::testConnectionReportsTheLink()
{
    QFETCH(TLSMode, mode);
    QFETCH(bool, withCA);
    QFETCH(bool, rightPassword);

    SheetFixture fixture;
    ConnectionProfile profile = fixture.harness.profile("Tested");
    profile.tls = mode;
    profile.caPath = withCA ? fixture.harness.server.caPath : std::string();
    const auto expectedLink = fixture.harness.server.connect(profile);
    const QString expected = rightPassword
        ? QString::fromStdString("Connected · MySQL " + expectedLink->version() + " · "
            + (mode == TLSMode::disabled ? std::string("unencrypted TCP") : expectedLink->cipher()))
        : QStringLiteral("MySQL 1045: ");
    QVERIFY(mode == TLSMode::disabled || !expectedLink->cipher().empty());

    const auto sheet = fixture.openLoaded(profile);
    QVERIFY(sheet);
    const std::string typed = rightPassword ? fixture.harness.server.password : "not-the-password";
    fill(*sheet, profile, typed);
    const int writesBefore = fixture.harness.secrets.writes;
    sheet->testButton()->click();
    QVERIFY(sheet->isTesting());
    QVERIFY(finishTest(*sheet));

    if (rightPassword) {
        QCOMPARE(sheet->testMessage(), expected);
    } else {
        QVERIFY2(sheet->testMessage().startsWith(expected), qPrintable(sheet->testMessage()));
    }
    // A test keeps the form as typed and never saves.
    QCOMPARE(sheet->passwordField()->text(), QString::fromStdString(typed));
    QCOMPARE(sheet->profile(), profile);
    QVERIFY(fixture.store.profiles().empty());
    QCOMPARE(fixture.harness.secrets.writes, writesBefore);
}

void TestConnectionSheet::savingANewProfileStoresAndSelectsIt()
{
    SheetFixture fixture;
    ConnectionProfile profile;
    const auto sheet = fixture.openLoaded(profile);
    QVERIFY(sheet);
    QSignalSpy accepted(sheet.get(), &QDialog::accepted);
    sheet->nameField()->setText(QStringLiteral("Staging"));
    sheet->hostField()->setText(QStringLiteral("db.staging.test"));
    sheet->portField()->clear(); // empty means the default port
    sheet->userField()->setText(QStringLiteral("deploy"));
    sheet->passwordField()->setText(QStringLiteral("p@ss word"));
    sheet->databaseField()->setText(QStringLiteral("shop"));
    sheet->tlsPicker()->setCurrentText(QStringLiteral("Require encryption"));
    sheet->readOnlyToggle()->setChecked(true);
    sheet->colorPicker()->setCurrentText(QStringLiteral("teal"));
    sheet->saveButton()->click();
    QVERIFY(accepted.wait(serverTimeout));

    profile.name = "Staging";
    profile.host = "db.staging.test";
    profile.port = 3306;
    profile.user = "deploy";
    profile.database = "shop";
    profile.tls = TLSMode::require;
    profile.readOnly = true;
    profile.color = "teal";
    QCOMPARE(fixture.store.profiles(), std::vector<ConnectionProfile> { profile });
    QCOMPARE(fixture.harness.secrets.items[uuidText(profile.id)], std::string("p@ss word"));
    QCOMPARE(fixture.store.selected(), std::optional<QUuid>(profile.id));
    QVERIFY(!sheet->isVisible());
}

void TestConnectionSheet::keyringFailureKeepsTheSheetOpen()
{
    SheetFixture fixture;
    const ConnectionProfile profile = fixture.harness.profile("Locked keyring");
    const auto sheet = fixture.openLoaded(profile);
    QVERIFY(sheet);
    sheet->passwordField()->setText(QStringLiteral("new secret"));
    sheet->hostField()->setText(QStringLiteral("db.locked.test"));
    fixture.harness.secrets.nextFailure = SecretOutcome::failed(3, "Keyring locked");
    QSignalSpy errors(sheet.get(), &ConnectionSheet::errorTextChanged);
    sheet->saveButton()->click();
    QVERIFY(errors.wait(serverTimeout));

    QCOMPARE(sheet->errorText(), QStringLiteral("The keyring could not save the password (3)."));
    QVERIFY(fixture.store.profiles().empty());

    // Once the keyring answers again, the same sheet saves what was kept.
    QSignalSpy accepted(sheet.get(), &QDialog::accepted);
    sheet->saveButton()->click();
    QVERIFY(accepted.wait(serverTimeout));
    QCOMPARE(fixture.store.profiles().front().host, std::string("db.locked.test"));
    QCOMPARE(fixture.harness.secrets.items[uuidText(profile.id)], std::string("new secret"));
}

void TestConnectionSheet::savedPasswordIsLoadedOnOpening_data()
{
    QTest::addColumn<bool>("keyringFails");
    QTest::addColumn<bool>("typeBeforeItArrives");
    QTest::addColumn<QString>("password");
    QTest::addColumn<QString>("error");

    const QString stored = QStringLiteral("tallowick-test-pw");
    QTest::newRow("stored password") << false << false << stored << QString();
    QTest::newRow("typed before the keyring answered") << false << true << "typed first" << QString();
    QTest::newRow("keyring failure") << true << false << QString()
                                     << "Could not access the saved password: Keyring locked. Reopen connection "
                                        "settings to try again, or enter the database password yourself.";
}

void TestConnectionSheet::savedPasswordIsLoadedOnOpening()
{
    QFETCH(bool, keyringFails);
    QFETCH(bool, typeBeforeItArrives);
    QFETCH(QString, password);
    QFETCH(QString, error);

    SheetFixture fixture;
    ConnectionProfile profile = fixture.harness.profile("Loaded");
    if (keyringFails) {
        fixture.harness.secrets.nextFailure = SecretOutcome::failed(3, "Keyring locked");
    }
    const auto sheet = fixture.open(profile);
    QSignalSpy loaded(sheet.get(), &ConnectionSheet::passwordLoaded);
    if (typeBeforeItArrives) {
        // The keyring's answer comes back through the event loop, which has not run yet.
        sheet->passwordField()->setText(QStringLiteral("typed first"));
    }
    // Saving the untouched field before the stored password arrives would delete it.
    QCOMPARE(sheet->saveButton()->isEnabled(), typeBeforeItArrives);
    QCOMPARE(sheet->testButton()->isEnabled(), typeBeforeItArrives);
    QVERIFY(loaded.wait(serverTimeout));

    QCOMPARE(sheet->passwordField()->text(), password);
    QCOMPARE(sheet->errorText(), error);
    QCOMPARE(sheet->passwordUnavailable(), keyringFails);
    if (keyringFails) {
        // The user types the password again and saving stores it.
        sheet->passwordField()->setText(QStringLiteral("retyped"));
        QSignalSpy accepted(sheet.get(), &QDialog::accepted);
        sheet->saveButton()->click();
        QVERIFY(accepted.wait(serverTimeout));
        QCOMPARE(fixture.harness.secrets.items[uuidText(profile.id)], std::string("retyped"));
    }
}

// The CA row shows for Verify only; leaving Verify hides the path but keeps it for later.
void TestConnectionSheet::caRowFollowsTheModeAndKeepsItsPath()
{
    SheetFixture fixture;
    ConnectionProfile profile = fixture.harness.profile("Verified");
    profile.tls = TLSMode::verify;
    profile.caPath = fixture.harness.server.caPath;
    const auto sheet = fixture.openLoaded(profile);
    QVERIFY(sheet);
    QVERIFY(sheet->caPathField()->isVisible());
    sheet->tlsPicker()->setCurrentText(QStringLiteral("Require encryption"));
    QVERIFY(!sheet->caPathField()->isVisible());

    QSignalSpy accepted(sheet.get(), &QDialog::accepted);
    sheet->saveButton()->click();
    QVERIFY(accepted.wait(serverTimeout));
    QCOMPARE(fixture.store.profiles().front().tls, TLSMode::require);
    QCOMPARE(fixture.store.profiles().front().caPath, profile.caPath);
}

void TestConnectionSheet::cancelSavesNothing()
{
    SheetFixture fixture;
    const auto sheet = fixture.openLoaded(ConnectionProfile());
    QVERIFY(sheet);
    QSignalSpy rejected(sheet.get(), &QDialog::rejected);
    fill(*sheet, fixture.harness.server.profile(), "typed");
    sheet->cancelButton()->click();

    QCOMPARE(rejected.count(), 1);
    QVERIFY(fixture.store.profiles().empty());
    QVERIFY(!fixture.store.selected());
    QCOMPARE(fixture.harness.secrets.writes, 0);
}

QTEST_MAIN(TestConnectionSheet)
#include "TestConnectionSheet.moc"
