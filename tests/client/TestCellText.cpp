#include "client/CellText.h"

#include <QTest>
#include <string_view>
#include <tuple>

using namespace tallowick;

class TestCellText final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void repairedText_data()
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

    void repairedText()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QByteArray, expected);
        const std::string_view view(bytes.constData(), static_cast<std::size_t>(bytes.size()));
        QCOMPARE(QByteArray::fromStdString(repairedUtf8(view)), expected);
    }

    // Character set 63 is "binary"; wire types 249-255 are the blob range, 245 is JSON.
    void binaryColumns()
    {
        const std::tuple<uint, uint, bool> cases[] = { { 63, 15, true },
            { 63, 16, true },
            { 63, 248, false },
            { 63, 249, true },
            { 63, 255, true },
            { 63, 245, false },
            { 45, 252, false } };
        for (const auto &[characterSet, wireType, binary] : cases) {
            QVERIFY2(isBinaryColumn(characterSet, wireType) == binary,
                qPrintable(QStringLiteral("character set %1, type %2").arg(characterSet).arg(wireType)));
        }
    }
};

QTEST_GUILESS_MAIN(TestCellText)
#include "TestCellText.moc"
