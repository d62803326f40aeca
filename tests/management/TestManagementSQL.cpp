#include "management/CsvImport.h"
#include "management/ManagementSQL.h"
#include "support/Checks.h"

#include <QTest>

using namespace tallowick;
using namespace tallowick::test;

Q_DECLARE_METATYPE(tallowick::ManagementDraft)

// Drafts are written with designated initializers; the fields left out keep their defaults.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

namespace
{

// The columns as SHOW FULL COLUMNS reports them on MariaDB (lower-case types, "()" after
// current_timestamp), plus a MySQL-style DEFAULT_GENERATED column.
const ColumnInfo idColumn { "id", "int(11)", false, true, std::nullopt, "auto_increment", std::nullopt, "" };
const ColumnInfo nameColumn { "name", "varchar(100)", true, false, std::nullopt, "", "utf8mb4_unicode_ci", "" };
const ColumnInfo createdColumn {
    "created", "timestamp", false, false, "current_timestamp()", "on update current_timestamp()", {}, ""
};
const ColumnInfo noteColumn { "note", "text", true, false, std::nullopt, "", "utf8mb4_bin", "shown on invoices" };
const ColumnInfo totalColumn { "total", "decimal(10,2)", true, false, "0.00", "", std::nullopt, "" };
const ColumnInfo doubledColumn { "doubled", "int(11)", true, false, std::nullopt, "virtual generated", {}, "" };
const ColumnInfo dueColumn { "due", "date", true, false, "(curdate() + interval 7 day)", "DEFAULT_GENERATED", {}, "" };

const ManagementContext shop {
    "shop", "orders", { idColumn, nameColumn, createdColumn, noteColumn, totalColumn, doubledColumn, dueColumn }
};

ColumnDraft row(std::string name,
    std::string type,
    bool nullable = true,
    bool primary = false,
    bool autoIncrement = false,
    std::string defaultValue = {})
{
    return { .name = std::move(name),
        .type = std::move(type),
        .nullable = nullable,
        .primary = primary,
        .autoIncrement = autoIncrement,
        .defaultValue = std::move(defaultValue) };
}

ManagementDraft addColumn(ColumnDraft column)
{
    return { .kind = ManagementSheet::addColumn, .columns = { std::move(column) } };
}

ManagementDraft edit(const ColumnInfo &column, ColumnDraft edited)
{
    return { .kind = ManagementSheet::modifyColumn, .column = column, .columns = { std::move(edited) } };
}

ManagementDraft indexDraft(std::string name, std::set<std::string> selected, bool unique)
{
    return { .kind = ManagementSheet::addIndex, .name = std::move(name), .unique = unique, .selected = selected };
}

ManagementDraft user(std::string name, std::string host, std::string password)
{
    return { .kind = ManagementSheet::createUser, .name = name, .password = password, .host = host };
}

} // namespace

class TestManagementSQL final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void generatedSQL_data();
    void generatedSQL();
    void everyTypeSuggestionIsAccepted();
    void reviewDetailNamesTheTarget();

    void csvRefusals_data();
    void csvRefusals();
    void csvPlan_data();
    void csvPlan();
    void csvPlanFromTheHeadOfALargeFile();
    void csvBatchingSplitsAtTheBudget_data();
    void csvBatchingSplitsAtTheBudget();
};

