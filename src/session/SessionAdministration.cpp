// The administration panels' work: server variables and processes, stopping a process, an
// account's grants, and the transaction commands of the query toolbar.
#include "client/MySQLConnection.h"
#include "session/ServerSession.h"
#include "session/UserPrompts.h"

namespace tallowick
{

void ServerSession::variables()
{
    perform<QueryResult>(
        "Reading variables…",
        [](MySQLConnection &client) { return client.query("SHOW GLOBAL VARIABLES"); },
        [](ServerSession &session, const QueryResult &result) { session.setMetadata(result); });
}

void ServerSession::processes()
{
    perform<QueryResult>(
        "Reading processes…",
        [](MySQLConnection &client) { return client.query("SHOW FULL PROCESSLIST"); },
        [](ServerSession &session, const QueryResult &result) { session.setMetadata(result); });
}

void ServerSession::killProcess(std::uint64_t processID)
{
    if (m_busy || processID == 0) {
        return;
    }
    const std::string id = std::to_string(processID);
    if (!m_prompts.confirmAction("Stop process " + id + "?",
            "The statement it is running stops and its connection closes. Work it has not "
            "committed is rolled back.",
            "Stop process")) {
        return;
    }
    perform(
        "Stopping process " + id + "…",
        [id](MySQLConnection &client) { client.query("KILL " + id); },
        [](ServerSession &session) { session.processes(); });
}

void ServerSession::grants(const std::string &user, const std::string &host)
{
    perform<QueryResult>(
        "Reading grants…",
        [user, host](MySQLConnection &client) {
            // Account names take string literals only, escaped the way this connection reads them.
            return client.query("SHOW GRANTS FOR " + client.stringLiteral(user) + "@" + client.stringLiteral(host));
        },
        [](ServerSession &session, const QueryResult &result) { session.setUserGrants(result); });
}

void ServerSession::transaction(TransactionCommand command)
{
    std::string statement;
    switch (command) {
    case TransactionCommand::start:
        statement = "START TRANSACTION";
        break;
    case TransactionCommand::commit:
        statement = "COMMIT";
        break;
    case TransactionCommand::rollback:
        statement = "ROLLBACK";
        break;
    }
    perform(
        "Sending " + statement + "…",
        [statement](MySQLConnection &client) { client.query(statement); },
        [statement](ServerSession &session) { session.setStatus(statement + " sent"); });
}

} // namespace tallowick
