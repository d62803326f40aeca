#include "core/AppError.h"
#include "management/ManagementSQL.h"
#include "support/Checks.h"

#include <QTest>
#include <optional>
#include <set>
#include <string>

using namespace tallowick;
using namespace tallowick::test;

Q_DECLARE_METATYPE(tallowick::ManagementDraft)
Q_DECLARE_METATYPE(tallowick::ColumnDraft)
Q_DECLARE_METATYPE(std::optional<tallowick::ColumnInfo>)
Q_DECLARE_METATYPE(tallowick::ColumnInfo)
Q_DECLARE_METATYPE(tallowick::ManagementSheet)

namespace
{

const QString simpleType = QStringLiteral("Enter a simple SQL type such as VARCHAR(255), DECIMAL(10,2), or BIGINT "
                                          "UNSIGNED. Use the SQL editor for complex types.");

// The columns as SHOW FULL COLUMNS reports them on MariaDB (lower-case types, "()" after
// current_timestamp), plus a MySQL-style DEFAULT_GENERATED column.
ColumnInfo idColumn()
{
    return { "id", "int(11)", false, true, std::nullopt, "auto_increment", std::nullopt, "" };
}
ColumnInfo nameColumn()
{
    return { "name", "varchar(100)", true, false, std::nullopt, "", "utf8mb4_unicode_ci", "" };
}
ColumnInfo createdColumn()
{
    return { "created", "timestamp", false, false, "current_timestamp()", "on update current_timestamp()", {}, "" };
}
ColumnInfo noteColumn()
{
    return { "note", "text", true, false, std::nullopt, "", "utf8mb4_bin", "shown on invoices" };
}
ColumnInfo totalColumn()
{
    return { "total", "decimal(10,2)", true, false, "0.00", "", std::nullopt, "" };
}
ColumnInfo doubledColumn()
{
    return { "doubled", "int(11)", true, false, std::nullopt, "virtual generated", std::nullopt, "" };
}
ColumnInfo dueColumn()
{
    return { "due", "date", true, false, "(curdate() + interval 7 day)", "DEFAULT_GENERATED", std::nullopt, "" };
}

ManagementContext shop()
{
    return { "shop",
        "orders",
        { idColumn(), nameColumn(), createdColumn(), noteColumn(), totalColumn(), doubledColumn(), dueColumn() } };
}

ColumnDraft row(std::string name,
    std::string type,
    bool nullable = true,
    bool primary = false,
    bool autoIncrement = false,
    std::string defaultValue = {})
{
    ColumnDraft draft;
    draft.name = std::move(name);
    draft.type = std::move(type);
    draft.nullable = nullable;
    draft.primary = primary;
    draft.autoIncrement = autoIncrement;
    draft.defaultValue = std::move(defaultValue);
    return draft;
}

ManagementDraft draft(ManagementSheet kind, std::string name = {}, std::vector<ColumnDraft> columns = {})
{
    ManagementDraft result;
    result.kind = kind;
    result.name = std::move(name);
    result.columns = std::move(columns);
    return result;
}

ManagementDraft modify(const ColumnInfo &column, ColumnDraft edited)
{
    ManagementDraft result = draft(ManagementSheet::modifyColumn, {}, { std::move(edited) });
    result.column = column;
    return result;
}

ManagementDraft indexDraft(std::string name, std::set<std::string> selected, bool unique)
{
    ManagementDraft result = draft(ManagementSheet::addIndex, std::move(name));
    result.selected = std::move(selected);
    result.unique = unique;
    return result;
}

ManagementDraft user(std::string name, std::string host, std::string password)
{
    ManagementDraft result = draft(ManagementSheet::createUser, std::move(name));
    result.host = std::move(host);
    result.password = std::move(password);
    return result;
}

} // namespace

class TestManagementSQL final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void columnDefinition_data();
    void columnDefinition();
    void generatedSQL_data();
    void generatedSQL();
    void refusals_data();
    void refusals();
    void unchangedColumnIsRewrittenAsItWas_data();
    void unchangedColumnIsRewrittenAsItWas();
    void everyTypeSuggestionIsAccepted();
    void everyCharacterSetIsAccepted();
    void titles();
    void reviewDetailNamesTheTarget_data();
    void reviewDetailNamesTheTarget();
};

