#include "core/ConnectionProfileJson.h"
#include "core/QueryLogJson.h"
#include "support/Checks.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace tallowick;
using namespace tallowick::test;

namespace
{

const QUuid sampleId = QUuid::fromString(QStringLiteral("6f9619ff-8b86-d011-b42d-00c04fc964ff"));

ConnectionProfile makeProfile(const char *name, const char *host, std::int64_t port, const char *user)
{
    ConnectionProfile result;
    result.name = name;
    result.host = host;
    result.port = port;
    result.user = user;
    return result;
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

QJsonObject parsed(const QByteArray &json)
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

// The two files the program keeps, connection profiles and query history, both read through one
// strict reader: a damaged entry fails the whole file, never with a fallback value.
class TestJsonFiles final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void decodeRefusals_data();
    void decodeRefusals();
    void profileValidation_data();
    void profileValidation();
    void profileFormat();
    void historyFormat();
};

void TestJsonFiles::decodeRefusals_data()
{
    QTest::addColumn<bool>("history");
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("expected");

    const QByteArray profileJson = encodeProfile(sampleProfile());
    const QJsonObject profile = parsed(profileJson);
    const QJsonObject entry = parsed(encodeQueryLog(sampleEntry()));
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

void TestJsonFiles::decodeRefusals()
{
    QFETCH(bool, history);
    QFETCH(QByteArray, json);
    QFETCH(QString, expected);
    QCOMPARE(errorFrom([&] { history ? (void)decodeQueryLogs(json) : (void)decodeProfiles(json); }), expected);
}

void TestJsonFiles::profileValidation_data()
{
    QTest::addColumn<ConnectionProfile>("profile");
    QTest::addColumn<QString>("message");

    const QString ok = QStringLiteral("(no error)");
    const QString name = QStringLiteral("Give this connection a name.");
    const QString port = QStringLiteral("The port must be between 1 and 65535.");
    QTest::newRow("port 1") << makeProfile("Prod", "db", 1, "app") << ok;
    QTest::newRow("port 65535") << makeProfile("Prod", "db", 65535, "app") << ok;
    QTest::newRow("port 0") << makeProfile("Prod", "db", 0, "app") << port;
    QTest::newRow("port 65536") << makeProfile("Prod", "db", 65536, "app") << port;
    QTest::newRow("name of spaces and tabs") << makeProfile(" \t ", "db", 3306, "app") << name;
    // Only spaces and tabs are trimmed; the user is taken as typed.
    QTest::newRow("name of a line feed") << makeProfile("\n", "db", 3306, "app") << ok;
    QTest::newRow("host of blanks") << makeProfile("Prod", "  \t", 3306, "app")
                                    << QStringLiteral("Enter the MySQL server hostname.");
    QTest::newRow("empty user") << makeProfile("Prod", "db", 3306, "") << QStringLiteral("Enter a MySQL username.");
    QTest::newRow("user of blanks") << makeProfile("Prod", "db", 3306, "  ") << ok;
    // The first problem in the order name, host, port, user is the one reported.
    QTest::newRow("everything wrong") << makeProfile(" ", " ", 0, "") << name;
    QTest::newRow("port and user wrong") << makeProfile("Prod", "db", 70000, "") << port;
}

void TestJsonFiles::profileValidation()
{
    QFETCH(ConnectionProfile, profile);
    QFETCH(QString, message);
    QCOMPARE(errorFrom([&] { profile.validate(); }), message);
}

void TestJsonFiles::profileFormat()
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

void TestJsonFiles::historyFormat()
{
    const QByteArray common = R"({"id":"6F9619FF-8B86-D011-B42D-00C04FC964FF","date":60,"connection":"Prod",)"
                              R"("database":"shop","sql":"SELECT 1","elapsed":0.25,"rows":)";
    QCOMPARE(encodeQueryLog(sampleEntry()), common + "3}");
    QueryLog failed = sampleEntry();
    failed.rows = 0;
    failed.error = "Table 'shop.x' doesn't exist";
    QCOMPARE(encodeQueryLog(failed), common + "0,\"error\":\"Table 'shop.x' doesn't exist\"}");

    // A null error reads back as a success, which is written without the key.
    const QueryLog success = decodeQueryLogs(fileWith(parsed(encodeQueryLog(sampleEntry())), "error", {})).at(0);
    QVERIFY(!success.error.has_value());
    QVERIFY(!encodeQueryLog(success).contains("\"error\""));

    // Dates are seconds since 2001-01-01T00:00:00Z, whatever zone they were taken in.
    const std::pair<const char *, double> dates[]
        = { { "2001-01-01T02:00:00+02:00", 0.0 }, { "2024-05-06T07:08:09.125Z", 736672089.125 } };
    for (const auto &[iso, seconds] : dates) {
        QueryLog entry = sampleEntry();
        entry.date = at(iso);
        QCOMPARE(parsed(encodeQueryLog(entry)).value(QStringLiteral("date")).toDouble(), seconds);
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

QTEST_GUILESS_MAIN(TestJsonFiles)
#include "TestJsonFiles.moc"