// Each row gives the statement, or the message the form shows instead.
void TestManagementSQL::generatedSQL_data()
{
    QTest::addColumn<ManagementDraft>("draft");
    QTest::addColumn<QString>("expected");

    const QString add = "ALTER TABLE `shop`.`orders`\nADD COLUMN ";
    const QString change = "ALTER TABLE `shop`.`orders`\nCHANGE COLUMN ";
    const QString simpleType = QStringLiteral("Enter a simple SQL type such as VARCHAR(255), DECIMAL(10,2), or BIGINT "
                                              "UNSIGNED. Use the SQL editor for complex types.");
    const QString table = ") ENGINE=InnoDB DEFAULT CHARSET=utf8mb4;";
    // clang-format off
    QTest::newRow("column: blanks and a line break around the type") << addColumn(row("n", " \t bigint unsigned\n"))
        << add + "`n` BIGINT UNSIGNED NULL;";
    QTest::newRow("column: auto increment after the default") << addColumn(row("id", "BIGINT", false, true, true, "1"))
        << add + "`id` BIGINT NOT NULL DEFAULT '1' AUTO_INCREMENT;";
    QTest::newRow("column: Current_Timestamp without brackets")
        << addColumn(row("t", "DATETIME", true, false, false, "Current_Timestamp"))
        << add + "`t` DATETIME NULL DEFAULT CURRENT_TIMESTAMP;";
    QTest::newRow("column: NOW() is only text") << addColumn(row("t", "VARCHAR(10)", true, false, false, "NOW()"))
        << add + "`t` VARCHAR(10) NULL DEFAULT 'NOW()';";
    QTest::newRow("column without a name") << addColumn(row("", "INT")) << "Every column needs a name.";
    QTest::newRow("add column without a row") << ManagementDraft { .kind = ManagementSheet::addColumn }
                                              << "Every column needs a name.";
    for (const char *type : { "ENUM('a','b')", "DECIMAL(10,2,3)", "VARCHAR (255)", "", "INT); DROP TABLE t; --", "VARCHÄR(10)" }) {
        QTest::addRow("type: %s", type) << addColumn(row("n", type)) << simpleType;
    }

    // The edit form does not show the collation, ON UPDATE or comment: they are carried over.
    QTest::newRow("edit: rename keeps the collation") << edit(nameColumn, row("full name", "varchar(200)"))
        << change + "`name` `full name` VARCHAR(200) COLLATE `utf8mb4_unicode_ci` NULL;";
    QTest::newRow("edit: VARBINARY drops the collation") << edit(nameColumn, row("name", "VARBINARY(100)"))
        << change + "`name` `name` VARBINARY(100) NULL;";
    ColumnInfo quotedComment = noteColumn;
    quotedComment.comment = "customer's note";
    QTest::newRow("edit: comment with an apostrophe") << edit(quotedComment, row("note", "TEXT"))
        << "Use the SQL editor to modify a column whose comment holds quotes, backslashes, or line breaks.";
    ColumnInfo mysqlTimestamp = createdColumn;
    mysqlTimestamp.defaultValue = "CURRENT_TIMESTAMP";
    mysqlTimestamp.extra = "DEFAULT_GENERATED on update CURRENT_TIMESTAMP";
    QTest::newRow("edit: DEFAULT_GENERATED CURRENT_TIMESTAMP is allowed")
        << edit(mysqlTimestamp, row("created", "DATETIME", false, false, false, "CURRENT_TIMESTAMP"))
        << change + "`created` `created` DATETIME NOT NULL DEFAULT CURRENT_TIMESTAMP ON UPDATE CURRENT_TIMESTAMP;";
    QTest::newRow("edit: generated column") << edit(doubledColumn, row("doubled", "INT"))
                                            << "Use the SQL editor to modify generated columns.";
    QTest::newRow("edit: expression default") << edit(dueColumn, row("due", "DATE"))
        << "Use the SQL editor to preserve this column's expression default.";
    QTest::newRow("edit without the column") << ManagementDraft { .kind = ManagementSheet::modifyColumn,
        .columns = { row("x", "INT") } } << "Choose a column to edit.";

    QTest::newRow("create database with a back-quote") << ManagementDraft { .kind = ManagementSheet::createDatabase,
        .name = "my`db", .charset = "latin1" } << "CREATE DATABASE `my``db` CHARACTER SET latin1;";
    QTest::newRow("database without a name") << ManagementDraft { .kind = ManagementSheet::createDatabase }
                                             << "Enter a database name.";
    QTest::newRow("character set that is not a plain name") << ManagementDraft { .kind = ManagementSheet::createDatabase,
        .name = "d", .charset = "utf8mb4; DROP DATABASE shop" } << "Choose a character set.";

    QTest::newRow("create table: one key, nullable key column made NOT NULL") << ManagementDraft {
        .kind = ManagementSheet::createTable, .name = "people", .columns = { row("id", "bigint unsigned", true, true, true),
        row("name", "VARCHAR(255)", true, false, false, "O'Brien"), row("created", "timestamp", false, false, false,
        "CURRENT_TIMESTAMP()") } }
        << "CREATE TABLE `shop`.`people` (\n  `id` BIGINT UNSIGNED NOT NULL AUTO_INCREMENT,\n"
           "  `name` VARCHAR(255) NULL DEFAULT X'4f27427269656e',\n"
           "  `created` TIMESTAMP NOT NULL DEFAULT CURRENT_TIMESTAMP,\n  PRIMARY KEY (`id`)\n" + table;
    QTest::newRow("create table: two-column key in row order") << ManagementDraft {
        .kind = ManagementSheet::createTable, .name = "items", .columns = { row("tenant", "VARCHAR(10)", false, true),
        row("label", "TEXT"), row("id", "INT", false, true) } }
        << "CREATE TABLE `shop`.`items` (\n  `tenant` VARCHAR(10) NOT NULL,\n  `label` TEXT NULL,\n"
           "  `id` INT NOT NULL,\n  PRIMARY KEY (`tenant`, `id`)\n" + table;
    QTest::newRow("create table without a key") << ManagementDraft { .kind = ManagementSheet::createTable,
        .name = "log", .columns = { row("line", "TEXT") } } << "CREATE TABLE `shop`.`log` (\n  `line` TEXT NULL\n" + table;
    QTest::newRow("table without a name") << ManagementDraft { .kind = ManagementSheet::createTable,
        .columns = { row("id", "INT") } } << "Enter a table name.";
    QTest::newRow("names that differ only in case") << ManagementDraft { .kind = ManagementSheet::createTable,
        .name = "t", .columns = { row("id", "INT"), row("ID", "INT") } } << "Column names must be unique.";

    QTest::newRow("unique index in table order, unknown names ignored")
        << indexDraft("by_total_name", { "total", "name", "gone" }, true)
        << "CREATE UNIQUE INDEX `by_total_name` ON `shop`.`orders` (`name`, `total`);";
    QTest::newRow("plain index") << indexDraft("by`note", { "note" }, false)
                                 << "CREATE INDEX `by``note` ON `shop`.`orders` (`note`);";
    const QString indexMessage = QStringLiteral("Name the index and choose at least one column.");
    QTest::newRow("index over columns the table lacks") << indexDraft("by_name", { "gone" }, false) << indexMessage;
    QTest::newRow("index without a name") << indexDraft("", { "name" }, true) << indexMessage;

    QTest::newRow("insert with every column on Default") << ManagementDraft { .kind = ManagementSheet::insertRow }
                                                         << "INSERT INTO `shop`.`orders` ()\nVALUES ();";
    // A typed total without a mode is sent; a mode of NULL wins over typed text; the text NULL is text.
    QTest::newRow("insert: value, NULL, empty value, typed without mode") << ManagementDraft {
        .kind = ManagementSheet::insertRow,
        .values = { { "name", "O'Brien" }, { "created", "2026-01-01" }, { "total", "12.50" }, { "id", "7" },
            { "due", "NULL" } },
        .valueModes = { { "id", "Default" }, { "name", "Value" }, { "created", "NULL" }, { "note", "Value" },
            { "due", "Value" } } }
        << "INSERT INTO `shop`.`orders` (`name`, `created`, `note`, `total`, `due`)\n"
           "VALUES (CONVERT(X'4f27427269656e' USING utf8mb4), NULL, '', '12.50', 'NULL');";

    QTest::newRow("create user") << user("bob", "%", "pw'1")
                                 << "CREATE USER 'bob'@'%' IDENTIFIED BY CONVERT(X'70772731' USING utf8mb4);";
    const QString userMessage = QStringLiteral("Enter the username, client host, and password.");
    QTest::newRow("user without a name") << user("", "%", "pw") << userMessage;
    QTest::newRow("user without a host") << user("bob", "", "pw") << userMessage;
    QTest::newRow("user without a password") << user("bob", "%", "") << userMessage;
    QTest::newRow("CSV import has no single statement") << ManagementDraft { .kind = ManagementSheet::importCSV }
        << "A CSV import runs as several statements; it has no single statement to review.";
    // clang-format on
}

