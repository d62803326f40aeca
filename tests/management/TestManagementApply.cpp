#include "client/ClientThreadScope.h"
#include "client/MySQLConnection.h"
#include "core/AppError.h"
#include "core/SqlQuoting.h"
#include "management/ManagementSQL.h"
#include "support/Checks.h"
#include "support/TestServer.h"

#include <QScopeGuard>
#include <QTest>

using namespace tallowick;
using namespace tallowick::test;

Q_DECLARE_METATYPE(tallowick::ManagementDraft)

// Drafts are written with designated initializers; the fields left out keep their defaults.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

namespace
{

const std::string orders
    = "CREATE TABLE orders (id INT AUTO_INCREMENT PRIMARY KEY, name VARCHAR(100) COLLATE utf8mb4_bin"
      " NOT NULL DEFAULT 'nobody' COMMENT 'shown on invoices', changed TIMESTAMP NOT NULL DEFAULT"
      " CURRENT_TIMESTAMP ON UPDATE CURRENT_TIMESTAMP, total DECIMAL(10,2) NULL, note TEXT NULL)";

} // namespace

// The generated statements are accepted by the real server and do what the form's preview says.
class TestManagementApply final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void applied_data();
    void applied();

private:
    MySQLConnection &connection() { return m_scratch.connection(); }

    ClientThreadScope m_clientThread;
    const TestServer m_server = TestServer::fromEnvironment(); // ends the run when the servers are missing
    ScratchDatabase m_scratch { m_server };
};

void TestManagementApply::init()
{
    connection().query("DROP TABLE IF EXISTS orders");
    connection().query(orders);
}

void TestManagementApply::applied_data()
{
    QTest::addColumn<ManagementDraft>("draft");
    QTest::addColumn<QString>("check"); // a query whose rows show the change
    QTest::addColumn<QStringList>("expected");

    init();
    // clang-format off
    for (const std::string &charset : characterSets()) {
        const std::string name = m_scratch.name() + "_" + charset;
        QTest::addRow("create database, %s", charset.c_str())
            << ManagementDraft { .kind = ManagementSheet::createDatabase, .name = name, .charset = charset }
            << QString::fromStdString("SELECT DEFAULT_CHARACTER_SET_NAME FROM information_schema.SCHEMATA"
                                      " WHERE SCHEMA_NAME = '" + name + "'")
            << QStringList { QString::fromStdString(charset) };
    }
    // The server's column listing shows a 4-byte character in a default as "?", so the default is
    // read from a row that takes it.
    QTest::newRow("create table") << ManagementDraft { .kind = ManagementSheet::createTable, .name = "it's `new`",
        .columns = { { .name = "id", .type = "bigint unsigned", .primary = true, .autoIncrement = true },
            { .name = "who\\", .type = "varchar(50)", .defaultValue = "O'Brien \xF0\x9F\xA7\xB9" },
            { .name = "at", .type = "DATETIME", .nullable = false, .defaultValue = "Current_Timestamp()" } } }
        << "INSERT INTO `it's ``new``` () VALUES (); SELECT id, `who\\`, `at` IS NOT NULL FROM `it's ``new```"
        << QStringList { "1|O'Brien \xF0\x9F\xA7\xB9|1" };
    QTest::newRow("add column") << ManagementDraft { .kind = ManagementSheet::addColumn,
        .columns = { { .name = "price", .type = "decimal(10,2)", .nullable = false, .defaultValue = "0.5" } } }
        << "SHOW COLUMNS FROM orders LIKE 'price'" << QStringList { "price|decimal(10,2)|NO||0.50|" };
    // The form does not show the collation, ON UPDATE or comment: editing the column keeps them.
    for (const auto &[position, type] : { std::pair(1, ""), std::pair(1, "VARCHAR(200)"), std::pair(2, "") }) {
        const ColumnInfo before = connection().columns(m_scratch.name(), "orders").at(std::size_t(position));
        ManagementDraft edited { .kind = ManagementSheet::modifyColumn, .column = before,
            .columns = { draftFromColumn(before) } };
        const QString check = QString::fromStdString("SHOW FULL COLUMNS FROM orders LIKE '" + before.name + "'");
        QStringList listing = rowTexts(connection().query(check.toStdString()).rows);
        if (*type) {
            edited.columns[0].type = type;
            listing.replaceInStrings("varchar(100)", QString(type).toLower());
        }
        QTest::addRow("edit %s, type %s", before.name.c_str(), *type ? type : "untouched") << edited << check << listing;
    }
    QTest::newRow("unique index in table order") << ManagementDraft { .kind = ManagementSheet::addIndex,
        .name = "by total, name", .unique = true, .selected = { "total", "name" } }
        << "SELECT NON_UNIQUE, COLUMN_NAME FROM information_schema.STATISTICS WHERE TABLE_NAME = 'orders' AND "
           "INDEX_NAME = 'by total, name' AND TABLE_SCHEMA = DATABASE() ORDER BY SEQ_IN_INDEX"
        << QStringList { "0|name", "0|total" };
    // Columns left on Default take the server's default, auto-increment value and timestamp.
    QTest::newRow("insert row") << ManagementDraft { .kind = ManagementSheet::insertRow,
        .values = { { "name", "O'Brien\\\xF0\x9F\xA7\xB9\r\n'" }, { "note", "typed, but NULL" } },
        .valueModes = { { "name", "Value" }, { "note", "NULL" } } }
        << "SELECT id, name, note, total, changed IS NOT NULL FROM orders"
        << QStringList { "1|O'Brien\\\xF0\x9F\xA7\xB9\r\n'|<null>|<null>|1" };
    // clang-format on
}

void TestManagementApply::applied()
{
    QFETCH(ManagementDraft, draft);
    QFETCH(QString, check);
    QFETCH(QStringList, expected);

    const auto dropDatabase = qScopeGuard([&] {
        if (draft.kind == ManagementSheet::createDatabase) {
            errorFrom([&] { connection().query("DROP DATABASE IF EXISTS " + SQL::identifier(draft.name)); });
        }
    });
    const ManagementContext context { m_scratch.name(), "orders", connection().columns(m_scratch.name(), "orders") };
    QCOMPARE(errorFrom([&] { connection().query(generatedSQL(draft, context)); }), QStringLiteral("(no error)"));
    QStringList actual;
    for (const QString &statement : check.split("; ")) {
        actual = rowTexts(connection().query(statement.toStdString()).rows);
    }
    QCOMPARE(actual, expected);
}

QTEST_GUILESS_MAIN(TestManagementApply)
#include "TestManagementApply.moc"
