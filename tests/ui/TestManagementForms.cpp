#include "client/ClientThreadScope.h"
#include "client/MySQLConnection.h"
#include "support/Checks.h"
#include "support/SessionHarness.h"
#include "ui/ColumnDraftEditor.h"
#include "ui/ManagementForm.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <algorithm>

using namespace tallowick;
using namespace tallowick::test;

namespace
{

template <typename T = QLineEdit> T *part(const ManagementForm &form, const QString &name)
{
    return form.findChild<T *>(name);
}

ColumnDraftEditor *columns(const ManagementForm &form)
{
    return form.findChild<ColumnDraftEditor *>();
}

} // namespace

// The management forms: the statement they show for the typed fields, what they refuse, what
// they ask, and when they send. The statements themselves are tested in tests/management; a
// disconnected session, whose requests fail at once, stands in where no server is needed.
class TestManagementForms final : public QObject
{
    Q_OBJECT

    ClientThreadScope m_clientThread;
    SessionHarness m_harness;
    std::unique_ptr<ScratchDatabase> m_scratch;
    std::unique_ptr<ServerSession> m_session; // connected, with the scratch table orders selected
    std::unique_ptr<ServerSession> m_offline = m_harness.session(m_harness.server.profile());
    const std::string m_user = "tw_form_" + QUuid::createUuid().toString(QUuid::Id128).left(8).toStdString();

    std::unique_ptr<ManagementForm> open(ManagementSheet kind, ServerSession *session = nullptr)
    {
        const std::optional<ColumnInfo> edited = m_session->columns().at(1); // name
        m_harness.prompts = ScriptedPrompts();
        return std::make_unique<ManagementForm>(session ? *session : *m_session,
            m_harness.prompts,
            kind,
            kind == ManagementSheet::modifyColumn ? edited : std::nullopt);
    }

    // Clicks the acting button, with the review answered from `answers`.
    void apply(ManagementForm &form, std::deque<bool> answers)
    {
        m_harness.prompts.confirmations = std::move(answers);
        part<QPushButton>(form, "apply")->click();
    }

private Q_SLOTS:
    void initTestCase()
    {
        m_scratch = std::make_unique<ScratchDatabase>(m_harness.server);
        m_scratch->run("CREATE TABLE orders (id INT AUTO_INCREMENT PRIMARY KEY, name VARCHAR(100) COLLATE utf8mb4_bin "
                       "NOT NULL, total DECIMAL(10,2) NULL) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4");
        m_session = m_harness.session(m_harness.profile());
        QVERIFY(connectAndSettle(*m_session));
        m_session->selectTable("orders", m_scratch->name());
        QVERIFY(settle(*m_session) && m_session->columns().size() == 3);
    }

    void cleanupTestCase()
    {
        m_scratch->run("DROP USER IF EXISTS '" + m_user + "'@'%'");
        m_session.reset();
        m_scratch.reset();
    }

    void previewFollowsTheFields()
    {
        const QString database = QStringLiteral("`%1`.").arg(QString::fromStdString(m_scratch->name()));
        // The label of the recommended set must not leak into the statement.
        auto form = open(ManagementSheet::createDatabase);
        part(*form, "name")->setText(" new`db ");
        QCOMPARE(form->previewText(), "CREATE DATABASE `new``db` CHARACTER SET utf8mb4;");
        // A row added and removed again must not reach the statement.
        form = open(ManagementSheet::createTable);
        part(*form, "name")->setText("it's new");
        columns(*form)->addButton()->click();
        columns(*form)->addButton()->click();
        columns(*form)->nameField(1)->setText("who");
        columns(*form)->removeRow(2);
        QCOMPARE(form->previewText(),
            "CREATE TABLE " + database
                + "`it's new` (\n  `id` BIGINT UNSIGNED NOT NULL AUTO_INCREMENT,\n  `who` VARCHAR(255) NULL,\n  "
                  "PRIMARY KEY (`id`)\n) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4;");
        form = open(ManagementSheet::modifyColumn);
        columns(*form)->nameField(0)->setText("label");
        QCOMPARE(form->previewText(),
            "ALTER TABLE " + database
                + "`orders`\nCHANGE COLUMN `name` `label` VARCHAR(100) COLLATE `utf8mb4_bin` NOT NULL;");
        // Chosen in the opposite order of the table's.
        form = open(ManagementSheet::addIndex);
        part(*form, "name")->setText("by total, name");
        part<QCheckBox>(*form, "unique")->setChecked(true);
        part<QCheckBox>(*form, "index:total")->setChecked(true);
        part<QCheckBox>(*form, "index:name")->setChecked(true);
        QCOMPARE(
            form->previewText(), "CREATE UNIQUE INDEX `by total, name` ON " + database + "`orders` (`name`, `total`);");
        // Typing switches a column to Value; NULL wins over text left in the field.
        form = open(ManagementSheet::insertRow);
        QTest::keyClicks(part(*form, "value:total"), "12.5");
        part(*form, "value:name")->setText("A-1");
        part<QComboBox>(*form, "mode:name")->setCurrentText("NULL");
        QCOMPARE(form->previewText(), "INSERT INTO " + database + "`orders` (`name`, `total`)\nVALUES (NULL, '12.5');");
        // Account names are taken as typed.
        form = open(ManagementSheet::createUser);
        part(*form, "name")->setText(" bob");
        part(*form, "password")->setText("pw'1");
        QCOMPARE(form->previewText(), "CREATE USER ' bob'@'%' IDENTIFIED BY CONVERT(X'70772731' USING utf8mb4);");
        QCOMPARE(form->errorText(), QString());
    }

