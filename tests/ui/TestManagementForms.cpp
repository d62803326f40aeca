#include "client/ClientThreadScope.h"
#include "client/MySQLConnection.h"
#include "core/SqlQuoting.h"
#include "management/ManagementSQL.h"
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

Q_DECLARE_METATYPE(tallowick::ManagementSheet)

// The management forms over a live session: every change is applied to the disposable server
// and read back from it, and every refusal is checked to leave the server untouched. The
// statements themselves are checked in depth in tests/management; here, that each form hands
// over what the user entered and follows the job to its end.
class TestManagementForms final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void createDatabaseAppearsAfterReload();
    void createTableKeepsAnApostropheInADefault();
    void addedColumnIsReloadedIntoTheSession();
    void editingKeepsWhatTheFormDoesNotShow();
    void createdIndexFollowsTableOrder();
    void insertedRowReadsBack();
    void createdUserCanLogIn();
    void refusalsSendNothing_data();
    void refusalsSendNothing();
    void declinedReviewSendsNothing_data();
    void declinedReviewSendsNothing();
    void serverFailureKeepsTheFormOpen();
    void applyWaitsWhileTheSessionIsBusy();

private:
    std::unique_ptr<ManagementForm> open(ManagementSheet kind, const std::optional<ColumnInfo> &column = std::nullopt);
    bool selectTable(const std::string &table);
    // Clicks the apply button and waits for the job and the reload it chains.
    bool applyAndSettle(ManagementForm &form);
    std::optional<ColumnInfo> sessionColumn(const std::string &name) const;
    QStringList rows(const std::string &sql) { return rowTexts(m_scratch->run(sql).rows); }
    QString fullColumn(const std::string &table, const std::string &column);

    template <typename Widget> static Widget *field(const ManagementForm &form, const QString &name)
    {
        return form.findChild<Widget *>(name);
    }

    ClientThreadScope m_clientThread; // the scratch database is read from this thread
    std::unique_ptr<SessionHarness> m_harness;
    std::unique_ptr<ScratchDatabase> m_scratch;
    std::unique_ptr<ServerSession> m_session;
    std::vector<std::string> m_databasesToDrop;
    std::vector<std::string> m_usersToDrop;
};

void TestManagementForms::init()
{
    m_harness = std::make_unique<SessionHarness>();
    m_scratch = std::make_unique<ScratchDatabase>(m_harness->server);
    m_scratch->run("CREATE TABLE orders (id INT AUTO_INCREMENT PRIMARY KEY, "
                   "name VARCHAR(100) COLLATE utf8mb4_bin NOT NULL DEFAULT 'nobody' COMMENT 'shown on invoices', "
                   "changed TIMESTAMP NOT NULL DEFAULT CURRENT_TIMESTAMP ON UPDATE CURRENT_TIMESTAMP, "
                   "total DECIMAL(10,2) NULL, note TEXT NULL) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4");
    m_scratch->run("CREATE TABLE items (id INT AUTO_INCREMENT PRIMARY KEY, code VARCHAR(20) NOT NULL, "
                   "label VARCHAR(50) NOT NULL DEFAULT 'none', price DECIMAL(10,2) NULL, note TEXT NULL) "
                   "ENGINE=InnoDB DEFAULT CHARSET=utf8mb4");

    m_session = m_harness->session(m_harness->profile());
    QVERIFY(connectAndSettle(*m_session));
    m_session->chooseDatabase(m_scratch->name());
    QVERIFY(settle(*m_session));
    QVERIFY(selectTable("orders"));
}

void TestManagementForms::cleanup()
{
    if (m_session) {
        QVERIFY(settle(*m_session));
    }
    m_session.reset();
    for (const std::string &database : m_databasesToDrop) {
        m_scratch->run("DROP DATABASE IF EXISTS " + SQL::identifier(database));
    }
    for (const std::string &user : m_usersToDrop) {
        m_scratch->run("DROP USER IF EXISTS " + SQL::value(user) + "@'%'");
    }
    m_databasesToDrop.clear();
    m_usersToDrop.clear();
    m_scratch.reset();
    m_harness.reset();
}

std::unique_ptr<ManagementForm> TestManagementForms::open(ManagementSheet kind, const std::optional<ColumnInfo> &column)
{
    return std::make_unique<ManagementForm>(*m_session, m_harness->prompts, kind, column);
}