void TestManagementSQL::generatedSQL()
{
    QFETCH(ManagementDraft, draft);
    QFETCH(QString, expected);
    QString sql;
    const QString error = errorFrom([&] { sql = QString::fromStdString(tallowick::generatedSQL(draft, shop)); });
    QCOMPARE(error == "(no error)" ? sql : error, expected);
}

void TestManagementSQL::everyTypeSuggestionIsAccepted()
{
    QVERIFY(typeSuggestions().size() >= 10);
    for (const std::string &type : typeSuggestions()) {
        const QString error = errorFrom([&] { tallowick::columnDefinition(row("c", type)); });
        QVERIFY2(error == QStringLiteral("(no error)"), qPrintable(QString::fromStdString(type) + ": " + error));
    }
}

// The target names what the change reaches: the server, its database, or the table too.
void TestManagementSQL::reviewDetailNamesTheTarget()
{
    ConnectionProfile profile;
    profile.name = "Production";
    profile.host = "db.example.com";
    const auto detail = [&](ManagementSheet kind) { return QString::fromStdString(reviewDetail(kind, profile, shop)); };
    const QString tail = QStringLiteral(". Schema changes can commit immediately.");
    QCOMPARE(detail(ManagementSheet::createUser), "Target: Production (db.example.com)" + tail);
    QCOMPARE(detail(ManagementSheet::createTable), "Target: Production (db.example.com), database shop" + tail);
    QCOMPARE(
        detail(ManagementSheet::insertRow), "Target: Production (db.example.com), database shop, table orders" + tail);
}

