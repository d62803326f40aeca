#include "client/ClientThreadScope.h"
#include "client/MySQLConnection.h"
#include "core/AppError.h"
#include "core/Csv.h"
#include "core/FileText.h"
#include "core/ScriptSplitter.h"
#include "support/Checks.h"
#include "support/TestServer.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>
#include <atomic>
#include <random>
#include <thread>
#include <tuple>

using namespace tallowick;
using namespace tallowick::test;

Q_DECLARE_METATYPE(tallowick::TLSMode)

// Lets QCOMPARE print both sides of a failed cell comparison, with NULL told apart from text.
template <> inline char *QTest::toString<Cell>(const Cell &cell)
{
    return qstrdup(cell ? ("\"" + *cell + "\"").c_str() : "NULL");
}

namespace
{

const QString ok = QStringLiteral("(no error)");

Cell scalar(MySQLConnection &connection, const std::string &sql)
{
    return connection.query(sql).rows.at(0).at(0);
}

// A counter of this session. Reading it is itself one statement ("Questions" counts it).
long long sessionStatus(MySQLConnection &connection, const std::string &name)
{
    return std::stoll(connection.query("SHOW SESSION STATUS LIKE '" + name + "'").rows.at(0).at(1).value());
}

// The session's SQL mode, time zone and whether a transaction is open, as one line.
Cell sessionSettings(MySQLConnection &connection)
{
    return scalar(connection, "SELECT CONCAT(@@SESSION.sql_mode, ' / ', @@SESSION.time_zone, ' / ', @@in_transaction)");
}

// X'...': bytes written without relying on any quoting rule under test.
std::string hexLiteral(const std::string &bytes)
{
    return "X'" + QByteArray::fromStdString(bytes).toHex().toStdString() + "'";
}

// Text a user might paste, from pieces that break naive quoting under some SQL mode or character
// set: every kind of quote, backslashes, NUL, line breaks, LIKE wildcards, comment and statement
// markers, and characters outside the Basic Multilingual Plane. Always valid UTF-8.
std::string awkwardText(std::mt19937 &random, std::size_t maxPieces)
{
    // clang-format off
    static const std::string pieces[] = { "'", "''", "\\", "\\\\", "\\'", "\"", "`", std::string(1, '\0'), "\n", "\r\n",
        "\r", "%", "_", ";", "-- ", "/*", "a", "Z", "word", "\xF0\x9F\xA7\xB9" /* U+1F9F9 */, "\xEF\xBC\x87" /* U+FF07 */ };
    // clang-format on
    std::string text;
    for (std::size_t n = random() % (maxPieces + 1); n > 0; --n) {
        text += pieces[random() % std::size(pieces)];
    }
    return text;
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(cannot read the file)");
}

// The statement the server reports, as the export is expected to copy it.
QByteArray showCreate(MySQLConnection &connection, const std::string &kind, const std::string &name)
{
    return QByteArray::fromStdString(
               connection.query("SHOW CREATE " + kind + " `" + name + "`").rows.at(0).at(1).value())
        + ";\n";
}

// The server drops a closed session asynchronously, so wait for it with a generous deadline.
bool sessionEnds(MySQLConnection &monitor, std::uint64_t id)
{
    const std::string count = "SELECT COUNT(*) FROM information_schema.PROCESSLIST WHERE ID = " + std::to_string(id);
    return QTest::qWaitFor([&] { return scalar(monitor, count) == Cell("0"); }, 30000);
}

} // namespace

class TestMySQLConnection final : public QObject
{
    Q_OBJECT

    // Slots run on the main thread, which therefore needs the client library's set-up.
    ClientThreadScope m_clientThread;
    const TestServer m_server = TestServer::fromEnvironment(); // ends the run when the servers are missing
    // A scratch database and a second session on it, on the default server and on the strict one.
    ScratchDatabase m_scratch { m_server };
    const std::unique_ptr<MySQLConnection> m_otherSession = m_server.connect();
    ScratchDatabase m_strictScratch { m_server.strict() };
    const std::unique_ptr<MySQLConnection> m_strictOtherSession = m_server.strict().connect();
    QTemporaryDir m_folder;

    MySQLConnection &connection() { return m_scratch.connection(); }
    std::string outputPath(const char *name) const { return m_folder.filePath(name).toStdString(); }

private Q_SLOTS:
    void initTestCase()
    {
        // A zone far from UTC, so a local time passed off as UTC shows in the export's header.
        qputenv("TZ", "XST-9:30");
        QVERIFY(m_folder.isValid());
        m_otherSession->use(m_scratch.name());
        m_strictOtherSession->use(m_strictScratch.name());
    }