bool TestManagementForms::selectTable(const std::string &table)
{
    m_session->selectTable(table, m_scratch->name());
    return settle(*m_session) && m_session->selectedTable() == table;
}

bool TestManagementForms::applyAndSettle(ManagementForm &form)
{
    QPushButton *apply = field<QPushButton>(form, QStringLiteral("apply"));
    if (!apply || !apply->isEnabled()) {
        return false;
    }
    apply->click();
    return settle(*m_session);
}

std::optional<ColumnInfo> TestManagementForms::sessionColumn(const std::string &name) const
{
    const ColumnList &columns = m_session->columns();
    const auto found
        = std::find_if(columns.begin(), columns.end(), [&](const ColumnInfo &column) { return column.name == name; });
    return found == columns.end() ? std::nullopt : std::optional<ColumnInfo>(*found);
}

// Field, Type, Collation, Null, Key, Default, Extra, Privileges, Comment of one column.
QString TestManagementForms::fullColumn(const std::string &table, const std::string &column)
{
    return rows("SHOW FULL COLUMNS FROM " + SQL::identifier(table) + " WHERE Field = " + SQL::value(column)).value(0);
}

void TestManagementForms::createDatabaseAppearsAfterReload()
{
    const std::string name = m_scratch->name() + "_new`db";
    const QString quoted = QStringLiteral("`%1_new``db`").arg(QString::fromStdString(m_scratch->name()));
    m_databasesToDrop.push_back(name);
    auto form = open(ManagementSheet::createDatabase);
    auto *charsets = field<QComboBox>(*form, QStringLiteral("charset"));
    QVERIFY(charsets);
    field<QLineEdit>(*form, QStringLiteral("name"))->setText(QString::fromStdString(name));
    // The label of the recommended set must not leak into the statement.
    QCOMPARE(form->previewText(), QStringLiteral("CREATE DATABASE %1 CHARACTER SET utf8mb4;").arg(quoted));
    charsets->setCurrentIndex(charsets->findText(QStringLiteral("latin1")));
    QCOMPARE(form->previewText(), QStringLiteral("CREATE DATABASE %1 CHARACTER SET latin1;").arg(quoted));

    m_harness->prompts.confirmations = { true };
    QVERIFY(applyAndSettle(*form));
    QVERIFY2(form->errorText().isEmpty(), qPrintable(form->errorText()));
    QCOMPARE(form->result(), int(QDialog::Accepted));
    // The statement was shown for review exactly as previewed.
    QCOMPARE(m_harness->prompts.asked.size(), std::size_t(1));
    QCOMPARE(QString::fromStdString(m_harness->prompts.asked.front().text), form->previewText());

    const StringList &databases = m_session->databases();
    QVERIFY(std::find(databases.begin(), databases.end(), name) != databases.end());
    QCOMPARE(rows("SELECT DEFAULT_CHARACTER_SET_NAME FROM information_schema.SCHEMATA WHERE SCHEMA_NAME = "
                 + SQL::value(name)),
        QStringList { QStringLiteral("latin1") });
}

void TestManagementForms::createTableKeepsAnApostropheInADefault()
{
    auto form = open(ManagementSheet::createTable);
    auto *columns = form->findChild<ColumnDraftEditor *>();
    QVERIFY(columns);
    field<QLineEdit>(*form, QStringLiteral("name"))->setText(QStringLiteral("it's new"));

    // A row added and removed again must not reach the statement.
    columns->addButton()->click();
    columns->addButton()->click();
    columns->nameField(2)->setText(QStringLiteral("dropped"));
    columns->nameField(1)->setText(QStringLiteral("who"));
    columns->typeField(1)->setCurrentText(QStringLiteral("varchar(50)"));
    columns->defaultField(1)->setText(QStringLiteral("O'Brien"));
    columns->removeRow(2);

    m_harness->prompts.confirmations = { true };
    QVERIFY(applyAndSettle(*form));
    QCOMPARE(form->result(), int(QDialog::Accepted));

    const std::string table = SQL::qualified(m_scratch->name(), "it's new");
    m_scratch->run("INSERT INTO " + table + " () VALUES ()");
    QCOMPARE(rows("SELECT * FROM " + table), QStringList { QStringLiteral("1|O'Brien") });
}

