#include "core/AppError.h"
#include "core/ConnectionProfile.h"
#include "core/ConnectionProfileJson.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>
#include <string>

using namespace tallowick;

namespace
{

const QUuid fixedId = QUuid::fromString(QStringLiteral("6f9619ff-8b86-d011-b42d-00c04fc964ff"));

template <typename Action> QString thrownMessage(Action action)
{
    try {
        action();
    } catch (const AppError &error) {
        return QString::fromStdString(error.message());
    }
    return QStringLiteral("(no error)");
}

ConnectionProfile validProfile()
{
    ConnectionProfile profile;
    profile.name = "Production";
    profile.host = "db.example.com";
    profile.user = "app";
    return profile;
}

QJsonObject validEntry()
{
    return QJsonObject {
        { QStringLiteral("id"), QStringLiteral("6F9619FF-8B86-D011-B42D-00C04FC964FF") },
        { QStringLiteral("name"), QStringLiteral("Prod") },
        { QStringLiteral("host"), QStringLiteral("db.example.com") },
        { QStringLiteral("port"), 3307 },
        { QStringLiteral("user"), QStringLiteral("app") },
        { QStringLiteral("database"), QStringLiteral("shop") },
        { QStringLiteral("tls"), QStringLiteral("Verify certificate") },
        { QStringLiteral("caPath"), QStringLiteral("/etc/ca.pem") },
        { QStringLiteral("color"), QStringLiteral("green") },
        { QStringLiteral("readOnly"), true },
    };
}

QJsonObject parsedObject(const QByteArray &json)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject()) {
        qWarning("not a JSON object: %s", json.constData());
    }
    return document.object();
}

} // namespace

class TestConnectionProfile final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void newProfileDefaults();
    void endpoint_data();
    void endpoint();
    void validate_data();
    void validate();
    void encodesTenKeysInOrder();
    void roundTrip_data();
    void roundTrip();
    void decodesAndIgnoresAPasswordKey();
    void decodeRejects_data();
    void decodeRejects();
    void decodesLists();
    void listFailsAsAWhole_data();
    void listFailsAsAWhole();
};

void TestConnectionProfile::newProfileDefaults()
{
    const ConnectionProfile first;
    const ConnectionProfile second;
    QCOMPARE(first.port, std::int64_t(3306));
    QVERIFY(first.tls == TLSMode::disabled);
    QCOMPARE(QByteArray::fromStdString(first.color), QByteArray("blue"));
    QVERIFY(!first.readOnly);
    QVERIFY(first.name.empty() && first.host.empty() && first.user.empty());
    QVERIFY(first.database.empty() && first.caPath.empty());
    // Each profile is its own credential-store key.
    QVERIFY(!first.id.isNull());
    QVERIFY(first.id != second.id);
}

void TestConnectionProfile::endpoint_data()
{
    QTest::addColumn<QByteArray>("host");
    QTest::addColumn<qint64>("port");
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("127.0.0.1:3306") << QByteArray("127.0.0.1") << qint64(3306) << QByteArray("127.0.0.1:3306");
    QTest::newRow("IPv6 without brackets") << QByteArray("::1") << qint64(3307) << QByteArray("::1:3307");
    QTest::newRow("host name, port 1") << QByteArray("db.example.com") << qint64(1) << QByteArray("db.example.com:1");
}

void TestConnectionProfile::endpoint()
{
    QFETCH(QByteArray, host);
    QFETCH(qint64, port);
    QFETCH(QByteArray, expected);
    ConnectionProfile profile;
    profile.host = host.toStdString();
    profile.port = port;
    QCOMPARE(QByteArray::fromStdString(profile.endpoint()), expected);
}

