#include "client/ClientThreadScope.h"
#include "client/MySQLConnection.h"
#include "core/AppError.h"
#include "core/SqlQuoting.h"
#include "management/ManagementSQL.h"
#include "support/TestServer.h"

#include <QTest>
#include <memory>

using namespace tallowick;
using namespace tallowick::test;

// The generated statements are accepted by a real server and do what the form promised.
class TestManagementApply final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanupTestCase();

    void everyCharacterSetCreatesADatabase();
    void createdTableHasTheFormsColumns();
    void editingKeepsCollationOnUpdateAndComment_data();
    void editingKeepsCollationOnUpdateAndComment();
    void indexFollowsTableOrder();
    void insertedRowReadsBack_data();
    void insertedRowReadsBack();

private:
    MySQLConnection &connection() { return m_scratch->connection(); }
    ManagementContext context(const std::string &table)
    {
        return { m_scratch->name(), table, connection().columns(m_scratch->name(), table) };
    }
    ColumnInfo column(const std::string &table, const std::string &name);
    void apply(const ManagementDraft &draft, const ManagementContext &where)
    {
        connection().query(generatedSQL(draft, where));
    }

    ClientThreadScope m_clientThread;
    TestServer m_server;
    std::unique_ptr<ScratchDatabase> m_scratch;
};

void TestManagementApply::initTestCase()
{
    try {
        m_server = TestServer::fromEnvironment();
        m_scratch = std::make_unique<ScratchDatabase>(m_server);
    } catch (const AppError &error) {
        QFAIL(error.what());
    }
}

void TestManagementApply::init()
{
    connection().query("DROP TABLE IF EXISTS orders");
    connection().query("CREATE TABLE orders (id INT AUTO_INCREMENT PRIMARY KEY, "
                       "name VARCHAR(100) COLLATE utf8mb4_bin NOT NULL DEFAULT 'nobody' COMMENT 'shown on invoices', "
                       "changed TIMESTAMP NOT NULL DEFAULT CURRENT_TIMESTAMP ON UPDATE CURRENT_TIMESTAMP, "
                       "total DECIMAL(10,2) NULL, note TEXT NULL) ENGINE=InnoDB");
}

void TestManagementApply::cleanupTestCase()
{
    m_scratch.reset();
}

ColumnInfo TestManagementApply::column(const std::string &table, const std::string &name)
{
    for (ColumnInfo info : connection().columns(m_scratch->name(), table)) {
        if (info.name == name) {
            return info;
        }
    }
    throw AppError("No column " + name + " in " + table);
}

void TestManagementApply::everyCharacterSetCreatesADatabase()
{
    for (const std::string &charset : characterSets()) {
        ManagementDraft draft;
        draft.kind = ManagementSheet::createDatabase;
        draft.name = m_scratch->name() + "_" + charset;
        draft.charset = charset;
        try {
            apply(draft, {});
            const QueryResult created
                = connection().query("SELECT DEFAULT_CHARACTER_SET_NAME FROM information_schema.SCHEMATA "
                                     "WHERE SCHEMA_NAME = "
                    + SQL::value(draft.name));
            connection().query("DROP DATABASE " + SQL::identifier(draft.name));
            QCOMPARE(created.rows, std::vector<Row> { { charset } });
        } catch (const AppError &error) {
            QFAIL(qPrintable(QString::fromStdString(charset + ": " + error.message())));
        }
    }
}

void TestManagementApply::createdTableHasTheFormsColumns()
{
    ManagementDraft draft;
    draft.kind = ManagementSheet::createTable;
    draft.name = "it's `new`";
    draft.columns.resize(3);
    draft.columns[0].name = "id";
    draft.columns[0].type = "bigint unsigned";
    draft.columns[0].primary = true;
    draft.columns[0].autoIncrement = true;
    draft.columns[1].name = "who\\";
    draft.columns[1].type = "varchar(50)";
    draft.columns[1].defaultValue = "O'Brien \xF0\x9F\xA7\xB9";
    draft.columns[2].name = "at";
    draft.columns[2].type = "DATETIME";
    draft.columns[2].nullable = false;
    draft.columns[2].defaultValue = "Current_Timestamp()";
    apply(draft, context("orders"));

    const std::vector<ColumnInfo> columns = connection().columns(m_scratch->name(), draft.name);
    QCOMPARE(columns.size(), std::size_t(3));
    QCOMPARE(columns[0].type, std::string("bigint(20) unsigned"));
    QVERIFY(columns[0].primary && !columns[0].nullable);
    QCOMPARE(columns[0].extra, std::string("auto_increment"));
    QVERIFY(!columns[2].nullable);
    QCOMPARE(columns[2].defaultValue, Cell("current_timestamp()"));

    // The server's column listing shows a 4-byte character in a default as "?", so the default is
    // checked on a row that takes it.
    const std::string table = SQL::qualified(m_scratch->name(), draft.name);
    connection().query("INSERT INTO " + table + " () VALUES ()");
    const QueryResult row = connection().query("SELECT id, `who\\`, `at` IS NOT NULL FROM " + table);
    QCOMPARE(row.rows, (std::vector<Row> { { "1", "O'Brien \xF0\x9F\xA7\xB9", "1" } }));
}

