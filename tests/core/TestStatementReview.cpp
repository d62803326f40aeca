#include "core/StatementReview.h"

#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTest>
#include <string>
#include <string_view>

using namespace tallowick;

namespace
{

std::string_view view(const QByteArray &data)
{
    return std::string_view(data.constData(), static_cast<std::size_t>(data.size()));
}

// The definition commentOnly() promises to match, evaluated by PCRE2 with Unicode \s.
bool commentOnlyByPattern(const QByteArray &text)
{
    static const QRegularExpression pattern(
        QStringLiteral(R"(\A(?:\s+|--[^\n]*(?:\n|$)|#[^\n]*(?:\n|$)|/\*(?!\!)[\s\S]*?\*/)*\z)"),
        QRegularExpression::UseUnicodePropertiesOption);
    return pattern.match(QString::fromUtf8(text)).hasMatch();
}

QByteArray escaped(const QByteArray &text)
{
    QByteArray out;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\\') {
            out += "\\\\";
        } else if (c == '\n') {
            out += "\\n";
        } else if (c == '\r') {
            out += "\\r";
        } else if (c == '\t') {
            out += "\\t";
        } else if (byte < 0x20 || byte >= 0x7f) {
            out += "\\x" + QByteArray::number(byte, 16).rightJustified(2, '0');
        } else {
            out += c;
        }
    }
    return '"' + out + '"';
}

// Pieces that exercise every branch of the pattern: comment openers and closers, the versioned
// marker, line ends (bare and CR LF), ASCII and Unicode blanks, and plain text.
const QByteArrayList pieces {
    "-",
    "--",
    "#",
    "/",
    "*",
    "/*",
    "*/",
    "/*!",
    "!",
    "\n",
    "\r\n",
    "\r",
    " ",
    "\t",
    "\xc2\xa0", // NBSP
    "\xc2\x85", // NEL
    "\xe2\x80\xa8", // LINE SEPARATOR
    "\xe1\xa0\x8e", // MONGOLIAN VOWEL SEPARATOR: \s to PCRE2, though not White_Space
    "\xe2\x80\x8b", // ZERO WIDTH SPACE: not a blank
    "a",
    ";",
    "'",
};

} // namespace

class TestStatementReview final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void commentOnly_data();
    void commentOnly();
    void commentOnlyMatchesPatternOnAllShortTexts();
    void commentOnlyMatchesPatternOnRandomTexts();
    void leadingKeyword_data();
    void leadingKeyword();
    void requiresReview_data();
    void requiresReview();
};

void TestStatementReview::commentOnly_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<bool>("expected");

    QTest::newRow("empty") << QByteArray() << true;
    QTest::newRow("blanks and line ends") << QByteArray(" \t\r\n") << true;
    QTest::newRow("NBSP") << QByteArray("\xc2\xa0") << true;
    QTest::newRow("-- x") << QByteArray("-- x") << true;
    QTest::newRow("--x (no blank needed here)") << QByteArray("--x") << true;
    QTest::newRow("#x LF #y") << QByteArray("#x\n#y") << true;
    QTest::newRow("/* a */") << QByteArray("/* a */") << true;
    QTest::newRow("/**/") << QByteArray("/**/") << true;
    QTest::newRow("/* a */ b */ (comment runs to the later */)") << QByteArray("/* a */ b */") << true;
    QTest::newRow("-- a CR LF /* b */") << QByteArray("-- a\r\n/* b */") << true;
    QTest::newRow("/*! versioned */") << QByteArray("/*!40101 SET NAMES utf8mb4 */") << false;
    // The first comment may run on to the last "*/", swallowing the versioned one.
    QTest::newRow("/* a */ /*! b */") << QByteArray("/* a */ /*! b */") << true;
    QTest::newRow("/*! b */ /* a */") << QByteArray("/*! b */ /* a */") << false;
    QTest::newRow("/* a */ /*! b") << QByteArray("/* a */ /*! b") << false;
    QTest::newRow("/*/") << QByteArray("/*/") << false;
    QTest::newRow("/* open") << QByteArray("/* open") << false;
    QTest::newRow("-") << QByteArray("-") << false;
    QTest::newRow("*/") << QByteArray("*/") << false;
    QTest::newRow(";") << QByteArray(";") << false;
    QTest::newRow("-- a LF x") << QByteArray("-- a\nx") << false;
    QTest::newRow("/* a */ x") << QByteArray("/* a */ x") << false;
    QTest::newRow("SELECT 1") << QByteArray("SELECT 1") << false;
}

void TestStatementReview::commentOnly()
{
    QFETCH(QByteArray, text);
    QFETCH(bool, expected);
    QCOMPARE(SQL::commentOnly(view(text)), expected);
    QCOMPARE(commentOnlyByPattern(text), expected);
}

void TestStatementReview::commentOnlyMatchesPatternOnAllShortTexts()
{
    // Every text of up to three pieces.
    QByteArrayList texts { QByteArray() };
    qsizetype begin = 0;
    for (int length = 1; length <= 3; ++length) {
        const qsizetype end = texts.size();
        for (qsizetype i = begin; i < end; ++i) {
            for (const QByteArray &piece : pieces) {
                texts.append(texts.at(i) + piece);
            }
        }
        begin = end;
    }
    for (const QByteArray &text : texts) {
        const bool expected = commentOnlyByPattern(text);
        if (SQL::commentOnly(view(text)) != expected) {
            QFAIL(qPrintable(
                QStringLiteral("%1: pattern says %2").arg(QString::fromLatin1(escaped(text))).arg(expected)));
        }
    }
}

