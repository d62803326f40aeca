#include "core/SqlQuoting.h"

#include <QRandomGenerator>
#include <QTest>
#include <optional>
#include <string>

using namespace tallowick;

namespace
{

QByteArray bytes(const std::string &text)
{
    return QByteArray::fromStdString(text);
}

std::string text(const QByteArray &data)
{
    return data.toStdString();
}

} // namespace

class TestSqlQuoting final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void identifier_data();
    void identifier();
    void qualified_data();
    void qualified();
    void value_data();
    void value();
    void nullAndEmptyStayDistinct();
    void valueNeverLeaksAnEscapeCharacter();
    void defaultLiteral_data();
    void defaultLiteral();
};

void TestSqlQuoting::identifier_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("orders") << QByteArray("orders") << QByteArray("`orders`");
    QTest::newRow("my`table") << QByteArray("my`table") << QByteArray("`my``table`");
    QTest::newRow("lone back-quote") << QByteArray("`") << QByteArray("````");
    QTest::newRow("two back-quotes") << QByteArray("a``b") << QByteArray("`a````b`");
    QTest::newRow("empty") << QByteArray("") << QByteArray("``");
    // A dot is part of the name here; splitting references is the caller's business.
    QTest::newRow("a.b") << QByteArray("a.b") << QByteArray("`a.b`");
    QTest::newRow("quotes and backslash untouched") << QByteArray("it's \"x\" \\n") << QByteArray("`it's \"x\" \\n`");
    QTest::newRow("non-ASCII") << QByteArray("Größe") << QByteArray("`Größe`");
}

void TestSqlQuoting::identifier()
{
    QFETCH(QByteArray, name);
    QFETCH(QByteArray, expected);
    QCOMPARE(bytes(SQL::identifier(text(name))), expected);
}

void TestSqlQuoting::qualified_data()
{
    QTest::addColumn<QByteArray>("database");
    QTest::addColumn<QByteArray>("table");
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("shop.orders") << QByteArray("shop") << QByteArray("orders") << QByteArray("`shop`.`orders`");
    QTest::newRow("sh`op / or.ders") << QByteArray("sh`op") << QByteArray("or.ders")
                                     << QByteArray("`sh``op`.`or.ders`");
    QTest::newRow("empty database") << QByteArray("") << QByteArray("t") << QByteArray("``.`t`");
}

void TestSqlQuoting::qualified()
{
    QFETCH(QByteArray, database);
    QFETCH(QByteArray, table);
    QFETCH(QByteArray, expected);
    QCOMPARE(bytes(SQL::qualified(text(database), text(table))), expected);
}

void TestSqlQuoting::value_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("NULL as text") << QByteArray("NULL") << QByteArray("'NULL'");
    QTest::newRow("empty") << QByteArray("") << QByteArray("''");
    QTest::newRow("hello") << QByteArray("hello") << QByteArray("'hello'");
    QTest::newRow("double quote, back-quote, percent")
        << QByteArray("say \"hi\" `x` 100%") << QByteArray("'say \"hi\" `x` 100%'");
    QTest::newRow("non-ASCII letters") << QByteArray("Zoë ✓") << QByteArray("'Zoë ✓'");
    QTest::newRow("tab is not a trigger") << QByteArray("a\tb") << QByteArray("'a\tb'");
    QTest::newRow("O'Brien") << QByteArray("O'Brien") << QByteArray("CONVERT(X'4f27427269656e' USING utf8mb4)");
    QTest::newRow("C:\\new") << QByteArray("C:\\new") << QByteArray("CONVERT(X'433a5c6e6577' USING utf8mb4)");
    QTest::newRow("line feed only") << QByteArray("\n") << QByteArray("CONVERT(X'0a' USING utf8mb4)");
    QTest::newRow("carriage return only") << QByteArray("\r") << QByteArray("CONVERT(X'0d' USING utf8mb4)");
    QTest::newRow("a NUL b") << QByteArray("a\0b", 3) << QByteArray("CONVERT(X'610062' USING utf8mb4)");
    // High bytes must not be sign-extended, and the digits stay lower case.
    QTest::newRow("é' (UTF-8 bytes)") << QByteArray("é'") << QByteArray("CONVERT(X'c3a927' USING utf8mb4)");
    QTest::newRow("bytes AB CD EF then apostrophe")
        << QByteArray("\xab\xcd\xef'") << QByteArray("CONVERT(X'abcdef27' USING utf8mb4)");
    QTest::newRow("injection attempt") << QByteArray(
        "x'; DROP TABLE t; --") << QByteArray("CONVERT(X'78273b2044524f50205441424c4520743b202d2d' USING utf8mb4)");
}

