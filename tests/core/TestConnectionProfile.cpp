#include "core/AppError.h"
#include "core/ConnectionProfile.h"
#include "core/ConnectionProfileJson.h"
#include "support/Checks.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>
#include <string>

using namespace tallowick;
using namespace tallowick::test;

namespace
{

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
    ConnectionProfile result = makeProfile("Prod", "db.example.com", 3307, "app");
    result.id = QUuid::fromString(QStringLiteral("6f9619ff-8b86-d011-b42d-00c04fc964ff"));
    result.database = "shop";
    result.tls = TLSMode::verify;
    result.caPath = "/etc/ca.pem";
    result.color = "green";
    result.readOnly = true;
    return result;
}

QJsonObject sampleEntry()
{
    return QJsonDocument::fromJson(encodeProfile(sampleProfile())).object();
}

} // namespace

class TestConnectionProfile final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void newProfileDefaults();
    void validate_data();
    void validate();
    void encodesTenKeysInOrder();
    void roundTrip_data();
    void roundTrip();
    void decodesAndIgnoresAPasswordKey();
    void decodeRejects_data();
    void decodeRejects();
    void decodesLists();
};

void TestConnectionProfile::newProfileDefaults()
{
    // Each profile is its own credential-store key.
    const ConnectionProfile first;
    QVERIFY(!first.id.isNull() && first.id != ConnectionProfile().id);
    QVERIFY(first.tls == TLSMode::disabled);
    // No brackets are added around an IPv6 literal.
    QCOMPARE(QByteArray::fromStdString(makeProfile("", "::1", 3307, "").endpoint()), QByteArray("::1:3307"));
}

void TestConnectionProfile::validate_data()
{
    QTest::addColumn<ConnectionProfile>("profile");
    QTest::addColumn<QString>("message");

    const QString ok = QStringLiteral("(no error)");
    const QString nameMessage = QStringLiteral("Give this connection a name.");
    const QString hostMessage = QStringLiteral("Enter the MySQL server hostname.");
    const QString portMessage = QStringLiteral("The port must be between 1 and 65535.");
    const QString userMessage = QStringLiteral("Enter a MySQL username.");

    QTest::newRow("port 1") << makeProfile("Prod", "db", 1, "app") << ok;
    QTest::newRow("port 65535") << makeProfile("Prod", "db", 65535, "app") << ok;
    QTest::newRow("port 0") << makeProfile("Prod", "db", 0, "app") << portMessage;
    QTest::newRow("port 65536") << makeProfile("Prod", "db", 65536, "app") << portMessage;
    QTest::newRow("port -3306") << makeProfile("Prod", "db", -3306, "app") << portMessage;
    QTest::newRow("name of spaces and tabs") << makeProfile(" \t ", "db", 3306, "app") << nameMessage;
    // Only spaces and tabs are trimmed.
    QTest::newRow("name of a line feed") << makeProfile("\n", "db", 3306, "app") << ok;
    QTest::newRow("host of spaces and a tab") << makeProfile("Prod", "  \t", 3306, "app") << hostMessage;
    QTest::newRow("empty user") << makeProfile("Prod", "db", 3306, "") << userMessage;
    // The user is not trimmed: blanks are accepted.
    QTest::newRow("user of blanks") << makeProfile("Prod", "db", 3306, "  ") << ok;
    // The first problem in the order name, host, port, user is the one reported.
    QTest::newRow("everything wrong") << makeProfile(" ", " ", 0, "") << nameMessage;
    QTest::newRow("port and user wrong") << makeProfile("Prod", "db", 70000, "") << portMessage;
}

void TestConnectionProfile::validate()
{
    QFETCH(ConnectionProfile, profile);
    QFETCH(QString, message);
    QCOMPARE(errorFrom([&] { profile.validate(); }), message);
}