void TestManagementSQL::columnDefinition_data()
{
    QTest::addColumn<ColumnDraft>("draft");
    QTest::addColumn<std::optional<ColumnInfo>>("existing");
    QTest::addColumn<QString>("expected");

    const std::optional<ColumnInfo> none;
    // clang-format off
    QTest::newRow("varchar(255) is upper-cased") << row("name", "varchar(255)") << none
                                                 << "`name` VARCHAR(255) NULL";
    QTest::newRow("blanks and a line break around the type") << row("n", " \t bigint unsigned\n") << none
                                                             << "`n` BIGINT UNSIGNED NULL";
    QTest::newRow("precision and scale") << row("p", "Decimal(10,2)", false) << none << "`p` DECIMAL(10,2) NOT NULL";
    QTest::newRow("nullable primary key is NOT NULL") << row("id", "INT", true, true) << none << "`id` INT NOT NULL";
    QTest::newRow("auto increment after the default") << row("id", "BIGINT", false, true, true, "1") << none
                                                      << "`id` BIGINT NOT NULL DEFAULT '1' AUTO_INCREMENT";
    QTest::newRow("current_timestamp() lower case") << row("t", "timestamp", false, false, false, "current_timestamp()")
                                                    << none << "`t` TIMESTAMP NOT NULL DEFAULT CURRENT_TIMESTAMP";
    QTest::newRow("Current_Timestamp without brackets") << row("t", "DATETIME", true, false, false, "Current_Timestamp")
                                                        << none << "`t` DATETIME NULL DEFAULT CURRENT_TIMESTAMP";
    QTest::newRow("NOW() is only text") << row("t", "VARCHAR(10)", true, false, false, "NOW()") << none
                                        << "`t` VARCHAR(10) NULL DEFAULT 'NOW()'";
    QTest::newRow("O'Brien default keeps its apostrophe") << row("n", "VARCHAR(20)", true, false, false, "O'Brien")
                                                          << none << "`n` VARCHAR(20) NULL DEFAULT X'4f27427269656e'";
    QTest::newRow("backslash default") << row("p", "VARCHAR(20)", true, false, false, "C:\\new") << none
                                       << "`p` VARCHAR(20) NULL DEFAULT X'433a5c6e6577'";
    QTest::newRow("back-quote in the name") << row("we`ird", "INT") << none << "`we``ird` INT NULL";
    QTest::newRow("new column: no collation") << row("name", "VARCHAR(100)") << none << "`name` VARCHAR(100) NULL";
    QTest::newRow("modified VARCHAR keeps the collation")
        << row("name", "VARCHAR(120)") << std::optional(nameColumn())
        << "`name` VARCHAR(120) COLLATE `utf8mb4_unicode_ci` NULL";
    QTest::newRow("modified CHAR keeps the collation")
        << row("name", "char(36)") << std::optional(nameColumn())
        << "`name` CHAR(36) COLLATE `utf8mb4_unicode_ci` NULL";
    QTest::newRow("modified TINYTEXT keeps the collation")
        << row("name", "tinytext") << std::optional(nameColumn())
        << "`name` TINYTEXT COLLATE `utf8mb4_unicode_ci` NULL";
    QTest::newRow("modified TEXT keeps the collation and the comment")
        << row("note", "TEXT") << std::optional(noteColumn())
        << "`note` TEXT COLLATE `utf8mb4_bin` NULL COMMENT 'shown on invoices'";
    QTest::newRow("changed to INT drops the collation")
        << row("name", "INT") << std::optional(nameColumn()) << "`name` INT NULL";
    QTest::newRow("changed to VARBINARY drops the collation")
        << row("name", "VARBINARY(100)") << std::optional(nameColumn()) << "`name` VARBINARY(100) NULL";
    QTest::newRow("modified timestamp keeps ON UPDATE")
        << row("created", "TIMESTAMP", false, false, false, "CURRENT_TIMESTAMP") << std::optional(createdColumn())
        << "`created` TIMESTAMP NOT NULL DEFAULT CURRENT_TIMESTAMP ON UPDATE CURRENT_TIMESTAMP";
    // clang-format on

    ColumnInfo everything = nameColumn();
    everything.extra = "on update CURRENT_TIMESTAMP";
    everything.comment = "50% off";
    QTest::newRow("VARCHAR with collation, ON UPDATE and comment keeps all three")
        << row("name", "VARCHAR(100)", false) << std::optional(everything)
        << "`name` VARCHAR(100) COLLATE `utf8mb4_unicode_ci` NOT NULL ON UPDATE CURRENT_TIMESTAMP COMMENT '50% off'";
}

