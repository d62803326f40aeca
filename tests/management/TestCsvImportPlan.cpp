#include "core/AppError.h"
#include "management/CsvImport.h"
#include "support/Checks.h"

#include <QTest>
#include <string>

using namespace tallowick;
using namespace tallowick::test;

namespace
{

std::vector<ColumnInfo> people()
{
    return {
        { "id", "int(11)", false, true, std::nullopt, "", std::nullopt, "" },
        { "name", "varchar(100)", true, false, std::nullopt, "", "utf8mb4_unicode_ci", "" },
        { "note", "text", true, false, std::nullopt, "", "utf8mb4_unicode_ci", "" },
        { "doubled", "int(11)", true, false, std::nullopt, "VIRTUAL GENERATED", std::nullopt, "" },
        { "Total", "decimal(10,2)", true, false, std::nullopt, "", std::nullopt, "" },
        // An expression default does not make a column generated: it can be imported into.
        { "created", "datetime", true, false, "current_timestamp()", "DEFAULT_GENERATED", std::nullopt, "" },
    };
}

std::string bytes(const QByteArray &data)
{
    return data.toStdString();
}

// One column of values "r0001", "r0002", ...: every row's tuple ('r0001') has the same length.
CsvImportPlan numberedPlan(std::size_t rows)
{
    std::string file = "name\n";
    for (std::size_t i = 1; i <= rows; ++i) {
        file += "r" + QByteArray::number(static_cast<qulonglong>(i)).rightJustified(4, '0').toStdString() + "\n";
    }
    return planCsvImport(file, people(), true);
}

// The tuples of a statement list, in order: what follows " VALUES " up to the final ";", split
// at the "),(" seams. Cell text in these plans never holds that sequence.
QStringList tuples(const std::vector<std::string> &statements)
{
    QStringList all;
    for (const std::string &statement : statements) {
        const auto start = statement.find(" VALUES ");
        if (start == std::string::npos || statement.back() != ';') {
            return { QString::fromStdString("malformed: " + statement) };
        }
        const QString body
            = QString::fromStdString(statement.substr(start + 8, statement.size() - start - 9)).replace("),(", ")\n(");
        all += body.split('\n');
    }
    return all;
}

} // namespace

class TestCsvImportPlan final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void refusals_data();
    void refusals();
    void sizeLimitIsTenMillionBytes();
    void plan_data();
    void plan();
    void previewShowsTheFirstRows();
    void statementText();
    void batchingSplitsAtTheBudget_data();
    void batchingSplitsAtTheBudget();
    void everyRowOnceWhateverTheBudget();
    void batchesReportTheirProgress();
};

void TestCsvImportPlan::refusals_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<bool>("nullMarkerIsNull");
    QTest::addColumn<QString>("message");

    const QString empty = QStringLiteral("The CSV is empty.");
    const QString notUtf8 = QStringLiteral("The CSV must use UTF-8 encoding.");
    const QString unique = QStringLiteral("CSV headers must be unique.");
    const QString unknown = QStringLiteral("Unknown or generated column in CSV header: ");

    // clang-format off
    QTest::newRow("no bytes") << QByteArray() << true << empty;
    QTest::newRow("only a byte-order mark") << QByteArray("\xEF\xBB\xBF") << true << empty;
    QTest::newRow("header only") << QByteArray("id,name\r\n") << true << empty;
    QTest::newRow("Latin-1 e acute") << QByteArray("id,name\n1,caf\xE9\n") << true << notUtf8;
    QTest::newRow("UTF-16 byte-order mark") << QByteArray("\xFF\xFEi\0d\0", 6) << true << notUtf8;
    QTest::newRow("overlong slash") << QByteArray("id,name\n1,\xC0\xAF\n") << true << notUtf8;
    QTest::newRow("encoded surrogate") << QByteArray("id,name\n1,\xED\xA0\x80\n") << true << notUtf8;
    QTest::newRow("4-byte character cut at the end") << QByteArray("id,name\n1,\xF0\x9F\xA7") << true << notUtf8;
    QTest::newRow("invalid after a byte-order mark") << QByteArray("\xEF\xBB\xBFid\n\x80\n") << true << notUtf8;
    QTest::newRow("encoding checked before quoting") << QByteArray("id\n\"\xFF") << true << notUtf8;
    QTest::newRow("open quoted field") << QByteArray("id,name\n1,\"O'Brien\n") << true
                                       << "The CSV has an unterminated quoted field.";
    QTest::newRow("same header twice") << QByteArray("id,name,id\n1,a,2\n") << true << unique;
    QTest::newRow("same header in another case") << QByteArray("id,Name,NAME\n1,a,b\n") << true << unique;
    QTest::newRow("duplicates reported before unknown names") << QByteArray("nope,nope\n1,2\n") << true << unique;
    QTest::newRow("unknown column") << QByteArray("id,nickname\n1,x\n") << true << unknown + "nickname";
    QTest::newRow("generated column") << QByteArray("id,doubled\n1,2\n") << true << unknown + "doubled";
    QTest::newRow("header with a trailing comma") << QByteArray("id,name,\n1,a,\n") << true << unknown;
    QTest::newRow("header with blanks is not trimmed") << QByteArray("id, name\n1,a\n") << true << unknown + " name";
    QTest::newRow("byte-order mark in the middle of a name") << QByteArray("id,\xEF\xBB\xBFname\n1,a\n") << true
                                                             << unknown + QChar(0xFEFF) + "name";
    QTest::newRow("header checked before the missing data") << QByteArray("id,nope\n") << true << unknown + "nope";
    QTest::newRow("short row") << QByteArray("id,name\n1,a\n2\n") << true
                               << "Row 3 of the CSV has 1 field, but the header has 2.";
    QTest::newRow("long row") << QByteArray("id,name\n1,a,extra\n") << true
                              << "Row 2 of the CSV has 3 fields, but the header has 2.";
    QTest::newRow("blank line between rows") << QByteArray("id,name\n1,a\n\n2,b\n") << true
                                             << "Row 3 of the CSV has 1 field, but the header has 2.";
    QTest::newRow("blank line at the end") << QByteArray("id,name\r\n1,a\r\n\r\n") << false
                                           << "Row 3 of the CSV has 1 field, but the header has 2.";
    QTest::newRow("rows count records, not lines") << QByteArray("id,name\n1,\"two\nlines\"\n3\n") << true
                                                   << "Row 3 of the CSV has 1 field, but the header has 2.";
    // clang-format on
}

