#include "core/AppError.h"
#include "core/Csv.h"

#include <QTest>
#include <string>
#include <string_view>

using namespace tallowick;

namespace
{

using Rows = QList<QByteArrayList>;

Rows parsed(const QByteArray &text)
{
    Rows rows;
    for (const std::vector<std::string> &row :
        SQL::parseCSV(std::string_view(text.constData(), static_cast<std::size_t>(text.size())))) {
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
    for (const std::string &name : names) {
        Field field;
        field.name = name;
        result.fields.push_back(field);
    }
    return result;
}

} // namespace

class TestCsv final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void writesHeaderOnlyWithoutRows();
    void writesEveryValueQuotedAndNullBare();
    void parse_data();
    void parse();
    void parseRejectsOpenQuote_data();
    void parseRejectsOpenQuote();
    void roundTrip_data();
    void roundTrip();
};

void TestCsv::writesHeaderOnlyWithoutRows()
{
    const QueryResult result = resultWithColumns({ "id", "say \"hi\"" });
    QCOMPARE(QByteArray::fromStdString(SQL::csv(result)), QByteArray("\"id\",\"say \"\"hi\"\"\"\r\n"));
}

void TestCsv::writesEveryValueQuotedAndNullBare()
{
    QueryResult result = resultWithColumns({ "a", "b", "c" });
    result.rows = {
        { std::nullopt, std::string("\\N"), std::string() },
        { std::string("one, two\nthree"), std::string("say \"hi\""), std::string("42") },
    };
    // Only an unquoted \N is NULL; the text \N and the empty string are quoted.
    QCOMPARE(QByteArray::fromStdString(SQL::csv(result)),
        QByteArray("\"a\",\"b\",\"c\"\r\n"
                   "\\N,\"\\N\",\"\"\r\n"
                   "\"one, two\nthree\",\"say \"\"hi\"\"\",\"42\"\r\n"));
}

void TestCsv::parse_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<Rows>("expected");

    QTest::newRow("empty") << QByteArray() << Rows {};
    QTest::newRow("a,b CR LF 1,2") << QByteArray("a,b\r\n1,2") << Rows { { "a", "b" }, { "1", "2" } };
    QTest::newRow("a,b LF 1, (trailing comma keeps its field)")
        << QByteArray("a,b\n1,") << Rows { { "a", "b" }, { "1", "" } };
    QTest::newRow("final line end adds no row") << QByteArray("a\r\n") << Rows { { "a" } };
    QTest::newRow("lone CR ends a row") << QByteArray("a\rb\r") << Rows { { "a" }, { "b" } };
    QTest::newRow("LF CR is two line ends") << QByteArray("a\n\rb") << Rows { { "a" }, { "" }, { "b" } };
    QTest::newRow("blank line in the middle") << QByteArray("a\r\n\r\nb") << Rows { { "a" }, { "" }, { "b" } };
    QTest::newRow("rows are not padded") << QByteArray("a,b,c\nd") << Rows { { "a", "b", "c" }, { "d" } };
    QTest::newRow("comma and line break inside quotes")
        << QByteArray("\"one, two\nthree\",x") << Rows { { "one, two\nthree", "x" } };
    QTest::newRow("CR LF inside quotes") << QByteArray("\"a\r\nb\"\r\n") << Rows { { "a\r\nb" } };
    QTest::newRow("doubled quotes") << QByteArray("\"say \"\"hi\"\"\"") << Rows { { "say \"hi\"" } };
    QTest::newRow("two empty quoted fields") << QByteArray("\"\",\"\"") << Rows { { "", "" } };
    QTest::newRow("quote inside an unquoted field is kept") << QByteArray("ab\"c\",d") << Rows { { "ab\"c\"", "d" } };
    QTest::newRow("text after the closing quote") << QByteArray("\"a\"b,c") << Rows { { "ab", "c" } };
    // Deciding that \N is NULL is the importer's job: both come back as text here.
    QTest::newRow("\\N bare and quoted") << QByteArray("\\N,\"\\N\"") << Rows { { "\\N", "\\N" } };
    QTest::newRow("non-ASCII") << QByteArray("größe,\"✓\"") << Rows { { "größe", "✓" } };
}

void TestCsv::parse()
{
    QFETCH(QByteArray, text);
    QFETCH(Rows, expected);
    QCOMPARE(parsed(text), expected);
}

void TestCsv::parseRejectsOpenQuote_data()
{
    QTest::addColumn<QByteArray>("text");

    QTest::newRow("\"abc") << QByteArray("\"abc");
    QTest::newRow("a,\"b LF c") << QByteArray("a,\"b\nc");
    QTest::newRow("escaped quote then the end") << QByteArray("\"a\"\"");
    QTest::newRow("open quote on a later row") << QByteArray("a,b\r\n\"1,2\r\n");
}

void TestCsv::parseRejectsOpenQuote()
{
    QFETCH(QByteArray, text);
    try {
        const Rows rows = parsed(text);
        QFAIL(qPrintable(QStringLiteral("no error; got %1 rows").arg(rows.size())));
    } catch (const AppError &error) {
        QCOMPARE(QString::fromStdString(error.message()), QStringLiteral("The CSV has an unterminated quoted field."));
    }
}

// What the exporter writes, the importer reads back cell for cell (NULL as the text \N).
void TestCsv::roundTrip_data()
{
    QTest::addColumn<QByteArray>("value");

    QTest::newRow("comma and line break") << QByteArray("one, two\nthree");
    QTest::newRow("quotes") << QByteArray("say \"hi\"");
    QTest::newRow("only a quote") << QByteArray("\"");
    QTest::newRow("empty") << QByteArray("");
    QTest::newRow("CR LF") << QByteArray("\r\n");
    QTest::newRow("lone CR") << QByteArray("a\rb");
    QTest::newRow("text \\N") << QByteArray("\\N");
    QTest::newRow("leading and trailing blanks") << QByteArray("  x  ");
    QTest::newRow("non-ASCII") << QByteArray("Zoë ✓");
}

void TestCsv::roundTrip()
{
    QFETCH(QByteArray, value);
    QueryResult result = resultWithColumns({ "id", value.toStdString(), "note" });
    result.rows = { { std::string("1"), value.toStdString(), std::nullopt } };

    const Rows expected { { "id", value, "note" }, { "1", value, "\\N" } };
    QCOMPARE(parsed(QByteArray::fromStdString(SQL::csv(result))), expected);
}

QTEST_GUILESS_MAIN(TestCsv)
#include "TestCsv.moc"
