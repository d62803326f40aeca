#include "client/ClientThreadScope.h"
#include "client/MySQLConnection.h"
#include "core/SqlQuoting.h"
#include "management/ManagementSQL.h"
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
// and read back from it, and every refusal is checked to leave the server untouched.
class TestManagementForms final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void createDatabaseAppearsAfterReload_data();
    void createDatabaseAppearsAfterReload();
    void createTableKeepsAnApostropheInADefault();
    void addedColumnIsReloadedIntoTheSession();
    void editingKeepsWhatTheFormDoesNotShow_data();
    void editingKeepsWhatTheFormDoesNotShow();
    void createdIndexFollowsTableOrder();
    void insertedRowReadsBack_data();
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
    // Rows as "a|b|c" with SQL NULL as <null>.
    QStringList rows(const std::string &sql);
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

QStringList TestManagementForms::rows(const std::string &sql)
{
    QStringList lines;
    for (const Row &row : m_scratch->run(sql).rows) {
        QStringList cells;
        for (const Cell &cell : row) {
            cells << (cell ? QString::fromStdString(*cell) : QStringLiteral("<null>"));
        }
        lines << cells.join(QLatin1Char('|'));
    }
    return lines;
}

// Field, Type, Collation, Null, Key, Default, Extra, Privileges, Comment of one column.
QString TestManagementForms::fullColumn(const std::string &table, const std::string &column)
{
    return rows("SHOW FULL COLUMNS FROM " + SQL::identifier(table) + " WHERE Field = " + SQL::value(column)).value(0);
}

void TestManagementForms::createDatabaseAppearsAfterReload_data()
{
    QTest::addColumn<int>("charsetIndex");
    QTest::addColumn<QString>("charset");

    QTest::newRow("the recommended character set") << 0 << "utf8mb4";
    QTest::newRow("latin1") << static_cast<int>(
        std::find(characterSets().begin(), characterSets().end(), "latin1") - characterSets().begin())
                            << "latin1";
}

void TestManagementForms::createDatabaseAppearsAfterReload()
{
    QFETCH(int, charsetIndex);
    QFETCH(QString, charset);

    const std::string name = m_scratch->name() + "_new`db";
    m_databasesToDrop.push_back(name);
    auto form = open(ManagementSheet::createDatabase);
    QCOMPARE(form->windowTitle(), QStringLiteral("Create database"));
    auto *charsets = field<QComboBox>(*form, QStringLiteral("charset"));
    QVERIFY(charsets);
    QCOMPARE(charsets->itemText(0), QStringLiteral("utf8mb4 (recommended)"));
    charsets->setCurrentIndex(charsetIndex);
    field<QLineEdit>(*form, QStringLiteral("name"))->setText(QString::fromStdString(name));
    // The label of the recommended set must not leak into the statement.
    QCOMPARE(form->previewText(),
        QStringLiteral("CREATE DATABASE `%1_new``db` CHARACTER SET %2;")
            .arg(QString::fromStdString(m_scratch->name()), charset));
    QVERIFY(form->errorText().isEmpty());

    m_harness->prompts.confirmations = { true };
    QVERIFY(applyAndSettle(*form));
    QCOMPARE(form->result(), int(QDialog::Accepted));
    QVERIFY2(form->errorText().isEmpty(), qPrintable(form->errorText()));

    QCOMPARE(m_harness->prompts.asked.size(), std::size_t(1));
    const ScriptedPrompts::Question &review = m_harness->prompts.asked.front();
    QCOMPARE(review.kind, std::string("sql"));
    QCOMPARE(QString::fromStdString(review.text), form->previewText());
    QCOMPARE(review.title, std::string("Apply Create database"));
    QVERIFY(QString::fromStdString(review.detail).startsWith(QStringLiteral("Target: ")));
    QVERIFY(QString::fromStdString(review.detail).endsWith(QStringLiteral(". Schema changes can commit immediately.")));

    const StringList &databases = m_session->databases();
    QVERIFY(std::find(databases.begin(), databases.end(), name) != databases.end());
    QCOMPARE(rows("SELECT DEFAULT_CHARACTER_SET_NAME FROM information_schema.SCHEMATA WHERE SCHEMA_NAME = "
                 + SQL::value(name)),
        QStringList { charset });
}