void TestStatementReview::commentOnlyMatchesPatternOnRandomTexts()
{
    QRandomGenerator random(0x5eed);
    int matches = 0;
    for (int round = 0; round < 40000; ++round) {
        QByteArray text;
        const int length = random.bounded(4, 17);
        for (int i = 0; i < length; ++i) {
            text += pieces.at(random.bounded(static_cast<int>(pieces.size())));
        }
        const bool expected = commentOnlyByPattern(text);
        if (SQL::commentOnly(view(text)) != expected) {
            QFAIL(qPrintable(
                QStringLiteral("%1: pattern says %2").arg(QString::fromLatin1(escaped(text))).arg(expected)));
        }
        matches += expected ? 1 : 0;
    }
    // Both answers must be well represented, or the comparison proves little.
    QVERIFY2(matches > 1000, qPrintable(QString::number(matches)));
    QVERIFY2(matches < 39000, qPrintable(QString::number(matches)));
}

void TestStatementReview::leadingKeyword_data()
{
    QTest::addColumn<QByteArray>("statement");
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("select 1") << QByteArray("select 1") << QByteArray("SELECT");
    QTest::newRow("leading blanks and line ends") << QByteArray(" \n\tShow tables") << QByteArray("SHOW");
    QTest::newRow("leading NBSP") << QByteArray("\xc2\xa0select 1") << QByteArray("SELECT");
    QTest::newRow("-- read LF SELECT 1") << QByteArray("-- read\nSELECT 1") << QByteArray("SELECT");
    QTest::newRow("--x LF UPDATE (no blank needed)") << QByteArray("--x\nUPDATE t") << QByteArray("UPDATE");
    QTest::newRow("several comments") << QByteArray("# a\n  /* b */\n-- c\n delete from t") << QByteArray("DELETE");
    QTest::newRow("versioned comment dropped") << QByteArray("/*!40101 x */ explain t") << QByteArray("EXPLAIN");
    QTest::newRow("comment directly before word") << QByteArray("/*x*/SELECT") << QByteArray("SELECT");
    QTest::newRow("-- read CR LF SELECT 1") << QByteArray("-- read\r\nSELECT 1") << QByteArray();
    QTest::newRow("-- read CR LF then LF") << QByteArray("-- read\r\nx\nDROP t") << QByteArray("DROP");
    // "*/" is looked for after the "/*", so "/*/" does not close itself.
    QTest::newRow("/*/ x */ select 1") << QByteArray("/*/ x */ select 1") << QByteArray("SELECT");
    QTest::newRow("block comment never closed") << QByteArray("/* SELECT 1") << QByteArray();
    QTest::newRow("second block comment never closed") << QByteArray("/* a */ /* SELECT") << QByteArray();
    QTest::newRow("only a comment") << QByteArray("-- nothing") << QByteArray();
    QTest::newRow("empty") << QByteArray() << QByteArray();
    QTest::newRow("(SELECT 1)") << QByteArray("(SELECT 1)") << QByteArray();
    QTest::newRow("SELECT*FROM t") << QByteArray("SELECT*FROM t") << QByteArray("SELECT");
    QTest::newRow("letters stop at a digit") << QByteArray("abc123") << QByteArray("ABC");
    QTest::newRow("non-ASCII letters") << QByteArray("sélect 1") << QByteArray("SÉLECT");
}

void TestStatementReview::leadingKeyword()
{
    QFETCH(QByteArray, statement);
    QFETCH(QByteArray, expected);
    QCOMPARE(QByteArray::fromStdString(SQL::leadingKeyword(view(statement))), expected);
}

void TestStatementReview::requiresReview_data()
{
    QTest::addColumn<QByteArray>("statement");
    QTest::addColumn<bool>("expected");

    QTest::newRow("SELECT 1") << QByteArray("SELECT 1") << false;
    QTest::newRow("show databases") << QByteArray("show databases") << false;
    QTest::newRow("DESCRIBE t") << QByteArray("DESCRIBE t") << false;
    QTest::newRow("desc t") << QByteArray("desc t") << false;
    QTest::newRow("EXPLAIN SELECT 1") << QByteArray("EXPLAIN SELECT 1") << false;
    QTest::newRow("-- read LF SELECT 1") << QByteArray("-- read\nSELECT 1") << false;
    QTest::newRow("/* note */ DROP TABLE t") << QByteArray("/* note */ DROP TABLE t") << true;
    QTest::newRow("-- read CR LF SELECT 1") << QByteArray("-- read\r\nSELECT 1") << true;
    QTest::newRow("WITH (closed list)") << QByteArray("WITH a AS (SELECT 1) SELECT * FROM a") << true;
    QTest::newRow("USE") << QByteArray("USE shop") << true;
    QTest::newRow("SET") << QByteArray("SET @a = 1") << true;
    QTest::newRow("CALL") << QByteArray("CALL p()") << true;
    QTest::newRow("INSERT ... SELECT") << QByteArray("INSERT INTO t SELECT 1") << true;
    QTest::newRow("SELECTED is not SELECT") << QByteArray("SELECTED") << true;
    QTest::newRow("empty") << QByteArray() << true;
    QTest::newRow("(SELECT 1)") << QByteArray("(SELECT 1)") << true;
    QTest::newRow("versioned DROP only") << QByteArray("/*!50000 DROP TABLE t */") << true;
    QTest::newRow("unclosed comment") << QByteArray("/* SELECT 1") << true;
}

void TestStatementReview::requiresReview()
{
    QFETCH(QByteArray, statement);
    QFETCH(bool, expected);
    QCOMPARE(SQL::requiresReview(view(statement)), expected);
}

QTEST_GUILESS_MAIN(TestStatementReview)
#include "TestStatementReview.moc"
