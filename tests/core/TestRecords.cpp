#include "core/ColumnInfo.h"
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
    void columnGenerated();
};

void TestRecords::tlsModes()
{
    const char *const raw[] = { "Verify certificate", "Require encryption", "Disabled (local only)" };
    QCOMPARE(allTLSModes.size(), std::size_t(3));
    for (std::size_t i = 0; i < allTLSModes.size(); ++i) {
        QCOMPARE(bytes(rawValue(allTLSModes[i])), QByteArray(raw[i]));
        QVERIFY(tlsModeFromRawValue(raw[i]) == allTLSModes[i]);
    }
    // The stored value and the picker text differ on purpose for this one mode.
    QCOMPARE(bytes(displayName(TLSMode::disabled)), QByteArray("Disabled — unencrypted"));
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
    QVERIFY(!generated("VIRTUAL"));
}

QTEST_GUILESS_MAIN(TestRecords)
#include "TestRecords.moc"
