#include "client/CellText.h"

#include <QTest>
#include <string>
#include <string_view>

using namespace tallowick;

namespace
{

std::string_view view(const QByteArray &data)
{
    return std::string_view(data.constData(), static_cast<std::size_t>(data.size()));
}

} // namespace

class TestCellText final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void repairedText_data();
    void repairedText();
    void hexDisplay();
    void binaryColumns_data();
    void binaryColumns();
};

void TestCellText::repairedText_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QByteArray>("expected");

    const QByteArray r = QByteArray("\xEF\xBF\xBD");
    QTest::newRow("valid: empty") << QByteArray() << QByteArray();
    QTest::newRow("valid: NUL inside") << QByteArray("a\0b", 3) << QByteArray("a\0b", 3);
    QTest::newRow("valid: highest code point U+10FFFF")
        << QByteArray("\xF4\x8F\xBF\xBF") << QByteArray("\xF4\x8F\xBF\xBF");
    QTest::newRow("valid: U+FFFD itself") << r << r;
    // One replacement per maximal invalid subpart: a truncated sequence is one character, while
    // bytes that can never start a valid sequence are one each.
    QTest::newRow("[E2 82] A: truncated € before a letter") << QByteArray("\xE2\x82"
                                                                          "A")
                                                            << r + "A";
    QTest::newRow("[E2 82][E2 82]: two truncated sequences") << QByteArray("\xE2\x82\xE2\x82") << r + r;
    QTest::newRow("[C0 AF]: overlong slash") << QByteArray("\xC0\xAF") << r + r;
    QTest::newRow("[E0 80 80]: overlong NUL") << QByteArray("\xE0\x80\x80") << r + r + r;
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
    QCOMPARE(QByteArray::fromStdString(repairedUtf8(view(bytes))), expected);
}

void TestCellText::hexDisplay()
{
    QCOMPARE(tallowick::hexDisplay({}), std::string("0x"));
    // Leading zeros kept, digits upper-case.
    QCOMPARE(tallowick::hexDisplay(view(QByteArray("\x0F\xF0\xAB", 3))), std::string("0x0FF0AB"));
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