namespace
{

// Every data row of `file` as the import reads it: fed in pieces of `pieceBytes`.
std::vector<Row> streamedRows(const QByteArray &file, std::size_t pieceBytes, bool nullMarkerIsNull)
{
    CsvImportReader reader(nullMarkerIsNull);
    std::vector<Row> rows;
    const auto take = [&] {
        for (Row row; reader.next(row);) {
            rows.push_back(row);
        }
    };
    for (qsizetype at = 0; at < file.size(); at += qsizetype(pieceBytes)) {
        reader.feed(std::string_view(file.constData() + at, std::min<std::size_t>(pieceBytes, file.size() - at)));
        take();
    }
    reader.finish();
    take();
    return rows;
}

} // namespace

void TestManagementSQL::csvRefusals_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QString>("message");
    QTest::addColumn<bool>("whileReading"); // found by the reader, so also when the file streams

    const QString empty = QStringLiteral("The CSV is empty.");
    const QString notUtf8 = QStringLiteral("The CSV must use UTF-8 encoding.");
    const QString unknown = QStringLiteral("Unknown or generated column in CSV header: ");

    // clang-format off
    QTest::newRow("only a byte-order mark") << QByteArray("\xEF\xBB\xBF") << empty << true;
    QTest::newRow("header only") << QByteArray("id,name\r\n") << empty << true;
    // Which sequences are valid UTF-8 is the cell-text repair's concern, tested there.
    QTest::newRow("Latin-1 e acute") << QByteArray("id,name\n1,caf\xE9\n") << notUtf8 << true;
    QTest::newRow("invalid after a byte-order mark") << QByteArray("\xEF\xBB\xBFid\n\x80\n") << notUtf8 << true;
    QTest::newRow("half a byte-order mark") << QByteArray("\xEF\xBB") << notUtf8 << true;
    QTest::newRow("a character cut by the end") << QByteArray("id\n\xC3") << notUtf8 << true;
    QTest::newRow("an open quote") << QByteArray("id\n\"1\n")
                                   << QStringLiteral("The CSV has an unterminated quoted field.") << true;
    QTest::newRow("same header in another case") << QByteArray("id,Name,NAME\n1,a,b\n")
                                                 << QStringLiteral("CSV headers must be unique.") << false;
    QTest::newRow("unknown column") << QByteArray("id,nickname\n1,x\n") << unknown + "nickname" << false;
    QTest::newRow("generated column, header only") << QByteArray("id,doubled\n") << unknown + "doubled" << false;
    QTest::newRow("header with blanks is not trimmed") << QByteArray("id, name\n1,a\n") << unknown + " name" << false;
    QTest::newRow("long row") << QByteArray("id,name\n1,a,extra\n") << "Row 2 of the CSV has 3 fields, but the header has 2." << true;
    QTest::newRow("blank line at the end") << QByteArray("id,name\r\n1,a\r\n\r\n")
                                           << "Row 3 of the CSV has 1 field, but the header has 2." << true;
    QTest::newRow("rows count records, not lines") << QByteArray("id,name\n1,\"two\nlines\"\n3\n")
                                                   << "Row 3 of the CSV has 1 field, but the header has 2." << true;
    // clang-format on
}