    // Disabled TLS, verification against the test CA and a host-name mismatch are among the
    // built-in integration checks. An empty error: connects encrypted; "refused": any failure.
    void tlsModes()
    {
        const QString chooseCa = QStringLiteral("Choose a CA certificate file for TLS verification.");
        const std::string ip = "127.0.0.1", missing = QDir::temp().filePath("no-such-ca.pem").toStdString();
        // clang-format off
        const std::tuple<TLSMode, std::string, std::int64_t, std::string, QString> cases[] = {
            { TLSMode::require, "localhost", m_server.port, "", "" }, // encrypts without checking the name
            { TLSMode::require, ip, m_server.plainPort, "", "refused" },
            // An empty path means the system bundle, which does not trust the test CA (or is missing).
            { TLSMode::verify, ip, m_server.port, "", "refused" },
            { TLSMode::verify, ip, m_server.port, missing, chooseCa },
            { TLSMode::verify, ip, m_server.port, QDir::tempPath().toStdString(), chooseCa },
        };
        // clang-format on
        for (const auto &[mode, host, port, ca, error] : cases) {
            ConnectionProfile profile = m_server.profile();
            profile.tls = mode;
            profile.host = host;
            profile.port = port;
            profile.caPath = ca;
            MySQLConnection link(profile);
            const QString outcome = errorFrom([&] { link.connect(m_server.password); });
            QVERIFY2(error.isEmpty() ? outcome == ok && !link.cipher().empty()
                                     : !link.isConnected() && (error == "refused" ? outcome != ok : outcome == error),
                qPrintable(QString::fromStdString(host + ":" + std::to_string(port) + " " + ca + ": ") + outcome));
            if (error.isEmpty()) {
                QCOMPARE(link.query("SHOW SESSION STATUS LIKE 'Ssl_cipher'").rows.at(0).at(1), Cell(link.cipher()));
            }
        }
    }

    void reconnectAndClose()
    {
        const QString noHandle = QStringLiteral("Connect to a server first.");
        const auto monitor = m_server.connect();
        MySQLConnection link(m_server.profile());
        QCOMPARE(errorFrom([&] { link.query("SELECT 1"); }), noHandle);
        link.connect(m_server.password);
        const std::uint64_t first = link.connectionID();

        // A second connect replaces the first session instead of leaking it.
        link.connect(m_server.password);
        const std::uint64_t second = link.connectionID();
        QCOMPARE(scalar(link, "SELECT CONNECTION_ID()"), Cell(std::to_string(second)));
        QVERIFY(sessionEnds(*monitor, first));

        // So does a failed one: the open session is closed before the new attempt.
        const QString error = errorFrom([&] { link.connect(m_server.password + "-wrong"); });
        QVERIFY2(error.startsWith("MySQL 1045: "), qPrintable(error));
        QCOMPARE(errorFrom([&] { link.query("SELECT 1"); }), noHandle);
        QVERIFY(sessionEnds(*monitor, second));

        link.connect(m_server.password);
        const std::uint64_t third = link.connectionID();
        link.close();
        QVERIFY(sessionEnds(*monitor, third));
    }

    // The server refuses whatever SQL reaches it; the program's own writes refuse before sending
    // anything, even for a row that is gone.
    void readOnlyProfile()
    {
        m_scratch.run("CREATE TABLE ro (id INT PRIMARY KEY, v VARCHAR(10))");
        ConnectionProfile profile = m_server.profile();
        profile.database = m_scratch.name();
        profile.readOnly = true;
        const auto readOnly = m_server.connect(profile);
        const QString refused = errorFrom([&] { readOnly->query("INSERT INTO ro VALUES (2, 'two')"); });
        QVERIFY2(refused.startsWith("MySQL 1792: "), qPrintable(refused));

        const QueryResult rows = readOnly->query("SELECT id, v FROM ro");
        const QString refusal = QStringLiteral("This connection is read-only.");
        const long long questions = sessionStatus(*readOnly, "Questions");
        QCOMPARE(errorFrom([&] { readOnly->updateCell(rows, 7, 1, Cell("uno")); }), refusal);
        QCOMPARE(errorFrom([&] { readOnly->deleteRow(rows, 0, m_scratch.name(), "ro"); }), refusal);
        QCOMPARE(errorFrom([&] { readOnly->createUser("tallowick_ro_probe", "%", "pw"); }), refusal);
        QCOMPARE(sessionStatus(*readOnly, "Questions") - questions, 1);
    }

    void killedInTheMiddleOfAStream()
    {
        ConnectionProfile profile = m_server.profile();
        profile.database = m_scratch.name(); // the sequence tables need a default database
        const auto streaming = m_server.connect(profile);
        const std::string session = std::to_string(streaming->connectionID());
        QString streamError = ok;
        std::atomic<bool> finished { false };
        std::thread worker([&] {
            const ClientThreadScope clientThread;
            streamError
                = errorFrom([&] { streaming->query("SELECT seq, REPEAT('x', 200) FROM seq_1_to_5000000", 10); });
            finished = true;
        });
        const std::string running = "SELECT COUNT(*) FROM information_schema.PROCESSLIST WHERE ID = " + session
            + " AND INFO LIKE 'SELECT seq%'";
        const bool killedWhileRunning
            = QTest::qWaitFor([&] { return finished || scalar(*m_otherSession, running) == Cell("1"); }, 30000)
            && !finished;
        if (killedWhileRunning) {
            m_otherSession->query("KILL CONNECTION " + session);
        }
        worker.join();
        QVERIFY2(killedWhileRunning, "The statement ended before it could be killed.");
        QVERIFY2(streamError.startsWith("MySQL "), qPrintable(streamError));

        // The dead link is reported, never waited on, and never mistaken for an unread result.
        const QString next = errorFrom([&] { streaming->query("SELECT 1"); });
        QVERIFY2(next.startsWith("MySQL ") && !next.startsWith("MySQL 2014:"), qPrintable(next));
    }

