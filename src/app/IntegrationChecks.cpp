#include "app/IntegrationChecks.h"

#include "app/CheckRunner.h"
#include "client/ClientThreadScope.h"
#include "client/MySQLConnection.h"
#include "core/AppError.h"
#include "core/SQL.h"
#include "core/UuidText.h"

#include <QFile>
#include <QTemporaryDir>
#include <chrono>
#include <cstdlib>
#include <thread>

namespace tallowick
{

namespace
{

const std::string staleRowMessage
    = "The row was changed or deleted by another session. Refresh before editing it again.";
const std::string maraTitle = "Mara's broom \xF0\x9F\xA7\xB9";

std::string environmentOr(const char *name, const char *fallback)
{
    const char *value = std::getenv(name);
    return value ? value : fallback;
}

template <typename Action> bool failsWith(const std::string &message, Action action)
{
    try {
        action();
    } catch (const AppError &error) {
        return error.message() == message;
    }
    return false;
}

std::size_t fieldIndex(const QueryResult &result, const std::string &name)
{
    for (std::size_t i = 0; i < result.fields.size(); ++i) {
        if (result.fields[i].name == name) {
            return i;
        }
    }
    throw AppError("The result has no column " + name + ".");
}

class IntegrationRun
{
public:
    IntegrationRun(std::int64_t port, std::optional<std::string> ca, std::optional<IntegrationTunnel> tunnel)
        : m_ca(std::move(ca))
        , m_tunnel(std::move(tunnel))
        , m_password(environmentOr("TALLOWICK_TEST_PASSWORD", ""))
        , m_profile(makeProfile(port))
        , m_db(m_profile)
        , m_scratch("tallowick_test_" + uuidText(QUuid::createUuid()))
        , m_restore("tallowick_restore_" + uuidText(QUuid::createUuid()))
        , m_userName("tw'user\\" + uuidText(QUuid::createUuid()).substr(0, 8))
    {
    }

    void execute(std::ostream &out)
    {
        route(m_db);
        m_db.connect(m_password);
        try {
            setUp();
            runChecks(checks(), out);
        } catch (...) {
            try {
                cleanUp("DROP DATABASE IF EXISTS ");
            } catch (const AppError &) {
                // The server that failed the check may be gone; its FAIL line matters more.
            }
            throw;
        }
        cleanUp("DROP DATABASE ");
        out << "real MySQL integration checks passed.\n" << std::flush;
    }

private:
    // Every connection of the run goes the same way: through the tunnel when there is one.
    void route(MySQLConnection &connection) const
    {
        if (!m_tunnel) {
            return;
        }
        SshTunnelRequest request;
        request.settings = { m_tunnel->host, m_tunnel->port, m_tunnel->user, SshAuth::keyFile, m_tunnel->keyFile };
        request.knownHostsFile = m_tunnel->knownHosts;
        connection.setTunnel(std::move(request));
    }

    ConnectionProfile makeProfile(std::int64_t port) const
    {
        ConnectionProfile profile;
        profile.name = "Isolated test server";
        profile.host = "127.0.0.1";
        profile.port = port;
        profile.user = environmentOr("TALLOWICK_TEST_USER", "root");
        profile.tls = TLSMode::disabled;
        return profile;
    }

    QueryResult run(const std::string &sql, std::int64_t maxRows = MySQLConnection::defaultMaxRows)
    {
        return m_db.query(sql, maxRows);
    }

    Cell single(const std::string &sql)
    {
        const QueryResult result = run(sql);
        if (result.rows.empty() || result.rows.front().empty()) {
            throw AppError("No value from: " + sql);
        }
        return result.rows.front().front();
    }

    std::vector<Cell> firstColumn(const std::string &sql)
    {
        std::vector<Cell> values;
        for (const Row &row : run(sql).rows) {
            values.push_back(row.at(0));
        }
        return values;
    }

