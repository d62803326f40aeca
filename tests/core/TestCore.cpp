#include "core/ConnectionProfileJson.h"
#include "core/Csv.h"
#include "core/FileText.h"
#include "core/InsertRows.h"
#include "core/QueryLogJson.h"
#include "core/RowPredicate.h"
#include "core/ScriptSplitter.h"
#include "core/SqlCompletion.h"
#include "core/SqlQuoting.h"
#include "core/StatementReview.h"
#include "support/Checks.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <sys/stat.h>
#include <tuple>

using namespace tallowick;
using namespace tallowick::test;

namespace
{

using Rows = QList<QByteArrayList>;
using Names = std::vector<std::string>;

QByteArray bytes(std::string_view text)
{
    return QByteArray(text.data(), static_cast<qsizetype>(text.size()));
}

QByteArrayList byteList(const std::vector<std::string> &texts)
{
    QByteArrayList list;
    for (const std::string &text : texts) {
        list.append(bytes(text));
    }
    return list;
}

Rows parsed(const QByteArray &text)
{
    Rows rows;
    for (const std::vector<std::string> &row : SQL::parseCSV(text.toStdString())) {
        rows.append(byteList(row));
    }
    return rows;
}

QueryResult resultWithColumns(const Names &names)
{
    QueryResult result;
    result.fields.resize(names.size());
    for (std::size_t i = 0; i < names.size(); ++i) {
        result.fields[i].name = names[i];
    }
    return result;
}

// The definition commentOnly() promises to match, evaluated by PCRE2 with Unicode \s.
bool commentOnlyByPattern(const QByteArray &text)
{
    static const QRegularExpression pattern(
        QStringLiteral(R"(\A(?:\s+|--[^\n]*(?:\n|$)|#[^\n]*(?:\n|$)|/\*(?!\!)[\s\S]*?\*/)*\z)"),
        QRegularExpression::UseUnicodePropertiesOption);
    return pattern.match(QString::fromUtf8(text)).hasMatch();
}

const QUuid sampleId = QUuid::fromString(QStringLiteral("6f9619ff-8b86-d011-b42d-00c04fc964ff"));

ConnectionProfile makeProfile(const char *name, const char *host, std::int64_t port, const char *user)
{
    return { .name = name, .host = host, .port = port, .user = user, .database = {}, .caPath = {} };
}

// Every field set away from its default.
ConnectionProfile sampleProfile()
{
    return { .id = sampleId,
        .name = "Prod",
        .host = "db.example.com",
        .port = 3307,
        .user = "app",
        .database = "shop",
        .tls = TLSMode::verify,
        .caPath = "/etc/ca.pem",
        .color = "green",
        .readOnly = true };
}

QDateTime at(const char *iso)
{
    return QDateTime::fromString(QString::fromLatin1(iso), Qt::ISODateWithMs);
}

QueryLog sampleEntry()
{
    return { .id = sampleId,
        .date = at("2001-01-01T00:01:00Z"),
        .connection = "Prod",
        .database = "shop",
        .sql = "SELECT 1",
        .elapsed = 0.25,
        .rows = 3,
        .error = std::nullopt };
}

QJsonObject jsonObject(const QByteArray &json)
{
    return QJsonDocument::fromJson(json).object();
}

// A one-entry file holding `entry` with `key` set to `value`, or removed when `value` is undefined.
QByteArray fileWith(QJsonObject entry, const QString &key, const QJsonValue &value)
{
    if (value.isUndefined()) {
        entry.remove(key);
    } else {
        entry.insert(key, value);
    }
    return "[" + QJsonDocument(entry).toJson(QJsonDocument::Compact) + "]";
}

} // namespace

class TestCore final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void quoting();
    void completesFromTheCatalogInContext_data();
    void completesFromTheCatalogInContext();
    void splits_data();
    void splits();
    void streamsWithLineNumbers();
    void statementToRunAtTheCursor_data();
    void statementToRunAtTheCursor();
    void splitsLargeScriptsInOnePass();
    void insertRowsOnlyOfPlainInserts();
    void commentOnlyMatchesThePattern();
    void keywordAndReview();
    void csvWrite();
    void csvParse();
    void rowPredicate();
    void rowListCopiesAreIndependent();
    void decodeRefusals_data();
    void decodeRefusals();
    void replacingKeepsModeAndLinks();
    void profileValidation();
    void profileFormat();
    void historyFormat();
};