void TestConnectionProfile::encodesTenKeysInOrder()
{
    QCOMPARE(encodeProfile(sampleProfile()),
        QByteArray(R"({"id":"6F9619FF-8B86-D011-B42D-00C04FC964FF","name":"Prod","host":"db.example.com",)"
                   R"("port":3307,"user":"app","database":"shop","tls":"Verify certificate",)"
                   R"("caPath":"/etc/ca.pem","color":"green","readOnly":true})"));
}

void TestConnectionProfile::roundTrip_data()
{
    QTest::addColumn<ConnectionProfile>("profile");

    QTest::newRow("new profile, TLS disabled") << makeProfile("Production", "db.example.com", 3306, "app");

    ConnectionProfile text = sampleProfile();
    text.name = "Größe ✓ \\ \n\t";
    text.caPath = "/home/zoë/ca \"root\".pem";
    text.database = "";
    text.port = 65535;
    QTest::newRow("non-ASCII, quotes and control characters") << text;
}

void TestConnectionProfile::roundTrip()
{
    QFETCH(ConnectionProfile, profile);
    const QByteArray json = encodeProfile(profile);
    QVERIFY2(!json.contains("password"), json.constData());
    const QJsonObject object = QJsonDocument::fromJson(json).object();
    QCOMPARE(object.size(), 10);
    QCOMPARE(object.value(QStringLiteral("tls")).toString(),
        QString::fromUtf8(rawValue(profile.tls).data(), static_cast<qsizetype>(rawValue(profile.tls).size())));
    QVERIFY(decodeProfile(object) == profile);
}

void TestConnectionProfile::decodesAndIgnoresAPasswordKey()
{
    QJsonObject entry = sampleEntry();
    entry.insert(QStringLiteral("password"), QStringLiteral("hunter2"));
    QVERIFY(decodeProfile(entry) == sampleProfile());
}

void TestConnectionProfile::decodeRejects_data()
{
    QTest::addColumn<QJsonObject>("entry");
    QTest::addColumn<QString>("key");

    const QJsonObject valid = sampleEntry();
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
    QTest::newRow("readOnly 0") << with("readOnly", 0) << QStringLiteral("readOnly");
    QTest::newRow("tls \"verify\"") << with("tls", QStringLiteral("verify")) << QStringLiteral("tls");
    // The display name is what pickers show, never what the file stores.
    QTest::newRow("tls display name") << with("tls", QStringLiteral("Disabled — unencrypted")) << QStringLiteral("tls");
    QTest::newRow("id in braces") << with("id", QStringLiteral("{6F9619FF-8B86-D011-B42D-00C04FC964FF}"))
                                  << QStringLiteral("id");
    QTest::newRow("name null") << with("name", QJsonValue::Null) << QStringLiteral("name");
}

void TestConnectionProfile::decodeRejects()
{
    QFETCH(QJsonObject, entry);
    QFETCH(QString, key);
    const QString message = errorFrom([&] { decodeProfile(entry); });
    QVERIFY2(message != QStringLiteral("(no error)"), qPrintable(key));
    // The user has to find the damaged value in the file.
    QVERIFY2(message.contains(QLatin1Char('"') + key + QLatin1Char('"')), qPrintable(message));
}

// A list that cannot be read fails as a whole rather than silently dropping profiles.
void TestConnectionProfile::decodesLists()
{
    QCOMPARE(encodeProfiles({}), QByteArray("[]"));
    QVERIFY(decodeProfiles("[]").empty());
    const std::vector<ConnectionProfile> profiles { sampleProfile(), makeProfile("Staging", "db", 3306, "app") };
    QVERIFY(decodeProfiles(encodeProfiles(profiles)) == profiles);

    const QByteArray good = QJsonDocument(sampleEntry()).toJson(QJsonDocument::Compact);
    QVERIFY_THROWS_EXCEPTION(AppError, decodeProfiles("[" + good + ",42]"));
    QVERIFY_THROWS_EXCEPTION(AppError, decodeProfiles(good)); // an object, not a list
    QVERIFY_THROWS_EXCEPTION(AppError, decodeProfiles("[{\"id\":"));
}

QTEST_GUILESS_MAIN(TestConnectionProfile)
#include "TestConnectionProfile.moc"
