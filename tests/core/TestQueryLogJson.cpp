#include "core/AppError.h"
#include "core/QueryLogJson.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>
#include <optional>
#include <string>

using namespace tallowick;

namespace
{

QDateTime at(const char *iso)
{
    const QDateTime date = QDateTime::fromString(QString::fromLatin1(iso), Qt::ISODateWithMs);
    Q_ASSERT(date.isValid());
    return date;
}

QueryLog sampleEntry()
{
    QueryLog entry;
    entry.id = QUuid::fromString(QStringLiteral("6f9619ff-8b86-d011-b42d-00c04fc964ff"));
    entry.date = at("2001-01-01T00:01:00Z");
    entry.connection = "Prod";
    entry.database = "shop";
    entry.sql = "SELECT 1";
    entry.elapsed = 0.25;
    entry.rows = 3;
    return entry;
}

QJsonObject parsedObject(const QByteArray &json)
{
    return QJsonDocument::fromJson(json).object();
}

QJsonObject validEntry()
{
    return parsedObject(encodeQueryLog(sampleEntry()));
}

} // namespace

class TestQueryLogJson final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void encodesKeysInOrderWithErrorLast();
    void dateIsSecondsSince2001_data();
    void dateIsSecondsSince2001();
    void roundTrip_data();
    void roundTrip();
    void missingOrNullErrorIsAbsent();
    void decodeRejects_data();
    void decodeRejects();
    void decodesLists();
};

void TestQueryLogJson::encodesKeysInOrderWithErrorLast()
{
    const QByteArray common = R"({"id":"6F9619FF-8B86-D011-B42D-00C04FC964FF","date":60,"connection":"Prod",)"
                              R"("database":"shop","sql":"SELECT 1","elapsed":0.25,"rows":)";
    QCOMPARE(encodeQueryLog(sampleEntry()), common + "3}");

    QueryLog entry = sampleEntry();
    entry.rows = 0;
    entry.error = "Table 'shop.x' doesn't exist";
    QCOMPARE(encodeQueryLog(entry), common + "0,\"error\":\"Table 'shop.x' doesn't exist\"}");
}

void TestQueryLogJson::dateIsSecondsSince2001_data()
{
    QTest::addColumn<QDateTime>("date");
    QTest::addColumn<double>("seconds");

    QTest::newRow("2001-01-01T00:00:00Z") << at("2001-01-01T00:00:00Z") << 0.0;
    QTest::newRow("UTC+02:00 offset") << at("2001-01-01T02:00:00+02:00") << 0.0;
    QTest::newRow("2024-05-06T07:08:09.125Z") << at("2024-05-06T07:08:09.125Z") << 736672089.125;
}

void TestQueryLogJson::dateIsSecondsSince2001()
{
    QFETCH(QDateTime, date);
    QFETCH(double, seconds);

    QCOMPARE(secondsSinceReferenceDate(date), seconds);
    QCOMPARE(dateFromReferenceSeconds(seconds).toMSecsSinceEpoch(), date.toMSecsSinceEpoch());

    QueryLog entry = sampleEntry();
    entry.date = date;
    const QJsonValue encoded = parsedObject(encodeQueryLog(entry)).value(QStringLiteral("date"));
    QVERIFY(encoded.isDouble());
    QCOMPARE(encoded.toDouble(), seconds);
}

void TestQueryLogJson::roundTrip_data()
{
    QTest::addColumn<QueryLog>("entry");

    // An empty message is still a failure; it must not turn into a success.
    QueryLog emptyError = sampleEntry();
    emptyError.error = "";
    QTest::newRow("with empty error") << emptyError;

    QueryLog text = sampleEntry();
    text.date = at("2024-05-06T07:08:09.123Z");
    text.connection = "Zoë's \"server\" ✓";
    text.database = "";
    text.sql = "SELECT 'a\\b'\r\n  FROM t;\t-- done";
    text.elapsed = 12.000001;
    QTest::newRow("non-ASCII, control characters, milliseconds") << text;

    QueryLog large = sampleEntry();
    large.rows = 9007199254740993; // 2^53 + 1: lost if rows pass through a double
    large.date = at("1999-12-31T23:59:59.999Z");
    QTest::newRow("rows beyond double precision, date before 2001") << large;
}

// QueryLog's == compares dates as instants: a shifted date fails, another zone for the same instant
// does not.
void TestQueryLogJson::roundTrip()
{
    QFETCH(QueryLog, entry);
    const QByteArray json = encodeQueryLog(entry);
    QVERIFY2(decodeQueryLog(parsedObject(json)) == entry, json.constData());
}

void TestQueryLogJson::missingOrNullErrorIsAbsent()
{
    QJsonObject withNull = validEntry();
    withNull.insert(QStringLiteral("error"), QJsonValue::Null);
    for (const QJsonObject &object : { validEntry(), withNull }) {
        const QueryLog entry = decodeQueryLog(object);
        QVERIFY(!entry.error.has_value());
        QVERIFY(!encodeQueryLog(entry).contains("\"error\""));
    }
}

void TestQueryLogJson::decodeRejects_data()
{
    QTest::addColumn<QJsonObject>("object");

    const QJsonObject valid = validEntry();
    for (const QString &key : valid.keys()) {
        QJsonObject entry = valid;
        entry.remove(key);
        QTest::addRow("without %s", qPrintable(key)) << entry;
    }

    const auto with = [&valid](const char *key, const QJsonValue &value) {
        QJsonObject entry = valid;
        entry.insert(QString::fromLatin1(key), value);
        return entry;
    };
    QTest::newRow("date as ISO text") << with("date", QStringLiteral("2024-01-01T00:00:00Z"));
    QTest::newRow("rows 1.5") << with("rows", 1.5);
    QTest::newRow("error 42") << with("error", 42);
    QTest::newRow("id lower-case without hyphens") << with("id", QStringLiteral("6f9619ff8b86d011b42d00c04fc964ff"));
}

void TestQueryLogJson::decodeRejects()
{
    QFETCH(QJsonObject, object);
    QVERIFY_THROWS_EXCEPTION(AppError, decodeQueryLog(object));
}

void TestQueryLogJson::decodesLists()
{
    QCOMPARE(encodeQueryLogs({}), QByteArray("[]"));
    QVERIFY(decodeQueryLogs("[]").empty());

    QueryLog failed = sampleEntry();
    failed.id = QUuid::createUuid();
    failed.error = "boom";
    const std::vector<QueryLog> entries { sampleEntry(), failed };
    QVERIFY(decodeQueryLogs(encodeQueryLogs(entries)) == entries);

    // One damaged entry fails the whole file rather than silently dropping history.
    QJsonObject damaged = validEntry();
    damaged.remove(QStringLiteral("sql"));
    const QByteArray json
        = "[" + encodeQueryLog(sampleEntry()) + "," + QJsonDocument(damaged).toJson(QJsonDocument::Compact) + "]";
    QVERIFY_THROWS_EXCEPTION(AppError, decodeQueryLogs(json));
}

QTEST_GUILESS_MAIN(TestQueryLogJson)
#include "TestQueryLogJson.moc"