    // No client limit cuts a statement short: a read limit would drop the link under a statement
    // the server may still commit.
    void statementOutlastsEveryClientLimit()
    {
        MySQLConnection patient(m_server.profile(), ConnectionLimits { 1, 1, 1, 1, 1 });
        patient.connect(m_server.password);
        QCOMPARE(scalar(patient, "SELECT SLEEP(3)"), Cell("0"));
        QCOMPARE(scalar(patient, "SELECT 'next'"), Cell("next"));
    }

    // Truncation at a small cap is among the built-in integration checks; this is the default cap,
    // reached exactly and passed.
    void defaultRowCap()
    {
        for (const int available : { 10000, 10001 }) {
            const QueryResult result
                = connection().query("SELECT seq FROM seq_1_to_20000 WHERE seq <= " + std::to_string(available));
            QCOMPARE(result.rows.size(), std::size_t(10000));
            QCOMPARE(result.rows.back().at(0), Cell("10000"));
            QCOMPARE(result.truncated, available > 10000);
            QCOMPARE(QString::fromStdString(result.message),
                QString(available > 10000 ? "10000 rows · display limit reached" : "10000 rows"));
            // Rows left unread on the wire would make this fail with "Commands out of sync".
            QCOMPARE(scalar(connection(), "SELECT 'next'"), Cell("next"));
        }
    }

    // A CALL answers with a result per SELECT of the procedure and a closing status: every one must
    // be read, whatever the procedure does, or the connection refuses everything after it. The
    // outcome is the message, or the error's start.
    void procedureResults()
    {
        // clang-format off
        const std::pair<std::string, QString> cases[] = {
            { "SELECT 1 AS a; SELECT 2 AS b; SELECT 3 AS c;", "1 rows · 2 more result sets not shown" },
            { "DO 1;", "0 rows affected" },
            { "SELECT 1 AS a FROM DUAL WHERE 0; SELECT 2 AS b;", "0 rows · 1 more result set not shown" },
            { "SELECT 1 AS a; SELECT * FROM no_such_table;", "MySQL 1146: " },
        };
        // clang-format on
        for (const auto &[body, outcome] : cases) {
            connection().query("CREATE OR REPLACE PROCEDURE answers() BEGIN " + body + " END");
            QString message;
            const QString error
                = errorFrom([&] { message = QString::fromStdString(connection().query("CALL answers()").message); });
            message = error != ok ? error : message;
            QVERIFY2(message.startsWith(outcome), qPrintable(message));
            QCOMPARE(scalar(connection(), "SELECT 'next'"), Cell("next"));
        }
    }

    // Read without result conversion, so latin1 text arrives as bytes that are not UTF-8.
    void cellValues()
    {
        // clang-format off
        const std::tuple<std::string, std::string, bool, Cell> cases[] = {
            { "VARCHAR(10)", "'NULL'", false, Cell("NULL") },
            { "TEXT", "X'6100F09FA7B9'", false, Cell(std::string("a\0\xF0\x9F\xA7\xB9", 6)) },
            { "VARCHAR(10) CHARACTER SET latin1", "X'41E942'", false, Cell("A\uFFFDB") },
            { "BINARY(3)", "X'AB'", true, Cell("0xAB0000") },
            { "BIT(8)", "b'10000001'", true, Cell("0x81") },
        };
        // clang-format on
        for (const auto &[columnType, stored, binary, shown] : cases) {
            connection().query("CREATE OR REPLACE TABLE cell (c " + columnType + ")");
            connection().query("INSERT INTO cell VALUES (" + stored + ")");
            connection().query("SET SESSION character_set_results = NULL");
            const QueryResult result = connection().query("SELECT c FROM cell");
            connection().query("SET NAMES utf8mb4");
            QCOMPARE(result.fields.at(0).binary, binary);
            QCOMPARE(result.fields[0].editable(), !binary);
            QCOMPARE(result.rows.at(0).at(0), shown);
        }
    }

