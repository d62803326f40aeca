#include "ui/RevealablePasswordField.h"

#include <QApplication>
#include <QLineEdit>
#include <QSignalSpy>
#include <QTest>
#include <QToolButton>
#include <QVBoxLayout>

using namespace tallowick;

// One text behind two fields, and keyboard focus that follows the visible one.
class TestRevealablePasswordField final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void togglingKeepsTextAndFocus()
    {
        // Focus first in the field, then on its button, then in another field of the window.
        for (int focused = 0; focused < 3; ++focused) {
            QWidget window;
            auto *field = new RevealablePasswordField;
            auto *neighbour = new QLineEdit;
            (new QVBoxLayout(&window))->addWidget(field);
            window.layout()->addWidget(neighbour);
            window.show();
            QVERIFY(QTest::qWaitForWindowActive(&window));
            field->setText(QStringLiteral("s3cr€t"));
            QList<QWidget *> { field, field->toggleButton(), neighbour }.at(focused)->setFocus();
            for (const bool revealed : { true, false }) {
                field->toggleButton()->click();
                QLineEdit *shown = revealed ? field->plainField() : field->maskedField();
                QVERIFY(shown->isVisible() && !(revealed ? field->maskedField() : field->plainField())->isVisible());
                QCOMPARE(shown->text(), QStringLiteral("s3cr€t"));
                // A switch made from elsewhere must not steal the focus.
                QCOMPARE(QApplication::focusWidget(), focused == 2 ? neighbour : shown);
            }
            // Typing goes on in whichever field shows, as one text announced once per keystroke.
            QSignalSpy changes(field, &RevealablePasswordField::textChanged);
            QTest::keyClicks(field->maskedField(), QStringLiteral("a"));
            field->setRevealed(true);
            QTest::keyClicks(field->plainField(), QStringLiteral("b"));
            QCOMPARE(field->text(), QStringLiteral("s3cr€tab"));
            field->setText(QStringLiteral("s3cr€tab")); // the same text again: nothing to announce
            QCOMPARE(changes.count(), 2);
        }
    }
};

QTEST_MAIN(TestRevealablePasswordField)
#include "TestRevealablePasswordField.moc"