void TestManagementForms::addedColumnIsReloadedIntoTheSession()
{
    auto form = open(ManagementSheet::addColumn);
    auto *columns = form->findChild<ColumnDraftEditor *>();
    QVERIFY(columns);
    columns->nameField(0)->setText(QStringLiteral("  shipped "));
    columns->typeField(0)->setCurrentText(QStringLiteral(" varchar(20) "));
    columns->nullableToggle(0)->setChecked(false);
    columns->defaultField(0)->setText(QStringLiteral("n/a"));

    m_harness->prompts.confirmations = { true };
    QVERIFY(applyAndSettle(*form));
    QCOMPARE(form->result(), int(QDialog::Accepted));
    // Type, Null and Default as the server holds them; the blanks around name and type are gone.
    const QStringList shipped = fullColumn("orders", "shipped").split(QLatin1Char('|'));
    QCOMPARE(QStringList({ shipped.value(1), shipped.value(3), shipped.value(5) }),
        QStringList({ QStringLiteral("varchar(20)"), QStringLiteral("NO"), QStringLiteral("n/a") }));
    const std::vector<std::string> shown = m_session->tableResult().columnNames();
    QVERIFY(std::find(shown.begin(), shown.end(), "shipped") != shown.end());
}

// A TIMESTAMP column saved untouched keeps its ON UPDATE clause, which the form does not show;
// the other kinds of column are covered against the server in tests/management.
void TestManagementForms::editingKeepsWhatTheFormDoesNotShow()
{
    const std::optional<ColumnInfo> existing = sessionColumn("changed");
    QVERIFY(existing);
    const QString before = fullColumn("orders", "changed");
    QVERIFY(before.contains(QStringLiteral("on update"), Qt::CaseInsensitive));
    auto form = open(ManagementSheet::modifyColumn, existing);
    auto *columns = form->findChild<ColumnDraftEditor *>();
    QVERIFY(columns);
    QCOMPARE(columns->nameField(0)->text(), QStringLiteral("changed"));

    m_harness->prompts.confirmations = { true };
    QVERIFY(applyAndSettle(*form));
    QCOMPARE(form->result(), int(QDialog::Accepted));
    QCOMPARE(fullColumn("orders", "changed"), before);
}

void TestManagementForms::createdIndexFollowsTableOrder()
{
    auto form = open(ManagementSheet::addIndex);
    field<QLineEdit>(*form, QStringLiteral("name"))->setText(QStringLiteral("by total, name"));
    field<QCheckBox>(*form, QStringLiteral("unique"))->setChecked(true);
    // Chosen in the opposite order of the table's.
    field<QCheckBox>(*form, QStringLiteral("index:total"))->setChecked(true);
    field<QCheckBox>(*form, QStringLiteral("index:name"))->setChecked(true);

    m_harness->prompts.confirmations = { true };
    QVERIFY(applyAndSettle(*form));
    QCOMPARE(form->result(), int(QDialog::Accepted));
    // Non_unique, Seq_in_index, Column_name.
    QCOMPARE(rows("SELECT NON_UNIQUE, SEQ_IN_INDEX, COLUMN_NAME FROM information_schema.STATISTICS WHERE "
                  "TABLE_SCHEMA = DATABASE() AND INDEX_NAME = 'by total, name' ORDER BY SEQ_IN_INDEX"),
        (QStringList { QStringLiteral("0|1|name"), QStringLiteral("0|2|total") }));
}

