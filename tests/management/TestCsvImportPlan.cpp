#include "core/AppError.h"
#include "management/CsvImport.h"
#include "support/Checks.h"

#include <QTest>
#include <string>

using namespace tallowick;
using namespace tallowick::test;

namespace
{

const std::vector<ColumnInfo> people {
    { "id", "int(11)", false, true, std::nullopt, "", std::nullopt, "" },
    { "name", "varchar(100)", true, false, std::nullopt, "", "utf8mb4_unicode_ci", "" },
    { "note", "text", true, false, std::nullopt, "", "utf8mb4_unicode_ci", "" },
    { "doubled", "int(11)", true, false, std::nullopt, "VIRTUAL GENERATED", std::nullopt, "" },
    { "Total", "decimal(10,2)", true, false, std::nullopt, "", std::nullopt, "" },
    // An expression default does not make a column generated: it can be imported into.
    { "created", "datetime", true, false, "current_timestamp()", "DEFAULT_GENERATED", std::nullopt, "" },
};

} // namespace

class TestCsvImportPlan final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void refusals_data();
    void refusals();
    void plan_data();
    void plan();
    void statementText();
    void batchingSplitsAtTheBudget_data();
    void batchingSplitsAtTheBudget();
};

void TestCsvImportPlan::refusals_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QString>("message");

    const QString empty = QStringLiteral("The CSV is empty.");
    const QString notUtf8 = QStringLiteral("The CSV must use UTF-8 encoding.");
    const QString unique = QStringLiteral("CSV headers must be unique.");
    const QString unknown = QStringLiteral("Unknown or generated column in CSV header: ");
    const QString tooLarge = QStringLiteral("Use SQL import for files larger than 10 MB.");
    const QByteArray limit = "note\n" + QByteArray(10'000'000 - 5, 'x');

    // clang-format off
    QTest::newRow("only a byte-order mark") << QByteArray("\xEF\xBB\xBF") << empty;
    QTest::newRow("header only") << QByteArray("id,name\r\n") << empty;
    // Which sequences are valid UTF-8 is the cell-text repair's concern, tested there.
    QTest::newRow("Latin-1 e acute") << QByteArray("id,name\n1,caf\xE9\n") << notUtf8;
    QTest::newRow("invalid after a byte-order mark") << QByteArray("\xEF\xBB\xBFid\n\x80\n") << notUtf8;
    QTest::newRow("same header twice") << QByteArray("id,name,id\n1,a,2\n") << unique;
    QTest::newRow("same header in another case") << QByteArray("id,Name,NAME\n1,a,b\n") << unique;
    QTest::newRow("unknown column") << QByteArray("id,nickname\n1,x\n") << unknown + "nickname";
    QTest::newRow("generated column") << QByteArray("id,doubled\n1,2\n") << unknown + "doubled";
    QTest::newRow("header with blanks is not trimmed") << QByteArray("id, name\n1,a\n") << unknown + " name";
    QTest::newRow("short row") << QByteArray("id,name\n1,a\n2\n") << "Row 3 of the CSV has 1 field, but the header has 2.";
    QTest::newRow("long row") << QByteArray("id,name\n1,a,extra\n") << "Row 2 of the CSV has 3 fields, but the header has 2.";
    QTest::newRow("blank line at the end") << QByteArray("id,name\r\n1,a\r\n\r\n")
                                           << "Row 3 of the CSV has 1 field, but the header has 2.";
    QTest::newRow("rows count records, not lines") << QByteArray("id,name\n1,\"two\nlines\"\n3\n")
                                                   << "Row 3 of the CSV has 1 field, but the header has 2.";
    // The size is checked first, before the bytes are even looked at.
    QTest::newRow("10 MB and one byte") << limit + "x" << tooLarge;
    QTest::newRow("10 MB and one invalid byte") << limit + "\xFF" << tooLarge;
    // clang-format on
}

void TestCsvImportPlan::refusals()
{
    QFETCH(QByteArray, file);
    QFETCH(QString, message);
    QCOMPARE(errorFrom([&] { planCsvImport(file.toStdString(), people, true); }), message);
}