void TestManagementSQL::csvRefusals()
{
    QFETCH(QByteArray, file);
    QFETCH(QString, message);
    QFETCH(bool, whileReading);
    QCOMPARE(errorFrom([&] { planCsvImport(file.toStdString(), true, shop.columns, true); }), message);
    if (whileReading) {
        QCOMPARE(errorFrom([&] { streamedRows(file, 1, true); }), message);
    }
}

void TestManagementSQL::csvPlan_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<bool>("nullMarkerIsNull");
    QTest::addColumn<QStringList>("columns");
    QTest::addColumn<Grid>("rows");

    const QStringList idName { "id", "name" };
    const QVariant null;
    // clang-format off
    QTest::newRow("\\N on: bare and quoted \\N become NULL")
        << QByteArray("id,name\n\\N,\"\\N\"\n") << true << idName << Grid { { null, null } };
    QTest::newRow("\\N off: the text \\N stays")
        << QByteArray("id,name\n\\N,\"\\N\"\n") << false << idName << Grid { { text("\\N"), text("\\N") } };
    QTest::newRow("\\N on: only exactly \\N is NULL")
        << QByteArray("id,name\n\\n, \\N\n\\\\N,\\N \nNULL,\n") << true << idName
        << Grid { { text("\\n"), text(" \\N") }, { text("\\\\N"), text("\\N ") }, { text("NULL"), text("") } };
    QTest::newRow("header names take the table's spelling")
        << QByteArray("\xEF\xBB\xBFID,NAME,Total\n1,Zo\xC3\xAB,2.50\n") << true << QStringList { "id", "name", "total" }
        << Grid { { text("1"), text("Zo\xC3\xAB"), text("2.50") } };
    // An expression default does not make a column generated: it can be imported into.
    QTest::newRow("column with an expression default")
        << QByteArray("due\n2026-01-02\n") << true << QStringList { "due" } << Grid { { text("2026-01-02") } };
    QTest::newRow("one column: a blank line is an empty value")
        << QByteArray("note\na\n\nb") << true << QStringList { "note" } << Grid { { text("a") }, { text("") }, { text("b") } };
    // clang-format on
}

// The plan of the whole file, and the rows as the import streams them cut at every byte.
void TestManagementSQL::csvPlan()
{
    QFETCH(QByteArray, file);
    QFETCH(bool, nullMarkerIsNull);
    QFETCH(QStringList, columns);
    QFETCH(Grid, rows);

    const CsvImportPlan result = planCsvImport(file.toStdString(), true, shop.columns, nullMarkerIsNull);
    QCOMPARE(rowTexts({ Row(result.columns.begin(), result.columns.end()) }), QStringList(columns.join('|')));
    QCOMPARE(grid(result.preview), rows);
    QCOMPARE(result.rowCount, std::optional<std::size_t>(rows.size()));
    QCOMPARE(grid(streamedRows(file, 1, nullMarkerIsNull)), rows);
}