void TestManagementForms::createTableKeepsAnApostropheInADefault()
{
    auto form = open(ManagementSheet::createTable);
    auto *columns = form->findChild<ColumnDraftEditor *>();
    QVERIFY(columns);
    QCOMPARE(columns->rowCount(), 1);
    field<QLineEdit>(*form, QStringLiteral("name"))->setText(QStringLiteral("it's new"));

    // A row added and removed again must not reach the statement.
    columns->addButton()->click();
    columns->addButton()->click();
    QCOMPARE(columns->rowCount(), 3);
    columns->nameField(2)->setText(QStringLiteral("dropped"));
    columns->nameField(1)->setText(QStringLiteral("who"));
    columns->typeField(1)->setCurrentText(QStringLiteral("varchar(50)"));
    columns->defaultField(1)->setText(QStringLiteral("O'Brien"));
    columns->removeRow(2);
    QCOMPARE(columns->rowCount(), 2);
    QVERIFY2(form->errorText().isEmpty(), qPrintable(form->errorText()));
    QVERIFY(!form->previewText().contains(QStringLiteral("dropped")));

    m_harness->prompts.confirmations = { true };
    QVERIFY(applyAndSettle(*form));
    QCOMPARE(form->result(), int(QDialog::Accepted));
    QCOMPARE(m_harness->prompts.asked.front().title, std::string("Apply Create table"));

    const std::vector<TableInfo> &tables = m_session->tables().at(m_scratch->name());
    QVERIFY(std::any_of(tables.begin(), tables.end(), [](const TableInfo &table) { return table.name == "it's new"; }));
    const std::string table = SQL::qualified(m_scratch->name(), "it's new");
    m_scratch->run("INSERT INTO " + table + " () VALUES ()");
    QCOMPARE(rows("SELECT * FROM " + table), QStringList { QStringLiteral("1|O'Brien") });
}

void TestManagementForms::addedColumnIsReloadedIntoTheSession()
{
    auto form = open(ManagementSheet::addColumn);
    auto *columns = form->findChild<ColumnDraftEditor *>();
    QVERIFY(columns);
    QCOMPARE(columns->rowCount(), 1);
    QVERIFY(!columns->addButton());
    columns->nameField(0)->setText(QStringLiteral("  shipped "));
    columns->typeField(0)->setCurrentText(QStringLiteral(" varchar(20) "));
    columns->nullableToggle(0)->setChecked(false);
    columns->defaultField(0)->setText(QStringLiteral("n/a"));

    m_harness->prompts.confirmations = { true };
    QVERIFY(applyAndSettle(*form));
    QCOMPARE(form->result(), int(QDialog::Accepted));
    const QStringList shipped = fullColumn("orders", "shipped").split(QLatin1Char('|'));
    QCOMPARE(shipped.size(), 9);
    QCOMPARE(shipped[1], QStringLiteral("varchar(20)"));
    QCOMPARE(shipped[3], QStringLiteral("NO"));
    QCOMPARE(shipped[5], QStringLiteral("n/a"));
    QVERIFY(sessionColumn("shipped"));
    const std::vector<std::string> shown = m_session->tableResult().columnNames();
    QVERIFY(std::find(shown.begin(), shown.end(), "shipped") != shown.end());
}

void TestManagementForms::editingKeepsWhatTheFormDoesNotShow_data()
{
    QTest::addColumn<QString>("column");
    QTest::addColumn<QString>("shownType");
    QTest::addColumn<QString>("newType"); // empty: left as shown
    QTest::addColumn<QString>("storedType");

    QTest::newRow("VARCHAR made longer keeps collation and comment") << "name"
                                                                     << "VARCHAR(100)"
                                                                     << "varchar(200)"
                                                                     << "varchar(200)";
    QTest::newRow("TIMESTAMP untouched keeps ON UPDATE") << "changed"
                                                         << "TIMESTAMP" << QString() << "timestamp";
}

void TestManagementForms::editingKeepsWhatTheFormDoesNotShow()
{
    QFETCH(QString, column);
    QFETCH(QString, shownType);
    QFETCH(QString, newType);
    QFETCH(QString, storedType);

    const std::optional<ColumnInfo> existing = sessionColumn(column.toStdString());
    QVERIFY(existing);
    QStringList before = fullColumn("orders", column.toStdString()).split(QLatin1Char('|'));
    QCOMPARE(before.size(), 9);
    auto form = open(ManagementSheet::modifyColumn, existing);
    QCOMPARE(form->windowTitle(), QStringLiteral("Edit column"));
    auto *columns = form->findChild<ColumnDraftEditor *>();
    QVERIFY(columns);
    QCOMPARE(columns->nameField(0)->text(), column);
    QCOMPARE(columns->typeField(0)->currentText(), shownType);
    QVERIFY(!columns->nullableToggle(0)->isChecked());
    if (!newType.isEmpty()) {
        columns->typeField(0)->setCurrentText(newType);
    }
    QVERIFY2(form->errorText().isEmpty(), qPrintable(form->errorText()));

    m_harness->prompts.confirmations = { true };
    QVERIFY(applyAndSettle(*form));
    QCOMPARE(form->result(), int(QDialog::Accepted));
    before[1] = storedType;
    QCOMPARE(fullColumn("orders", column.toStdString()), before.join(QLatin1Char('|')));
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
    const QueryResult index = m_scratch->run("SHOW INDEX FROM orders WHERE Key_name = 'by total, name'");
    QStringList columns;
    for (const Row &row : index.rows) {
        columns << QString::fromStdString(
            row[1].value_or("?") + " " + row[3].value_or("?") + " " + row[4].value_or("?"));
    }
    QCOMPARE(columns, (QStringList { QStringLiteral("0 1 name"), QStringLiteral("0 2 total") }));
}

