#include "core/Csv.h"
#include "support/Checks.h"

#include <QTest>
#include <string>

using namespace tallowick;
using namespace tallowick::test;

namespace
{

using Rows = QList<QByteArrayList>;

Rows parsed(const QByteArray &text)
{
    Rows rows;
    for (const std::vector<std::string> &row : SQL::parseCSV(text.toStdString())) {
        QByteArrayList cells;
        for (const std::string &cell : row) {
            cells.append(QByteArray::fromStdString(cell));
        }
        rows.append(cells);
    }
    return rows;
}

QueryResult resultWithColumns(const std::vector<std::string> &names)
{
    QueryResult result;
    result.fields.resize(names.size());
    for (std::size_t i = 0; i < names.size(); ++i) {
        result.fields[i].name = names[i];
    }
    return result;
}

} // namespace

class TestCsv final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void writesEveryValueQuotedAndNullBare();
    void parse_data();
    void parse();
    void roundTrip();
};

void TestCsv::writesEveryValueQuotedAndNullBare()
{
    QueryResult result = resultWithColumns({ "id", "say \"hi\"" });
    result.rows = { { std::nullopt, std::string("\\N") }, { std::string(), std::string("a,b\nc") } };
    // Only an unquoted \N is NULL; the text \N and the empty string are quoted.
    QCOMPARE(
        QByteArray::fromStdString(SQL::csv(result)), "\"id\",\"say \"\"hi\"\"\"\r\n\\N,\"\\N\"\r\n\"\",\"a,b\nc\"\r\n");
}

void TestCsv::parse_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<Rows>("expected");
    QTest::addColumn<QString>("error");

    const QString ok = QStringLiteral("(no error)");
    const QString open = QStringLiteral("The CSV has an unterminated quoted field.");
    QTest::newRow("empty") << QByteArray() << Rows {} << ok;
    QTest::newRow("final line end adds no row") << QByteArray("a\r\n") << Rows { { "a" } } << ok;
    QTest::newRow("lone CR ends a row") << QByteArray("a\rb\r") << Rows { { "a" }, { "b" } } << ok;
    QTest::newRow("LF CR is two line ends") << QByteArray("a\n\rb") << Rows { { "a" }, { "" }, { "b" } } << ok;
    QTest::newRow("CR LF inside quotes") << QByteArray("\"a\r\nb\"\r\n") << Rows { { "a\r\nb" } } << ok;
    QTest::newRow("quote inside an unquoted field is kept")
        << QByteArray("ab\"c\",d") << Rows { { "ab\"c\"", "d" } } << ok;
    QTest::newRow("text after the closing quote") << QByteArray("\"a\"b,c") << Rows { { "ab", "c" } } << ok;
    // Deciding that \N is NULL is the importer's job: both come back as text here.
    QTest::newRow("\\N bare and quoted") << QByteArray("\\N,\"\\N\"") << Rows { { "\\N", "\\N" } } << ok;
    // An open quote fails the whole parse, also when what looks like its closing quote is escaped.
    QTest::newRow("open quote") << QByteArray("\"abc") << Rows {} << open;
    QTest::newRow("escaped closing quote") << QByteArray("\"a\"\"") << Rows {} << open;
}

void TestCsv::parse()
{
    QFETCH(QByteArray, text);
    QFETCH(Rows, expected);
    QFETCH(QString, error);
    Rows rows;
    QCOMPARE(errorFrom([&] { rows = parsed(text); }), error);
    QCOMPARE(rows, expected);
}

// What the exporter writes, the importer reads back cell for cell, names included (NULL as the
// text \N).
void TestCsv::roundTrip()
{
    const std::vector<std::string> awkward { "\"", "", "a,\r\n", "a\rb", "\\N", "  x  " };
    QueryResult result = resultWithColumns(awkward);
    result.rows = { Row(awkward.begin(), awkward.end()), Row(awkward.size()) };
    QByteArrayList values;
    for (const std::string &value : awkward) {
        values.append(QByteArray::fromStdString(value));
    }
    const Rows expected { values, values, QByteArrayList(values.size(), "\\N") };
    QCOMPARE(parsed(QByteArray::fromStdString(SQL::csv(result))), expected);
}

QTEST_GUILESS_MAIN(TestCsv)
#include "TestCsv.moc"
