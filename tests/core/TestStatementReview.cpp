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

// Pieces that exercise every branch of the pattern, separated by "|": comment openers and
// closers, the versioned marker, line ends (bare and CR LF), ASCII blanks, NBSP, NEL, LINE
// SEPARATOR, MONGOLIAN VOWEL SEPARATOR (\s to PCRE2, though not White_Space), ZERO WIDTH SPACE (not
// a blank) and plain text.
const QByteArrayList pieces = QByteArray("-|--|#|/|*|/*|*/|/*!|!|\n|\r\n|\r| |\t|\xc2\xa0|\xc2\x85|\xe2\x80\xa8|"
                                         "\xe1\xa0\x8e|\xe2\x80\x8b|a|;|'")
                                  .split('|');

} // namespace

class TestStatementReview final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void commentOnly_data();
    void commentOnly();
    void commentOnlyMatchesThePattern();
    void keywordAndReview_data();
    void keywordAndReview();
};

void TestStatementReview::commentOnly_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<bool>("expected");

    QTest::newRow("empty") << QByteArray() << true;
    QTest::newRow("blanks, line ends and NBSP") << QByteArray(" \t\r\n\xc2\xa0") << true;
    QTest::newRow("--x (no blank needed here)") << QByteArray("--x") << true;
    QTest::newRow("/* a */ b */ (comment runs to the later */)") << QByteArray("/* a */ b */") << true;
    QTest::newRow("/*! versioned */") << QByteArray("/*!40101 SET NAMES utf8mb4 */") << false;
    // The first comment may run on to the last "*/", swallowing the versioned one.
    QTest::newRow("/* a */ /*! b */") << QByteArray("/* a */ /*! b */") << true;
    QTest::newRow("/*! b */ /* a */") << QByteArray("/*! b */ /* a */") << false;
    QTest::newRow("/*/") << QByteArray("/*/") << false;
    QTest::newRow("-- a LF x") << QByteArray("-- a\nx") << false;
}

void TestStatementReview::commentOnly()
{
    QFETCH(QByteArray, text);
    QFETCH(bool, expected);
    QCOMPARE(SQL::commentOnly(view(text)), expected);
    QCOMPARE(commentOnlyByPattern(text), expected);
}

// Every text of up to three pieces, then many longer random ones.
void TestStatementReview::commentOnlyMatchesThePattern()
{
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
    const qsizetype exhaustive = texts.size();
    QRandomGenerator random(0x5eed);
    for (int round = 0; round < 40000; ++round) {
        QByteArray text;
        for (int i = random.bounded(4, 17); i > 0; --i) {
            text += pieces.at(random.bounded(static_cast<int>(pieces.size())));
        }
        texts.append(text);
    }

    int randomMatches = 0;
    for (qsizetype i = 0; i < texts.size(); ++i) {
        const bool expected = commentOnlyByPattern(texts.at(i));
        if (SQL::commentOnly(view(texts.at(i))) != expected) {
            QFAIL(qPrintable(QStringLiteral("%1: pattern says %2")
                                 .arg(QString::fromLatin1(texts.at(i).toPercentEncoding()))
                                 .arg(expected)));
        }
        randomMatches += (expected && i >= exhaustive) ? 1 : 0;
    }
    // Both answers must be well represented, or the comparison proves little.
    QVERIFY2(randomMatches > 1000 && randomMatches < 39000, qPrintable(QString::number(randomMatches)));
}

// Only plain reads (SELECT, SHOW, DESCRIBE, DESC, EXPLAIN) skip the review.
void TestStatementReview::keywordAndReview_data()
{
    QTest::addColumn<QByteArray>("statement");
    QTest::addColumn<QByteArray>("keyword");
    QTest::addColumn<bool>("review");

    QTest::newRow("leading blanks and line ends") << QByteArray(" \n\tShow tables") << QByteArray("SHOW") << false;
    QTest::newRow("leading NBSP") << QByteArray("\xc2\xa0select 1") << QByteArray("SELECT") << false;
    QTest::newRow("desc t") << QByteArray("desc t") << QByteArray("DESC") << false;
    QTest::newRow("versioned comment dropped")
        << QByteArray("/*!40101 x */ explain t") << QByteArray("EXPLAIN") << false;
    // "*/" is looked for after the "/*", so "/*/" does not close itself.
    QTest::newRow("/*/ x */ select 1") << QByteArray("/*/ x */ select 1") << QByteArray("SELECT") << false;
    QTest::newRow("SELECT*FROM t") << QByteArray("SELECT*FROM t") << QByteArray("SELECT") << false;
    QTest::newRow("--x LF UPDATE (no blank needed)") << QByteArray("--x\nUPDATE t") << QByteArray("UPDATE") << true;
    QTest::newRow("several comments") << QByteArray("# a\n  /* b */\n-- c\n delete from t") << QByteArray("DELETE")
                                      << true;
    // Only a bare line feed ends a line comment.
    QTest::newRow("-- read CR LF SELECT 1") << QByteArray("-- read\r\nSELECT 1") << QByteArray() << true;
    QTest::newRow("-- read CR LF SELECT LF DROP")
        << QByteArray("-- read\r\nSELECT 1\nDROP t") << QByteArray("DROP") << true;
    // Statements that read nothing back but change state are reviewed like writes.
    QTest::newRow("CALL p()") << QByteArray("CALL p()") << QByteArray("CALL") << true;
    QTest::newRow("SET @a = 1") << QByteArray("SET @a = 1") << QByteArray("SET") << true;
    QTest::newRow("INSERT ... SELECT") << QByteArray("INSERT INTO t SELECT 1") << QByteArray("INSERT") << true;
    QTest::newRow("WITH (closed list)") << QByteArray("WITH a AS (SELECT 1) SELECT * FROM a") << QByteArray("WITH")
                                        << true;
    QTest::newRow("SELECTED is not SELECT") << QByteArray("SELECTED") << QByteArray("SELECTED") << true;
    QTest::newRow("non-ASCII letters") << QByteArray("sélect 1") << QByteArray("SÉLECT") << true;
    QTest::newRow("empty") << QByteArray() << QByteArray() << true;
    QTest::newRow("only a comment") << QByteArray("-- nothing") << QByteArray() << true;
    QTest::newRow("block comment never closed") << QByteArray("/* SELECT 1") << QByteArray() << true;
    QTest::newRow("versioned DROP only") << QByteArray("/*!50000 DROP TABLE t */") << QByteArray() << true;
    QTest::newRow("(SELECT 1)") << QByteArray("(SELECT 1)") << QByteArray() << true;
}

void TestStatementReview::keywordAndReview()
{
    QFETCH(QByteArray, statement);
    QFETCH(QByteArray, keyword);
    QFETCH(bool, review);
    QCOMPARE(QByteArray::fromStdString(SQL::leadingKeyword(view(statement))), keyword);
    QCOMPARE(SQL::requiresReview(view(statement)), review);
}

QTEST_GUILESS_MAIN(TestStatementReview)
#include "TestStatementReview.moc"