void TestConnectionProfile::validate_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QByteArray>("host");
    QTest::addColumn<qint64>("port");
    QTest::addColumn<QByteArray>("user");
    QTest::addColumn<QString>("message");

    const QString ok = QStringLiteral("(no error)");
    const QString nameMessage = QStringLiteral("Give this connection a name.");
    const QString hostMessage = QStringLiteral("Enter the MySQL server hostname.");
    const QString portMessage = QStringLiteral("The port must be between 1 and 65535.");
    const QString userMessage = QStringLiteral("Enter a MySQL username.");

    QTest::newRow("complete") << QByteArray("Prod") << QByteArray("db") << qint64(3306) << QByteArray("app") << ok;
    QTest::newRow("port 1") << QByteArray("Prod") << QByteArray("db") << qint64(1) << QByteArray("app") << ok;
    QTest::newRow("port 65535") << QByteArray("Prod") << QByteArray("db") << qint64(65535) << QByteArray("app") << ok;
    QTest::newRow("port 0") << QByteArray("Prod") << QByteArray("db") << qint64(0) << QByteArray("app") << portMessage;
    QTest::newRow("port 65536") << QByteArray("Prod") << QByteArray("db") << qint64(65536) << QByteArray("app")
                                << portMessage;
    QTest::newRow("port -3306") << QByteArray("Prod") << QByteArray("db") << qint64(-3306) << QByteArray("app")
                                << portMessage;
    QTest::newRow("empty name") << QByteArray("") << QByteArray("db") << qint64(3306) << QByteArray("app")
                                << nameMessage;
    QTest::newRow("name of spaces and tabs")
        << QByteArray(" \t ") << QByteArray("db") << qint64(3306) << QByteArray("app") << nameMessage;
    // Only spaces and tabs are trimmed.
    QTest::newRow("name of a line feed") << QByteArray("\n") << QByteArray("db") << qint64(3306) << QByteArray("app")
                                         << ok;
    QTest::newRow("host of spaces") << QByteArray("Prod") << QByteArray("   ") << qint64(3306) << QByteArray("app")
                                    << hostMessage;
    QTest::newRow("host of a tab") << QByteArray("Prod") << QByteArray("\t") << qint64(3306) << QByteArray("app")
                                   << hostMessage;
    QTest::newRow("host of a line feed") << QByteArray("Prod") << QByteArray("\n") << qint64(3306) << QByteArray("app")
                                         << ok;
    QTest::newRow("empty user") << QByteArray("Prod") << QByteArray("db") << qint64(3306) << QByteArray("")
                                << userMessage;
    // The user is not trimmed: blanks are accepted.
    QTest::newRow("user of blanks") << QByteArray("Prod") << QByteArray("db") << qint64(3306) << QByteArray("  ") << ok;
    QTest::newRow("empty name and host") << QByteArray("") << QByteArray("") << qint64(3306) << QByteArray("app")
                                         << nameMessage;
    QTest::newRow("everything wrong") << QByteArray(" ") << QByteArray(" ") << qint64(0) << QByteArray("")
                                      << nameMessage;
    QTest::newRow("host and port wrong") << QByteArray("Prod") << QByteArray("") << qint64(0) << QByteArray("")
                                         << hostMessage;
    QTest::newRow("port and user wrong") << QByteArray("Prod") << QByteArray("db") << qint64(70000) << QByteArray("")
                                         << portMessage;
}

void TestConnectionProfile::validate()
{
    QFETCH(QByteArray, name);
    QFETCH(QByteArray, host);
    QFETCH(qint64, port);
    QFETCH(QByteArray, user);
    QFETCH(QString, message);

    ConnectionProfile profile;
    profile.name = name.toStdString();
    profile.host = host.toStdString();
    profile.port = port;
    profile.user = user.toStdString();
    QCOMPARE(thrownMessage([&] { profile.validate(); }), message);
}

void TestConnectionProfile::encodesTenKeysInOrder()
{
    ConnectionProfile profile;
    profile.id = fixedId;
    profile.name = "Prod";
    profile.host = "db.example.com";
    profile.port = 3307;
    profile.user = "app";
    profile.database = "shop";
    profile.tls = TLSMode::verify;
    profile.caPath = "/etc/ca.pem";
    profile.color = "green";
    profile.readOnly = true;

    QCOMPARE(encodeProfile(profile),
        QByteArray(R"({"id":"6F9619FF-8B86-D011-B42D-00C04FC964FF","name":"Prod","host":"db.example.com",)"
                   R"("port":3307,"user":"app","database":"shop","tls":"Verify certificate",)"
                   R"("caPath":"/etc/ca.pem","color":"green","readOnly":true})"));
}

void TestConnectionProfile::roundTrip_data()
{
    QTest::addColumn<ConnectionProfile>("profile");

    ConnectionProfile plain = validProfile();
    QTest::newRow("new profile, TLS disabled") << plain;

    ConnectionProfile require = validProfile();
    require.tls = TLSMode::require;
    require.readOnly = true;
    require.port = 1;
    QTest::newRow("require encryption, read-only, port 1") << require;

    ConnectionProfile verify = validProfile();
    verify.tls = TLSMode::verify;
    verify.caPath = "/home/zoë/ca \"root\".pem";
    verify.name = "Größe ✓ \\ \n\t";
    verify.database = "";
    verify.color = "purple";
    verify.port = 65535;
    QTest::newRow("verify, non-ASCII, quotes and control characters") << verify;
}

void TestConnectionProfile::roundTrip()
{
    QFETCH(ConnectionProfile, profile);
    const QByteArray json = encodeProfile(profile);
    QVERIFY2(!json.contains("password"), json.constData());
    const QJsonObject object = parsedObject(json);
    QCOMPARE(object.size(), 10);
    QCOMPARE(object.value(QStringLiteral("tls")).toString(),
        QString::fromUtf8(rawValue(profile.tls).data(), static_cast<qsizetype>(rawValue(profile.tls).size())));
    QVERIFY(decodeProfile(object) == profile);
}

