#include "client/CellText.h"

#include <QTest>
#include <string>
#include <string_view>

using namespace tallowick;

class TestCellText final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void repairedText_data();
    void repairedText();
    void binaryColumns_data();
    void binaryColumns();
};

void TestCellText::repairedText_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QByteArray>("expected");

    const QByteArray r = QByteArray("\xEF\xBF\xBD");
    QTest::newRow("valid: NUL inside") << QByteArray("a\0b", 3) << QByteArray("a\0b", 3);
    QTest::newRow("valid: U+10FFFF") << QByteArray("\xF4\x8F\xBF\xBF") << QByteArray("\xF4\x8F\xBF\xBF");
    // One replacement per maximal invalid subpart: a truncated sequence is one character, while
    // bytes that can never start a valid sequence are one each.
    QTest::newRow("[E2 82] A: truncated euro sign") << QByteArray("\xE2\x82\x41") << r + "A";
    QTest::newRow("[E2 82][E2 82]: two truncated sequences") << QByteArray("\xE2\x82\xE2\x82") << r + r;
    QTest::newRow("[C0 AF]: overlong slash") << QByteArray("\xC0\xAF") << r + r;
    QTest::newRow("[ED A0 80]: surrogate") << QByteArray("\xED\xA0\x80") << r + r + r;
    QTest::newRow("[F4 90 80 80]: above U+10FFFF") << QByteArray("\xF4\x90\x80\x80") << r + r + r + r;
    QTest::newRow("[F5]: never a lead byte") << QByteArray("a\xF5z") << "a" + r + "z";
    QTest::newRow("valid é after a bad byte") << QByteArray("\xFF\xC3\xA9") << r + "\xC3\xA9";
    QTest::newRow("NUL after a bad byte is kept") << QByteArray("\xC3\0", 2) << r + QByteArray(1, '\0');
}

void TestCellText::repairedText()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QByteArray, expected);
    const std::string_view view(bytes.constData(), static_cast<std::size_t>(bytes.size()));
    QCOMPARE(QByteArray::fromStdString(repairedUtf8(view)), expected);
}

void TestCellText::binaryColumns_data()
{
    QTest::addColumn<uint>("characterSet");
    QTest::addColumn<uint>("wireType");
    QTest::addColumn<bool>("binary");

    QTest::newRow("63 VARCHAR (15)") << 63u << 15u << true;
    QTest::newRow("63 BIT (16)") << 63u << 16u << true;
    QTest::newRow("63 type 248 (just below the blob range)") << 63u << 248u << false;
    QTest::newRow("63 TINY_BLOB (249)") << 63u << 249u << true;
    QTest::newRow("63 GEOMETRY (255)") << 63u << 255u << true;
    QTest::newRow("63 JSON (245)") << 63u << 245u << false;
    QTest::newRow("utf8mb4 45 BLOB (252): TEXT") << 45u << 252u << false;
}

void TestCellText::binaryColumns()
{
    QFETCH(uint, characterSet);
    QFETCH(uint, wireType);
    QFETCH(bool, binary);
    QCOMPARE(isBinaryColumn(characterSet, wireType), binary);
}

QTEST_GUILESS_MAIN(TestCellText)
#include "TestCellText.moc"