    void setUp()
    {
        run("CREATE DATABASE " + SQL::identifier(m_scratch) + " CHARACTER SET utf8mb4");
        m_db.use(m_scratch);
        run("CREATE TABLE departments (id INT PRIMARY KEY, name VARCHAR(200)) ENGINE=InnoDB");
        run("CREATE TABLE items (id INT PRIMARY KEY, department_id INT, title VARCHAR(255), qty INT, notes TEXT NULL, "
            "payload VARBINARY(20)) ENGINE=InnoDB");
        run("INSERT INTO departments VALUES (1,'Books')");
        run("INSERT INTO items VALUES (1,1," + SQL::value(maraTitle) + ",5,NULL,X'00FF')");
        run("CREATE TABLE composite (a INT, b INT, value VARCHAR(100), PRIMARY KEY(a,b))");
        run("INSERT INTO composite VALUES (1,1,'first'),(1,2,'second')");
        run("CREATE TABLE people (id INT PRIMARY KEY, name VARCHAR(100), manager_id INT NULL)");
        run("INSERT INTO people VALUES (1,'Manager',NULL),(2,'Employee',1)");
    }

    // Runs on success and on failure; a dead primary connection is reopened for it.
    void cleanUp(const std::string &dropDatabase)
    {
        if (!m_db.isConnected()) {
            m_db.connect(m_password);
        }
        if (m_userCreated) {
            try {
                run("DROP USER IF EXISTS " + m_db.stringLiteral(m_userName) + "@" + m_db.stringLiteral("%"));
            } catch (const AppError &) {
                // Leaving a throwaway account behind must not hide the real outcome.
            }
        }
        run("DROP DATABASE IF EXISTS " + SQL::identifier(m_restore));
        run(dropDatabase + SQL::identifier(m_scratch));
    }