void TestCsvImportPlan::refusals()
{
    QFETCH(QByteArray, file);
    QFETCH(bool, nullMarkerIsNull);
    QFETCH(QString, message);
    QCOMPARE(errorFrom([&] { planCsvImport(bytes(file), people(), nullMarkerIsNull); }), message);
}

void TestCsvImportPlan::sizeLimitIsTenMillionBytes()
{
    const std::string header = "note\n";
    std::string file = header + std::string(csvImportMaxBytes - header.size(), 'x');
    QCOMPARE(file.size(), std::size_t(10'000'000));
    const CsvImportPlan plan = planCsvImport(file, people(), true);
    QCOMPARE(plan.rows.size(), std::size_t(1));
    QCOMPARE(plan.rows.front().front()->size(), csvImportMaxBytes - header.size());

    file += 'x';
    QCOMPARE(errorFrom([&] { planCsvImport(file, people(), true); }),
        QStringLiteral("Use SQL import for files larger than 10 MB."));
    // The size is checked first, before the bytes are even looked at.
    file.back() = '\xFF';
    QCOMPARE(errorFrom([&] { planCsvImport(file, people(), true); }),
        QStringLiteral("Use SQL import for files larger than 10 MB."));
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
    QTest::newRow("empty fields are empty text, not NULL")
        << QByteArray("id,name\n,\"\"\n") << true << idName << Grid { { text(""), text("") } };
    QTest::newRow("byte-order mark dropped before the first name")
        << QByteArray("\xEF\xBB\xBFid,name\r\n1,a\r\n") << true << idName << Grid { { text("1"), text("a") } };
    QTest::newRow("header names take the table's spelling")
        << QByteArray("ID,NAME,total\n1,a,2.50\n") << true << QStringList { "id", "name", "Total" }
        << Grid { { text("1"), text("a"), text("2.50") } };
    QTest::newRow("header order is kept, not the table's")
        << QByteArray("note,id\nx,1\n") << true << QStringList { "note", "id" } << Grid { { text("x"), text("1") } };
    QTest::newRow("column with an expression default")
        << QByteArray("created\n2026-01-02 03:04:05\n") << true << QStringList { "created" }
        << Grid { { text("2026-01-02 03:04:05") } };
    QTest::newRow("quotes, commas, line breaks and 4-byte characters")
        << QByteArray("id,note\n1,\"say \"\"hi\"\", then\r\nleave\"\n2,\xF0\x9F\xA7\xB9 O'Brien\\path\n") << true
        << QStringList { "id", "note" }
        << Grid { { text("1"), text("say \"hi\", then\r\nleave") }, { text("2"), text("\xF0\x9F\xA7\xB9 O'Brien\\path") } };
    QTest::newRow("one column: a blank line is an empty value")
        << QByteArray("note\na\n\nb") << true << QStringList { "note" } << Grid { { text("a") }, { text("") }, { text("b") } };
    // clang-format on
}

void TestCsvImportPlan::plan()
{
    QFETCH(QByteArray, file);
    QFETCH(bool, nullMarkerIsNull);
    QFETCH(QStringList, columns);
    QFETCH(Grid, rows);

    const CsvImportPlan result = planCsvImport(bytes(file), people(), nullMarkerIsNull);
    QStringList names;
    for (const std::string &name : result.columns) {
        names.append(QString::fromStdString(name));
    }
    QCOMPARE(names, columns);
    QCOMPARE(result.header.size(), result.columns.size());
    QCOMPARE(grid(result.rows), rows);
}

