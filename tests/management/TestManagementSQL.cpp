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

namespace
{

const QString simpleType = QStringLiteral("Enter a simple SQL type such as VARCHAR(255), DECIMAL(10,2), or BIGINT "
                                          "UNSIGNED. Use the SQL editor for complex types.");

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
    void everyTypeSuggestionIsAccepted();
    void reviewDetailNamesTheTarget();
};

// Each row gives the definition, or the message the form shows instead.
void TestManagementSQL::columnDefinition_data()
{
    QTest::addColumn<ColumnDraft>("draft");
    QTest::addColumn<std::optional<ColumnInfo>>("existing");
    QTest::addColumn<QString>("expected");

    const std::optional<ColumnInfo> none;
    // clang-format off
    QTest::newRow("blanks and a line break around the type") << row("n", " \t bigint unsigned\n") << none
                                                             << "`n` BIGINT UNSIGNED NULL";
    QTest::newRow("nullable primary key is NOT NULL") << row("id", "INT", true, true) << none << "`id` INT NOT NULL";
    QTest::newRow("auto increment after the default") << row("id", "BIGINT", false, true, true, "1") << none
                                                      << "`id` BIGINT NOT NULL DEFAULT '1' AUTO_INCREMENT";
    QTest::newRow("Current_Timestamp without brackets") << row("t", "DATETIME", true, false, false, "Current_Timestamp")
                                                        << none << "`t` DATETIME NULL DEFAULT CURRENT_TIMESTAMP";
    QTest::newRow("NOW() is only text") << row("t", "VARCHAR(10)", true, false, false, "NOW()") << none
                                        << "`t` VARCHAR(10) NULL DEFAULT 'NOW()'";
    QTest::newRow("O'Brien default keeps its apostrophe") << row("n", "VARCHAR(20)", true, false, false, "O'Brien")
                                                          << none << "`n` VARCHAR(20) NULL DEFAULT X'4f27427269656e'";
    QTest::newRow("back-quote in the name") << row("we`ird", "INT") << none << "`we``ird` INT NULL";
    QTest::newRow("modified VARCHAR keeps the collation")
        << row("name", "VARCHAR(120)") << std::optional(nameColumn)
        << "`name` VARCHAR(120) COLLATE `utf8mb4_unicode_ci` NULL";
    QTest::newRow("modified TEXT keeps the collation and the comment")
        << row("note", "TEXT") << std::optional(noteColumn)
        << "`note` TEXT COLLATE `utf8mb4_bin` NULL COMMENT 'shown on invoices'";
    QTest::newRow("changed to VARBINARY drops the collation")
        << row("name", "VARBINARY(100)") << std::optional(nameColumn) << "`name` VARBINARY(100) NULL";
    QTest::newRow("column without a name") << row("", "INT") << none << "Every column needs a name.";
    QTest::newRow("ENUM list") << row("n", "ENUM('a','b')") << none << simpleType;
    QTest::newRow("three numbers in brackets") << row("n", "DECIMAL(10,2,3)") << none << simpleType;
    QTest::newRow("two blanks before UNSIGNED") << row("n", "INT  UNSIGNED") << none << simpleType;
    QTest::newRow("blank after the word") << row("n", "VARCHAR (255)") << none << simpleType;
    QTest::newRow("empty type") << row("n", "") << none << simpleType;
    QTest::newRow("statement smuggled in the type") << row("n", "INT); DROP TABLE t; --") << none << simpleType;
    QTest::newRow("non-ASCII letter in the type") << row("n", "VARCHÄR(10)") << none << simpleType;
    // clang-format on

    ColumnInfo everything = nameColumn;
    everything.extra = "on update CURRENT_TIMESTAMP";
    everything.comment = "50% off";
    QTest::newRow("VARCHAR with collation, ON UPDATE and comment keeps all three")
        << row("name", "VARCHAR(100)", false) << std::optional(everything)
        << "`name` VARCHAR(100) COLLATE `utf8mb4_unicode_ci` NOT NULL ON UPDATE CURRENT_TIMESTAMP COMMENT '50% off'";
    ColumnInfo quotedComment = noteColumn;
    quotedComment.comment = "customer's note";
    QTest::newRow("comment with an apostrophe")
        << row("note", "TEXT") << std::optional(quotedComment)
        << "Use the SQL editor to modify a column whose comment holds quotes, backslashes, or line breaks.";
}