void TestManagementForms::insertedRowReadsBack()
{
    QVERIFY(selectTable("items"));
    auto form = open(ManagementSheet::insertRow);
    // What the server can fill starts on Default; the required column asks for a value.
    QCOMPARE(field<QComboBox>(*form, QStringLiteral("mode:id"))->currentText(), QStringLiteral("Default"));
    QCOMPARE(field<QComboBox>(*form, QStringLiteral("mode:code"))->currentText(), QStringLiteral("Value"));
    QTest::keyClicks(field<QLineEdit>(*form, QStringLiteral("value:code")), QStringLiteral("A-1"));
    // Typing switches a column to Value by itself; the id stays on Default.
    QTest::keyClicks(field<QLineEdit>(*form, QStringLiteral("value:label")), QStringLiteral("O'Brien \\ \"q\""));
    QCOMPARE(field<QComboBox>(*form, QStringLiteral("mode:label"))->currentText(), QStringLiteral("Value"));
    // NULL wins over text left in the field.
    field<QLineEdit>(*form, QStringLiteral("value:price"))->setText(QStringLiteral("12.00"));
    field<QComboBox>(*form, QStringLiteral("mode:price"))->setCurrentText(QStringLiteral("NULL"));
    field<QComboBox>(*form, QStringLiteral("mode:note"))->setCurrentText(QStringLiteral("Value"));
    field<QLineEdit>(*form, QStringLiteral("value:note"))->setText(QStringLiteral("two\nlines \U0001F9F9"));

    m_harness->prompts.confirmations = { true };
    QVERIFY(applyAndSettle(*form));
    QVERIFY2(form->errorText().isEmpty(), qPrintable(form->errorText()));
    QCOMPARE(form->result(), int(QDialog::Accepted));
    QCOMPARE(rows("SELECT * FROM items"),
        QStringList { QStringLiteral("1|A-1|O'Brien \\ \"q\"|<null>|two\nlines \U0001F9F9") });
}

void TestManagementForms::createdUserCanLogIn()
{
    const std::string user = "tw_form_" + QUuid::createUuid().toString(QUuid::Id128).left(8).toStdString();
    const std::string password = "it's a \"secret\" \\ \xE2\x9C\x93";
    m_usersToDrop.push_back(user);
    auto form = open(ManagementSheet::createUser);
    field<QLineEdit>(*form, QStringLiteral("name"))->setText(QString::fromStdString(user));
    field<QLineEdit>(*form, QStringLiteral("password"))->setText(QString::fromStdString(password));

    m_harness->prompts.confirmations = { true };
    QVERIFY(applyAndSettle(*form));
    QVERIFY2(form->errorText().isEmpty(), qPrintable(form->errorText()));
    QCOMPARE(form->result(), int(QDialog::Accepted));

    // The reload lists the account.
    const RowList &listed = m_session->metadata().rows;
    QVERIFY(std::any_of(listed.begin(), listed.end(), [&](const Row &row) { return !row.empty() && row[0] == user; }));

    ConnectionProfile login = m_harness->server.profile();
    login.user = user;
    MySQLConnection connection(login);
    connection.connect(password);
    QCOMPARE(connection.query("SELECT CURRENT_USER()").rows, std::vector<Row> { { user + "@%" } });
    connection.close();
}

void TestManagementForms::refusalsSendNothing_data()
{
    // One refusal per form; every reason is checked on the drafts in tests/management.
    QTest::addColumn<ManagementSheet>("kind");
    QTest::addColumn<QString>("name"); // the name field, when the form has one
    QTest::addColumn<QString>("columnName"); // the last column row, when the form has rows
    QTest::addColumn<QString>("columnType");
    QTest::addColumn<QString>("expected");

    QTest::newRow("database name of spaces")
        << ManagementSheet::createDatabase << "   " << QString() << QString() << "Enter a database name.";
    QTest::newRow("two columns named alike") << ManagementSheet::createTable << "t"
                                             << "ID"
                                             << "INT"
                                             << "Column names must be unique.";
    QTest::newRow("type with a character set")
        << ManagementSheet::addColumn << QString() << "x"
        << "VARCHAR(255) CHARACTER SET latin1"
        << "Enter a simple SQL type such as VARCHAR(255), DECIMAL(10,2), or BIGINT UNSIGNED. Use the SQL editor for "
           "complex types.";
    QTest::newRow("index without columns") << ManagementSheet::addIndex << "by_nothing" << QString() << QString()
                                           << "Name the index and choose at least one column.";
    // The host starts as "%"; the password is left empty.
    QTest::newRow("user without a password") << ManagementSheet::createUser << "someone" << QString() << QString()
                                             << "Enter a username, client host, and password.";
}