void TestConnectionProfile::decodesAndIgnoresAPasswordKey()
{
    QJsonObject entry = validEntry();
    entry.insert(QStringLiteral("password"), QStringLiteral("hunter2"));
    const ConnectionProfile profile = decodeProfile(entry);
    QCOMPARE(profile.id, fixedId);
    QVERIFY(profile.tls == TLSMode::verify);
    QCOMPARE(profile.port, std::int64_t(3307));
    QVERIFY(profile.readOnly);
    QVERIFY(!encodeProfile(profile).contains("hunter2"));
}

void TestConnectionProfile::decodeRejects_data()
{
    QTest::addColumn<QJsonObject>("entry");
    QTest::addColumn<QString>("key");

    const QJsonObject valid = validEntry();
    for (const QString &key : valid.keys()) {
        QJsonObject entry = valid;
        entry.remove(key);
        QTest::addRow("without %s", qPrintable(key)) << entry << key;
    }

    const auto with = [&valid](const char *key, const QJsonValue &value) {
        QJsonObject entry = valid;
        entry.insert(QString::fromLatin1(key), value);
        return entry;
    };
    QTest::newRow("port \"3306\"") << with("port", QStringLiteral("3306")) << QStringLiteral("port");
    QTest::newRow("port 3306.5") << with("port", 3306.5) << QStringLiteral("port");
    QTest::newRow("port null") << with("port", QJsonValue::Null) << QStringLiteral("port");
    QTest::newRow("readOnly 0") << with("readOnly", 0) << QStringLiteral("readOnly");
    QTest::newRow("readOnly \"true\"") << with("readOnly", QStringLiteral("true")) << QStringLiteral("readOnly");
    QTest::newRow("tls \"verify\"") << with("tls", QStringLiteral("verify")) << QStringLiteral("tls");
    QTest::newRow("tls in other case") << with("tls", QStringLiteral("verify certificate")) << QStringLiteral("tls");
    // The display name is what pickers show, never what the file stores.
    QTest::newRow("tls display name") << with("tls", QStringLiteral("Disabled — unencrypted")) << QStringLiteral("tls");
    QTest::newRow("tls 1") << with("tls", 1) << QStringLiteral("tls");
    QTest::newRow("id not a UUID") << with("id", QStringLiteral("not-a-uuid")) << QStringLiteral("id");
    QTest::newRow("id in braces") << with("id", QStringLiteral("{6F9619FF-8B86-D011-B42D-00C04FC964FF}"))
                                  << QStringLiteral("id");
    QTest::newRow("id as a number") << with("id", 42) << QStringLiteral("id");
    QTest::newRow("name null") << with("name", QJsonValue::Null) << QStringLiteral("name");
    QTest::newRow("color 3") << with("color", 3) << QStringLiteral("color");
    QTest::newRow("database false") << with("database", false) << QStringLiteral("database");
}

void TestConnectionProfile::decodeRejects()
{
    QFETCH(QJsonObject, entry);
    QFETCH(QString, key);
    const QString message = thrownMessage([&] { decodeProfile(entry); });
    QVERIFY2(message != QStringLiteral("(no error)"), qPrintable(key));
    // The user has to find the damaged value in the file.
    QVERIFY2(message.contains(QLatin1Char('"') + key + QLatin1Char('"')), qPrintable(message));
}

void TestConnectionProfile::decodesLists()
{
    QCOMPARE(encodeProfiles({}), QByteArray("[]"));
    QVERIFY(decodeProfiles("[]").empty());

    ConnectionProfile second = validProfile();
    second.tls = TLSMode::require;
    const std::vector<ConnectionProfile> profiles { validProfile(), second };
    QVERIFY(decodeProfiles(encodeProfiles(profiles)) == profiles);
}

void TestConnectionProfile::listFailsAsAWhole_data()
{
    QTest::addColumn<QByteArray>("json");

    const QByteArray good = QJsonDocument(validEntry()).toJson(QJsonDocument::Compact);
    QJsonObject damaged = validEntry();
    damaged.remove(QStringLiteral("color"));
    const QByteArray bad = QJsonDocument(damaged).toJson(QJsonDocument::Compact);

    QTest::newRow("second entry lacks color") << "[" + good + "," + bad + "]";
    QTest::newRow("entry is not an object") << "[" + good + ",42]";
    QTest::newRow("object instead of a list") << good;
    QTest::newRow("not JSON") << QByteArray("[{\"id\":");
}

void TestConnectionProfile::listFailsAsAWhole()
{
    QFETCH(QByteArray, json);
    QVERIFY_THROWS_EXCEPTION(AppError, decodeProfiles(json));
}

QTEST_GUILESS_MAIN(TestConnectionProfile)
#include "TestConnectionProfile.moc"