    void columnDescriptions()
    {
        m_scratch.run("CREATE TABLE described (id INT NOT NULL PRIMARY KEY COMMENT 'row key', plain VARCHAR(20) NULL,"
                      " empty_default VARCHAR(20) NOT NULL DEFAULT '', doubled INT AS (id * 2) VIRTUAL,"
                      " created TIMESTAMP NOT NULL DEFAULT CURRENT_TIMESTAMP, u VARCHAR(36) DEFAULT uuid(),"
                      " e INT DEFAULT (1 + 1), lit VARCHAR(10) DEFAULT 'uuid()', n DOUBLE DEFAULT -1.5e3)");
        // An absent value prints as "-", so a lost NULL default cannot pass as an empty one.
        const auto optional = [](const Cell &value) { return value ? "'" + *value + "'" : std::string("-"); };
        QStringList described;
        for (const ColumnInfo &c : connection().columns(m_scratch.name(), "described")) {
            described << QString::fromStdString(c.name + " " + c.type + (c.nullable ? " NULL" : " NOT NULL")
                + (c.primary ? " PRI" : "") + ", default " + optional(c.defaultValue) + ", " + optional(c.collation)
                + ", extra '" + c.extra + "', '" + c.comment + "'" + (c.generated() ? ", generated" : ""));
        }
        // The server shows the same default text for an expression (uuid(), (1 + 1)) and for a
        // literal that reads like one ('uuid()'); only the literal may be written back as a string.
        QCOMPARE(described,
            QStringList({ "id int(11) NOT NULL PRI, default -, -, extra '', 'row key'",
                "plain varchar(20) NULL, default -, 'utf8mb4_general_ci', extra '', ''",
                "empty_default varchar(20) NOT NULL, default '', 'utf8mb4_general_ci', extra '', ''",
                "doubled int(11) NULL, default -, -, extra 'VIRTUAL GENERATED', '', generated",
                "created timestamp NOT NULL, default 'current_timestamp()', -, extra 'DEFAULT_GENERATED', ''",
                "u varchar(36) NULL, default 'uuid()', 'utf8mb4_general_ci', extra 'DEFAULT_GENERATED', ''",
                "e int(11) NULL, default '(1 + 1)', -, extra 'DEFAULT_GENERATED', ''",
                "lit varchar(10) NULL, default 'uuid()', 'utf8mb4_general_ci', extra '', ''",
                "n double NULL, default '-1500', -, extra '', ''" }));
    }

    // Plain edits, '' versus NULL, a value changed elsewhere, composite keys, the last alias of a
    // self-join and a calculated column are among the built-in integration checks.
    void writes()
    {
        const QString rowGone = QStringLiteral("That result row is no longer available.");
        const QString noKey = QStringLiteral("This table has no primary key. ");
        const std::string w = "SELECT id, txt, amount FROM w ORDER BY id", unchanged = "1:NULL:1.50,2:other:9.99";
        const std::string nothing = "DO 0";
        // The SELECT, what another session runs after the grid was read, the row and column set to
        // '1.5' (column -1: delete the row instead), the outcome and the rows of w afterwards.
        // clang-format off
        const std::tuple<std::string, std::string, int, int, QString, std::string> cases[] = {
            // "1.5" is the number the grid shows as 1.50: nothing changes, but the row still matches.
            { w, nothing, 0, 2, ok, unchanged },
            // Only the edited cell is guarded: a change to another column of the row is no conflict.
            { w, "UPDATE w SET amount = 3 WHERE id = 1", 0, 1, ok, "1:1.5:3.00,2:other:9.99" },
            { "SELECT e.id, e.txt, b.id, b.txt FROM w e JOIN w b ON b.id = e.boss", nothing, 0, 1, ok,
              "1:NULL:1.50,2:1.5:9.99" }, // the first alias of a self-join
            // Refused before anything is sent.
            { "SELECT e.id, e.txt, b.txt FROM w e JOIN w b ON b.id = e.boss", nothing, 0, 2,
              "The primary-key column id is missing from this result.", unchanged },
            { "SELECT a, b FROM nopk", nothing, 0, 1, noKey + "Add one before editing cells in the grid.", unchanged },
            { "SELECT id, a, g FROM gen", nothing, 0, 2, "Generated columns are read-only.", unchanged },
            { "SELECT id, a FROM gen", nothing, 1, 1, rowGone, unchanged },
            { "SELECT id, a FROM gen", nothing, 0, 2, rowGone, unchanged },
            { "SELECT a, b FROM nopk", nothing, 0, -1, noKey + "Use SQL to edit it without risking an ambiguous row match.",
              unchanged },
        };
        // clang-format on
        m_scratch.run("CREATE TABLE nopk (a INT, b VARCHAR(10)) SELECT 1 AS a, 'x' AS b");
        m_scratch.run("CREATE TABLE gen (id INT PRIMARY KEY, a INT, g INT AS (a * 2) VIRTUAL) SELECT 1 AS id, 2 AS a");
        for (const auto &[select, elsewhere, row, column, error, expected] : cases) {
            connection().query("CREATE OR REPLACE TABLE w (id INT PRIMARY KEY, txt VARCHAR(50) NULL,"
                               " amount DECIMAL(5,2), boss INT NULL)");
            connection().query("INSERT INTO w VALUES (1, NULL, 1.50, NULL), (2, 'other', 9.99, 1)");
            const QueryResult grid = connection().query(select);
            m_otherSession->query(elsewhere);
            const long long before
                = sessionStatus(connection(), "Com_update") + sessionStatus(connection(), "Com_delete");
            QCOMPARE(errorFrom([&] {
                column < 0 ? connection().deleteRow(grid, row, m_scratch.name(), grid.fields.at(0).table)
                           : connection().updateCell(grid, row, column, Cell("1.5"));
            }),
                error);
            QCOMPARE(sessionStatus(connection(), "Com_update") + sessionStatus(connection(), "Com_delete") - before,
                error == ok ? 1 : 0);
            QCOMPARE(scalar(connection(),
                         "SELECT GROUP_CONCAT(id, ':', COALESCE(txt, 'NULL'), ':', amount ORDER BY id) FROM w"),
                Cell(expected));
        }
    }

