#include "core/ScriptSplitter.h"
#include "support/Checks.h"

#include <QTest>
#include <string>

using namespace tallowick;
using namespace tallowick::test;

namespace
{

QByteArrayList split(const QByteArray &script)
{
    QByteArrayList list;
    for (const std::string &statement : SQL::statements(script.toStdString())) {
        list.append(QByteArray::fromStdString(statement));
    }
    return list;
}

} // namespace

class TestScriptSplitter final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void splits_data();
    void splits();
    void largeScripts_data();
    void largeScripts();
};

void TestScriptSplitter::splits_data()
{
    QTest::addColumn<QByteArray>("script");
    QTest::addColumn<QByteArrayList>("expected");
    QTest::addColumn<QString>("error");

    const QString ok = QStringLiteral("(no error)");

    // Quotes and comments.
    QTest::newRow("empty") << QByteArray() << QByteArrayList {} << ok;
    QTest::newRow("every quote kind hides semicolons and the other kinds")
        << QByteArray("SELECT \"a;'\", `b;\"`, 'c;`'; SELECT 2")
        << QByteArrayList { "SELECT \"a;'\", `b;\"`, 'c;`'", "SELECT 2" } << ok;
    QTest::newRow("backslash protects the quote: 'a\\';b'")
        << QByteArray("SELECT 'a\\';b';SELECT 2") << QByteArrayList { "SELECT 'a\\';b'", "SELECT 2" } << ok;
    // Deliberately also inside back-quotes, unlike the server.
    QTest::newRow("backslash inside back-quotes: `a\\`;b`")
        << QByteArray("SELECT `a\\`;b`;SELECT 2") << QByteArrayList { "SELECT `a\\`;b`", "SELECT 2" } << ok;
    QTest::newRow("apostrophe in a comment opens nothing")
        << QByteArray("SELECT 1; -- don't\nSELECT 2") << QByteArrayList { "SELECT 1", "-- don't\nSELECT 2" } << ok;
    QTest::newRow("/*/ does not close itself")
        << QByteArray("SELECT /*/ ; */ 1;") << QByteArrayList { "SELECT /*/ ; */ 1" } << ok;
    QTest::newRow("block comments do not nest")
        << QByteArray("/* /* */ SELECT 1; */") << QByteArrayList { "/* /* */ SELECT 1", "*/" } << ok;
    // "--" only starts a comment when a blank or the end follows.
    QTest::newRow("SELECT 1--1;SELECT 2")
        << QByteArray("SELECT 1--1;SELECT 2") << QByteArrayList { "SELECT 1--1", "SELECT 2" } << ok;
    QTest::newRow("--<NBSP> is a comment")
        << QByteArray("SELECT 1 --\xc2\xa0;\n;") << QByteArrayList { "SELECT 1 --\xc2\xa0;" } << ok;
    QTest::newRow("--- c; (comment starts at the second dash)")
        << QByteArray("SELECT 5 --- c;\nSELECT 6;") << QByteArrayList { "SELECT 5 --- c;\nSELECT 6" } << ok;
    // Plain text to the scanner, but comment-only by the pattern, so it is dropped.
    QTest::newRow("trailing --x is dropped") << QByteArray("SELECT 1;--x") << QByteArrayList { "SELECT 1" } << ok;
    QTest::newRow("Unicode blanks are trimmed")
        << QByteArray("\xc2\xa0SELECT 1\xe3\x80\x80;\xe2\x80\xa8 SELECT 2\xc2\x85")
        << QByteArrayList { "SELECT 1", "SELECT 2" } << ok;

    // DELIMITER lines.
    QTest::newRow("lower case word, blanks around")
        << QByteArray("  delimiter //  \nSELECT 1//\nSELECT 2//") << QByteArrayList { "SELECT 1", "SELECT 2" } << ok;
    QTest::newRow("delimiter compared in the case written")
        << QByteArray("DELIMITER Go\nSELECT 'go' go Go\nSELECT 2 Go") << QByteArrayList { "SELECT 'go' go", "SELECT 2" }
        << ok;
    QTest::newRow("half a $$ does not split")
        << QByteArray("DELIMITER $$\nSELECT '$$' $ 1$$") << QByteArrayList { "SELECT '$$' $ 1" } << ok;
    QTest::newRow("everything after the word is the delimiter")
        << QByteArray("DELIMITER ;; x\nSELECT 1;; x SELECT 2") << QByteArrayList { "SELECT 1", "SELECT 2" } << ok;
    QTest::newRow("DELIMITER line leaves the pending statement as it is")
        << QByteArray("SELECT 1\nDELIMITER $$\n, 2$$") << QByteArrayList { "SELECT 1\n, 2" } << ok;
    QTest::newRow("not at a line start") << QByteArray("SELECT 1; DELIMITER $$\nSELECT 2$$")
                                         << QByteArrayList { "SELECT 1", "DELIMITER $$\nSELECT 2$$" } << ok;
    QTest::newRow("inside a string") << QByteArray("SELECT '\nDELIMITER $$\n';SELECT 2")
                                     << QByteArrayList { "SELECT '\nDELIMITER $$\n'", "SELECT 2" } << ok;
    QTest::newRow("DELIMITERS (no blank after the word)")
        << QByteArray("DELIMITERS;\nSELECT 1") << QByteArrayList { "DELIMITERS", "SELECT 1" } << ok;
    QTest::newRow("DELIMITER<tab>$$ (tab instead of the blank)")
        << QByteArray("DELIMITER\t$$\nSELECT 1;") << QByteArrayList { "DELIMITER\t$$\nSELECT 1" } << ok;
    QTest::newRow("// delimiter does not start a comment")
        << QByteArray("DELIMITER //\nSELECT 1 // SELECT /* x // */ 2 //")
        << QByteArrayList { "SELECT 1", "SELECT /* x // */ 2" } << ok;

    // CR LF is one character that is not a line feed: line comments run on to the next bare LF,
    // and only the very first line can be a DELIMITER line.
    QTest::newRow("-- comment swallows the following CR LF lines")
        << QByteArray("-- note\r\nSELECT 1;\r\nSELECT 2;") << QByteArrayList { "-- note\r\nSELECT 1;\r\nSELECT 2;" }
        << ok;
    QTest::newRow("a lone CR does not end a comment") << QByteArray("SELECT 1 -- x\rSELECT 2;\nSELECT 3;")
                                                      << QByteArrayList { "SELECT 1 -- x\rSELECT 2;\nSELECT 3" } << ok;
    QTest::newRow("DELIMITER after a CR LF is plain text")
        << QByteArray("SELECT 1;\r\nDELIMITER $$\r\nSELECT 2$$")
        << QByteArrayList { "SELECT 1", "DELIMITER $$\r\nSELECT 2$$" } << ok;
    // The first line reaches to the first bare LF, so the delimiter takes in the CR LF lines.
    QTest::newRow("DELIMITER on the first line takes the CR LF lines with it")
        << QByteArray("DELIMITER $$\r\nSELECT 1$$\nSELECT 2;") << QByteArrayList { "SELECT 2;" } << ok;

    const QString unterminated = QStringLiteral("The SQL contains an unterminated string, identifier, or comment.");
    QTest::newRow("ends with an opening quote") << QByteArray("SELECT 1;'") << QByteArrayList {} << unterminated;
    QTest::newRow("escaped closing quote") << QByteArray("SELECT 'abc\\'") << QByteArrayList {} << unterminated;
    QTest::newRow("ends with /*") << QByteArray("SELECT 1;/*") << QByteArrayList {} << unterminated;
    QTest::newRow("DELIMITER with only blanks after it")
        << QByteArray("SELECT 1;\n  delimiter \t\nSELECT 2;") << QByteArrayList {} << "DELIMITER cannot be empty.";
}