void TestCsvImportPlan::previewShowsTheFirstRows()
{
    const CsvImportPlan many = numberedPlan(csvPreviewRows + 5);
    QCOMPARE(many.preview().size(), csvPreviewRows);
    QCOMPARE(many.preview().front().front(), Cell("r0001"));
    QCOMPARE(many.preview().back().front(), Cell("r0020"));

    const CsvImportPlan few = numberedPlan(3);
    QCOMPARE(few.preview().size(), std::size_t(3));
    QCOMPARE(few.preview().back().front(), Cell("r0003"));
}

void TestCsvImportPlan::statementText()
{
    const CsvImportPlan plan
        = planCsvImport("id,Name,note\n1,O'Brien,\\N\n2,\"50% \"\"off\"\"\",\n3,a\\b,\"x\ny\"\n", people(), true);
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

    // A statement of k rows is the prefix, k tuples of 9 bytes, k-1 commas and a semicolon:
    // prefix + 10k bytes.
    QTest::newRow("budget smaller than one row: one row each") << 0 << QList<int> { 1, 1, 1, 1, 1, 1, 1 };
    QTest::newRow("exactly two rows") << 20 << QList<int> { 2, 2, 2, 1 };
    QTest::newRow("one byte short of three rows") << 29 << QList<int> { 2, 2, 2, 1 };
    QTest::newRow("exactly three rows") << 30 << QList<int> { 3, 3, 1 };
    QTest::newRow("exactly all seven rows") << 70 << QList<int> { 7 };
    QTest::newRow("more than enough") << 100000 << QList<int> { 7 };
}

void TestCsvImportPlan::batchingSplitsAtTheBudget()
{
    QFETCH(int, extra);
    QFETCH(QList<int>, rowsPerStatement);

    const CsvImportPlan plan = numberedPlan(7);
    const std::size_t prefix = std::string("INSERT INTO `d`.`t` (`name`) VALUES ").size();
    const std::size_t budget = prefix + static_cast<std::size_t>(extra);
    const std::vector<std::string> statements = csvInsertStatements("d", "t", plan, budget);

    QList<int> counts;
    for (const std::string &statement : statements) {
        counts.append(static_cast<int>(tuples({ statement }).size()));
        if (counts.back() > 1) {
            QVERIFY2(statement.size() <= budget, statement.c_str());
        }
    }
    QCOMPARE(counts, rowsPerStatement);
    QStringList expected;
    for (int i = 1; i <= 7; ++i) {
        expected.append(QStringLiteral("('r%1')").arg(i, 4, 10, QLatin1Char('0')));
    }
    QCOMPARE(tuples(statements), expected);
}

// Rows of varied length and quoting: whatever the budget, the statements together carry every
// row exactly once, in file order, and none passes the budget unless it holds a single row.
void TestCsvImportPlan::everyRowOnceWhateverTheBudget()
{
    std::string file = "id,name,note\n";
    for (int i = 0; i < 300; ++i) {
        const std::string n = std::to_string(i);
        file += n + ",\"" + std::string(static_cast<std::size_t>(i % 37), i % 3 == 0 ? '\'' : 'a') + "\","
            + (i % 5 == 0 ? "\\N" : "\"line\nbreak " + n + "\"") + "\n";
    }
    const CsvImportPlan plan = planCsvImport(file, people(), true);
    const QStringList all = tuples(csvInsertStatements("d", "t", plan, std::size_t(-1)));
    QCOMPARE(all.size(), 300);

    for (const std::size_t budget : { 1, 100, 257, 1000, 4096, 65536 }) {
        const std::vector<std::string> statements = csvInsertStatements("d", "t", plan, budget);
        for (const std::string &statement : statements) {
            QVERIFY2(statement.size() <= budget || tuples({ statement }).size() == 1,
                qPrintable(QStringLiteral("budget %1: %2 bytes").arg(budget).arg(statement.size())));
        }
        QCOMPARE(tuples(statements), all);
    }
}

void TestCsvImportPlan::batchesReportTheirProgress()
{
    const CsvImportPlan plan = numberedPlan(7);
    const std::size_t prefix = std::string("INSERT INTO `d`.`t` (`name`) VALUES ").size();
    CsvInsertBatches batches("d", "t", plan, prefix + 30);
    std::string statement;
    QList<std::size_t> done;
    while (batches.next(statement)) {
        done.append(batches.rowsDone());
    }
    QCOMPARE(done, (QList<std::size_t> { 3, 6, 7 }));
    QVERIFY(!batches.next(statement));
    QCOMPARE(batches.rowsDone(), std::size_t(7));
    QCOMPARE(QString::fromStdString(csvImportStatus(3, 7)), QStringLiteral("Importing CSV… 3 of 7 rows"));
}

QTEST_GUILESS_MAIN(TestCsvImportPlan)
#include "TestCsvImportPlan.moc"
