#include "core/StatementReview.h"

#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTest>
#include <string>

using namespace tallowick;

namespace
{

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
    void commentOnlyMatchesThePattern();
    void keywordAndReview_data();
    void keywordAndReview();
};

// Every text of up to three pieces, then many longer random ones, against the pattern itself.
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
        if (SQL::commentOnly(texts.at(i).toStdString()) != expected) {
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
    QTest::newRow("Describe t") << QByteArray("Describe t") << QByteArray("DESCRIBE") << false;
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
    QTest::newRow("WITH (closed list)") << QByteArray("WITH a AS (SELECT 1) SELECT * FROM a") << QByteArray("WITH")
                                        << true;
    QTest::newRow("SELECTED is not SELECT") << QByteArray("SELECTED") << QByteArray("SELECTED") << true;
    QTest::newRow("non-ASCII letters") << QByteArray("sélect 1") << QByteArray("SÉLECT") << true;
    QTest::newRow("empty") << QByteArray() << QByteArray() << true;
    QTest::newRow("block comment never closed") << QByteArray("/* SELECT 1") << QByteArray() << true;
    QTest::newRow("versioned DROP only") << QByteArray("/*!50000 DROP TABLE t */") << QByteArray() << true;
    QTest::newRow("(SELECT 1)") << QByteArray("(SELECT 1)") << QByteArray() << true;
}

void TestStatementReview::keywordAndReview()
{
    QFETCH(QByteArray, statement);
    QFETCH(QByteArray, keyword);
    QFETCH(bool, review);
    QCOMPARE(QByteArray::fromStdString(SQL::leadingKeyword(statement.toStdString())), keyword);
    QCOMPARE(SQL::requiresReview(statement.toStdString()), review);
}

QTEST_GUILESS_MAIN(TestStatementReview)
#include "TestStatementReview.moc"