    // Two values a loose comparison may mix up (rounded text, raw bytes, past double precision,
    // equal under the collation). As a key (k), each pins its own row for an edit and a delete. As
    // the edited cell (g), the stale-row guard compares what the grid showed with what the server
    // would show now: an untouched cell can be edited, one changed behind the grid's back cannot.
    void byColumnType_data()
    {
        QTest::addColumn<bool>("strict"); // on the server with the non-default mode, latin1 and zone
        QTest::addColumn<QString>("roles");
        QTest::addColumn<QString>("type");
        QTest::addColumn<QString>("first");
        QTest::addColumn<QString>("second");

        // clang-format off
        const std::tuple<const char *, const char *, const char *, const char *, const char *> types[] = {
            { "kg", "FLOAT", "FLOAT", "1.1", "1.2" },
            { "kg", "DOUBLE", "DOUBLE", "0.1e0 + 0.2e0", "0.3e0" },
            { "kg", "DECIMAL", "DECIMAL(30,10)", "12345678901234567.1234567891", "12345678901234567.1234567890" },
            { "kg", "BIGINT", "BIGINT UNSIGNED", "9007199254740993", "9007199254740992" },
            { "k", "BIT", "BIT(8)", "b'00000001'", "b'10000000'" },
            { "k", "VARBINARY with zero bytes", "VARBINARY(8)", "X'00FF'", "X'00FF00'" },
            { "k", "BINARY padded", "BINARY(4)", "X'01'", "X'0102'" },
            { "k", "negative TIME(3)", "TIME(3)", "'-12:01:02.500'", "'12:01:02.500'" },
            { "k", "trailing space, no padding", "VARCHAR(8) COLLATE utf8mb4_nopad_bin", "'a '", "'a'" },
            { "g", "TIMESTAMP(3), zone with DST", "TIMESTAMP(3) NULL", "'2024-03-10 01:30:00.250'", "'2024-03-10 01:30:00.251'" },
            { "g", "JSON", "JSON", "'{\"a\": [1, 2]}'", "'{\"a\": [1, 3]}'" },
            { "g", "trailing spaces", "VARCHAR(20)", "'abc  '", "'abc'" },
            { "g", "letter case", "VARCHAR(20)", "'abc'", "'ABC'" },
            { "g", "latin1 text", "VARCHAR(20) CHARACTER SET latin1", "'caf\xC3\xA9'", "'cafe'" },
        };
        // clang-format on
        for (const bool strict : { false, true }) {
            for (const auto &[roles, name, type, first, second] : types) {
                QTest::addRow("%s%s: %s", strict ? "strict server, " : "", roles, name)
                    << strict << roles << type << first << second;
            }
        }
    }

    void byColumnType()
    {
        QFETCH(bool, strict);
        QFETCH(QString, roles);
        QFETCH(QString, type);
        QFETCH(QString, first);
        QFETCH(QString, second);

        ScratchDatabase &scratch = strict ? m_strictScratch : m_scratch;
        MySQLConnection &mine = scratch.connection();
        const auto of = [&](char role, const QString &value, const char *other) {
            return roles.contains(role) ? value.toStdString() : std::string(other);
        };
        mine.query("CREATE OR REPLACE TABLE typed (k " + of('k', type, "INT") + " PRIMARY KEY, c "
            + of('g', type, "INT") + ", v INT)");
        mine.query("INSERT INTO typed VALUES (" + of('k', first, "1") + ", " + of('g', first, "1") + ", 1), ("
            + of('k', second, "2") + ", " + of('g', first, "1") + ", 2)");
        const QueryResult grid = mine.query("SELECT k, c, v FROM typed ORDER BY v");
        (strict ? *m_strictOtherSession : *m_otherSession)
            .query("UPDATE typed SET c = " + of('g', second, "2") + " WHERE v = 2");
        QCOMPARE(errorFrom([&] { mine.updateCell(grid, 0, 1, Cell()); }), ok);
        QCOMPARE(errorFrom([&] { mine.updateCell(grid, 1, 1, Cell()); }),
            QStringLiteral("The row was changed or deleted by another session. Refresh before editing it again."));
        QCOMPARE(errorFrom([&] { mine.deleteRow(grid, 1, scratch.name(), "typed"); }), ok);
        QCOMPARE(scalar(mine, "SELECT GROUP_CONCAT(v, ':', c IS NULL) FROM typed"), Cell("1:1"));
    }

