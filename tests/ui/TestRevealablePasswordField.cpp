#include "ui/RevealablePasswordField.h"

#include <QApplication>
#include <QLineEdit>
#include <QSignalSpy>
#include <QTest>
#include <QToolButton>
#include <QVBoxLayout>

using namespace tallowick;

// The password entry of the connection sheet: one text behind two fields, and focus that
// follows the visible one.
class TestRevealablePasswordField final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void togglingKeepsTextAndFocus_data();
    void togglingKeepsTextAndFocus();
    void typingAfterRevealContinuesTheSameText();

private:
    std::unique_ptr<QWidget> m_window;
    RevealablePasswordField *m_field = nullptr;
    QLineEdit *m_neighbour = nullptr;
};

void TestRevealablePasswordField::init()
{
    m_window = std::make_unique<QWidget>();
    auto *layout = new QVBoxLayout(m_window.get());
    m_field = new RevealablePasswordField;
    m_neighbour = new QLineEdit;
    layout->addWidget(m_field);
    layout->addWidget(m_neighbour);
    m_window->show();
    QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
}

void TestRevealablePasswordField::cleanup()
{
    m_window.reset();
}

void TestRevealablePasswordField::togglingKeepsTextAndFocus_data()
{
    QTest::addColumn<bool>("startRevealed");
    QTest::addColumn<QString>("focusBefore"); // "field", "toggle" or "neighbour"
    QTest::addColumn<bool>("byButton");

    QTest::newRow("reveal while typing") << false << "field" << false;
    QTest::newRow("reveal from the keyboard-focused button") << false << "toggle" << true;
    QTest::newRow("hide by clicking the button") << true << "field" << true;
    QTest::newRow("reveal while another field has focus") << false << "neighbour" << false;
}

void TestRevealablePasswordField::togglingKeepsTextAndFocus()
{
    QFETCH(bool, startRevealed);
    QFETCH(QString, focusBefore);
    QFETCH(bool, byButton);

    m_field->setRevealed(startRevealed);
    m_field->setText(QStringLiteral("s3cr€t pass"));
    QWidget *focusTarget = m_field;
    if (focusBefore == QLatin1String("neighbour")) {
        focusTarget = m_neighbour;
    } else if (focusBefore == QLatin1String("toggle")) {
        focusTarget = m_field->toggleButton();
    }
    focusTarget->setFocus();
    QVERIFY(focusTarget->hasFocus());

    if (byButton) {
        m_field->toggleButton()->click();
    } else {
        m_field->setRevealed(!startRevealed);
    }

    const bool revealed = !startRevealed;
    QCOMPARE(m_field->isRevealed(), revealed);
    QCOMPARE(m_field->text(), QStringLiteral("s3cr€t pass"));
    QLineEdit *visible = revealed ? m_field->plainField() : m_field->maskedField();
    QLineEdit *hidden = revealed ? m_field->maskedField() : m_field->plainField();
    QVERIFY(visible->isVisible());
    QVERIFY(!hidden->isVisible());
    QCOMPARE(visible->text(), QStringLiteral("s3cr€t pass"));
    QCOMPARE(
        m_field->toggleButton()->text(), revealed ? QStringLiteral("Hide password") : QStringLiteral("Show password"));
    QCOMPARE(m_field->toggleButton()->accessibleDescription(),
        revealed ? QStringLiteral("Visible") : QStringLiteral("Hidden"));
    if (focusBefore == QLatin1String("neighbour")) {
        QVERIFY(m_neighbour->hasFocus()); // a toggle from elsewhere must not steal focus
    } else {
        QVERIFY(visible->hasFocus());
    }
}

void TestRevealablePasswordField::typingAfterRevealContinuesTheSameText()
{
    m_field->setFocus();
    QSignalSpy changes(m_field, &RevealablePasswordField::textChanged);
    QTest::keyClicks(QApplication::focusWidget(), QStringLiteral("abc"));
    m_field->setRevealed(true);
    QTest::keyClicks(QApplication::focusWidget(), QStringLiteral("def"));
    m_field->setRevealed(false);
    QTest::keyClicks(QApplication::focusWidget(), QStringLiteral("g"));
    QCOMPARE(m_field->text(), QStringLiteral("abcdefg"));
    QCOMPARE(m_field->plainField()->text(), QStringLiteral("abcdefg"));
    QCOMPARE(m_neighbour->text(), QString());
    // One announcement per keystroke in either field, none for the switches or a same-text set.
    m_field->setText(QStringLiteral("abcdefg"));
    QCOMPARE(changes.count(), 7);
    QCOMPARE(changes.at(3).at(0).toString(), QStringLiteral("abcd"));
}

QTEST_MAIN(TestRevealablePasswordField)
#include "TestRevealablePasswordField.moc"
