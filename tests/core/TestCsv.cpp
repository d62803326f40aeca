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
    void writesEveryValueQuotedAndNullBare();
    void parse_data();
    void parse();
    void parseRejectsOpenQuote();
    void roundTrip_data();
    void roundTrip();
};

void TestCsv::writesEveryValueQuotedAndNullBare()
{
    QueryResult result = resultWithColumns({ "id", "say \"hi\"" });
    const QByteArray header = "\"id\",\"say \"\"hi\"\"\"\r\n";
    QCOMPARE(QByteArray::fromStdString(SQL::csv(result)), header);

    result.rows = { { std::nullopt, std::string("\\N") }, { std::string(), std::string("42") } };
    // Only an unquoted \N is NULL; the text \N and the empty string are quoted.
    QCOMPARE(QByteArray::fromStdString(SQL::csv(result)), header + "\\N,\"\\N\"\r\n\"\",\"42\"\r\n");
}

void TestCsv::parse_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<Rows>("expected");

    QTest::newRow("empty") << QByteArray() << Rows {};
    QTest::newRow("final line end adds no row") << QByteArray("a\r\n") << Rows { { "a" } };
    QTest::newRow("lone CR ends a row") << QByteArray("a\rb\r") << Rows { { "a" }, { "b" } };
    QTest::newRow("LF CR is two line ends") << QByteArray("a\n\rb") << Rows { { "a" }, { "" }, { "b" } };
    QTest::newRow("CR LF inside quotes") << QByteArray("\"a\r\nb\"\r\n") << Rows { { "a\r\nb" } };
    QTest::newRow("quote inside an unquoted field is kept") << QByteArray("ab\"c\",d") << Rows { { "ab\"c\"", "d" } };
    QTest::newRow("text after the closing quote") << QByteArray("\"a\"b,c") << Rows { { "ab", "c" } };
    // Deciding that \N is NULL is the importer's job: both come back as text here.
    QTest::newRow("\\N bare and quoted") << QByteArray("\\N,\"\\N\"") << Rows { { "\\N", "\\N" } };
}

void TestCsv::parse()
{
    QFETCH(QByteArray, text);
    QFETCH(Rows, expected);
    QCOMPARE(parsed(text), expected);
}

// An open quote fails the whole parse, also when what looks like its closing quote is escaped.
void TestCsv::parseRejectsOpenQuote()
{
    for (const QByteArray &text : { QByteArray("\"abc"), QByteArray("\"a\"\"") }) {
        try {
            const Rows rows = parsed(text);
            QFAIL(
                qPrintable(QStringLiteral("%1: no error; got %2 rows").arg(QString::fromUtf8(text)).arg(rows.size())));
        } catch (const AppError &error) {
            QCOMPARE(
                QString::fromStdString(error.message()), QStringLiteral("The CSV has an unterminated quoted field."));
        }
    }
}

// What the exporter writes, the importer reads back cell for cell (NULL as the text \N).
void TestCsv::roundTrip_data()
{
    QTest::addColumn<QByteArray>("value");

    QTest::newRow("only a quote") << QByteArray("\"");
    QTest::newRow("empty") << QByteArray("");
    QTest::newRow("CR LF") << QByteArray("\r\n");
    QTest::newRow("lone CR") << QByteArray("a\rb");
    QTest::newRow("text \\N") << QByteArray("\\N");
    QTest::newRow("leading and trailing blanks") << QByteArray("  x  ");
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