    std::vector<NamedCheck> checks()
    {
        std::vector<NamedCheck> list = {
            { "explicitly disabled TLS uses a local plaintext connection", [this] { return plaintextLink(); } },
            { "real MySQL query preserves Unicode and apostrophes",
                [this] {
                    const QueryResult items = run("SELECT * FROM items");
                    return items.rows.at(0).at(fieldIndex(items, "title")) == maraTitle;
                } },
            { "real MySQL preserves NULL and binary values",
                [this] {
                    const QueryResult items = run("SELECT * FROM items");
                    const Row &row = items.rows.at(0);
                    return !row.at(fieldIndex(items, "notes")) && row.at(fieldIndex(items, "payload")) == "0x00FF";
                } },
            { "query metadata identifies underlying source columns",
                [this] {
                    const QueryResult items = run("SELECT * FROM items");
                    const Field &title = items.fields.at(fieldIndex(items, "title"));
                    return title.table == "items" && title.originalName == "title";
                } },
            { "standard table cell edits persist correctly", [this] { return standardEdit(); } },
            { "stale cell updates are rejected",
                [this] {
                    return failsWith(staleRowMessage, [this] {
                        m_db.updateCell(m_itemsBeforeEdit, 0, fieldIndex(m_itemsBeforeEdit, "title"), "Second title");
                    });
                } },
            { "aliased query-result cells are editable",
                [this] {
                    const QueryResult aliased = run("SELECT id AS item_key, title AS display_title FROM items");
                    m_db.updateCell(aliased, 0, 1, "Edited through an alias");
                    return single("SELECT title FROM items") == "Edited through an alias";
                } },
            { "joined query-result edits target the correct table",
                [this] {
                    const QueryResult joined = run(
                        "SELECT items.id AS item_id, items.title, departments.id AS dept_key, departments.name AS "
                        "department FROM items LEFT JOIN departments ON items.department_id=departments.id");
                    m_db.updateCell(joined, 0, 3, "Archive");
                    return firstColumn("SELECT name FROM departments") == std::vector<Cell> { "Archive" }
                    && single("SELECT title FROM items") == "Edited through an alias";
                } },
            { "query-result edits without the primary key are rejected",
                [this] {
                    const QueryResult titles = run("SELECT title FROM items");
                    return failsWith("The primary-key column id is missing from this result.",
                        [&] { m_db.updateCell(titles, 0, 0, "No key"); });
                } },
            { "calculated query-result columns cannot be edited",
                [this] {
                    const QueryResult calculated = run("SELECT id, UPPER(title) AS calculated FROM items");
                    return failsWith("Calculated columns and binary values are read-only.",
                        [&] { m_db.updateCell(calculated, 0, 1, "Nope"); });
                } },
            { "real composite primary-key edits require every key column",
                [this] {
                    const QueryResult partial = run("SELECT a,value FROM composite");
                    return failsWith("The primary-key column b is missing from this result.",
                        [&] { m_db.updateCell(partial, 0, 1, "partial"); });
                } },
            { "composite primary keys update exactly one row",
                [this] {
                    const QueryResult second = run("SELECT * FROM composite WHERE b=2");
                    m_db.updateCell(second, 0, fieldIndex(second, "value"), "changed");
                    return firstColumn("SELECT value FROM composite ORDER BY b")
                        == std::vector<Cell> { "first", "changed" };
                } },
            { "self-join result edits distinguish table aliases correctly",
                [this] {
                    const QueryResult pairs = run("SELECT worker.id,worker.name,boss.id,boss.name FROM people worker "
                                                  "JOIN people boss ON worker.manager_id=boss.id");
                    m_db.updateCell(pairs, 0, 3, "Director");
                    return firstColumn("SELECT name FROM people ORDER BY id")
                        == std::vector<Cell> { "Director", "Employee" };
                } },
            { "empty strings remain distinct from NULL after editing",
                [this] {
                    const QueryResult items = run("SELECT * FROM items");
                    m_db.updateCell(items, 0, fieldIndex(items, "notes"), "");
                    return single("SELECT notes FROM items") == Cell(std::string());
                } },
            { "Set to NULL persists SQL NULL",
                [this] {
                    const QueryResult items = run("SELECT * FROM items");
                    m_db.updateCell(items, 0, fieldIndex(items, "notes"), std::nullopt);
                    return single("SELECT notes FROM items") == std::nullopt
                        && single("SELECT COUNT(*) FROM items WHERE notes IS NULL") == "1";
                } },
            { "result display caps drain safely without losing connection sync",
                [this] {
                    const QueryResult capped = run("SELECT * FROM composite", 1);
                    return capped.truncated && capped.rows.size() == 1
                        && capped.message == "1 rows · display limit reached";
                } },
            { "connection remains usable after a truncated result",
                [this] { return single("SELECT COUNT(*) FROM items") == "1"; } },
            { "independent server sessions can query concurrently", [this] { return concurrentSessions(); } },
            { "schema/data export contains tables, rows, and views", [this] { return exportDatabase(); } },
            { "exported SQL can be parsed for import",
                [this] {
                    m_exportStatements = SQL::statements(m_exportText);
                    return m_exportStatements.size() > 10;
                } },
            { "exported SQL restores table data without losing values", [this] { return restoreExport(); } },
            { "exported views restore successfully",
                [this] {
                    return single("SELECT COUNT(*) FROM " + SQL::qualified(m_restore, "item_names"))
                        == single("SELECT COUNT(*) FROM items");
                } },
            { "table designer defaults preserve apostrophes",
                [this] {
                    const std::string label = "Mara's \"default\" \\ label";
                    run("CREATE TABLE defaults_check (id INT PRIMARY KEY AUTO_INCREMENT, label VARCHAR(100) DEFAULT "
                        + SQL::defaultLiteral(label) + ")");
                    run("INSERT INTO defaults_check () VALUES ()");
                    return single("SELECT label FROM defaults_check") == label;
                } },
            { "native user creation and authentication handle quotes and backslashes",
                [this] { return createAndAuthenticate(); } },
            { "primary-key row deletion deletes only its target",
                [this] {
                    const QueryResult first = run("SELECT * FROM composite WHERE b=1");
                    m_db.deleteRow(first, 0, m_scratch, "composite");
                    return firstColumn("SELECT b FROM composite") == std::vector<Cell> { "2" }
                    && single("SELECT COUNT(*) FROM composite") == "1";
                } },
        };
        if (m_ca && !m_tunnel) {
            list.push_back(
                { "TLS connection validates a trusted server certificate", [this] { return trustedTls(); } });
        }
        if (m_ca && m_tunnel) {
            list.push_back(
                { "TLS verification is refused through an SSH tunnel", [this] { return verifyRefusedInTunnel(); } });
            list.push_back({ "TLS encrypts through an SSH tunnel", [this] { return tlsThroughTunnel(); } });
        }
        if (m_ca) {
            list.push_back({ "TLS rejects a hostname mismatch", [this] { return hostnameMismatchRejected(); } });
        }
        return list;
    }