    // Text that breaks naive quoting travels intact as a connection's string literal, as a new
    // cell value, as the shown value the stale-row guard compares, and as the key of an edit and
    // a delete, under the default SQL mode and those that change how literals are read.
    void quotingUnderSqlModes()
    {
        std::vector<std::string> texts { "", "\\'", std::string("a\0b", 3), "\xF0\x9F\xA7\xB9 caf\xC3\xA9" };
        std::mt19937 random(20250304);
        while (texts.size() < 40) {
            texts.push_back(awkwardText(random, 12));
        }
        const auto resetMode = qScopeGuard([this] { connection().query("SET SESSION sql_mode = DEFAULT"); });
        for (const char *mode : { "", "NO_BACKSLASH_ESCAPES", "ANSI_QUOTES,NO_BACKSLASH_ESCAPES" }) {
            connection().query("SET SESSION sql_mode = '" + std::string(mode) + "'");
            for (const std::string &text : texts) {
                QCOMPARE(scalar(connection(), "SELECT " + connection().stringLiteral(text)), Cell(text));
            }

            // Each key is its number, a colon and its text; each pass writes the text of a later row.
            connection().query("CREATE OR REPLACE TABLE quoted (k VARCHAR(200) PRIMARY KEY, body TEXT NULL)");
            for (std::size_t i = 0; i < texts.size(); ++i) {
                connection().query("INSERT INTO quoted VALUES (CONVERT("
                    + hexLiteral(std::to_string(i) + ":" + texts[i]) + " USING utf8mb4), '')");
            }
            QueryResult grid;
            for (std::size_t pass = 1; pass <= 2; ++pass) {
                grid = connection().query("SELECT k, body FROM quoted");
                for (std::size_t row = 0; row < grid.rows.size(); ++row) {
                    const Cell body(texts[(std::stoul(grid.rows[row][0].value()) + pass) % texts.size()]);
                    QCOMPARE(errorFrom([&] { connection().updateCell(grid, qint64(row), 1, body); }), ok);
                }
            }
            connection().deleteRow(grid, 0, m_scratch.name(), "quoted");
            QCOMPARE(errorFrom([&] { connection().deleteRow(grid, 0, m_scratch.name(), "quoted"); }),
                QStringLiteral("The row no longer exists. Refresh the table."));

            const QueryResult stored = connection().query("SELECT k, body FROM quoted");
            QCOMPARE(stored.rows.size(), texts.size() - 1);
            for (const Row &row : stored.rows) {
                const std::size_t i = std::stoul(row.at(0).value());
                QCOMPARE(row[0], Cell(std::to_string(i) + ":" + texts[i]));
                QCOMPARE(row.at(1), Cell(texts[(i + 2) % texts.size()]));
                QVERIFY(row[0] != grid.rows[0][0]);
            }
        }
    }

    // A time-stamped header, each table's structure and rows as of one snapshot, the views after
    // all tables, and a trailer that gives the replaying session its own settings back.
    void exportWholeFile()
    {
        ScratchDatabase scratch(m_server);
        // Generated columns sit between the data columns: they must drop out of both the column
        // list and the values without shifting the rest. The server lists objects by name, so the
        // views come first and between the tables.
        scratch.run("CREATE TABLE b_table (id INT PRIMARY KEY, t VARCHAR(40) NULL DEFAULT 'it''s',"
                    " twice INT AS (id * 2) VIRTUAL, b BLOB NULL, next INT AS (id + 1) STORED)");
        scratch.run(
            "INSERT INTO b_table (id, t, b) VALUES (1, NULL, NULL), (2, '', X''), (3, X'61275C630A', X'00FF10')");
        scratch.run("CREATE TABLE z_table (id INT PRIMARY KEY)");
        scratch.run("CREATE VIEW a_view AS SELECT id FROM b_table");
        scratch.run("CREATE VIEW m_view AS SELECT b.id FROM b_table b JOIN z_table z ON z.id = b.id");
        MySQLConnection &link = scratch.connection();
        const Cell settings = sessionSettings(link);
        QStringList progress;
        const QDateTime before = QDateTime::currentDateTimeUtc().addMSecs(-1000);
        link.backup(scratch.name(), outputPath("whole.sql"), [&](const std::string &name) {
            progress.append(QString::fromStdString(name));
            // A row added once the export has begun is not part of it.
            if (name == "b_table") {
                m_otherSession->query("INSERT INTO `" + scratch.name() + "`.z_table VALUES (1)");
            }
        });
        QCOMPARE(progress, QStringList({ "b_table", "z_table", "a_view", "m_view" }));

        const QByteArray file = readFile(m_folder.filePath("whole.sql"));
        const QByteArray prefix = "-- Tallowick export · ";
        QVERIFY2(file.startsWith(prefix), file.left(100).constData());
        const QDateTime stamp = QDateTime::fromString(file.mid(prefix.size(), 20), Qt::ISODate);
        QVERIFY2(before <= stamp && stamp <= QDateTime::currentDateTimeUtc(), file.left(100).constData());
        // Text (here a'b\c and a line feed) travels as hex converted to utf8mb4, bytes as plain hex.
        const QByteArray insert = "INSERT INTO `b_table` (`id`, `t`, `b`) VALUES (CONVERT(X'3";
        const QByteArray name = QByteArray::fromStdString(scratch.name());
        QCOMPARE(file.mid(prefix.size() + 20),
            "\n-- Tables and views only. Routines, triggers, events, and user accounts are not included.\n"
            "SET NAMES utf8mb4;\n"
            "SET @OLD_SQL_MODE=@@SQL_MODE, SQL_MODE='NO_AUTO_VALUE_ON_ZERO,STRICT_ALL_TABLES,ALLOW_INVALID_DATES';\n"
            "SET @OLD_TIME_ZONE=@@TIME_ZONE, TIME_ZONE='+00:00';\n"
            "SET FOREIGN_KEY_CHECKS=0;\nCREATE DATABASE IF NOT EXISTS `"
                + name + "`;\nUSE `" + name + "`;\n\n-- Table `b_table`\n" + showCreate(link, "TABLE", "b_table")
                + insert + "1' USING utf8mb4), NULL, NULL);\n" + insert + "2' USING utf8mb4), '', '');\n" + insert
                + "3' USING utf8mb4), CONVERT(X'61275c630a' USING utf8mb4), X'00ff10');\n\n-- Table `z_table`\n"
                + showCreate(link, "TABLE", "z_table") + "\n" + showCreate(link, "VIEW", "a_view") + "\n"
                + showCreate(link, "VIEW", "m_view")
                + "\nSET SQL_MODE=@OLD_SQL_MODE;\nSET TIME_ZONE=@OLD_TIME_ZONE;\nSET FOREIGN_KEY_CHECKS=1;\n"
                  "-- Export complete.\n");
        QCOMPARE(sessionSettings(link), settings);
    }

