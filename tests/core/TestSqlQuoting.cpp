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
    void value_data();
    void value();
    void nullAndEmptyStayDistinct();
    void valueNeverLeaksAnEscapeCharacter();
};

void TestSqlQuoting::identifier_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("lone back-quote") << QByteArray("`") << QByteArray("````");
    QTest::newRow("empty") << QByteArray("") << QByteArray("``");
    // A dot is part of the name here; splitting references is the caller's business.
    QTest::newRow("a.b") << QByteArray("a.b") << QByteArray("`a.b`");
    QTest::newRow("quotes and backslash untouched") << QByteArray("it's \"x\" \\n") << QByteArray("`it's \"x\" \\n`");
}

void TestSqlQuoting::identifier()
{
    QFETCH(QByteArray, name);
    QFETCH(QByteArray, expected);
    QCOMPARE(bytes(SQL::identifier(text(name))), expected);
    // Both halves of a qualified name go through the same quoting.
    QCOMPARE(bytes(SQL::qualified(text(name), text(name))), expected + '.' + expected);
}

void TestSqlQuoting::value_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("NULL as text") << QByteArray("NULL") << QByteArray("'NULL'");
    // Only apostrophe, backslash, NUL, LF and CR call for the hexadecimal form.
    QTest::newRow("quotes, percent and tab stay plain")
        << QByteArray("say \"hi\" `x` 100%\t") << QByteArray("'say \"hi\" `x` 100%\t'");
    QTest::newRow("C:\\new") << QByteArray("C:\\new") << QByteArray("CONVERT(X'433a5c6e6577' USING utf8mb4)");
    QTest::newRow("NUL, LF, CR") << QByteArray("\0\n\r", 3) << QByteArray("CONVERT(X'000a0d' USING utf8mb4)");
    // High bytes must not be sign-extended, and the digits stay lower case.
    QTest::newRow("bytes AB CD EF then apostrophe")
        << QByteArray("\xab\xcd\xef'") << QByteArray("CONVERT(X'abcdef27' USING utf8mb4)");
}

void TestSqlQuoting::value()
{
    QFETCH(QByteArray, input);
    QFETCH(QByteArray, expected);
    QCOMPARE(bytes(SQL::value(text(input))), expected);
    // The optional overload must agree for a present value.
    QCOMPARE(bytes(SQL::value(std::optional<std::string>(text(input)))), expected);
    // A column default takes the same decision, without the CONVERT wrapper.
    const QByteArray unwrapped = expected.startsWith("CONVERT(") ? expected.mid(8).chopped(15) : expected;
    QCOMPARE(bytes(SQL::defaultLiteral(text(input))), unwrapped);
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
    const std::string dangerous("'\\\n\r\0", 5);
    const QByteArray prefix = "CONVERT(X'";
    const QByteArray suffix = "' USING utf8mb4)";
    QRandomGenerator random(20240611);
    for (int round = 0; round < 5000; ++round) {
        std::string input;
        for (int i = random.bounded(1, 9); i > 0; --i) {
            input.push_back(pieces[random.bounded(static_cast<int>(sizeof pieces))]);
        }
        const QByteArray result = bytes(SQL::value(input));
        if (input.find_first_of(dangerous) == std::string::npos) {
            QCOMPARE(result, '\'' + bytes(input) + '\'');
            continue;
        }
        QVERIFY2(result.startsWith(prefix) && result.endsWith(suffix), result.toHex().constData());
        const QByteArray hex = result.mid(prefix.size(), result.size() - prefix.size() - suffix.size());
        QCOMPARE(hex, hex.toLower());
        QCOMPARE(QByteArray::fromHex(hex), bytes(input));
    }
}

QTEST_GUILESS_MAIN(TestSqlQuoting)
#include "TestSqlQuoting.moc"
