#include "client/ClientThreadScope.h"
#include "client/MySQLConnection.h"
#include "core/UuidText.h"
#include "store/AppStore.h"
#include "support/SessionHarness.h"
#include "ui/ConnectionSheet.h"
#include "ui/RevealablePasswordField.h"

#include <QCheckBox>
#include <QComboBox>
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

constexpr int timeout = 30000;

// A store in a folder of its own over the fake keyring, and the disposable server.
struct SheetFixture {
    SessionHarness harness;
    QTemporaryDir folder;
    AppStore store { folder.path().toStdString(), harness.keychain, harness.prompts };

    // Keyring reads and connection tests still running must not outlive the keyring.
    ~SheetFixture() { QThreadPool::globalInstance()->waitForDone(); }

    // Opens the sheet; with `loaded`, waits until the stored password has arrived.
    std::unique_ptr<ConnectionSheet> open(const ConnectionProfile &profile, bool loaded = true)
    {
        store.openConnectionSheet(profile);
        auto sheet = std::make_unique<ConnectionSheet>(store, profile);
        sheet->show();
        QSignalSpy arrived(sheet.get(), &ConnectionSheet::passwordLoaded);
        return !loaded || arrived.wait(timeout) ? std::move(sheet) : nullptr;
    }
};

// Clicks Save and waits for the sheet to close (true) or to show an error (false).
bool save(ConnectionSheet &sheet)
{
    QSignalSpy accepted(&sheet, &QDialog::accepted);
    QSignalSpy errors(&sheet, &ConnectionSheet::errorTextChanged);
    sheet.saveButton()->click();
    return QTest::qWaitFor([&] { return !accepted.empty() || !errors.empty(); }, timeout) && !accepted.empty();
}

} // namespace

// The connection sheet over a real store, a fake keyring and the disposable server.
class TestConnectionSheet final : public QObject
{
    Q_OBJECT

    ClientThreadScope m_clientThread; // the expected texts are read over a connection of the test's own

private Q_SLOTS:
    void testButtonReportsTheLink()
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
        // The stored password, then a typed one, which wins.
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
        QVERIFY(!cipher.empty());
        // A test keeps the form as typed and never saves; one the profile refuses is not made.
        QCOMPARE(sheet->profile(), profile);
        sheet->portField()->setText(QStringLiteral("33o6"));
        QCOMPARE(result(), QStringLiteral("(not tested)"));
        QCOMPARE(sheet->errorText(), QStringLiteral("The port must be between 1 and 65535."));
        QSignalSpy rejected(sheet.get(), &QDialog::rejected);
        sheet->cancelButton()->click();
        QCOMPARE(rejected.count(), 1);
        QVERIFY(fixture.store.profiles().empty());
        QCOMPARE(fixture.harness.secrets.writes, 0);
    }

    void savingStoresEveryField()
    {
        SheetFixture fixture;
        ConnectionProfile profile;
        const auto sheet = fixture.open(profile);
        QVERIFY(sheet);
        profile.name = "Staging";
        profile.host = "db.staging.test";
        profile.port = 3306; // what an empty field means
        profile.user = "deploy";
        profile.database = "shop";
        profile.caPath = "/etc/staging-ca.pem";
        for (const auto &[field, text] : { std::pair(sheet->nameField(), profile.name),
                 { sheet->hostField(), profile.host },
                 { sheet->portField(), std::string() },
                 { sheet->userField(), profile.user },
                 { sheet->databaseField(), profile.database } }) {
            field->setText(QString::fromStdString(text));
        }
        sheet->passwordField()->setText(QStringLiteral("p@ss word"));
        sheet->tlsPicker()->setCurrentText(QStringLiteral("Verify certificate"));
        sheet->caPathField()->setText(QString::fromStdString(profile.caPath));
        QVERIFY(sheet->isCARowVisible());
        // Leaving Verify hides the CA row but keeps its path for later.
        sheet->tlsPicker()->setCurrentText(QStringLiteral("Require encryption"));
        profile.tls = TLSMode::require;
        QVERIFY(!sheet->isCARowVisible());
        sheet->readOnlyToggle()->setChecked(profile.readOnly = true);
        sheet->colorPicker()->setCurrentText(QString::fromStdString(profile.color = "teal"));

        // A keyring failure keeps the sheet open with everything typed, to save again.
        fixture.harness.secrets.nextFailure = SecretOutcome::failed(3, "Keyring locked");
        QVERIFY(!save(*sheet));
        QCOMPARE(sheet->errorText(), QStringLiteral("The keyring could not save the password (3)."));
        QVERIFY(save(*sheet));
        QCOMPARE(fixture.store.profiles(), std::vector<ConnectionProfile> { profile });
        QCOMPARE(fixture.harness.secrets.items[uuidText(profile.id)], std::string("p@ss word"));
        QCOMPARE(fixture.store.selected(), std::optional<QUuid>(profile.id));
        QVERIFY(!sheet->isVisible());
    }

    // Until the stored password arrives, saving the untouched field would delete it, and a test
    // would try an empty one; what the user types meanwhile is never overwritten.
    void storedPasswordArrivesAfterOpening()
    {
        for (const bool keyringFails : { false, true }) {
            SheetFixture fixture;
            const ConnectionProfile profile = fixture.harness.profile("Loaded");
            fixture.harness.secrets.nextFailure
                = keyringFails ? std::optional(SecretOutcome::failed(3, "Keyring locked")) : std::nullopt;
            const auto sheet = fixture.open(profile, false);
            QSignalSpy loaded(sheet.get(), &ConnectionSheet::passwordLoaded);
            QVERIFY(!sheet->saveButton()->isEnabled() && !sheet->testButton()->isEnabled());
            if (!keyringFails) {
                sheet->passwordField()->setText(QStringLiteral("typed first"));
                QVERIFY(sheet->saveButton()->isEnabled() && sheet->testButton()->isEnabled());
            }
            QVERIFY(loaded.wait(timeout));
            QCOMPARE(sheet->passwordUnavailable(), keyringFails);
            QCOMPARE(
                sheet->errorText().startsWith("Could not access the saved password: Keyring locked."), keyringFails);
            QCOMPARE(sheet->passwordField()->text(), keyringFails ? QString() : QStringLiteral("typed first"));
            // After a failure the user types the password again, and saving stores it.
            sheet->passwordField()->setText(QStringLiteral("retyped"));
            QVERIFY(save(*sheet));
            QCOMPARE(fixture.harness.secrets.items[uuidText(profile.id)], std::string("retyped"));
        }
    }
};

QTEST_MAIN(TestConnectionSheet)
#include "TestConnectionSheet.moc"
