#include "core/AppError.h"
#include "session/ServerSession.h"
#include "store/AppStore.h"
#include "support/SessionHarness.h"
#include "ui/AppIcon.h"
#include "ui/QuitPrompts.h"
#include "ui/WindowGeometry.h"

#include <QTemporaryDir>
#include <QTest>

using namespace tallowick;
using namespace tallowick::test;

// The shell's pure pieces: the first window size, the icon, and the quit prompts.
class TestShellPieces final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void windowSize_data();
    void windowSize();
    void iconIsDrawnAtFullSize();
    void unsavedTabAsksOnce();
    void busySessionAsksFirstAndCancelKeepsItRunning();

private:
    struct StoreFixture {
        SessionHarness harness;
        QTemporaryDir folder;
        AppStore store { folder.path().toStdString(), harness.keychain, harness.prompts };
    };
};

void TestShellPieces::windowSize_data()
{
    QTest::addColumn<bool>("hasScreen");
    QTest::addColumn<QSize>("available");
    QTest::addColumn<QSize>("expected");
    QTest::newRow("1280 x 800") << true << QSize(1280, 800) << QSize(1203, 720);
    QTest::newRow("2560 x 1440 hits both caps") << true << QSize(2560, 1440) << QSize(1460, 940);
    QTest::newRow("no screen") << false << QSize() << QSize(1354, 810);
}

void TestShellPieces::windowSize()
{
    QFETCH(bool, hasScreen);
    QFETCH(QSize, available);
    QFETCH(QSize, expected);
    const std::optional<QRect> screen = hasScreen ? std::optional<QRect>(QRect(QPoint(0, 0), available)) : std::nullopt;
    QCOMPARE(initialWindowSize(screen), expected);
}

// The file written by --make-icon is checked by the make_icon test; this checks the drawing.
void TestShellPieces::iconIsDrawnAtFullSize()
{
    const QImage icon = drawAppIcon();
    QCOMPARE(icon.size(), QSize(1024, 1024));
    // Rounded corners stay transparent; the tile is very dark blue; a row stroke is teal.
    QCOMPARE(qAlpha(icon.pixel(2, 2)), 0);
    const QColor tile = icon.pixelColor(120, 900);
    QVERIFY(tile.blue() > tile.red() && tile.lightness() < 50);
    const QColor stroke = icon.pixelColor(512, 290);
    QVERIFY2(stroke.green() > 180 && stroke.red() < 140, qPrintable(stroke.name()));
    QVERIFY_THROWS_EXCEPTION(AppError, createAppIcon("/nonexistent-folder/for/icon.png"));
}

void TestShellPieces::unsavedTabAsksOnce()
{
    StoreFixture fixture;
    ServerSession *session = fixture.store.session(fixture.harness.profile());
    QVERIFY(confirmQuit(fixture.store, fixture.harness.prompts)); // nothing at stake: no question
    QVERIFY(fixture.harness.prompts.asked.empty());

    session->setTabSQL(session->activeTab(), "SELECT 'edited'");
    QVERIFY(!confirmQuit(fixture.store, fixture.harness.prompts));
    QCOMPARE(fixture.harness.prompts.asked.size(), std::size_t(1));
    QCOMPARE(fixture.harness.prompts.asked[0].text, std::string("Quit with unsaved query tabs?"));
    fixture.harness.prompts.confirmations = { true };
    QVERIFY(confirmQuit(fixture.store, fixture.harness.prompts));
}

void TestShellPieces::busySessionAsksFirstAndCancelKeepsItRunning()
{
    StoreFixture fixture;
    ServerSession *session = fixture.store.session(fixture.harness.profile());
    QVERIFY(connectAndSettle(*session));
    session->setTabSQL(session->activeTab(), "SELECT SLEEP(2)");
    session->run();
    QVERIFY(session->busy());

    // Cancelling the first question asks nothing more and leaves the query running.
    fixture.harness.prompts.confirmations = { false };
    QVERIFY(!confirmQuit(fixture.store, fixture.harness.prompts));
    QCOMPARE(fixture.harness.prompts.asked.size(), std::size_t(1));
    QCOMPARE(fixture.harness.prompts.asked[0].text, std::string("Quit while a query is running?"));
    QVERIFY(session->busy());

    // Busy and unsaved: two questions, in that order.
    fixture.harness.prompts.asked.clear();
    fixture.harness.prompts.confirmations = { true, true };
    QVERIFY(confirmQuit(fixture.store, fixture.harness.prompts));
    QCOMPARE(fixture.harness.prompts.asked.size(), std::size_t(2));
    QCOMPARE(fixture.harness.prompts.asked[0].text, std::string("Quit while a query is running?"));
    QCOMPARE(fixture.harness.prompts.asked[1].text, std::string("Quit with unsaved query tabs?"));
    QVERIFY(settle(*session));
    QVERIFY(!session->error());
}

QTEST_MAIN(TestShellPieces)
#include "TestShellPieces.moc"