void TestManagementApply::editingKeepsCollationOnUpdateAndComment_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("type"); // the edited type, empty to keep it

    QTest::newRow("VARCHAR made longer") << "name"
                                         << "VARCHAR(200)";
    QTest::newRow("VARCHAR untouched") << "name" << QString();
    QTest::newRow("TIMESTAMP untouched") << "changed" << QString();
}

void TestManagementApply::editingKeepsCollationOnUpdateAndComment()
{
    QFETCH(QString, name);
    QFETCH(QString, type);

    const ColumnInfo before = column("orders", name.toStdString());
    ManagementDraft draft;
    draft.kind = ManagementSheet::modifyColumn;
    draft.column = before;
    draft.columns = { draftFromColumn(before) };
    if (!type.isEmpty()) {
        draft.columns.front().type = type.toStdString();
    }
    apply(draft, context("orders"));

    ColumnInfo expected = before;
    if (!type.isEmpty()) {
        expected.type = type.toLower().toStdString();
    }
    QCOMPARE(column("orders", name.toStdString()), expected);
}

void TestManagementApply::indexFollowsTableOrder()
{
    ManagementDraft draft;
    draft.kind = ManagementSheet::addIndex;
    draft.name = "by total, name";
    draft.unique = true;
    draft.selected = { "total", "name" };
    apply(draft, context("orders"));

    const QueryResult index
        = connection().query("SELECT NON_UNIQUE, COLUMN_NAME FROM information_schema.STATISTICS WHERE TABLE_SCHEMA = "
            + SQL::value(m_scratch->name()) + " AND TABLE_NAME = 'orders' AND INDEX_NAME = " + SQL::value(draft.name)
            + " ORDER BY SEQ_IN_INDEX");
    QCOMPARE(index.rows, (std::vector<Row> { { "0", "name" }, { "0", "total" } }));
}

void TestManagementApply::insertedRowReadsBack_data()
{
    QTest::addColumn<QString>("nameMode");
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QString>("noteMode");
    QTest::addColumn<QByteArray>("note");
    QTest::addColumn<QString>("expected"); // name|note as the server returns them, SQL NULL as <null>

    QTest::newRow("every column on Default")
        << "Default" << QByteArray() << "Default" << QByteArray() << "nobody|<null>";
    QTest::newRow("apostrophes, backslashes, line breaks and a 4-byte character")
        << "Value" << QByteArray("O'Brien\\\xF0\x9F\xA7\xB9") << "Value" << QByteArray("a\r\nb\\'c")
        << "O'Brien\\\xF0\x9F\xA7\xB9|a\r\nb\\'c";
    QTest::newRow("empty text and NULL") << "Value" << QByteArray() << "NULL" << QByteArray() << "|<null>";
}

void TestManagementApply::insertedRowReadsBack()
{
    QFETCH(QString, nameMode);
    QFETCH(QByteArray, name);
    QFETCH(QString, noteMode);
    QFETCH(QByteArray, note);
    QFETCH(QString, expected);

    ManagementDraft draft;
    draft.kind = ManagementSheet::insertRow;
    draft.valueModes = { { "id", "Default" },
        { "changed", "Default" },
        { "total", "Default" },
        { "name", nameMode.toStdString() },
        { "note", noteMode.toStdString() } };
    draft.values = { { "name", name.toStdString() }, { "note", note.toStdString() } };
    apply(draft, context("orders"));

    const QueryResult row = connection().query("SELECT name, COALESCE(note, '<null>'), id, changed IS NOT NULL "
                                               "FROM orders");
    QCOMPARE(row.rows.size(), std::size_t(1));
    QCOMPARE(QString::fromStdString(*row.rows[0][0] + "|" + *row.rows[0][1]), expected);
    QCOMPARE(row.rows[0][2], Cell("1")); // the auto-increment value
    QCOMPARE(row.rows[0][3], Cell("1")); // the server's default timestamp
}

QTEST_GUILESS_MAIN(TestManagementApply)
#include "TestManagementApply.moc"