// Whatever the text, the result is either the text in apostrophes with none of the five
// dangerous characters inside, or a hexadecimal literal that decodes back to the exact bytes.
void TestCore::quoting()
{
    // Only back-quotes are doubled; a dot is part of the name, splitting references is the caller's business.
    QCOMPARE(bytes(SQL::qualified("", "a.b `c` 'd' \"e\" \\n")), QByteArray("``.`a.b ``c`` 'd' \"e\" \\n`"));
    QCOMPARE(bytes(SQL::value(std::optional<std::string>("NULL"))), QByteArray("'NULL'"));

    static const char pieces[] = { 'a', '\'', '\\', '\0', '\n', '\r', '"', '`', '%', '\t', '\x80', '\xff', ' ' };
    const std::string dangerous("'\\\n\r\0", 5);
    const QByteArray prefix = "CONVERT(X'";
    const QByteArray suffix = "' USING utf8mb4)";
    QRandomGenerator random(20240611);
    for (int round = 0; round < 5000; ++round) {
        std::string input;
        for (int i = random.bounded(0, 9); i > 0; --i) {
            input.push_back(pieces[random.bounded(static_cast<int>(sizeof pieces))]);
        }
        const QByteArray result = bytes(SQL::value(input));
        QCOMPARE(bytes(SQL::value(std::optional<std::string>(input))), result);
        if (input.find_first_of(dangerous) == std::string::npos) {
            QCOMPARE(result, '\'' + bytes(input) + '\'');
            QCOMPARE(bytes(SQL::defaultLiteral(input)), result);
            continue;
        }
        QVERIFY2(result.startsWith(prefix) && result.endsWith(suffix), result.toHex().constData());
        const QByteArray hex = result.mid(prefix.size(), result.size() - prefix.size() - suffix.size());
        QCOMPARE(hex, hex.toLower());
        QCOMPARE(QByteArray::fromHex(hex), bytes(input));
        // A column default takes the same decision, without the CONVERT wrapper.
        QCOMPARE(bytes(SQL::defaultLiteral(input)), "X'" + hex + '\'');
    }
}

