#include "core/ColumnInfo.h"
#include "core/Field.h"
#include "core/TLSMode.h"

#include <QTest>
#include <string_view>

using namespace tallowick;

namespace
{

QByteArray bytes(std::string_view text)
{
    return QByteArray(text.data(), static_cast<qsizetype>(text.size()));
}

} // namespace

class TestRecords final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void tlsModes_data();
    void tlsModes();
    void tlsModeFromOtherText_data();
    void tlsModeFromOtherText();
    void fieldEditable_data();
    void fieldEditable();
    void columnGenerated_data();
    void columnGenerated();
};

void TestRecords::tlsModes_data()
{
    QTest::addColumn<int>("position");
    QTest::addColumn<TLSMode>("mode");
    QTest::addColumn<QByteArray>("raw");
    QTest::addColumn<QByteArray>("display");

    QTest::newRow("verify") << 0 << TLSMode::verify << QByteArray("Verify certificate")
                            << QByteArray("Verify certificate");
    QTest::newRow("require") << 1 << TLSMode::require << QByteArray("Require encryption")
                             << QByteArray("Require encryption");
    // The stored value and the picker text differ on purpose for this one mode.
    QTest::newRow("disabled") << 2 << TLSMode::disabled << QByteArray("Disabled (local only)")
                              << QByteArray("Disabled — unencrypted");
}

void TestRecords::tlsModes()
{
    QFETCH(int, position);
    QFETCH(TLSMode, mode);
    QFETCH(QByteArray, raw);
    QFETCH(QByteArray, display);

    QCOMPARE(allTLSModes.size(), std::size_t(3));
    QVERIFY(allTLSModes[static_cast<std::size_t>(position)] == mode);
    QCOMPARE(bytes(rawValue(mode)), raw);
    QCOMPARE(bytes(displayName(mode)), display);
    const std::optional<TLSMode> parsed = tlsModeFromRawValue(raw.toStdString());
    QVERIFY(parsed.has_value());
    QVERIFY(*parsed == mode);
}

void TestRecords::tlsModeFromOtherText_data()
{
    QTest::addColumn<QByteArray>("text");

    QTest::newRow("display name of disabled") << QByteArray("Disabled — unencrypted");
    QTest::newRow("other case") << QByteArray("verify certificate");
    QTest::newRow("case name") << QByteArray("require");
    QTest::newRow("leading blank") << QByteArray(" Verify certificate");
    QTest::newRow("empty") << QByteArray();
}

void TestRecords::tlsModeFromOtherText()
{
    QFETCH(QByteArray, text);
    QVERIFY(!tlsModeFromRawValue(text.toStdString()).has_value());
}

void TestRecords::fieldEditable_data()
{
    QTest::addColumn<QByteArray>("table");
    QTest::addColumn<QByteArray>("originalName");
    QTest::addColumn<bool>("binary");
    QTest::addColumn<bool>("editable");

    QTest::newRow("table column") << QByteArray("orders") << QByteArray("total") << false << true;
    QTest::newRow("computed (no table)") << QByteArray() << QByteArray("total") << false << false;
    QTest::newRow("no original name") << QByteArray("orders") << QByteArray() << false << false;
    QTest::newRow("binary") << QByteArray("orders") << QByteArray("photo") << true << false;
}

void TestRecords::fieldEditable()
{
    QFETCH(QByteArray, table);
    QFETCH(QByteArray, originalName);
    QFETCH(bool, binary);
    QFETCH(bool, editable);

    Field field;
    field.name = "label";
    field.table = table.toStdString();
    field.originalName = originalName.toStdString();
    field.binary = binary;
    QCOMPARE(field.editable(), editable);
}

void TestRecords::columnGenerated_data()
{
    QTest::addColumn<QByteArray>("extra");
    QTest::addColumn<bool>("generated");

    QTest::newRow("no extra") << QByteArray() << false;
    QTest::newRow("auto_increment") << QByteArray("auto_increment") << false;
    QTest::newRow("DEFAULT_GENERATED") << QByteArray("DEFAULT_GENERATED") << false;
    QTest::newRow("DEFAULT_GENERATED on update CURRENT_TIMESTAMP")
        << QByteArray("DEFAULT_GENERATED on update CURRENT_TIMESTAMP") << false;
    QTest::newRow("VIRTUAL GENERATED") << QByteArray("VIRTUAL GENERATED") << true;
    QTest::newRow("virtual generated") << QByteArray("virtual generated") << true;
    QTest::newRow("Stored Generated") << QByteArray("Stored Generated") << true;
    QTest::newRow("STORED GENERATED among others") << QByteArray("INVISIBLE STORED GENERATED") << true;
    QTest::newRow("GENERATED alone") << QByteArray("GENERATED") << false;
    QTest::newRow("VIRTUAL alone") << QByteArray("VIRTUAL") << false;
}

void TestRecords::columnGenerated()
{
    QFETCH(QByteArray, extra);
    QFETCH(bool, generated);

    ColumnInfo column;
    column.name = "created";
    column.type = "timestamp";
    column.defaultValue = "CURRENT_TIMESTAMP";
    column.extra = extra.toStdString();
    QCOMPARE(column.generated(), generated);
}

QTEST_GUILESS_MAIN(TestRecords)
#include "TestRecords.moc"