void TestManagementForms::insertedRowReadsBack_data()
{
    // Per column of `items`: the mode to pick (empty keeps the one the form starts with) and the
    // text to put in its value field.
    QTest::addColumn<QString>("labelMode");
    QTest::addColumn<QString>("label");
    QTest::addColumn<QString>("priceMode");
    QTest::addColumn<QString>("price");
    QTest::addColumn<QString>("noteMode");
    QTest::addColumn<QString>("note");
    QTest::addColumn<QString>("expected");

    QTest::newRow("server defaults") << QString() << QString() << QString() << QString() << QString() << QString()
                                     << "1|A-1|none|<null>|<null>";
    QTest::newRow("NULL and text that needs escaping")
        << "Value" << QStringLiteral("O'Brien \\ \"q\"") << "NULL"
        << "12.00"
        << "Value" << QStringLiteral("two\nlines \U0001F9F9")
        << QStringLiteral("1|A-1|O'Brien \\ \"q\"|<null>|two\nlines \U0001F9F9");
    QTest::newRow("an empty value is not NULL")
        << QString() << QString() << QString() << QString() << "Value" << QString() << "1|A-1|none|<null>|";
}

void TestManagementForms::insertedRowReadsBack()
{
    QFETCH(QString, labelMode);
    QFETCH(QString, label);
    QFETCH(QString, priceMode);
    QFETCH(QString, price);
    QFETCH(QString, noteMode);
    QFETCH(QString, note);
    QFETCH(QString, expected);

    QVERIFY(selectTable("items"));
    auto form = open(ManagementSheet::insertRow);
    // What the server can fill starts on Default; the required column asks for a value.
    for (const auto &[column, mode] : std::vector<std::pair<QString, QString>> { { "id", "Default" },
             { "code", "Value" },
             { "label", "Default" },
             { "price", "Default" },
             { "note", "Default" } }) {
        auto *combo = field<QComboBox>(*form, QStringLiteral("mode:") + column);
        QVERIFY(combo);
        QCOMPARE(combo->currentText(), mode);
    }
    // Typing switches a column to Value by itself.
    QTest::keyClicks(field<QLineEdit>(*form, QStringLiteral("value:code")), QStringLiteral("A-1"));
    const auto set = [&form](const QString &column, const QString &mode, const QString &value) {
        if (!mode.isEmpty()) {
            field<QComboBox>(*form, QStringLiteral("mode:") + column)->setCurrentText(mode);
        }
        field<QLineEdit>(*form, QStringLiteral("value:") + column)->setText(value);
    };
    set(QStringLiteral("label"), labelMode, label);
    set(QStringLiteral("price"), priceMode, price);
    set(QStringLiteral("note"), noteMode, note);
    QVERIFY2(form->errorText().isEmpty(), qPrintable(form->errorText()));

    m_harness->prompts.confirmations = { true };
    QVERIFY(applyAndSettle(*form));
    QVERIFY2(form->errorText().isEmpty(), qPrintable(form->errorText()));
    QCOMPARE(form->result(), int(QDialog::Accepted));
    QCOMPARE(rows("SELECT * FROM items"), QStringList { expected });
    QCOMPARE(m_session->tableResult().rows.size(), std::size_t(1));
}

