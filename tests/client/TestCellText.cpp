#include "client/CellText.h"

#include <QTest>
#include <string>
#include <string_view>

using namespace tallowick;

namespace
{

const QByteArray replacement = QByteArray("\xEF\xBF\xBD");

std::string_view view(const QByteArray &data)
{
    return std::string_view(data.constData(), static_cast<std::size_t>(data.size()));
}

} // namespace

class TestCellText final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void validTextIsUnchanged_data();
    void validTextIsUnchanged();
    void invalidSequencesAreReplaced_data();
    void invalidSequencesAreReplaced();
    void hexDisplay_data();
    void hexDisplay();
    void binaryColumns_data();
    void binaryColumns();
};

void TestCellText::validTextIsUnchanged_data()
{
    QTest::addColumn<QByteArray>("text");

    QTest::newRow("empty") << QByteArray();
    QTest::newRow("NUL byte inside") << QByteArray("a\0b", 3);
    QTest::newRow("four-byte U+1F9F9") << QByteArray("\xF0\x9F\xA7\xB9");
    QTest::newRow("highest code point U+10FFFF") << QByteArray("\xF4\x8F\xBF\xBF");
    QTest::newRow("U+FFFD itself") << replacement;
}

void TestCellText::validTextIsUnchanged()
{
    QFETCH(QByteArray, text);
    QCOMPARE(QByteArray::fromStdString(repairedUtf8(view(text))), text);
}

void TestCellText::invalidSequencesAreReplaced_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QByteArray>("expected");

    const QByteArray r = replacement;
    // One replacement per maximal invalid subpart: a truncated sequence is one character, while
    // bytes that can never start a valid sequence are one each.
    QTest::newRow("[E2 82] A: truncated € before a letter") << QByteArray("\xE2\x82"
                                                                          "A")
                                                            << r + "A";
    QTest::newRow("[C0 AF]: overlong slash") << QByteArray("\xC0\xAF") << r + r;
    QTest::newRow("[E0 80 80]: overlong NUL") << QByteArray("\xE0\x80\x80") << r + r + r;
    QTest::newRow("[ED A0 80]: surrogate") << QByteArray("\xED\xA0\x80") << r + r + r;
    QTest::newRow("[F4 90 80 80]: above U+10FFFF") << QByteArray("\xF4\x90\x80\x80") << r + r + r + r;
    QTest::newRow("[F5]: never a lead byte") << QByteArray("a\xF5z") << "a" + r + "z";
    QTest::newRow("[F0 9F A7] A: truncated mid-text") << QByteArray("\xF0\x9F\xA7"
                                                                    "A")
                                                      << r + "A";
    QTest::newRow("[E2 82][E2 82]: two truncated sequences") << QByteArray("\xE2\x82\xE2\x82") << r + r;
    QTest::newRow("valid é after a bad byte") << QByteArray("\xFF\xC3\xA9") << r + "\xC3\xA9";
    QTest::newRow("NUL after a bad byte is kept") << QByteArray("\xC3\0", 2) << r + QByteArray(1, '\0');
}

void TestCellText::invalidSequencesAreReplaced()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QByteArray, expected);
    QCOMPARE(QByteArray::fromStdString(repairedUtf8(view(bytes))), expected);
}

void TestCellText::hexDisplay_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("empty") << QByteArray() << QByteArray("0x");
    QTest::newRow("[0F F0] keeps leading zeros") << QByteArray("\x0F\xF0") << QByteArray("0x0FF0");
    QTest::newRow("[AB CD EF] upper-case") << QByteArray("\xAB\xCD\xEF") << QByteArray("0xABCDEF");
}

void TestCellText::hexDisplay()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QByteArray, expected);
    QCOMPARE(QByteArray::fromStdString(tallowick::hexDisplay(view(bytes))), expected);
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
    QTest::newRow("63 VAR_STRING (253)") << 63u << 253u << true;
    QTest::newRow("63 GEOMETRY (255)") << 63u << 255u << true;
    QTest::newRow("63 JSON (245)") << 63u << 245u << false;
    QTest::newRow("63 LONG (3)") << 63u << 3u << false;
    QTest::newRow("utf8mb4 45 BLOB (252): TEXT") << 45u << 252u << false;
    QTest::newRow("latin1 8 STRING (254)") << 8u << 254u << false;
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
