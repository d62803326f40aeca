#include "ui/SQLEditor.h"

#include <QAbstractItemView>
#include <QClipboard>
#include <QCompleter>
#include <QGuiApplication>
#include <QSignalSpy>
#include <QTest>
#include <QTextBlock>
#include <QTextLayout>

using namespace tallowick;

namespace
{

void select(SQLEditor &editor, int from, int to)
{
    QTextCursor cursor = editor.textCursor();
    cursor.setPosition(from);
    cursor.setPosition(to, QTextCursor::KeepAnchor);
    editor.setTextCursor(cursor);
}

} // namespace

class TestSQLEditor final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void runAndTabKeys();
    void completions();
    void refreshWithTheSameTextKeepsTheCursor();
    void typingReportsTheWholeText();
    void readOnlyPreviewSelectsAndCopiesButTakesNoTyping();
    void largeScriptEditsReachTheHostOnceTypingPauses();
};

// Ctrl+Return asks to run the selection as the document holds it, or with none the whole script
// (no text); keypad Enter runs nothing. Tab puts four spaces in place of the selection.
void TestSQLEditor::runAndTabKeys()
{
    const QString script = QStringLiteral("SELECT 1;\nSELECT 2");
    SQLEditor editor;
    editor.setSQL(script);
    QSignalSpy runs(&editor, &SQLEditor::runRequested);
    const auto press = [&editor](int from, int to, Qt::Key key, Qt::KeyboardModifiers modifiers) {
        select(editor, from, to);
        QTest::keyClick(&editor, key, modifiers);
    };
    press(4, 4, Qt::Key_Return, Qt::ControlModifier);
    press(0, 8, Qt::Key_Return, Qt::ControlModifier);
    press(0, 18, Qt::Key_Return, Qt::ControlModifier);
    press(0, 8, Qt::Key_Enter, Qt::ControlModifier | Qt::KeypadModifier);
    QCOMPARE(runs.size(), 3);
    QCOMPARE(runs[0][0].value<std::optional<QString>>(), std::nullopt);
    QCOMPARE(runs[1][0].value<std::optional<QString>>(), QStringLiteral("SELECT 1"));
    QCOMPARE(runs[2][0].value<std::optional<QString>>(), script);
    QCOMPARE(editor.sql(), script); // the keys are consumed
    press(1, 4, Qt::Key_Tab, {});
    press(5, 5, Qt::Key_Backtab, Qt::ShiftModifier); // inserts nothing
    QCOMPARE(editor.sql(), QStringLiteral("S    CT 1;\nSELECT 2"));
    QCOMPARE(editor.textCursor().position(), 5);
}

// The fixed phrases and the host's words that start with the typed part in any case, duplicates
// kept, ordered by code point (upper case first, and a letter beyond U+FFFF after U+FFxx). Ctrl+Space
// offers them for the word before the cursor, and the chosen one replaces that part.
void TestSQLEditor::completions()
{
    const auto complete = [](const char *hostWords, const char *partialWord) {
        SQLEditor editor;
        editor.setCompletionWords(QString::fromUtf8(hostWords).split(u',', Qt::SkipEmptyParts));
        return editor.completionsFor(QString::fromUtf8(partialWord)).join(u',');
    };
    QCOMPARE(complete("sales,Selected_at,SELLER", "sel"), QStringLiteral("SELECT,SELLER,Selected_at"));
    QCOMPARE(complete("FROM,from", "fr"), QStringLiteral("FROM,FROM,from"));
    QCOMPARE(complete("count_all,COUNTRY", "cou"), QStringLiteral("COUNT(*),COUNTRY,count_all"));
    QCOMPARE(complete("", "In"), QStringLiteral("INNER JOIN,INSERT INTO"));
    QCOMPARE(complete("x\U0001D400,x\uFF21", "X"), QStringLiteral("x\uFF21,x\U0001D400"));

    SQLEditor editor;
    editor.setCompletionWords({ QStringLiteral("film"), QStringLiteral("FILM_ACTOR") });
    editor.setSQL(QStringLiteral("SELECT * FROM fi WHERE 1"));
    editor.show();
    QVERIFY(QTest::qWaitForWindowExposed(&editor));
    select(editor, 16, 16);
    QTest::keyClick(&editor, Qt::Key_Space, Qt::ControlModifier);
    QAbstractItemView *popup = editor.findChild<QCompleter *>()->popup();
    QVERIFY(popup->isVisible());
    popup->setCurrentIndex(popup->model()->index(1, 0));
    QTest::keyClick(popup, Qt::Key_Return);
    QCOMPARE(editor.sql(), QStringLiteral("SELECT * FROM film WHERE 1"));
    QCOMPARE(editor.textCursor().position(), 18);
}