void TestManagementSQL::columnDefinition()
{
    QFETCH(ColumnDraft, draft);
    QFETCH(std::optional<ColumnInfo>, existing);
    QFETCH(QString, expected);
    QCOMPARE(QString::fromStdString(tallowick::columnDefinition(draft, existing)), expected);
}

void TestManagementSQL::generatedSQL_data()
{
    QTest::addColumn<ManagementDraft>("draft");
    QTest::addColumn<QString>("expected");

    ManagementDraft database = draft(ManagementSheet::createDatabase, "shop");
    QTest::newRow("create database") << database << "CREATE DATABASE `shop` CHARACTER SET utf8mb4;";
    database.name = "my`db";
    database.charset = "latin1";
    QTest::newRow("create database with a back-quote") << database << "CREATE DATABASE `my``db` CHARACTER SET latin1;";

    QTest::newRow("create table with one primary key") << draft(ManagementSheet::createTable,
        "people",
        { row("id", "bigint unsigned", true, true, true),
            row("name", "VARCHAR(255)", true, false, false, "O'Brien"),
            row("created", "timestamp", false, false, false, "CURRENT_TIMESTAMP()") })
                                                       << "CREATE TABLE `shop`.`people` (\n"
                                                          "  `id` BIGINT UNSIGNED NOT NULL AUTO_INCREMENT,\n"
                                                          "  `name` VARCHAR(255) NULL DEFAULT X'4f27427269656e',\n"
                                                          "  `created` TIMESTAMP NOT NULL DEFAULT CURRENT_TIMESTAMP,\n"
                                                          "  PRIMARY KEY (`id`)\n"
                                                          ") ENGINE=InnoDB DEFAULT CHARSET=utf8mb4;";
    QTest::newRow("create table with a two-column key in row order") << draft(ManagementSheet::createTable,
        "items",
        { row("tenant", "VARCHAR(10)", false, true), row("label", "TEXT"), row("id", "INT", false, true) })
                                                                     << "CREATE TABLE `shop`.`items` (\n"
                                                                        "  `tenant` VARCHAR(10) NOT NULL,\n"
                                                                        "  `label` TEXT NULL,\n"
                                                                        "  `id` INT NOT NULL,\n"
                                                                        "  PRIMARY KEY (`tenant`, `id`)\n"
                                                                        ") ENGINE=InnoDB DEFAULT CHARSET=utf8mb4;";
    QTest::newRow("create table without a key")
        << draft(ManagementSheet::createTable, "log", { row("line", "TEXT") })
        << "CREATE TABLE `shop`.`log` (\n  `line` TEXT NULL\n) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4;";

    QTest::newRow("add column") << draft(ManagementSheet::addColumn, {}, { row("price", " decimal(10,2) ", false) })
                                << "ALTER TABLE `shop`.`orders`\nADD COLUMN `price` DECIMAL(10,2) NOT NULL;";

    QTest::newRow("edit column: rename keeps the collation")
        << modify(nameColumn(), row("full name", "varchar(200)"))
        << "ALTER TABLE `shop`.`orders`\nCHANGE COLUMN `name` `full name` VARCHAR(200) COLLATE `utf8mb4_unicode_ci` "
           "NULL;";
    QTest::newRow("edit column: timestamp keeps ON UPDATE")
        << modify(createdColumn(), row("created", "TIMESTAMP", false, false, false, "current_timestamp()"))
        << "ALTER TABLE `shop`.`orders`\nCHANGE COLUMN `created` `created` TIMESTAMP NOT NULL DEFAULT "
           "CURRENT_TIMESTAMP ON UPDATE CURRENT_TIMESTAMP;";
    ColumnInfo mysqlTimestamp = createdColumn();
    mysqlTimestamp.defaultValue = "CURRENT_TIMESTAMP";
    mysqlTimestamp.extra = "DEFAULT_GENERATED on update CURRENT_TIMESTAMP";
    QTest::newRow("edit column: DEFAULT_GENERATED CURRENT_TIMESTAMP is allowed")
        << modify(mysqlTimestamp, row("created", "DATETIME", false, false, false, "CURRENT_TIMESTAMP"))
        << "ALTER TABLE `shop`.`orders`\nCHANGE COLUMN `created` `created` DATETIME NOT NULL DEFAULT "
           "CURRENT_TIMESTAMP ON UPDATE CURRENT_TIMESTAMP;";

    QTest::newRow("unique index in table order, unknown names ignored")
        << indexDraft("by_total_name", { "total", "name", "gone" }, true)
        << "CREATE UNIQUE INDEX `by_total_name` ON `shop`.`orders` (`name`, `total`);";
    QTest::newRow("plain index") << indexDraft("by`note", { "note" }, false)
                                 << "CREATE INDEX `by``note` ON `shop`.`orders` (`note`);";

    QTest::newRow("insert with every column on Default")
        << draft(ManagementSheet::insertRow) << "INSERT INTO `shop`.`orders` ()\nVALUES ();";
    ManagementDraft insert = draft(ManagementSheet::insertRow);
    insert.valueModes = { { "id", "Default" }, { "name", "Value" }, { "created", "NULL" }, { "note", "Value" } };
    // A typed total without a mode is sent; a mode of NULL wins over typed text.
    insert.values = { { "name", "O'Brien" }, { "created", "2026-01-01" }, { "total", "12.50" }, { "id", "7" } };
    QTest::newRow("insert: value, NULL, empty value, typed without mode")
        << insert
        << "INSERT INTO `shop`.`orders` (`name`, `created`, `note`, `total`)\nVALUES (CONVERT(X'4f27427269656e' "
           "USING utf8mb4), NULL, '', '12.50');";
    ManagementDraft nullText = draft(ManagementSheet::insertRow);
    nullText.valueModes = { { "name", "Value" } };
    nullText.values = { { "name", "NULL" } };
    QTest::newRow("insert: the text NULL stays text")
        << nullText << "INSERT INTO `shop`.`orders` (`name`)\nVALUES ('NULL');";

    QTest::newRow("create user") << user("bob", "%", "pw'1")
                                 << "CREATE USER 'bob'@'%' IDENTIFIED BY CONVERT(X'70772731' USING utf8mb4);";
}