    bool plaintextLink()
    {
        const QueryResult status = run("SHOW SESSION STATUS LIKE 'Ssl_cipher'");
        const bool serverSeesPlaintext = status.rows.size() == 1 && status.rows[0].at(1).value_or("").empty();
        return m_db.cipher().empty() && serverSeesPlaintext;
    }

    bool standardEdit()
    {
        m_itemsBeforeEdit = run("SELECT * FROM items");
        const std::string title = "New 'title' \\ path";
        m_db.updateCell(m_itemsBeforeEdit, 0, fieldIndex(m_itemsBeforeEdit, "title"), title);
        return single("SELECT title FROM items") == title;
    }

    // The second connection blocks on a lock the first holds; the first keeps answering while
    // the second's statement is in flight, then frees it.
    bool concurrentSessions()
    {
        MySQLConnection other(m_profile);
        route(other);
        other.connect(m_password);
        const std::string lock = SQL::value(m_scratch);
        if (single("SELECT GET_LOCK(" + lock + ", 10)") != "1") {
            return false;
        }
        Cell otherAnswer;
        std::string otherError;
        std::thread worker([&] {
            const ClientThreadScope scope;
            try {
                otherAnswer = other.query("SELECT GET_LOCK(" + lock + ", 30)").rows.at(0).at(0);
                other.query("SELECT RELEASE_LOCK(" + lock + ")");
            } catch (const std::exception &error) {
                otherError = error.what();
            }
        });
        bool sawOtherWaiting = false;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!sawOtherWaiting && std::chrono::steady_clock::now() < deadline) {
            sawOtherWaiting = single("SELECT COUNT(*) FROM information_schema.PROCESSLIST WHERE ID = "
                                  + std::to_string(other.connectionID()) + " AND INFO LIKE 'SELECT GET_LOCK%'")
                == "1";
            if (!sawOtherWaiting) {
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
            }
        }
        run("SELECT RELEASE_LOCK(" + lock + ")");
        worker.join();
        return sawOtherWaiting && otherError.empty() && otherAnswer == "1";
    }

    bool exportDatabase()
    {
        run("CREATE VIEW item_names AS SELECT id,title FROM items");
        if (!m_exportFolder.isValid()) {
            return false;
        }
        const std::string path = m_exportFolder.filePath("export.sql").toStdString();
        std::vector<std::string> progress;
        m_db.backup(m_scratch, path, [&progress](const std::string &name) { progress.push_back(name); });
        QFile file(QString::fromStdString(path));
        if (!file.open(QIODevice::ReadOnly)) {
            return false;
        }
        m_exportText = file.readAll().toStdString();
        const auto has = [this](const std::string &part) { return m_exportText.find(part) != std::string::npos; };
        const std::string trailer = "SET FOREIGN_KEY_CHECKS=1;\n-- Export complete.\n";
        return has("-- Table `items`\nCREATE TABLE `items`") && has("INSERT INTO `items` (`id`, `department_id`")
            && has("VIEW `item_names`") && m_exportText.find("VIEW `item_names`") > m_exportText.rfind("-- Table ")
            && m_exportText.ends_with(trailer) && !progress.empty() && progress.back() == "item_names";
    }