void TestManagementForms::refusalsSendNothing()
{
    QFETCH(ManagementSheet, kind);
    QFETCH(QString, name);
    QFETCH(QString, columnName);
    QFETCH(QString, columnType);
    QFETCH(QString, expected);

    auto form = open(kind);
    if (auto *nameField = field<QLineEdit>(*form, QStringLiteral("name"))) {
        nameField->setText(name);
    }
    if (auto *columns = form->findChild<ColumnDraftEditor *>(); columns && !columnType.isEmpty()) {
        if (kind == ManagementSheet::createTable && !columnName.isEmpty()) {
            columns->addButton()->click();
        }
        const int last = columns->rowCount() - 1;
        columns->nameField(last)->setText(columnName);
        columns->typeField(last)->setCurrentText(columnType);
    }
    QVERIFY(form->previewText().isEmpty());

    QSignalSpy statuses(m_session.get(), &ServerSession::statusChanged);
    m_harness->prompts.confirmations = { true };
    field<QPushButton>(*form, QStringLiteral("apply"))->click();
    QCOMPARE(form->errorText(), expected);
    QVERIFY(m_harness->prompts.asked.empty());
    QCOMPARE(statuses.count(), 0);
    QVERIFY(form->result() != QDialog::Accepted);
}

void TestManagementForms::declinedReviewSendsNothing_data()
{
    QTest::addColumn<ManagementSheet>("kind");
    QTest::newRow("create table") << ManagementSheet::createTable;
    QTest::newRow("create user") << ManagementSheet::createUser;
}

void TestManagementForms::declinedReviewSendsNothing()
{
    QFETCH(ManagementSheet, kind);

    const std::string name = "kept_out_" + QUuid::createUuid().toString(QUuid::Id128).left(8).toStdString();
    m_usersToDrop.push_back(name);
    auto form = open(kind);
    field<QLineEdit>(*form, QStringLiteral("name"))->setText(QString::fromStdString(name));
    if (auto *password = field<QLineEdit>(*form, QStringLiteral("password"))) {
        password->setText(QStringLiteral("pw"));
    }
    QVERIFY2(form->errorText().isEmpty(), qPrintable(form->errorText()));

    QSignalSpy statuses(m_session.get(), &ServerSession::statusChanged);
    m_harness->prompts.confirmations = { false };
    field<QPushButton>(*form, QStringLiteral("apply"))->click();
    QCOMPARE(m_harness->prompts.asked.size(), std::size_t(1));
    QCOMPARE(statuses.count(), 0);
    QCOMPARE(rows("SHOW TABLES LIKE " + SQL::value(name)), QStringList());
    QCOMPARE(rows("SELECT User FROM mysql.user WHERE User = " + SQL::value(name)), QStringList());
}

void TestManagementForms::serverFailureKeepsTheFormOpen()
{
    auto form = open(ManagementSheet::createTable);
    form->show();
    QVERIFY(QTest::qWaitForWindowExposed(form.get()));
    field<QLineEdit>(*form, QStringLiteral("name"))->setText(QStringLiteral("orders"));

    m_harness->prompts.confirmations = { true };
    QVERIFY(applyAndSettle(*form));
    QVERIFY2(form->errorText().contains(QStringLiteral("already exists")), qPrintable(form->errorText()));
    QVERIFY(form->isVisible());

    // Fixing the name and applying again goes through.
    field<QLineEdit>(*form, QStringLiteral("name"))->setText(QStringLiteral("orders_2"));
    m_harness->prompts.confirmations = { true };
    QVERIFY(applyAndSettle(*form));
    QVERIFY(!form->isVisible());
    QCOMPARE(rows("SHOW TABLES LIKE 'orders_2'"), QStringList { QStringLiteral("orders_2") });
}

void TestManagementForms::applyWaitsWhileTheSessionIsBusy()
{
    auto form = open(ManagementSheet::createDatabase);
    field<QLineEdit>(*form, QStringLiteral("name"))->setText(QStringLiteral("never_made"));
    auto *apply = field<QPushButton>(*form, QStringLiteral("apply"));
    QVERIFY(apply->isEnabled());

    // Busy goes up at once and comes down only through the event loop, so this cannot race.
    m_session->run("SELECT 1");
    QVERIFY(m_session->busy());
    QVERIFY(!apply->isEnabled());
    m_harness->prompts.confirmations = { true };
    form->apply();
    QVERIFY(m_harness->prompts.asked.empty());

    QVERIFY(settle(*m_session));
    QVERIFY(apply->isEnabled());
}

QTEST_MAIN(TestManagementForms)
#include "TestManagementForms.moc"