void TestScriptSplitter::splits()
{
    QFETCH(QByteArray, script);
    QFETCH(QByteArrayList, expected);
    QFETCH(QString, error);
    QByteArrayList statements;
    QCOMPARE(errorFrom([&] { statements = split(script); }), error);
    QCOMPARE(statements, expected);
}

// These must simply finish: a splitter that rescans its input would take hours on them.
void TestScriptSplitter::largeScripts_data()
{
    QTest::addColumn<QByteArray>("script");
    QTest::addColumn<qsizetype>("count");
    QTest::addColumn<QByteArray>("first");
    QTest::addColumn<QByteArray>("last");

    constexpr qsizetype size = 20 * 1024 * 1024;

    const QByteArray quoted = "SELECT '" + QByteArray("ab;cd ").repeated(size / 6) + "';\nSELECT 2";
    QTest::newRow("one giant quoted string")
        << quoted << qsizetype(2) << quoted.first(quoted.size() - 10) << QByteArray("SELECT 2");

    const QByteArray words = "SELECT " + QByteArray("word ").repeated(size / 5) + "x";
    QTest::newRow("one giant line of words") << words << qsizetype(1) << words << words;

    const QByteArray comment = "SELECT 1 -- x\r\n" + QByteArray("more text; \r\n").repeated(size / 13) + "\nSELECT 2;";
    QTest::newRow("one comment over many CR LF lines")
        << comment << qsizetype(1) << comment.first(comment.size() - 1) << comment.first(comment.size() - 1);

    const QByteArray lines = QByteArray("SELECT 1;\n").repeated(size / 10 - 1) + "SELECT 'end';\n";
    QTest::newRow("short statements, one per line")
        << lines << qsizetype(size / 10) << QByteArray("SELECT 1") << QByteArray("SELECT 'end'");
}

void TestScriptSplitter::largeScripts()
{
    QFETCH(QByteArray, script);
    QFETCH(qsizetype, count);
    QFETCH(QByteArray, first);
    QFETCH(QByteArray, last);

    const std::vector<std::string> statements = SQL::statements(script.toStdString());
    QCOMPARE(static_cast<qsizetype>(statements.size()), count);
    QVERIFY(QByteArray::fromStdString(statements.front()) == first);
    QVERIFY(QByteArray::fromStdString(statements.back()) == last);
}

QTEST_GUILESS_MAIN(TestScriptSplitter)
#include "TestScriptSplitter.moc"