void TestManagementSQL::generatedSQL()
{
    QFETCH(ManagementDraft, draft);
    QFETCH(QString, expected);
    QCOMPARE(QString::fromStdString(tallowick::generatedSQL(draft, shop())), expected);
}

void TestManagementSQL::refusals_data()
{
    QTest::addColumn<ManagementDraft>("draft");
    QTest::addColumn<QString>("message");

    const auto table
        = [](std::vector<ColumnDraft> columns) { return draft(ManagementSheet::createTable, "t", std::move(columns)); };
    const auto add = [](ColumnDraft column) { return draft(ManagementSheet::addColumn, {}, { std::move(column) }); };

    QTest::newRow("database without a name") << draft(ManagementSheet::createDatabase) << "Enter a database name.";
    ManagementDraft charset = draft(ManagementSheet::createDatabase, "shop");
    charset.charset = "utf8mb4; DROP DATABASE shop";
    QTest::newRow("character set that is not a plain name") << charset << "Choose a character set.";
    charset.charset.clear();
    QTest::newRow("empty character set") << charset << "Choose a character set.";

    QTest::newRow("table without a name")
        << draft(ManagementSheet::createTable, {}, { row("id", "INT") }) << "Enter a table name.";
    QTest::newRow("table name checked before the columns")
        << draft(ManagementSheet::createTable, {}, { row("", "") }) << "Enter a table name.";
    QTest::newRow("column without a name")
        << table({ row("id", "INT"), row("", "INT") }) << "Every column needs a name.";
    QTest::newRow("VARCHAR(255) CHARACTER SET latin1")
        << table({ row("n", "VARCHAR(255) CHARACTER SET latin1") }) << simpleType;
    QTest::newRow("ENUM list") << table({ row("n", "ENUM('a','b')") }) << simpleType;
    QTest::newRow("three numbers in brackets") << table({ row("n", "DECIMAL(10,2,3)") }) << simpleType;
    QTest::newRow("two blanks before UNSIGNED") << table({ row("n", "INT  UNSIGNED") }) << simpleType;
    QTest::newRow("letters as length") << table({ row("n", "VARCHAR(n)") }) << simpleType;
    QTest::newRow("blank after the word") << table({ row("n", "VARCHAR (255)") }) << simpleType;
    QTest::newRow("empty type") << table({ row("n", "") }) << simpleType;
    QTest::newRow("statement smuggled in the type") << table({ row("n", "INT); DROP TABLE t; --") }) << simpleType;
    QTest::newRow("non-ASCII letter in the type") << table({ row("n", "VARCHÄR(10)") }) << simpleType;
    QTest::newRow("two columns with one name")
        << table({ row("id", "INT"), row("name", "TEXT"), row("id", "BIGINT") }) << "Column names must be unique.";
    QTest::newRow("names that differ only in case")
        << table({ row("id", "INT"), row("ID", "INT") }) << "Column names must be unique.";

    QTest::newRow("add column without a name") << add(row("", "INT")) << "Every column needs a name.";
    QTest::newRow("add column with a complex type") << add(row("n", "SET('a')")) << simpleType;
    QTest::newRow("add column without a row") << draft(ManagementSheet::addColumn) << "Every column needs a name.";

    QTest::newRow("edit generated column")
        << modify(doubledColumn(), row("doubled", "INT")) << "Use the SQL editor to modify generated columns.";
    QTest::newRow("edit column with an expression default") << modify(
        dueColumn(), row("due", "DATE")) << "Use the SQL editor to preserve this column's expression default.";
    ColumnInfo quotedComment = noteColumn();
    quotedComment.comment = "customer's note";
    QTest::newRow("edit column whose comment has an apostrophe")
        << modify(quotedComment, row("note", "TEXT"))
        << "Use the SQL editor to modify a column whose comment holds quotes, backslashes, or line breaks.";
    QTest::newRow("edit without the column")
        << draft(ManagementSheet::modifyColumn, {}, { row("x", "INT") }) << "Choose a column to edit.";

    const QString indexMessage = QStringLiteral("Name the index and choose at least one column.");
    QTest::newRow("index over no columns") << indexDraft("by_name", {}, false) << indexMessage;
    QTest::newRow("index over columns the table lacks") << indexDraft("by_name", { "gone" }, false) << indexMessage;
    QTest::newRow("index without a name") << indexDraft("", { "name" }, true) << indexMessage;

    const QString userMessage = QStringLiteral("Enter the username, client host, and password.");
    QTest::newRow("user without a name") << user("", "%", "pw") << userMessage;
    QTest::newRow("user without a host") << user("bob", "", "pw") << userMessage;
    QTest::newRow("user without a password") << user("bob", "%", "") << userMessage;

    QTest::newRow("CSV import has no single statement") << draft(
        ManagementSheet::importCSV) << "A CSV import runs as several statements; it has no single statement to review.";
}