void TestManagementSQL::columnDefinition()
{
    QFETCH(ColumnDraft, draft);
    QFETCH(std::optional<ColumnInfo>, existing);
    QFETCH(QString, expected);
    QString definition;
    const QString error
        = errorFrom([&] { definition = QString::fromStdString(tallowick::columnDefinition(draft, existing)); });
    QCOMPARE(error == "(no error)" ? definition : error, expected);
}

// Each row gives the statement, or the message the form shows instead.
void TestManagementSQL::generatedSQL_data()
{
    QTest::addColumn<ManagementDraft>("draft");
    QTest::addColumn<QString>("expected");

    ManagementDraft database = draft(ManagementSheet::createDatabase, "my`db");
    database.charset = "latin1";
    QTest::newRow("create database with a back-quote") << database << "CREATE DATABASE `my``db` CHARACTER SET latin1;";
    QTest::newRow("database without a name") << draft(ManagementSheet::createDatabase) << "Enter a database name.";
    database.charset = "utf8mb4; DROP DATABASE shop";
    QTest::newRow("character set that is not a plain name") << database << "Choose a character set.";
    database.charset.clear();
    QTest::newRow("empty character set") << database << "Choose a character set.";

    // clang-format off
    QTest::newRow("create table with one primary key") << draft(ManagementSheet::createTable, "people",
        { row("id", "bigint unsigned", true, true, true), row("name", "VARCHAR(255)", true, false, false, "O'Brien"),
          row("created", "timestamp", false, false, false, "CURRENT_TIMESTAMP()") })
        << "CREATE TABLE `shop`.`people` (\n  `id` BIGINT UNSIGNED NOT NULL AUTO_INCREMENT,\n"
           "  `name` VARCHAR(255) NULL DEFAULT X'4f27427269656e',\n"
           "  `created` TIMESTAMP NOT NULL DEFAULT CURRENT_TIMESTAMP,\n"
           "  PRIMARY KEY (`id`)\n) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4;";
    QTest::newRow("create table with a two-column key in row order") << draft(ManagementSheet::createTable, "items",
        { row("tenant", "VARCHAR(10)", false, true), row("label", "TEXT"), row("id", "INT", false, true) })
        << "CREATE TABLE `shop`.`items` (\n  `tenant` VARCHAR(10) NOT NULL,\n  `label` TEXT NULL,\n"
           "  `id` INT NOT NULL,\n  PRIMARY KEY (`tenant`, `id`)\n) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4;";
    // clang-format on
    QTest::newRow("create table without a key")
        << draft(ManagementSheet::createTable, "log", { row("line", "TEXT") })
        << "CREATE TABLE `shop`.`log` (\n  `line` TEXT NULL\n) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4;";
    QTest::newRow("table without a name")
        << draft(ManagementSheet::createTable, {}, { row("id", "INT") }) << "Enter a table name.";
    QTest::newRow("names that differ only in case")
        << draft(ManagementSheet::createTable, "t", { row("id", "INT"), row("ID", "INT") })
        << "Column names must be unique.";

    QTest::newRow("add column") << draft(ManagementSheet::addColumn, {}, { row("price", " decimal(10,2) ", false) })
                                << "ALTER TABLE `shop`.`orders`\nADD COLUMN `price` DECIMAL(10,2) NOT NULL;";
    QTest::newRow("add column without a row") << draft(ManagementSheet::addColumn) << "Every column needs a name.";

    QTest::newRow("edit column: rename keeps the collation")
        << modify(nameColumn, row("full name", "varchar(200)"))
        << "ALTER TABLE `shop`.`orders`\nCHANGE COLUMN `name` `full name` VARCHAR(200) COLLATE `utf8mb4_unicode_ci` "
           "NULL;";
    QTest::newRow("edit column: timestamp keeps ON UPDATE")
        << modify(createdColumn, row("created", "TIMESTAMP", false, false, false, "current_timestamp()"))
        << "ALTER TABLE `shop`.`orders`\nCHANGE COLUMN `created` `created` TIMESTAMP NOT NULL DEFAULT "
           "CURRENT_TIMESTAMP ON UPDATE CURRENT_TIMESTAMP;";
    ColumnInfo mysqlTimestamp = createdColumn;
    mysqlTimestamp.defaultValue = "CURRENT_TIMESTAMP";
    mysqlTimestamp.extra = "DEFAULT_GENERATED on update CURRENT_TIMESTAMP";
    QTest::newRow("edit column: DEFAULT_GENERATED CURRENT_TIMESTAMP is allowed")
        << modify(mysqlTimestamp, row("created", "DATETIME", false, false, false, "CURRENT_TIMESTAMP"))
        << "ALTER TABLE `shop`.`orders`\nCHANGE COLUMN `created` `created` DATETIME NOT NULL DEFAULT "
           "CURRENT_TIMESTAMP ON UPDATE CURRENT_TIMESTAMP;";
    // Opening the edit form on a column and applying it untouched must not change the column.
    QTest::newRow("edit column untouched: auto-increment key")
        << modify(idColumn, draftFromColumn(idColumn))
        << "ALTER TABLE `shop`.`orders`\nCHANGE COLUMN `id` `id` INT(11) NOT NULL AUTO_INCREMENT;";
    QTest::newRow("edit column untouched: decimal with a default")
        << modify(totalColumn, draftFromColumn(totalColumn))
        << "ALTER TABLE `shop`.`orders`\nCHANGE COLUMN `total` `total` DECIMAL(10,2) NULL DEFAULT '0.00';";
    const ColumnInfo emptyDefault { "code", "varchar(8)", false, false, "", "", "utf8mb4_bin", "" };
    QTest::newRow("edit column untouched: DEFAULT '' is kept")
        << modify(emptyDefault, draftFromColumn(emptyDefault))
        << "ALTER TABLE `shop`.`orders`\nCHANGE COLUMN `code` `code` VARCHAR(8) COLLATE `utf8mb4_bin` NOT NULL "
           "DEFAULT '';";
    const ColumnInfo unsignedKey { "n", "bigint(20) unsigned", false, false, std::nullopt, "", std::nullopt, "" };
    QTest::newRow("edit column untouched: unsigned as SHOW COLUMNS spells it")
        << modify(unsignedKey, draftFromColumn(unsignedKey))
        << "ALTER TABLE `shop`.`orders`\nCHANGE COLUMN `n` `n` BIGINT(20) UNSIGNED NOT NULL;";
    QTest::newRow("edit generated column")
        << modify(doubledColumn, row("doubled", "INT")) << "Use the SQL editor to modify generated columns.";
    QTest::newRow("edit column with an expression default")
        << modify(dueColumn, row("due", "DATE")) << "Use the SQL editor to preserve this column's expression default.";
    QTest::newRow("edit without the column")
        << draft(ManagementSheet::modifyColumn, {}, { row("x", "INT") }) << "Choose a column to edit.";

    QTest::newRow("unique index in table order, unknown names ignored")
        << indexDraft("by_total_name", { "total", "name", "gone" }, true)
        << "CREATE UNIQUE INDEX `by_total_name` ON `shop`.`orders` (`name`, `total`);";
    QTest::newRow("plain index") << indexDraft("by`note", { "note" }, false)
                                 << "CREATE INDEX `by``note` ON `shop`.`orders` (`note`);";
    const QString indexMessage = QStringLiteral("Name the index and choose at least one column.");
    QTest::newRow("index over columns the table lacks") << indexDraft("by_name", { "gone" }, false) << indexMessage;
    QTest::newRow("index without a name") << indexDraft("", { "name" }, true) << indexMessage;

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
    const QString userMessage = QStringLiteral("Enter the username, client host, and password.");
    QTest::newRow("user without a name") << user("", "%", "pw") << userMessage;
    QTest::newRow("user without a host") << user("bob", "", "pw") << userMessage;
    QTest::newRow("user without a password") << user("bob", "%", "") << userMessage;

    QTest::newRow("CSV import has no single statement") << draft(
        ManagementSheet::importCSV) << "A CSV import runs as several statements; it has no single statement to review.";
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

QTEST_GUILESS_MAIN(TestManagementSQL)
#include "TestManagementSQL.moc"