    // Every row, past the grid's cap, in the grid's dialect and cell text: the file equals the
    // displayed-rows export of the same rows. A failing query leaves the earlier file alone.
    void csvExportOfEveryRow()
    {
        ScratchDatabase scratch(m_server);
        scratch.run("CREATE TABLE wide (id INT PRIMARY KEY, t VARCHAR(20) NULL, b VARBINARY(4) NULL)");
        scratch.run("INSERT INTO wide SELECT seq, IF(seq % 7 = 0, NULL, CONCAT('say \"', seq, '\", ok')), "
                    "IF(seq % 5 = 0, X'00FF', NULL) FROM seq_1_to_25000");
        const std::string select = "SELECT * FROM wide ORDER BY id";
        const std::string path = outputPath("every-row.csv");
        std::vector<std::int64_t> progress;
        const std::int64_t rows = scratch.connection().exportCsv(
            select, path, [&progress](std::int64_t done) { progress.push_back(done); });
        QCOMPARE(rows, std::int64_t(25000));
        QCOMPARE(progress, (std::vector<std::int64_t> { 10000, 20000 }));
        const QueryResult shown = scratch.connection().query(select, 25000);
        QVERIFY(readFile(QString::fromStdString(path)) == QByteArray::fromStdString(SQL::csv(shown)));
        QCOMPARE(errorFrom([&] { scratch.connection().exportCsv("SELECT * FROM missing", path, {}); }).left(10),
            QStringLiteral("MySQL 1146"));
        QVERIFY(readFile(QString::fromStdString(path)) == QByteArray::fromStdString(SQL::csv(shown)));
        QCOMPARE(errorFrom([&] { scratch.connection().exportCsv("DO 1", path, {}); }),
            QStringLiteral("The statement returned no rows."));
        QCOMPARE(QDir(m_folder.path()).entryList({ ".*.partial" }, QDir::Files | QDir::Hidden), QStringList());
    }

    // The export is replayed into a scratch database and every table compared with what was
    // written; a file that does not restore names its table, and no scratch database stays.
    void verifiedExport()
    {
        ScratchDatabase scratch(m_server);
        scratch.run("CREATE TABLE a (id INT PRIMARY KEY, t TEXT NULL, twice INT AS (id * 2) VIRTUAL, b BLOB NULL)");
        scratch.run("INSERT INTO a (id, t, b) VALUES (1, NULL, X''), (2, '', NULL), (3, 'x''y', X'00FF')");
        scratch.run("CREATE TABLE b (n DOUBLE, d DATETIME(3))");
        scratch.run("INSERT INTO b VALUES (0.1, '2026-03-29 02:30:00.125'), (0.1, '2026-03-29 02:30:00.125')");
        scratch.run("CREATE VIEW v AS SELECT id FROM a");
        MySQLConnection &link = scratch.connection();
        TableDigests digests;
        const std::string path = outputPath("verified.sql");
        link.backupReplacing(
            scratch.name(), path, [](const std::string &) {}, &digests);
        QCOMPARE(digests.size(), std::size_t(2));
        QCOMPARE(QString::fromStdString(link.verifyExport(path, scratch.name(), digests)),
            QStringLiteral("verified: 2 tables, 5 rows restore exactly"));

        QByteArray file = readFile(QString::fromStdString(path));
        const QByteArray lastRow = "INSERT INTO `b` (`n`, `d`) VALUES (CONVERT(X'302e31' USING utf8mb4)";
        QVERIFY(file.count(lastRow) == 2);
        const auto tampered = [&](const QByteArray &text) {
            writeFileAtomically(path, text);
            return errorFrom([&] { link.verifyExport(path, scratch.name(), digests); });
        };
        QCOMPARE(tampered(QByteArray(file).replace(file.lastIndexOf(lastRow) + lastRow.size() - 20, 2, "33")),
            QStringLiteral("The export does not restore table b: its 2 rows came back with different values."));
        const qsizetype last = file.lastIndexOf(lastRow);
        QCOMPARE(tampered(QByteArray(file).remove(last, file.indexOf('\n', last) + 1 - last)),
            QStringLiteral("The export does not restore table b: 2 rows were exported, 1 came back."));
        QCOMPARE(link.query("SHOW DATABASES LIKE 'tallowick\\_verify\\_%'").rows.size(), std::size_t(0));
    }