void TestManagementSQL::refusals()
{
    QFETCH(ManagementDraft, draft);
    QFETCH(QString, message);
    QCOMPARE(errorFrom([&] { tallowick::generatedSQL(draft, shop()); }), message);
}

// Opening the edit form on a column and applying it untouched must not change the column.
void TestManagementSQL::unchangedColumnIsRewrittenAsItWas_data()
{
    QTest::addColumn<ColumnInfo>("column");
    QTest::addColumn<QString>("expected");

    QTest::newRow("auto-increment key") << idColumn()
                                        << "ALTER TABLE `shop`.`orders`\nCHANGE COLUMN `id` `id` INT(11) NOT NULL "
                                           "AUTO_INCREMENT;";
    QTest::newRow("timestamp with ON UPDATE")
        << createdColumn()
        << "ALTER TABLE `shop`.`orders`\nCHANGE COLUMN `created` `created` TIMESTAMP NOT NULL DEFAULT "
           "CURRENT_TIMESTAMP ON UPDATE CURRENT_TIMESTAMP;";
    QTest::newRow("text with collation and comment")
        << noteColumn()
        << "ALTER TABLE `shop`.`orders`\nCHANGE COLUMN `note` `note` TEXT COLLATE `utf8mb4_bin` NULL COMMENT "
           "'shown on invoices';";
    QTest::newRow("decimal with a default") << totalColumn()
                                            << "ALTER TABLE `shop`.`orders`\nCHANGE COLUMN `total` `total` "
                                               "DECIMAL(10,2) NULL DEFAULT '0.00';";
    ColumnInfo unsignedKey { "n", "bigint(20) unsigned", false, false, std::nullopt, "", std::nullopt, "" };
    QTest::newRow("unsigned as SHOW COLUMNS spells it")
        << unsignedKey << "ALTER TABLE `shop`.`orders`\nCHANGE COLUMN `n` `n` BIGINT(20) UNSIGNED NOT NULL;";
}