// The host echoes every edit back, and may hold CR LF line breaks where the document has one "\n":
// the same text again must keep the cursor and the undo history.
void TestSQLEditor::refreshWithTheSameTextKeepsTheCursor()
{
    for (const QString &text : { QStringLiteral("SELECT 1;\nSELECT 2"), QStringLiteral("SELECT 1;\r\nSELECT 2") }) {
        SQLEditor editor;
        editor.setSQL(text);
        select(editor, 6, 6);
        QTest::keyClicks(&editor, QStringLiteral(" "));
        QSignalSpy edits(&editor, &SQLEditor::sqlEdited);
        for (const QString &echo : { editor.sql(), QString(text).insert(6, u' ') }) {
            editor.setSQL(echo);
            QCOMPARE(editor.textCursor().position(), 7);
            QVERIFY(editor.document()->isUndoAvailable());
        }
        // Other text replaces everything, with no undo history and no echo back to the host.
        editor.setSQL(QStringLiteral("SHOW TABLES"));
        QCOMPARE(editor.sql(), QStringLiteral("SHOW TABLES"));
        QVERIFY(!editor.document()->isUndoAvailable());
        QCOMPARE(edits.size(), 0);
    }
}

// Each keystroke reports the whole text, and only keystrokes do: a closing quote turns the first
// line into a string, and the highlighter's going back to colour it again is no edit of the user's.
void TestSQLEditor::typingReportsTheWholeText()
{
    for (const auto &[text, typed] : { std::pair { "SELECT ", "12" }, std::pair { "'a\nb\nc", "'" } }) {
        SQLEditor editor;
        editor.setSQL(QString::fromUtf8(text));
        editor.moveCursor(QTextCursor::End);
        QSignalSpy edits(&editor, &SQLEditor::sqlEdited);
        QTest::keyClicks(&editor, QString::fromUtf8(typed));
        QCOMPARE(edits.size(), qsizetype(strlen(typed)));
        QCOMPARE(edits.last().at(0).toString(), QString::fromUtf8(text) + QString::fromUtf8(typed));
        QVERIFY(!editor.document()->firstBlock().layout()->formats().isEmpty()); // the first line is coloured
    }
}

void TestSQLEditor::readOnlyPreviewSelectsAndCopiesButTakesNoTyping()
{
    SQLEditor editor(true);
    editor.setSQL(QStringLiteral("SELECT 1"));
    QSignalSpy edits(&editor, &SQLEditor::sqlEdited);
    select(editor, 8, 8);
    for (const Qt::Key key : { Qt::Key_X, Qt::Key_Backspace, Qt::Key_Tab }) {
        QTest::keyClick(&editor, key);
    }
    QCOMPARE(editor.sql(), QStringLiteral("SELECT 1"));
    QCOMPARE(edits.size(), 0);
    QGuiApplication::clipboard()->clear();
    QTest::keySequence(&editor, QKeySequence::SelectAll);
    QTest::keySequence(&editor, QKeySequence::Copy);
    QCOMPARE(QGuiApplication::clipboard()->text(), QStringLiteral("SELECT 1"));
}

void TestSQLEditor::largeScriptEditsReachTheHostOnceTypingPauses()
{
    SQLEditor editor;
    editor.setSQL(QStringLiteral("SELECT 1;\n").repeated(SQLEditor::largeTextCharacters / 10 + 1));
    QSignalSpy edits(&editor, &SQLEditor::sqlEdited);
    QSignalSpy runs(&editor, &SQLEditor::runRequested);
    editor.moveCursor(QTextCursor::End);
    QTest::keyClicks(&editor, "abc");
    QCOMPARE(edits.count(), 0); // held back while typing goes on
    QVERIFY(editor.hasPendingEdit());
    // Running hands the text over first, so the run sees what is on screen.
    QTest::keyClick(&editor, Qt::Key_Return, Qt::ControlModifier);
    QCOMPARE(edits.count(), 1);
    QCOMPARE(runs.count(), 1);
    QVERIFY(edits.at(0).at(0).toString().endsWith(QStringLiteral("abc")));
    // A pause in typing hands it over by itself, once.
    QTest::keyClicks(&editor, "d");
    QVERIFY(edits.wait(2000));
    QCOMPARE(edits.count(), 2);
}

QTEST_MAIN(TestSQLEditor)
#include "TestSQLEditor.moc"
