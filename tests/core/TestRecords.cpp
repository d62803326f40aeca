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
    void tlsModes();
    void fieldEditable();
    void columnGenerated();
};

void TestRecords::tlsModes()
{
    const char *const raw[] = { "Verify certificate", "Require encryption", "Disabled (local only)" };
    QCOMPARE(allTLSModes.size(), std::size_t(3));
    QVERIFY(allTLSModes[0] == TLSMode::verify);
    QVERIFY(allTLSModes[1] == TLSMode::require);
    QVERIFY(allTLSModes[2] == TLSMode::disabled);
    for (std::size_t i = 0; i < allTLSModes.size(); ++i) {
        QCOMPARE(bytes(rawValue(allTLSModes[i])), QByteArray(raw[i]));
        QVERIFY(tlsModeFromRawValue(raw[i]) == allTLSModes[i]);
    }
    QCOMPARE(bytes(displayName(TLSMode::verify)), QByteArray("Verify certificate"));
    QCOMPARE(bytes(displayName(TLSMode::require)), QByteArray("Require encryption"));
    // The stored value and the picker text differ on purpose for this one mode.
    QCOMPARE(bytes(displayName(TLSMode::disabled)), QByteArray("Disabled — unencrypted"));
}

void TestRecords::fieldEditable()
{
    const auto editable = [](const char *table, const char *originalName, bool binary) {
        Field field;
        field.name = "label";
        field.table = table;
        field.originalName = originalName;
        field.binary = binary;
        return field.editable();
    };
    QVERIFY(editable("orders", "total", false));
    QVERIFY(!editable("", "total", false)); // computed: no table
    QVERIFY(!editable("orders", "", false)); // computed: no original name
    QVERIFY(!editable("orders", "photo", true));
}

// An expression default (DEFAULT_GENERATED) leaves the column editable; only virtual and stored
// generated columns are computed, in whatever case the server writes them.
void TestRecords::columnGenerated()
{
    const auto generated = [](const char *extra) {
        ColumnInfo column;
        column.name = "created";
        column.type = "timestamp";
        column.defaultValue = "CURRENT_TIMESTAMP";
        column.extra = extra;
        return column.generated();
    };
    QVERIFY(!generated("DEFAULT_GENERATED on update CURRENT_TIMESTAMP"));
    QVERIFY(generated("virtual generated"));
    QVERIFY(generated("INVISIBLE Stored Generated"));
    QVERIFY(!generated("GENERATED"));
    QVERIFY(!generated("VIRTUAL"));
}

QTEST_GUILESS_MAIN(TestRecords)
#include "TestRecords.moc"