void TestManagementSQL::unchangedColumnIsRewrittenAsItWas()
{
    QFETCH(ColumnInfo, column);
    QFETCH(QString, expected);
    QCOMPARE(
        QString::fromStdString(tallowick::generatedSQL(modify(column, draftFromColumn(column)), shop())), expected);
}

void TestManagementSQL::everyTypeSuggestionIsAccepted()
{
    QVERIFY(typeSuggestions().size() >= 10);
    for (const std::string &type : typeSuggestions()) {
        const QString error = errorFrom([&] { tallowick::columnDefinition(row("c", type)); });
        QVERIFY2(error == QStringLiteral("(no error)"), qPrintable(QString::fromStdString(type) + ": " + error));
    }
}

void TestManagementSQL::everyCharacterSetIsAccepted()
{
    QCOMPARE(characterSets().front(), std::string("utf8mb4"));
    for (const std::string &charset : characterSets()) {
        ManagementDraft database = draft(ManagementSheet::createDatabase, "d");
        database.charset = charset;
        QCOMPARE(QString::fromStdString(tallowick::generatedSQL(database, shop())),
            QString::fromStdString("CREATE DATABASE `d` CHARACTER SET " + charset + ";"));
    }
}

void TestManagementSQL::titles()
{
    const std::pair<ManagementSheet, QString> expected[] = {
        { ManagementSheet::createDatabase, "Create database" },
        { ManagementSheet::createTable, "Create table" },
        { ManagementSheet::addColumn, "Add column" },
        { ManagementSheet::modifyColumn, "Edit column" },
        { ManagementSheet::addIndex, "Create index" },
        { ManagementSheet::insertRow, "Insert row" },
        { ManagementSheet::createUser, "Create MySQL user" },
        { ManagementSheet::importCSV, "Import CSV" },
    };
    QCOMPARE(std::size(expected), allManagementSheets.size());
    for (const auto &[kind, title] : expected) {
        QCOMPARE(QString::fromStdString(formTitle(kind)), title);
        QCOMPARE(QString::fromStdString(reviewTitle(kind)), "Apply " + title);
    }
}

void TestManagementSQL::reviewDetailNamesTheTarget_data()
{
    QTest::addColumn<ManagementSheet>("kind");
    QTest::addColumn<QString>("expected");

    QTest::newRow("create database: server only")
        << ManagementSheet::createDatabase
        << "Target: Production (db.example.com). Schema changes can commit immediately.";
    QTest::newRow("create table: the database")
        << ManagementSheet::createTable
        << "Target: Production (db.example.com), database shop. Schema changes can commit immediately.";
    QTest::newRow("add column: database and table")
        << ManagementSheet::addColumn
        << "Target: Production (db.example.com), database shop, table orders. Schema changes can commit immediately.";
}

void TestManagementSQL::reviewDetailNamesTheTarget()
{
    QFETCH(ManagementSheet, kind);
    QFETCH(QString, expected);
    ConnectionProfile profile;
    profile.name = "Production";
    profile.host = "db.example.com";
    QCOMPARE(QString::fromStdString(reviewDetail(kind, profile, shop())), expected);
}

QTEST_GUILESS_MAIN(TestManagementSQL)
#include "TestManagementSQL.moc"