    // Whatever happens, the session keeps its own settings and has no transaction left open.
    void exportFailures()
    {
        ScratchDatabase scratch(m_server);
        scratch.run("CREATE TABLE first_t (id INT PRIMARY KEY)");
        scratch.run("CREATE TABLE second_t (id INT PRIMARY KEY)");
        scratch.run("INSERT INTO first_t VALUES (1)");
        MySQLConnection &link = scratch.connection();
        link.query("SET SESSION sql_mode = 'ANSI_QUOTES', time_zone = '+05:00'");
        const Cell settings("ANSI_QUOTES / +05:00 / 0");
        int calls = 0;
        const auto cancelSecond = [&calls](const std::string &) {
            if (++calls == 2) {
                throw AppError("Export cancelled.");
            }
        };

        QCOMPARE(errorFrom([&] { link.backup(scratch.name(), outputPath("no-folder/x.sql"), cancelSecond); }),
            QStringLiteral("Cannot create the backup file."));
        QCOMPARE(sessionSettings(link), settings);

        // Midway: the file stops short, and the connection carries on.
        QCOMPARE(errorFrom([&] { link.backup(scratch.name(), outputPath("partial.sql"), cancelSecond); }),
            QStringLiteral("Export cancelled."));
        QCOMPARE(sessionSettings(link), settings);
        const QByteArray file = readFile(m_folder.filePath("partial.sql"));
        QVERIFY(file.contains("INSERT INTO `first_t`"));
        QVERIFY(!file.contains("-- Table `second_t`") && !file.contains("-- Export complete."));
    }

    // An export from one server replayed into another, whose SQL mode, character set and time zone
    // differ, holds the same rows, value for value.
    void roundTripBetweenServers()
    {
        for (const bool fromStrict : { true, false }) {
            ScratchDatabase source(fromStrict ? m_server.strict() : m_server);
            source.run("CREATE TABLE rt (id INT AUTO_INCREMENT PRIMARY KEY, t TEXT NULL, b VARBINARY(24) NULL,"
                       " ts TIMESTAMP(3) NULL, dt DATETIME(6) NULL, size INT AS (LENGTH(b)) STORED)");
            source.run("CREATE VIEW rt_view AS SELECT id, t FROM rt WHERE id < 5");
            // Zero in the AUTO_INCREMENT key, NULL next to '' and empty next to non-empty bytes, and
            // the second 01:30 of New York's autumn change (06:30 UTC).
            source.run("SET SESSION sql_mode = CONCAT(@@sql_mode, ',NO_AUTO_VALUE_ON_ZERO'), time_zone = '+00:00'");
            source.run(
                "INSERT INTO rt (id, t, b, ts, dt) VALUES (0, NULL, X'', '2024-11-03 06:30:00.125',"
                " '2024-11-03 01:30:00.000001'), (1, '', X'00FF', '2024-07-01 12:00:00', NULL),"
                " (2, CONVERT(X'4d617261277320f09fa7b9205c0a2722' USING utf8mb4), NULL, NULL, '1999-12-31 23:59:59')");
            source.run("SET SESSION sql_mode = DEFAULT, time_zone = DEFAULT");
            // Text that breaks naive quoting, and bytes of every value, which are rarely valid UTF-8.
            std::mt19937 random(7411);
            for (int id = 3; id < 60; ++id) {
                std::string bytes(random() % 24, '\0');
                for (char &byte : bytes) {
                    byte = static_cast<char>(random());
                }
                source.run("INSERT INTO rt (id, t, b) VALUES (" + std::to_string(id) + ", CONVERT("
                    + hexLiteral(awkwardText(random, 12)) + " USING utf8mb4), " + hexLiteral(bytes) + ")");
            }
            source.connection().backup(source.name(), outputPath("round-trip.sql"), [](const std::string &) {});

            // Replayed as it is, statement by statement, into a server that has never seen the database.
            const auto target = (fromStrict ? m_server : m_server.strict()).connect();
            const auto dropCopy = qScopeGuard(
                [&] { errorFrom([&] { target->query("DROP DATABASE IF EXISTS `" + source.name() + "`"); }); });
            const Cell targetSettings = sessionSettings(*target);
            for (const std::string &statement :
                SQL::statements(readFile(m_folder.filePath("round-trip.sql")).toStdString())) {
                QCOMPARE(errorFrom([&] { target->query(statement); }), ok);
            }
            QCOMPARE(sessionSettings(*target), targetSettings);

            // Both sides are read in UTC, so TIMESTAMP values compare as instants.
            source.run("SET SESSION time_zone = '+00:00'");
            target->query("SET SESSION time_zone = '+00:00'");
            for (const std::string compare : { "SELECT id, HEX(t), HEX(b), ts, dt, size FROM rt ORDER BY id",
                     "SELECT * FROM rt_view ORDER BY id" }) {
                const QueryResult expected = source.run(compare);
                QVERIFY(expected.rows.size() >= 5);
                QCOMPARE(grid(target->query(compare).rows), grid(expected.rows));
            }
        }
    }
};

QTEST_GUILESS_MAIN(TestMySQLConnection)
#include "TestMySQLConnection.moc"