void TestCore::splits_data()
{
    QTest::addColumn<QByteArray>("script");
    QTest::addColumn<QByteArrayList>("expected");
    QTest::addColumn<QString>("error");

    const QString ok = QStringLiteral("(no error)");

    // Quotes and comments.
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

void TestCore::splits()
{
    QFETCH(QByteArray, script);
    QFETCH(QByteArrayList, expected);
    QFETCH(QString, error);
    QByteArrayList statements;
    QCOMPARE(errorFrom([&] { statements = byteList(SQL::statements(script.toStdString())); }), error);
    QCOMPARE(statements, expected);

    // The same script arriving in pieces, cut at every byte and one byte at a time.
    const auto streamed = [&script](const std::vector<qsizetype> &cuts) {
        SQL::StatementStream stream;
        QByteArrayList texts;
        const QString failure = errorFrom([&] {
            qsizetype from = 0;
            for (const qsizetype cut : cuts) {
                stream.feed(std::string_view(script.constData() + from, static_cast<std::size_t>(cut - from)));
                from = cut;
            }
            stream.feed(std::string_view(script.constData() + from, static_cast<std::size_t>(script.size() - from)));
            stream.finish();
        });
        for (SQL::ScriptStatement statement; stream.next(statement);) {
            texts << bytes(statement.text);
        }
        return failure == QStringLiteral("(no error)") ? texts : QByteArrayList { failure.toUtf8() };
    };
    const QByteArrayList whole = error == QStringLiteral("(no error)") ? expected : QByteArrayList { error.toUtf8() };
    std::vector<qsizetype> everyByte;
    for (qsizetype cut = 0; cut <= script.size(); ++cut) {
        QVERIFY2(streamed({ cut }) == whole, qPrintable(QStringLiteral("cut at %1").arg(cut)));
        everyByte.push_back(cut);
    }
    QCOMPARE(streamed(everyByte), whole);
}

// Each statement knows the line it starts on and the bytes its text spans, counted over the pieces
// it came in; a DELIMITER line inside the last statement is within its span, not its text.
void TestCore::streamsWithLineNumbers()
{
    const std::string script = "-- header\n\nSELECT 1;  SELECT\r\n2;\nDELIMITER $$\n\n"
                               "CREATE PROCEDURE p() BEGIN\n SELECT ';'; END$$\nDELIMITER ;\n"
                               "SELECT 'a\nb';\n/* c */ SELECT 4\nDELIMITER //\n, 5 //";
    const std::vector<SQL::ScriptStatement> expected { { "-- header\n\nSELECT 1", 1, 0, 19 },
        { "SELECT\r\n2", 3, 22, 31 },
        { "CREATE PROCEDURE p() BEGIN\n SELECT ';'; END", 7, 47, 90 },
        { "SELECT 'a\nb'", 10, 105, 117 },
        { "/* c */ SELECT 4\n, 5", 12, 119, 152 } };
    for (const std::size_t piece : { std::size_t(1), std::size_t(7), script.size() }) {
        SQL::StatementStream stream;
        std::vector<SQL::ScriptStatement> got;
        std::size_t held = 0;
        for (std::size_t from = 0; from < script.size(); from += piece) {
            stream.feed(std::string_view(script).substr(from, piece));
            held = std::max(held, stream.heldBytes());
            for (SQL::ScriptStatement statement; stream.next(statement);) {
                got.push_back(statement);
            }
        }
        stream.finish();
        for (SQL::ScriptStatement statement; stream.next(statement);) {
            got.push_back(statement);
        }
        QVERIFY2(got == expected, qPrintable(QStringLiteral("pieces of %1").arg(piece)));
        // Only the statement being read and the partial line are held, never what was split.
        QVERIFY(piece == script.size() || held < 80);
    }
}

void TestCore::statementToRunAtTheCursor_data()
{
    QTest::addColumn<QByteArray>("script"); // "|" marks the cursor
    QTest::addColumn<QByteArray>("expected");
    QTest::newRow("inside the first") << QByteArray("SEL|ECT 1; SELECT 2") << QByteArray("SELECT 1");
    QTest::newRow("right after its delimiter") << QByteArray("SELECT 1;| SELECT 2") << QByteArray("SELECT 1");
    QTest::newRow("at the start of the next") << QByteArray("SELECT 1; |SELECT 2") << QByteArray("SELECT 2");
    QTest::newRow("a comment of no statement belongs before")
        << QByteArray("SELECT 1;\n/* no|te */;\n\nSELECT 2") << QByteArray("SELECT 1");
    QTest::newRow("a comment leading a statement is part of it")
        << QByteArray("SELECT 1;\n-- t|wo\nSELECT 2") << QByteArray("-- two\nSELECT 2");
    QTest::newRow("before the first") << QByteArray(" | \n SELECT 1; SELECT 2") << QByteArray("SELECT 1");
    QTest::newRow("after the last") << QByteArray("SELECT 1; SELECT 2;\n\n|") << QByteArray("SELECT 2");
    QTest::newRow("on a DELIMITER line between two")
        << QByteArray("SELECT 1;\nDELI|MITER $$\nSELECT 2$$") << QByteArray("SELECT 1");
    QTest::newRow("DELIMITER block without semicolons goes as it is")
        << QByteArray("DELIMITER //\nSELECT 1 //\nSELECT |2 //") << QByteArray("SELECT 2");
    QTest::newRow("semicolons inside come between DELIMITER lines")
        << QByteArray("SELECT 1;\nDELIMITER $$\nCREATE PROCEDURE p() BEGIN SELECT 1; E|ND$$\nDELIMITER ;\nSELECT 2;")
        << QByteArray("DELIMITER $$\nCREATE PROCEDURE p() BEGIN SELECT 1; END\n$$");
    QTest::newRow("with a delimiter the statement lacks")
        << QByteArray("DELIMITER //\nCREATE PROCEDURE p() BEGIN SELECT '$$'; END|//")
        << QByteArray("DELIMITER $$$\nCREATE PROCEDURE p() BEGIN SELECT '$$'; END\n$$$");
    QTest::newRow("only comments") << QByteArray("-- nothing| to run") << QByteArray();
    QTest::newRow("a statement that reads as a DELIMITER line runs nothing")
        << QByteArray("SELECT 1;\r\nDELIMITER $$\r\nSELECT| 2$$") << QByteArray();
}

// What the editor's "run the statement at the cursor" sends: it must split back into exactly that
// statement, as the session splits whatever it is given again.
void TestCore::statementToRunAtTheCursor()
{
    QFETCH(QByteArray, script);
    QFETCH(QByteArray, expected);
    const qsizetype cursor = script.indexOf('|');
    const QByteArray text = script.left(cursor) + script.mid(cursor + 1);
    const std::string chosen = SQL::statementToRunAt(text.toStdString(), static_cast<std::size_t>(cursor));
    QCOMPARE(bytes(chosen), expected);
    if (!chosen.empty()) {
        QCOMPARE(SQL::statements(chosen).size(), std::size_t(1));
    }
}

// Rows may be combined only from statements whose whole meaning is "add these rows to that table".
void TestCore::insertRowsOnlyOfPlainInserts()
{
    const std::tuple<const char *, const char *, const char *, const char *> accepted[] = {
        { "INSERT INTO `t` (`a`, `b`) VALUES (1, 'x')", "INSERT INTO `t` (`a`, `b`) VALUES", "(1, 'x')", "`t`" },
        { "replace db.t value(1),\n ( CONVERT(X'29' USING utf8mb4) ) ",
            "replace db.t value",
            "(1),\n ( CONVERT(X'29' USING utf8mb4) )",
            "db.t" },
        { "INSERT `a``b`VALUES('),(', \"\"\"\", ')')", "INSERT `a``b`VALUES", "('),(', \"\"\"\", ')')", "`a``b`" },
        { "INSERT INTO t VALUES ('it''s -- /* # ')", "INSERT INTO t VALUES", "('it''s -- /* # ')", "t" },
    };
    for (const auto &[statement, head, rows, table] : accepted) {
        const auto parts = SQL::insertRows(statement, true);
        QVERIFY2(parts && parts->head == head && parts->rows == rows && parts->table == table, statement);
    }
    const char *refused[] = {
        "INSERT IGNORE INTO t VALUES (1)",
        "INSERT LOW_PRIORITY INTO t VALUES (1)",
        "INSERT INTO t VALUES (1) ON DUPLICATE KEY UPDATE a = 2",
        "INSERT INTO t VALUES (1) RETURNING a",
        "INSERT INTO t SET a = 1",
        "INSERT INTO t SELECT 1",
        "INSERT INTO t (a) SELECT 1",
        "INSERT INTO t VALUES (1) -- note",
        "INSERT INTO t VALUES (1 /* note */)",
        "INSERT INTO t VALUES (NOW())",
        "INSERT INTO t VALUES (1, current_timestamp)",
        "INSERT INTO t VALUES (1, row_count ())",
        "INSERT INTO t VALUES ((SELECT 1))",
        "/* note */ INSERT INTO t VALUES (1)",
        "INSERT INTO t VALUES (1), ",
        "INSERT INTO t VALUES (1) (2)",
        "INSERT INTO t VALUES ('open)",
        "INSERTED INTO t VALUES (1)",
        "UPDATE t SET a = 1",
    };
    for (const char *statement : refused) {
        QVERIFY2(!SQL::insertRows(statement, true), statement);
    }
    // Where a backslash is an ordinary character, 'a\' ends the string, and what follows counts.
    const char *escaped = "INSERT INTO t VALUES ('a\\') ON DUPLICATE KEY UPDATE a = (')";
    QVERIFY(SQL::insertRows(escaped, true));
    QVERIFY(!SQL::insertRows(escaped, false));
}

// These must simply finish: a splitter that rescans its input would take hours on them.
void TestCore::splitsLargeScriptsInOnePass()
{
    constexpr qsizetype size = 20 * 1024 * 1024;
    const QByteArray quoted = "SELECT '" + QByteArray("ab;cd ").repeated(size / 6) + "';\nSELECT 2";
    const QByteArray words = "SELECT " + QByteArray("word ").repeated(size / 5) + "x";
    const QByteArray comment = "SELECT 1 -- x\r\n" + QByteArray("more text; \r\n").repeated(size / 13) + "\nSELECT 2;";
    const QByteArray lines = QByteArray("SELECT 1;\n").repeated(size / 10 - 1) + "SELECT 'end';\n";
    const std::tuple<QByteArray, qsizetype, QByteArray, QByteArray> cases[] = {
        { quoted, 2, quoted.first(quoted.size() - 10), "SELECT 2" },
        { words, 1, words, words },
        { comment, 1, comment.first(comment.size() - 1), comment.first(comment.size() - 1) },
        { lines, size / 10, "SELECT 1", "SELECT 'end'" },
    };
    for (const auto &[script, count, first, last] : cases) {
        const std::vector<std::string> statements = SQL::statements(script.toStdString());
        QCOMPARE(static_cast<qsizetype>(statements.size()), count);
        QVERIFY(bytes(statements.front()) == first && bytes(statements.back()) == last);
    }
}

// Every text of up to three pieces, then many longer random ones, against the pattern itself.
void TestCore::commentOnlyMatchesThePattern()
{
    // Every branch of the pattern: comment openers and closers, the versioned marker, line ends
    // (bare and CR LF), ASCII blanks, NBSP, NEL, LINE SEPARATOR, MONGOLIAN VOWEL SEPARATOR (\s to
    // PCRE2, though not White_Space), ZERO WIDTH SPACE (not a blank) and plain text.
    const QByteArrayList pieces = QByteArray("-|--|#|/|*|/*|*/|/*!|!|\n|\r\n|\r| |\t|\xc2\xa0|\xc2\x85|\xe2\x80\xa8|"
                                             "\xe1\xa0\x8e|\xe2\x80\x8b|a|;|'")
                                      .split('|');
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

// Only plain reads (SELECT, SHOW, DESCRIBE, DESC, EXPLAIN) skip the review; statements that read
// nothing back but change state are reviewed like writes.
void TestCore::keywordAndReview()
{
    const std::tuple<QByteArray, QByteArray, bool> cases[] = {
        { " \n\tShow tables", "SHOW", false },
        { "\xc2\xa0select 1", "SELECT", false },
        { "desc t", "DESC", false },
        { "Describe t", "DESCRIBE", false },
        { "/*!40101 x */ explain t", "EXPLAIN", false }, // versioned comment dropped
        { "/*/ x */ select 1", "SELECT", false }, // "/*/" does not close itself
        { "SELECT*FROM t", "SELECT", false },
        { "--x\nUPDATE t", "UPDATE", true }, // no blank needed after "--"
        { "# a\n  /* b */\n-- c\n delete from t", "DELETE", true },
        { "-- read\r\nSELECT 1", "", true }, // only a bare line feed ends a line comment
        { "-- read\r\nSELECT 1\nDROP t", "DROP", true },
        { "CALL p()", "CALL", true },
        { "WITH a AS (SELECT 1) SELECT * FROM a", "WITH", true },
        { "SELECTED", "SELECTED", true },
        { "sélect 1", "SÉLECT", true },
        { "", "", true },
        { "/* SELECT 1", "", true },
        { "/*!50000 DROP TABLE t */", "", true },
        { "(SELECT 1)", "", true },
    };
    for (const auto &[statement, keyword, review] : cases) {
        const std::string text = statement.toStdString();
        QVERIFY2(
            bytes(SQL::leadingKeyword(text)) == keyword && SQL::requiresReview(text) == review, statement.constData());
    }
}

// Only an unquoted \N is NULL; the text \N and the empty string are quoted. What the exporter
// writes, the importer reads back cell for cell, names included (NULL as the text \N).
void TestCore::csvWrite()
{
    QueryResult result = resultWithColumns({ "id", "say \"hi\"" });
    result.rows = { { std::nullopt, std::string("\\N") }, { std::string(), std::string("a,b\nc") } };
    QCOMPARE(bytes(SQL::csv(result)), "\"id\",\"say \"\"hi\"\"\"\r\n\\N,\"\\N\"\r\n\"\",\"a,b\nc\"\r\n");

    const Names awkward { "\"", "", "a,\r\n", "a\rb", "\\N", "  x  " };
    result = resultWithColumns(awkward);
    result.rows = { Row(awkward.begin(), awkward.end()), Row(awkward.size()) };
    const Rows expected { byteList(awkward), byteList(awkward), QByteArrayList(awkward.size(), "\\N") };
    QCOMPARE(parsed(bytes(SQL::csv(result))), expected);
}

// LF, CR and CR LF each end a row, a final one adds none. Deciding that \N is NULL is the
// importer's job: both come back as text here.
void TestCore::csvParse()
{
    const std::pair<QByteArray, Rows> cases[] = {
        { "", {} },
        { "a\r\n", { { "a" } } },
        { "a\rb\r", { { "a" }, { "b" } } },
        { "a\n\rb", { { "a" }, { "" }, { "b" } } },
        { "\"a\r\nb\"\r\n", { { "a\r\nb" } } },
        { "ab\"c\",d", { { "ab\"c\"", "d" } } }, // a quote inside an unquoted field is kept
        { "\"a\"b,c", { { "ab", "c" } } },
        { "\\N,\"\\N\"", { { "\\N", "\\N" } } },
        { "\"x\"\"y\",z\r\n\"\"\r", { { "x\"y", "z" }, { "" } } },
        { "x\n\"\"", { { "x" }, { "" } } },
    };
    // The same text in pieces, cut at every byte and then one byte at a time.
    const auto streamed = [](const QByteArray &text, qsizetype piece, qsizetype firstCut) {
        SQL::CsvStream stream;
        for (qsizetype from = 0; from < text.size();) {
            const qsizetype size = from == 0 ? firstCut : piece;
            stream.feed(std::string_view(
                text.constData() + from, static_cast<std::size_t>(std::min(size, text.size() - from))));
            from += size;
        }
        stream.finish();
        Rows rows;
        for (std::vector<std::string> row; stream.next(row);) {
            rows.append(byteList(row));
        }
        return rows;
    };
    for (const auto &[text, expected] : cases) {
        QVERIFY2(parsed(text) == expected, text.toPercentEncoding().constData());
        for (qsizetype cut = 1; cut < text.size(); ++cut) {
            QVERIFY2(streamed(text, text.size(), cut) == expected, text.toPercentEncoding().constData());
        }
        QVERIFY2(streamed(text, 1, 1) == expected, text.toPercentEncoding().constData());
    }
    // An open quote fails the whole parse, also when what looks like its closing quote is escaped.
    QCOMPARE(errorFrom([] { parsed("\"a\"\""); }), QStringLiteral("The CSV has an unterminated quoted field."));
}

// The condition for the row, or "refused: " and the message the edit is refused with.
void TestCore::rowPredicate()
{
    const auto outcome = [](const Names &names, const Row &row, const Names &primary) {
        std::vector<Field> fields(names.size());
        for (std::size_t i = 0; i < names.size(); ++i) {
            fields[i].name = fields[i].originalName = names[i];
            fields[i].table = "t";
        }
        try {
            return QString::fromStdString(SQL::rowPredicate(fields, row, primary));
        } catch (const AppError &error) {
            return QStringLiteral("refused: ") + QString::fromStdString(error.message());
        }
    };
    const QString missing = QStringLiteral("refused: The primary-key column %1 is missing from this result.");
    QCOMPARE(outcome({ "id", "name" }, { std::nullopt, "x" }, { "id" }), QStringLiteral("`id` <=> NULL"));
    QCOMPARE(outcome({ "we`ird" }, { "O'Brien" }, { "we`ird" }),
        QStringLiteral("`we``ird` <=> CONVERT(X'4f27427269656e' USING utf8mb4)"));
    // Key order, not field order; the first of two equal names wins.
    QCOMPARE(outcome({ "tenant", "id", "id" }, { "acme", "1", "2" }, { "id", "tenant" }),
        QStringLiteral("`id` <=> '1' AND `tenant` <=> 'acme'"));
    QCOMPARE(outcome({ "id" }, { "1" }, { "ID" }), missing.arg(QLatin1String("ID")));
    QCOMPARE(outcome({ "name", "id" }, { "x" }, { "id" }), missing.arg(QLatin1String("id")));
}

// Results are copied freely (session, tabs, grid, exports); a copy must never see another
// copy's change, and reading must never pay for a copy.
void TestCore::rowListCopiesAreIndependent()
{
    const RowList source { { "1", "Ada" }, { "2", std::nullopt } };
    RowList viaIndex = source;
    QCOMPARE(&std::as_const(viaIndex).front(), &source.front()); // shared until changed
    viaIndex[1][1] = "Grace";
    RowList viaAt = source;
    viaAt.at(0)[0] = "changed";
    RowList pushed = source;
    pushed.push_back({ "3" });
    RowList cleared = source;
    cleared.clear();
    QVERIFY(source == RowList({ { "1", "Ada" }, { "2", std::nullopt } }));
    QCOMPARE(viaIndex[1][1], Cell("Grace"));
    QCOMPARE(viaAt[0][0], Cell("changed"));
    QCOMPARE(pushed.size(), std::size_t(3));
    QVERIFY(cleared.empty());
    // Equal lists compare by content; NULL is not the empty string.
    QVERIFY(!(source == RowList({ { "1", "Ada" }, { "2", std::string() } })));
    QVERIFY(RowList() == RowList(std::vector<Row>()));
}

// The two files the program keeps, connection profiles and query history, both read through one
// strict reader: a damaged entry fails the whole file, never with a fallback value.
void TestCore::decodeRefusals_data()
{
    QTest::addColumn<bool>("history");
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("expected");

    const QByteArray profileJson = encodeProfile(sampleProfile());
    const QJsonObject profile = jsonObject(profileJson);
    const QJsonObject entry = jsonObject(encodeQueryLog(sampleEntry()));
    const QString ok = QStringLiteral("(no error)");
    const auto noValue = [](bool history, const QString &key) {
        return QStringLiteral("The %1 at position 1 has no \"%2\" value.")
            .arg(history ? QStringLiteral("history entry") : QStringLiteral("connection"), key);
    };
    const auto wrongType = [](bool history, const char *key) {
        return QStringLiteral("The %1 at position 1 has a \"%2\" value of the wrong type.")
            .arg(history ? QStringLiteral("history entry") : QStringLiteral("connection"), QLatin1String(key));
    };

    // clang-format off
    QTest::newRow("cut short") << false << QByteArray("[{\"id\":")
                               << "The file is not valid JSON (unterminated object at offset 7).";
    QTest::newRow("an object, not a list") << false << profileJson << "The file does not hold a list of connections.";
    QTest::newRow("42 after a good entry") << true << "[" + encodeQueryLog(sampleEntry()) + ",42]"
                                           << "The history entry at position 2 is not a JSON object.";
    // Every key either format writes is read back; only the history's error may be absent.
    const QJsonValue missing(QJsonValue::Undefined);
    for (const QString &key : profile.keys()) {
        QTest::addRow("connection without %s", qPrintable(key)) << false << fileWith(profile, key, missing)
                                                                << noValue(false, key);
    }
    for (const QString &key : entry.keys()) {
        QTest::addRow("history without %s", qPrintable(key)) << true << fileWith(entry, key, missing)
                                                             << noValue(true, key);
    }
    // The reader's types, the same for both formats.
    QTest::newRow("name null") << false << fileWith(profile, "name", QJsonValue::Null) << wrongType(false, "name");
    QTest::newRow("port \"3306\"") << false << fileWith(profile, "port", "3306") << wrongType(false, "port");
    QTest::newRow("port 3306.5") << false << fileWith(profile, "port", 3306.5) << wrongType(false, "port");
    QTest::newRow("port 1e19") << false << fileWith(profile, "port", 1e19) << wrongType(false, "port");
    QTest::newRow("readOnly 0") << false << fileWith(profile, "readOnly", 0) << wrongType(false, "readOnly");
    QTest::newRow("id in braces") << false << fileWith(profile, "id", "{6F9619FF-8B86-D011-B42D-00C04FC964FF}")
                                  << wrongType(false, "id");
    QTest::newRow("id with a G") << true << fileWith(entry, "id", "6F9619FF-8B86-D011-B42D-00C04FC964FG")
                                 << wrongType(true, "id");
    QTest::newRow("elapsed \"0.25\"") << true << fileWith(entry, "elapsed", "0.25") << wrongType(true, "elapsed");
    QTest::newRow("error 42") << true << fileWith(entry, "error", 42) << wrongType(true, "error");
    // What each format decides: the raw TLS value is stored, never the name pickers show; dates
    // are numbers; a password key is never read.
    QTest::newRow("tls \"verify\"") << false << fileWith(profile, "tls", "verify") << wrongType(false, "tls");
    QTest::newRow("tls display name") << false << fileWith(profile, "tls", "Disabled — unencrypted")
                                      << wrongType(false, "tls");
    QTest::newRow("date as ISO text") << true << fileWith(entry, "date", "2024-01-01T00:00:00Z")
                                      << wrongType(true, "date");
    QTest::newRow("password key ignored") << false << fileWith(profile, "password", "x") << ok;
    // clang-format on
}

void TestCore::decodeRefusals()
{
    QFETCH(bool, history);
    QFETCH(QByteArray, json);
    QFETCH(QString, expected);
    QCOMPARE(errorFrom([&] { history ? (void)decodeQueryLogs(json) : (void)decodeProfiles(json); }), expected);
}

// The first problem in the order name, host, port, user is the one reported. Only spaces and
// tabs are trimmed; the user is taken as typed.
// A replaced export keeps the old file's mode and a link to it; a failed one changes nothing.
void TestCore::replacingKeepsModeAndLinks()
{
    QTemporaryDir folder;
    const std::string target = folder.filePath(QStringLiteral("dump.sql")).toStdString();
    const std::string link = folder.filePath(QStringLiteral("latest.sql")).toStdString();
    writeFileAtomically(target, "old", ownerOnly);
    QVERIFY(QFile::link(QString::fromStdString(target), QString::fromStdString(link)));
    replaceWhenComplete(link, [](const std::string &path) { writeFileAtomically(path, "new"); });
    struct stat info {
    };
    QCOMPARE(::stat(target.c_str(), &info), 0);
    QCOMPARE(info.st_mode & 0777u, 0600u);
    QVERIFY(QFileInfo(QString::fromStdString(link)).isSymLink());
    QCOMPARE(readWholeFile(target), QByteArray("new"));
    QCOMPARE(errorFrom([&] { replaceWhenComplete(target, [](const std::string &) { throw AppError("broken"); }); }),
        QStringLiteral("broken"));
    QCOMPARE(readWholeFile(target), QByteArray("new"));
    QCOMPARE(QDir(folder.path()).entryList(QDir::Files | QDir::Hidden | QDir::System).size(), qsizetype(2));
}

void TestCore::profileValidation()
{
    const QString ok = QStringLiteral("(no error)");
    const QString name = QStringLiteral("Give this connection a name.");
    const QString port = QStringLiteral("The port must be between 1 and 65535.");
    const std::pair<ConnectionProfile, QString> cases[] = {
        { makeProfile("Prod", "db", 1, "app"), ok },
        { makeProfile("Prod", "db", 65535, "app"), ok },
        { makeProfile("Prod", "db", 0, "app"), port },
        { makeProfile("Prod", "db", 65536, "app"), port },
        { makeProfile(" \t ", "db", 3306, "app"), name },
        { makeProfile("\n", "db", 3306, "app"), ok },
        { makeProfile("Prod", "  \t", 3306, "app"), QStringLiteral("Enter the MySQL server hostname.") },
        { makeProfile("Prod", "db", 3306, ""), QStringLiteral("Enter a MySQL username.") },
        { makeProfile("Prod", "db", 3306, "  "), ok },
        { makeProfile(" ", " ", 0, ""), name },
        { makeProfile("Prod", "db", 70000, ""), port },
    };
    for (const auto &[profile, message] : cases) {
        QCOMPARE(errorFrom([&] { profile.validate(); }), message);
    }
}

void TestCore::profileFormat()
{
    QCOMPARE(encodeProfile(sampleProfile()),
        QByteArray(R"({"id":"6F9619FF-8B86-D011-B42D-00C04FC964FF","name":"Prod","host":"db.example.com",)"
                   R"("port":3307,"user":"app","database":"shop","tls":"Verify certificate",)"
                   R"("caPath":"/etc/ca.pem","color":"green","readOnly":true})"));

    // Everything written reads back, text of any kind included.
    ConnectionProfile text = sampleProfile();
    text.name = "Größe ✓ \\ \n\t";
    text.caPath = "/home/zoë/ca \"root\".pem";
    text.tls = TLSMode::require;
    const std::vector<ConnectionProfile> list { sampleProfile(), text, makeProfile("New", "db", 3306, "app") };
    const QByteArray json = encodeProfiles(list);
    QVERIFY(decodeProfiles(json) == list);
    // Saved files must keep loading: the stored TLS values never change.
    QVERIFY(json.contains(R"("tls":"Require encryption")") && json.contains(R"-("tls":"Disabled (local only)")-"));
    // Each profile is its own credential-store key.
    QVERIFY(ConnectionProfile().id != ConnectionProfile().id);
}

void TestCore::historyFormat()
{
    const QByteArray common = R"({"id":"6F9619FF-8B86-D011-B42D-00C04FC964FF","date":60,"connection":"Prod",)"
                              R"("database":"shop","sql":"SELECT 1","elapsed":0.25,"rows":)";
    QCOMPARE(encodeQueryLog(sampleEntry()), common + "3}");
    QueryLog failed = sampleEntry();
    failed.rows = 0;
    failed.error = "Table 'shop.x' doesn't exist";
    QCOMPARE(encodeQueryLog(failed), common + "0,\"error\":\"Table 'shop.x' doesn't exist\"}");

    // A null error reads back as a success, which is written without the key.
    const QueryLog success = decodeQueryLogs(fileWith(jsonObject(encodeQueryLog(sampleEntry())), "error", {})).at(0);
    QVERIFY(!success.error.has_value());
    QVERIFY(!encodeQueryLog(success).contains("\"error\""));

    // Dates are seconds since 2001-01-01T00:00:00Z, whatever zone they were taken in.
    const std::pair<const char *, double> dates[]
        = { { "2001-01-01T02:00:00+02:00", 0.0 }, { "2024-05-06T07:08:09.125Z", 736672089.125 } };
    for (const auto &[iso, seconds] : dates) {
        QueryLog entry = sampleEntry();
        entry.date = at(iso);
        QCOMPARE(jsonObject(encodeQueryLog(entry)).value(QStringLiteral("date")).toDouble(), seconds);
    }

    // Everything written reads back; QueryLog's == compares dates as instants, so a shifted date
    // fails. An empty message is still a failure: it must not turn into a success.
    QueryLog text = sampleEntry();
    text.date = at("2024-05-06T07:08:09.123Z");
    text.connection = "Zoë's \"server\" ✓";
    text.sql = "SELECT 'a\\b'\r\n  FROM t;\t-- done";
    text.elapsed = 12.000001;
    text.error = "";
    QueryLog large = sampleEntry();
    large.rows = 9007199254740993; // 2^53 + 1: lost if rows pass through a double
    large.date = at("1999-12-31T23:59:59.999Z");
    const std::vector<QueryLog> list { failed, text, large };
    QVERIFY(decodeQueryLogs(encodeQueryLogs(list)) == list);
}

void TestCore::completesFromTheCatalogInContext_data()
{
    QTest::addColumn<QString>("script"); // "|" marks the cursor
    QTest::addColumn<QString>("expected"); // every item, in order
    QTest::addColumn<QString>("missing"); // databases the catalog should load

    // clang-format off
    QTest::newRow("tables after FROM, then databases") << "SELECT * FROM |" << "customers,orders,order_view,crm,shop" << "";
    QTest::newRow("narrowed, ignoring case") << "select * from OR|" << "orders,order_view" << "";
    QTest::newRow("JOIN and UPDATE") << "SELECT 1 FROM orders JOIN c|" << "customers,crm" << "";
    QTest::newRow("a FROM list after a comma") << "SELECT 1 FROM orders, cu|" << "customers" << "";
    QTest::newRow("a comma in the select list is no table") << "SELECT id, cu| FROM orders" << "customer_id,CURDATE,CURRENT_DATE,CURRENT_TIMESTAMP" << "";
    QTest::newRow("alias.") << "SELECT o.| FROM orders AS o" << "id,customer_id,total" << "";
    QTest::newRow("alias without AS, narrowed") << "SELECT c.n| FROM customers c JOIN orders o ON o.customer_id = c.id"
                                                << "name" << "";
    QTest::newRow("table.") << "SELECT customers.| FROM customers" << "id,name" << "";
    QTest::newRow("database.") << "SELECT * FROM crm.|" << "leads" << "crm";
    QTest::newRow("database.table.") << "SELECT crm.leads.| FROM crm.leads" << "" << "crm";
    QTest::newRow("another database's table, not loaded") << "SELECT l| FROM crm.leads" << "LEFT,LIKE,LIMIT,LAST_INSERT_ID,LEAST,LENGTH,LOCATE,LOWER,LPAD,LTRIM" << "crm";
    QTest::newRow("columns of the statement's tables first") << "SELECT t| FROM orders WHERE 1" << "total,TABLE,TABLES,THEN,TRANSACTION,TRUNCATE,TIMESTAMPDIFF,TRIM" << "";
    QTest::newRow("only the statement at the cursor") << "SELECT * FROM customers; SELECT na| FROM orders; SELECT 2 FROM customers"
                                                      << "NATURAL" << "";
    QTest::newRow("back-quoted names") << "SELECT x.| FROM `order_view` AS `x`" << "order_id" << "";
    QTest::newRow("strings and comments are not read") << "SELECT 'FROM' /* FROM */, -- FROM\n id| FROM orders" << "id" << "";
    // clang-format on
}

void TestCore::completesFromTheCatalogInContext()
{
    QFETCH(QString, script);
    QFETCH(QString, expected);
    QFETCH(QString, missing);
    SchemaCatalog catalog;
    catalog.databases = { "crm", "shop" };
    catalog.tables["shop"] = { { "customers", "BASE TABLE" }, { "orders", "BASE TABLE" }, { "order_view", "VIEW" } };
    catalog.tables["crm"] = { { "leads", "BASE TABLE" } };
    catalog.columns["shop"] = { { "customers", { "id", "name" } },
        { "orders", { "id", "customer_id", "total" } },
        { "order_view", { "order_id" } } };
    const std::string text = script.toStdString();
    const std::size_t cursor = text.find('|');
    const CompletionList list = completeAt(catalog, "shop", text.substr(0, cursor) + text.substr(cursor + 1), cursor);
    QStringList items;
    for (const CompletionItem &item : list.items) {
        items << QString::fromStdString(item.text);
    }
    QCOMPARE(items.join(u','), expected);
    QStringList needed;
    for (const std::string &database : list.missingDatabases) {
        needed << QString::fromStdString(database);
    }
    QCOMPARE(needed.join(u','), missing);
}

QTEST_GUILESS_MAIN(TestCore)
#include "TestCore.moc"