    bool restoreExport()
    {
        run("CREATE DATABASE " + SQL::identifier(m_restore) + " CHARACTER SET utf8mb4");
        m_db.use(m_restore);
        for (const std::string &statement : m_exportStatements) {
            // The export names its own database; replay everything else into the fresh one.
            const std::string keyword = SQL::leadingKeyword(statement);
            if (keyword == "USE" || statement.starts_with("CREATE DATABASE")) {
                continue;
            }
            run(statement);
        }
        m_db.use(m_scratch);
        const std::string columns = "SELECT title,qty,notes,payload FROM ";
        const QueryResult original = run(columns + SQL::qualified(m_scratch, "items"));
        const QueryResult restored = run(columns + SQL::qualified(m_restore, "items"));
        return !restored.rows.empty() && restored.rows == original.rows;
    }

    bool createAndAuthenticate()
    {
        const std::string password = "trial'case\\value";
        m_db.createUser(m_userName, "%", password);
        m_userCreated = true;
        ConnectionProfile profile = m_profile;
        profile.user = m_userName;
        MySQLConnection login(profile);
        route(login);
        login.connect(password);
        const QueryResult who = login.query("SELECT CURRENT_USER()");
        return who.rows.at(0).at(0).value_or("").starts_with(m_userName + "@");
    }

    // A connection that verifies the server's certificate for `host`: the refusal, or nothing
    // when it connected (then encrypted).
    std::optional<std::string> verifiedConnectionError(const std::string &host)
    {
        ConnectionProfile profile = m_profile;
        profile.host = host;
        profile.tls = TLSMode::verify;
        profile.caPath = *m_ca;
        MySQLConnection secure(profile);
        route(secure);
        try {
            secure.connect(m_password);
        } catch (const AppError &refusal) {
            return secure.isConnected() ? "still connected" : refusal.message();
        }
        return secure.cipher().empty() ? std::optional<std::string>("connected without TLS") : std::nullopt;
    }

    bool trustedTls() { return !verifiedConnectionError(m_profile.host); }

    bool hostnameMismatchRejected() { return verifiedConnectionError("localhost").has_value(); }

    // The client library would check the tunnel's address, so verification is refused outright
    // rather than checked against the wrong name.
    bool verifyRefusedInTunnel()
    {
        const std::optional<std::string> refusal = verifiedConnectionError(m_profile.host);
        return refusal && refusal->starts_with("Verify certificate cannot be used through an SSH tunnel");
    }

    bool tlsThroughTunnel()
    {
        ConnectionProfile profile = m_profile;
        profile.tls = TLSMode::require;
        MySQLConnection secure(profile);
        route(secure);
        secure.connect(m_password);
        const QueryResult status = secure.query("SHOW SESSION STATUS LIKE 'Ssl_cipher'");
        return !secure.cipher().empty() && status.rows.size() == 1 && status.rows[0].at(1) == secure.cipher();
    }

    const std::optional<std::string> m_ca;
    const std::optional<IntegrationTunnel> m_tunnel;
    const std::string m_password;
    const ConnectionProfile m_profile;
    MySQLConnection m_db;
    const std::string m_scratch;
    const std::string m_restore;
    const std::string m_userName;
    bool m_userCreated = false;
    QueryResult m_itemsBeforeEdit;
    QTemporaryDir m_exportFolder;
    std::string m_exportText;
    std::vector<std::string> m_exportStatements;
};

} // namespace

void runIntegrationChecks(std::int64_t port,
    const std::optional<std::string> &ca,
    const std::optional<IntegrationTunnel> &tunnel,
    std::ostream &out)
{
    const ClientThreadScope scope;
    IntegrationRun(port, ca, tunnel).execute(out);
}

} // namespace tallowick