void TestSqlQuoting::value()
{
    QFETCH(QByteArray, input);
    QFETCH(QByteArray, expected);
    QCOMPARE(bytes(SQL::value(text(input))), expected);
    // The optional overload must agree for a present value.
    QCOMPARE(bytes(SQL::value(std::optional<std::string>(text(input)))), expected);
}

void TestSqlQuoting::nullAndEmptyStayDistinct()
{
    QCOMPARE(bytes(SQL::value(std::optional<std::string>())), QByteArray("NULL"));
    QCOMPARE(bytes(SQL::value(std::optional<std::string>(std::string()))), QByteArray("''"));
}

// Whatever the text, the result is either the text in apostrophes with none of the five
// dangerous characters inside, or a hexadecimal literal that decodes back to the exact bytes.
void TestSqlQuoting::valueNeverLeaksAnEscapeCharacter()
{
    static const char pieces[] = { 'a', '\'', '\\', '\0', '\n', '\r', '"', '`', '%', '\x80', '\xff', ' ' };
    QRandomGenerator random(20240611);
    for (int round = 0; round < 5000; ++round) {
        std::string input;
        const int length = random.bounded(1, 9);
        for (int i = 0; i < length; ++i) {
            input.push_back(pieces[random.bounded(static_cast<int>(sizeof pieces))]);
        }
        const QByteArray result = bytes(SQL::value(input));
        const QByteArray prefix = "CONVERT(X'";
        const QByteArray suffix = "' USING utf8mb4)";
        if (result.startsWith(prefix)) {
            QVERIFY2(result.endsWith(suffix), result.constData());
            const QByteArray hex = result.mid(prefix.size(), result.size() - prefix.size() - suffix.size());
            QCOMPARE(hex, hex.toLower());
            QCOMPARE(QByteArray::fromHex(hex), bytes(input));
            QVERIFY2(input.find_first_of(std::string("'\\\n\r\0", 5)) != std::string::npos, hex.constData());
        } else {
            QCOMPARE(result, '\'' + bytes(input) + '\'');
            QVERIFY2(input.find_first_of(std::string("'\\\n\r\0", 5)) == std::string::npos, result.toHex().constData());
        }
    }
}

void TestSqlQuoting::defaultLiteral_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("plain text as value()") << QByteArray("pending") << QByteArray("'pending'");
    QTest::newRow("empty") << QByteArray("") << QByteArray("''");
    QTest::newRow("NULL as text") << QByteArray("NULL") << QByteArray("'NULL'");
    QTest::newRow("O'Brien") << QByteArray("O'Brien") << QByteArray("X'4f27427269656e'");
    QTest::newRow("a LF b") << QByteArray("a\nb") << QByteArray("X'610a62'");
    QTest::newRow("backslash") << QByteArray("\\") << QByteArray("X'5c'");
}

void TestSqlQuoting::defaultLiteral()
{
    QFETCH(QByteArray, input);
    QFETCH(QByteArray, expected);
    QCOMPARE(bytes(SQL::defaultLiteral(text(input))), expected);
}

QTEST_GUILESS_MAIN(TestSqlQuoting)
#include "TestSqlQuoting.moc"