void TestManagementForms::createdUserCanLogIn()
{
    const std::string user = "tw_form_" + QUuid::createUuid().toString(QUuid::Id128).left(8).toStdString();
    const std::string password = "it's a \"secret\" \\ \xE2\x9C\x93";
    m_usersToDrop.push_back(user);
    auto form = open(ManagementSheet::createUser);
    QCOMPARE(field<QPushButton>(*form, QStringLiteral("apply"))->text(), QStringLiteral("Create user"));
    QCOMPARE(field<QLineEdit>(*form, QStringLiteral("host"))->text(), QStringLiteral("%"));
    field<QLineEdit>(*form, QStringLiteral("name"))->setText(QString::fromStdString(user));
    field<QLineEdit>(*form, QStringLiteral("password"))->setText(QString::fromStdString(password));

    m_harness->prompts.confirmations = { true };
    QVERIFY(applyAndSettle(*form));
    QVERIFY2(form->errorText().isEmpty(), qPrintable(form->errorText()));
    QCOMPARE(form->result(), int(QDialog::Accepted));
    QCOMPARE(m_harness->prompts.asked.size(), std::size_t(1));
    const ScriptedPrompts::Question &question = m_harness->prompts.asked.front();
    QCOMPARE(question.kind, std::string("action"));
    QCOMPARE(question.text, std::string("Create MySQL user?"));
    QVERIFY(QString::fromStdString(question.detail).endsWith(QStringLiteral(", initially without privileges.")));

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
    QTest::addColumn<ManagementSheet>("kind");
    QTest::addColumn<QString>("name"); // the name field, when the form has one
    QTest::addColumn<QString>("columnName"); // the last column row, when the form has rows
    QTest::addColumn<QString>("columnType");
    QTest::addColumn<QString>("host");
    QTest::addColumn<QString>("password");
    QTest::addColumn<QString>("expected");

    QTest::newRow("database name of spaces") << ManagementSheet::createDatabase << "   " << QString() << QString()
                                             << QString() << QString() << "Enter a database name.";
    QTest::newRow("table without a name") << ManagementSheet::createTable << QString() << QString() << QString()
                                          << QString() << QString() << "Enter a table name.";
    QTest::newRow("two columns named alike") << ManagementSheet::createTable << "t"
                                             << "ID"
                                             << "INT" << QString() << QString() << "Column names must be unique.";
    QTest::newRow("type with a character set")
        << ManagementSheet::addColumn << QString() << "x"
        << "VARCHAR(255) CHARACTER SET latin1" << QString() << QString()
        << "Enter a simple SQL type such as VARCHAR(255), DECIMAL(10,2), or BIGINT UNSIGNED. Use the SQL editor for "
           "complex types.";
    QTest::newRow("column without a name") << ManagementSheet::addColumn << QString() << QString() << "INT" << QString()
                                           << QString() << "Every column needs a name.";
    QTest::newRow("index without columns")
        << ManagementSheet::addIndex << "by_nothing" << QString() << QString() << QString() << QString()
        << "Name the index and choose at least one column.";
    QTest::newRow("user without a password") << ManagementSheet::createUser << "someone" << QString() << QString()
                                             << "%" << QString() << "Enter a username, client host, and password.";
    QTest::newRow("user without a host") << ManagementSheet::createUser << "someone" << QString() << QString()
                                         << QString() << "pw"
                                         << "Enter a username, client host, and password.";
    QTest::newRow("user without a name") << ManagementSheet::createUser << QString() << QString() << QString() << "%"
                                         << "pw"
                                         << "Enter a username, client host, and password.";
}

void TestManagementForms::refusalsSendNothing()
{
    QFETCH(ManagementSheet, kind);
    QFETCH(QString, name);
    QFETCH(QString, columnName);
    QFETCH(QString, columnType);
    QFETCH(QString, host);
    QFETCH(QString, password);
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
    if (auto *hostField = field<QLineEdit>(*form, QStringLiteral("host"))) {
        hostField->setText(host);
    }
    if (auto *passwordField = field<QLineEdit>(*form, QStringLiteral("password"))) {
        passwordField->setText(password);
    }
    QVERIFY(form->previewText().isEmpty());
    QVERIFY(!form->errorText().isEmpty());

    QSignalSpy statuses(m_session.get(), &ServerSession::statusChanged);
    m_harness->prompts.confirmations = { true };
    field<QPushButton>(*form, QStringLiteral("apply"))->click();
    QCOMPARE(form->errorText(), expected);
    QVERIFY(m_harness->prompts.asked.empty());
    QVERIFY(!m_session->busy());
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
    QVERIFY(!m_session->busy());
    QCOMPARE(statuses.count(), 0);
    QVERIFY(form->result() != QDialog::Accepted);
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
    QVERIFY(m_session->error());
    QCOMPARE(form->errorText(), QString::fromStdString(*m_session->error()));
    QVERIFY2(form->errorText().contains(QStringLiteral("already exists")), qPrintable(form->errorText()));
    QCOMPARE(m_session->status(), std::string("Applying change… failed"));
    QVERIFY(form->isVisible());
    QVERIFY(field<QPushButton>(*form, QStringLiteral("apply"))->isEnabled());

    // Fixing the name and applying again goes through.
    field<QLineEdit>(*form, QStringLiteral("name"))->setText(QStringLiteral("orders_2"));
    QVERIFY(form->errorText().isEmpty());
    m_harness->prompts.confirmations = { true };
    QVERIFY(applyAndSettle(*form));
    QCOMPARE(form->result(), int(QDialog::Accepted));
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
