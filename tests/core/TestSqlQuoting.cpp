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

} // namespace

class TestSqlQuoting final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void identifier();
    void value_data();
    void value();
    void valueNeverLeaksAnEscapeCharacter();
};

void TestSqlQuoting::identifier()
{
    // A dot is part of the name here; splitting references is the caller's business.
    const std::pair<std::string, QByteArray> cases[]
        = { { "`", "````" }, { "", "``" }, { "a.b", "`a.b`" }, { "it's \"x\" \\n", "`it's \"x\" \\n`" } };
    for (const auto &[name, expected] : cases) {
        QCOMPARE(bytes(SQL::identifier(name)), expected);
        // Both halves of a qualified name go through the same quoting.
        QCOMPARE(bytes(SQL::qualified(name, name)), expected + '.' + expected);
    }
}

void TestSqlQuoting::value_data()
{
    QTest::addColumn<std::optional<std::string>>("input");
    QTest::addColumn<QByteArray>("expected");

    using Text = std::optional<std::string>;
    // NULL, the empty string and the text NULL stay three different values.
    QTest::newRow("NULL") << Text() << QByteArray("NULL");
    QTest::newRow("empty") << Text("") << QByteArray("''");
    QTest::newRow("NULL as text") << Text("NULL") << QByteArray("'NULL'");
    // Only apostrophe, backslash, NUL, LF and CR call for the hexadecimal form.
    QTest::newRow("quotes, percent and tab stay plain")
        << Text("say \"hi\" `x` 100%\t") << QByteArray("'say \"hi\" `x` 100%\t'");
    QTest::newRow("C:\\new") << Text("C:\\new") << QByteArray("CONVERT(X'433a5c6e6577' USING utf8mb4)");
    QTest::newRow("NUL, LF, CR") << Text(std::string("\0\n\r", 3)) << QByteArray("CONVERT(X'000a0d' USING utf8mb4)");
    // High bytes must not be sign-extended, and the digits stay lower case.
    QTest::newRow("bytes AB CD EF then apostrophe")
        << Text("\xab\xcd\xef'") << QByteArray("CONVERT(X'abcdef27' USING utf8mb4)");
}

void TestSqlQuoting::value()
{
    QFETCH(std::optional<std::string>, input);
    QFETCH(QByteArray, expected);
    QCOMPARE(bytes(SQL::value(input)), expected);
    if (input) {
        QCOMPARE(bytes(SQL::value(std::string_view(*input))), expected);
        // A column default takes the same decision, without the CONVERT wrapper.
        const QByteArray unwrapped = expected.startsWith("CONVERT(") ? expected.mid(8).chopped(15) : expected;
        QCOMPARE(bytes(SQL::defaultLiteral(*input)), unwrapped);
    }
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