// Planned from its start, a large file shows its first rows and checks what it read; the count
// and the end of the file are left to the import.
void TestManagementSQL::csvPlanFromTheHeadOfALargeFile()
{
    QByteArray file = "name\n";
    for (int n = 1; n <= 25; ++n) {
        file += "r" + QByteArray::number(n) + "\n";
    }
    const CsvImportPlan whole = planCsvImport(file.toStdString(), true, shop.columns, true);
    QCOMPARE(whole.preview.size(), std::size_t(20));
    QCOMPARE(whole.preview.back(), Row { "r20" });
    QCOMPARE(whole.rowCount, std::optional<std::size_t>(25));

    const std::string head = (file + "r26,extra\n\"open").toStdString(); // cut inside a quoted field
    const CsvImportPlan started = planCsvImport(head.substr(0, file.size() - 2), false, shop.columns, true);
    QCOMPARE(started.preview.size(), std::size_t(20));
    QCOMPARE(started.rowCount, std::nullopt);
    QCOMPARE(planCsvImport("name\n", false, shop.columns, true).preview.size(), std::size_t(0));
    QCOMPARE(errorFrom([&] { planCsvImport(head, false, shop.columns, true); }),
        QStringLiteral("Row 27 of the CSV has 2 fields, but the header has 1."));
    QCOMPARE(errorFrom([&] { planCsvImport(std::string(2'000'000, 'n'), false, shop.columns, true); }),
        QStringLiteral("The CSV's first line does not end within its first 2 MB."));
}

void TestManagementSQL::csvBatchingSplitsAtTheBudget_data()
{
    QTest::addColumn<int>("extra"); // bytes of budget beyond the prefix
    QTest::addColumn<QList<int>>("rowsPerStatement");

    // Seven rows "r0001" ... "r0007": a statement of k rows is the prefix, k tuples of 9 bytes,
    // k-1 commas and a semicolon, so prefix + 10k bytes.
    QTest::newRow("less than one row: one row each") << 5 << QList<int> { 1, 1, 1, 1, 1, 1, 1 };
    QTest::newRow("one byte short of three rows") << 29 << QList<int> { 2, 2, 2, 1 };
    QTest::newRow("exactly three rows") << 30 << QList<int> { 3, 3, 1 };
    QTest::newRow("exactly all seven rows") << 70 << QList<int> { 7 };
}

void TestManagementSQL::csvBatchingSplitsAtTheBudget()
{
    QFETCH(int, extra);
    QFETCH(QList<int>, rowsPerStatement);

    int pulled = 0;
    const auto source = [&pulled](Row &row) {
        if (pulled == 7) {
            return false;
        }
        row = { "r000" + std::to_string(++pulled) };
        return true;
    };
    const std::string prefix = "INSERT INTO `d`.`t` (`name`) VALUES ";
    CsvInsertBatches batches("d", "t", { "name" }, source, prefix.size() + std::size_t(extra));
    std::string statement;
    QList<int> counts;
    QString sent; // the tuples of all statements so far
    while (batches.next(statement)) {
        QVERIFY(statement.starts_with(prefix) && statement.ends_with(";"));
        sent += QString::fromStdString(statement.substr(prefix.size(), statement.size() - prefix.size() - 1)) + ',';
        counts << int(QString::fromStdString(statement).count("('r"));
        // What the import reports as its progress after each statement.
        QCOMPARE(batches.rowsDone(), std::size_t(sent.count("('r")));
        // Rows are read as they are needed: at most the one that did not fit is read ahead.
        QVERIFY(pulled - int(batches.rowsDone()) <= 1);
    }
    QCOMPARE(counts, rowsPerStatement);
    QCOMPARE(sent, QStringLiteral("('r0001'),('r0002'),('r0003'),('r0004'),('r0005'),('r0006'),('r0007'),"));
}

QTEST_GUILESS_MAIN(TestManagementSQL)
#include "TestManagementSQL.moc"