void TestCsvImportPlan::plan_data()
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
        << QByteArray("ID,NAME,total\n1,a,2.50\n") << true << QStringList { "id", "name", "Total" }
        << Grid { { text("1"), text("a"), text("2.50") } };
    QTest::newRow("column with an expression default")
        << QByteArray("created\n2026-01-02 03:04:05\n") << true << QStringList { "created" }
        << Grid { { text("2026-01-02 03:04:05") } };
    QTest::newRow("one column: a blank line is an empty value")
        << QByteArray("note\na\n\nb") << true << QStringList { "note" } << Grid { { text("a") }, { text("") }, { text("b") } };
    QTest::newRow("exactly 10 MB") << "note\n" + QByteArray(10'000'000 - 5, 'x') << true << QStringList { "note" }
        << Grid { { QVariant(QByteArray(10'000'000 - 5, 'x')) } };
    // clang-format on
}

void TestCsvImportPlan::plan()
{
    QFETCH(QByteArray, file);
    QFETCH(bool, nullMarkerIsNull);
    QFETCH(QStringList, columns);
    QFETCH(Grid, rows);

    const CsvImportPlan result = planCsvImport(file.toStdString(), people, nullMarkerIsNull);
    QStringList names;
    for (const std::string &name : result.columns) {
        names.append(QString::fromStdString(name));
    }
    QCOMPARE(names, columns);
    QCOMPARE(result.header.size(), result.columns.size());
    QCOMPARE(grid(result.rows), rows);
}

void TestCsvImportPlan::statementText()
{
    const CsvImportPlan plan
        = planCsvImport("id,Name,note\n1,O'Brien,\\N\n2,\"50% \"\"off\"\"\",\n3,a\\b,\"x\ny\"\n", people, true);
    const std::vector<std::string> statements = csvInsertStatements("my`db", "t`1", plan, csvDefaultStatementBytes);
    QCOMPARE(statements.size(), std::size_t(1));
    QCOMPARE(QString::fromStdString(statements.front()),
        QStringLiteral("INSERT INTO `my``db`.`t``1` (`id`, `name`, `note`) VALUES "
                       "('1', CONVERT(X'4f27427269656e' USING utf8mb4), NULL),"
                       "('2', '50% \"off\"', ''),"
                       "('3', CONVERT(X'615c62' USING utf8mb4), CONVERT(X'780a79' USING utf8mb4));"));
}

void TestCsvImportPlan::batchingSplitsAtTheBudget_data()
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

void TestCsvImportPlan::batchingSplitsAtTheBudget()
{
    QFETCH(int, extra);
    QFETCH(QList<int>, rowsPerStatement);

    const CsvImportPlan plan = planCsvImport("name\nr0001\nr0002\nr0003\nr0004\nr0005\nr0006\nr0007\n", people, true);
    const std::size_t budget = std::string("INSERT INTO `d`.`t` (`name`) VALUES ").size() + std::size_t(extra);
    CsvInsertBatches batches("d", "t", plan, budget);
    std::string statement;
    QList<int> counts;
    QStringList sent; // the tuples of each statement
    while (batches.next(statement)) {
        QVERIFY(statement.starts_with("INSERT INTO `d`.`t` (`name`) VALUES (") && statement.ends_with(");"));
        sent << QString::fromStdString(statement.substr(36, statement.size() - 37));
        counts << int(sent.back().count("('r"));
        // What the import reports as its progress after each statement.
        QCOMPARE(batches.rowsDone(), std::size_t(sent.join(',').count("('r")));
        QVERIFY(statement.size() <= budget || counts.back() == 1);
    }
    QCOMPARE(counts, rowsPerStatement);
    QCOMPARE(sent.join(','), QStringLiteral("('r0001'),('r0002'),('r0003'),('r0004'),('r0005'),('r0006'),('r0007')"));
}

QTEST_GUILESS_MAIN(TestCsvImportPlan)
#include "TestCsvImportPlan.moc"