    void refusalsSendNothing()
    {
        const struct {
            ManagementSheet kind;
            ServerSession *session;
            QString name, error;
        } cases[] = {
            { ManagementSheet::createTable, m_offline.get(), "t", "Choose a database first." },
            { ManagementSheet::createDatabase, m_session.get(), "   ", "Enter a database name." },
            // The host starts as "%"; the password is left empty.
            { ManagementSheet::createUser, m_session.get(), "someone", "Enter a username, client host, and password." },
        };
        for (const auto &test : cases) {
            const auto form = open(test.kind, test.session);
            part(*form, "name")->setText(test.name);
            QCOMPARE(form->previewText(), QString());
            QSignalSpy statuses(test.session, &ServerSession::statusChanged);
            apply(*form, { true });
            QCOMPARE(form->errorText(), test.error);
            QVERIFY(m_harness.prompts.asked.empty());
            QCOMPARE(statuses.count(), 0);
        }
    }

    // A schema change asks to review its statement, an account its own question. Declined,
    // nothing is sent; confirmed, the disconnected session's refusal shows in the open form.
    void reviewDecidesWhatIsSent()
    {
        for (const auto kind : { ManagementSheet::createDatabase, ManagementSheet::createUser }) {
            const auto form = open(kind, m_offline.get());
            form->show();
            part(*form, "name")->setText("kept_out");
            if (QLineEdit *password = part(*form, "password")) {
                password->setText("pw");
            }
            apply(*form, { false });
            QCOMPARE(m_harness.prompts.asked.size(), std::size_t(1));
            const ScriptedPrompts::Question &asked = m_harness.prompts.asked[0];
            QCOMPARE(asked.kind, std::string(kind == ManagementSheet::createUser ? "action" : "sql"));
            QVERIFY(kind == ManagementSheet::createUser || asked.text == form->previewText().toStdString());
            QCOMPARE(form->errorText(), QString());

            apply(*form, { true });
            QCOMPARE(form->errorText(), QStringLiteral("Connect to this server first."));
            QVERIFY(form->isVisible() && part<QPushButton>(*form, "apply")->isEnabled());
        }
    }

    // The one change made on the server. It waits while the session is busy; then the form
    // closes and the session shows the new column, named without the blanks typed around it.
    void appliedChangeClosesTheFormAndReloads()
    {
        const auto form = open(ManagementSheet::addColumn);
        columns(*form)->nameField(0)->setText(" shipped ");
        auto *button = part<QPushButton>(*form, "apply");
        QVERIFY(button->isEnabled());
        m_session->run("SELECT 1"); // busy at once, idle only through the event loop
        QVERIFY(m_session->busy() && !button->isEnabled());
        form->apply();
        QVERIFY(m_harness.prompts.asked.empty());
        QVERIFY(settle(*m_session) && button->isEnabled());

        apply(*form, { true });
        QVERIFY(settle(*m_session));
        QCOMPARE(form->errorText(), QString());
        QCOMPARE(form->result(), int(QDialog::Accepted));
        QCOMPARE(
            m_session->tableResult().columnNames(), (std::vector<std::string> { "id", "name", "total", "shipped" }));
        QCOMPARE(m_session->columns().size(), std::size_t(4));
    }

    // Accounts go through a session operation of their own: the typed name, host and password
    // arrive there, and the user list is reloaded.
    void createdUserCanLogIn()
    {
        const auto form = open(ManagementSheet::createUser);
        part(*form, "name")->setText(QString::fromStdString(m_user));
        part(*form, "password")->setText("it's \"secret\"");
        apply(*form, { true });
        QVERIFY(settle(*m_session));
        QCOMPARE(form->result(), int(QDialog::Accepted));
        const RowList &listed = m_session->metadata().rows;
        QVERIFY(std::any_of(listed.begin(), listed.end(), [this](const Row &row) { return row.at(0) == m_user; }));
        ConnectionProfile login = m_harness.server.profile();
        login.user = m_user;
        MySQLConnection connection(login);
        QCOMPARE(errorFrom([&] { connection.connect("it's \"secret\""); }), QStringLiteral("(no error)"));
        QCOMPARE(connection.query("SELECT CURRENT_USER()").rows, std::vector<Row> { { m_user + "@%" } });
    }
};

QTEST_MAIN(TestManagementForms)
#include "TestManagementForms.moc"
