#include "ui/SQLEditor.h"

#include <QAbstractItemView>
#include <QClipboard>
#include <QCompleter>
#include <QGuiApplication>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTest>
#include <QTextBlock>
#include <QTextLayout>

using namespace tallowick;

Q_DECLARE_METATYPE(std::optional<QString>)

namespace
{

void select(SQLEditor &editor, int from, int to)
{
    QTextCursor cursor = editor.textCursor();
    cursor.setPosition(from);
    cursor.setPosition(to, QTextCursor::KeepAnchor);
    editor.setTextCursor(cursor);
}

void placeCursor(SQLEditor &editor, int position)
{
    select(editor, position, position);
}

} // namespace

class TestSQLEditor final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void runKey_data();
    void runKey();
    void tabReplacesTheSelectionWithFourSpaces();
    void completions_data();
    void completions();
    void refreshWithTheSameTextKeepsTheCursor_data();
    void refreshWithTheSameTextKeepsTheCursor();
    void typingReportsTheWholeText_data();
    void typingReportsTheWholeText();
    void readOnlyPreviewSelectsAndCopiesButTakesNoTyping();
    void completionPopupInsertsTheChosenWord();
    void longLinesWrapInsteadOfScrolling();
    void largeScriptEditsReachTheHostOnceTypingPauses();
};

void TestSQLEditor::runKey_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("selectionStart");
    QTest::addColumn<int>("selectionEnd");
    QTest::addColumn<int>("key");
    QTest::addColumn<int>("modifiers");
    QTest::addColumn<bool>("runs");
    QTest::addColumn<std::optional<QString>>("selection");
    const int control = Qt::ControlModifier;
    QTest::newRow("no selection runs the script") << QStringLiteral("SELECT 1; SELECT 2") << 4 << 4
                                                  << int(Qt::Key_Return) << control << true << std::optional<QString>();
    QTest::newRow("selection runs exactly that text")
        << QStringLiteral("SELECT 1; SELECT 2") << 0 << 8 << int(Qt::Key_Return) << control << true
        << std::optional<QString>(QStringLiteral("SELECT 1"));
    QTest::newRow("selection across lines keeps line feeds")
        << QStringLiteral("SELECT 1;\nSELECT 2") << 0 << 18 << int(Qt::Key_Return) << control << true
        << std::optional<QString>(QStringLiteral("SELECT 1;\nSELECT 2"));
    QTest::newRow("keypad Enter does not run")
        << QStringLiteral("SELECT 1") << 0 << 8 << int(Qt::Key_Enter) << int(Qt::ControlModifier | Qt::KeypadModifier)
        << false << std::optional<QString>();
}

void TestSQLEditor::runKey()
{
    QFETCH(QString, text);
    QFETCH(int, selectionStart);
    QFETCH(int, selectionEnd);
    QFETCH(int, key);
    QFETCH(int, modifiers);
    QFETCH(bool, runs);
    QFETCH(std::optional<QString>, selection);
    SQLEditor editor;
    editor.setSQL(text);
    select(editor, selectionStart, selectionEnd);
    QSignalSpy spy(&editor, &SQLEditor::runRequested);
    QTest::keyClick(&editor, static_cast<Qt::Key>(key), Qt::KeyboardModifiers(modifiers));
    QCOMPARE(spy.size(), runs ? 1 : 0);
    if (runs) {
        QCOMPARE(spy.at(0).at(0).value<std::optional<QString>>(), selection);
        // The key is consumed: the text is untouched.
        QCOMPARE(editor.sql(), text);
    }
}

void TestSQLEditor::tabReplacesTheSelectionWithFourSpaces()
{
    SQLEditor editor;
    editor.setSQL(QStringLiteral("abcdef"));
    select(editor, 1, 4);
    QTest::keyClick(&editor, Qt::Key_Tab);
    QCOMPARE(editor.sql(), QStringLiteral("a    ef"));
    QCOMPARE(editor.textCursor().position(), 5);
    // Shift+Tab inserts nothing.
    QTest::keyClick(&editor, Qt::Key_Backtab, Qt::ShiftModifier);
    QCOMPARE(editor.sql(), QStringLiteral("a    ef"));
}

void TestSQLEditor::completions_data()
{
    QTest::addColumn<QStringList>("hostWords");
    QTest::addColumn<QString>("partialWord");
    QTest::addColumn<QStringList>("expected");
    QTest::newRow("sel: the phrase and host words in any case")
        << QStringList { QStringLiteral("sales"),
               QStringLiteral("Selected_at"),
               QStringLiteral("SELLER"),
               QStringLiteral("users") }
        << QStringLiteral("sel")
        << QStringList { QStringLiteral("SELECT"), QStringLiteral("SELLER"), QStringLiteral("Selected_at") };
    QTest::newRow("duplicates are kept") << QStringList {
        QStringLiteral("FROM"), QStringLiteral("from")
    } << QStringLiteral("fr") << QStringList { QStringLiteral("FROM"), QStringLiteral("FROM"), QStringLiteral("from") };
    QTest::newRow("upper case before lower case")
        << QStringList { QStringLiteral("count_all"), QStringLiteral("COUNTRY") } << QStringLiteral("cou")
        << QStringList { QStringLiteral("COUNT(*)"), QStringLiteral("COUNTRY"), QStringLiteral("count_all") };
    QTest::newRow("phrases with a space")
        << QStringList() << QStringLiteral("In")
        << QStringList { QStringLiteral("INNER JOIN"), QStringLiteral("INSERT INTO") };
    QTest::newRow("code points, not UTF-16 units")
        << QStringList { QStringLiteral("x\U0001D400"), QStringLiteral("x\uFF21") } << QStringLiteral("X")
        << QStringList { QStringLiteral("x\uFF21"), QStringLiteral("x\U0001D400") };
}

void TestSQLEditor::completions()
{
    QFETCH(QStringList, hostWords);
    QFETCH(QString, partialWord);
    QFETCH(QStringList, expected);
    SQLEditor editor;
    editor.setCompletionWords(hostWords);
    QCOMPARE(editor.completionsFor(partialWord), expected);
}

void TestSQLEditor::refreshWithTheSameTextKeepsTheCursor_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("plain text") << QStringLiteral("SELECT 1;\nSELECT 2");
    // The document turns CR LF into one line break; the host may still hold the original.
    QTest::newRow("CR LF line breaks") << QStringLiteral("SELECT 1;\r\nSELECT 2");
}

void TestSQLEditor::refreshWithTheSameTextKeepsTheCursor()
{
    QFETCH(QString, text);
    SQLEditor editor;
    editor.setSQL(text);
    placeCursor(editor, 6);
    QTest::keyClicks(&editor, QStringLiteral(" "));
    QVERIFY(editor.document()->isUndoAvailable());
    const QString edited = editor.sql();
    QSignalSpy edits(&editor, &SQLEditor::sqlEdited);
    editor.setSQL(edited);
    editor.setSQL(edited);
    QCOMPARE(editor.textCursor().position(), 7);
    QVERIFY(editor.document()->isUndoAvailable());
    QCOMPARE(edits.size(), 0);

    // Other text replaces everything, with no undo history and no echo back to the host.
    editor.setSQL(QStringLiteral("SHOW TABLES"));
    QCOMPARE(editor.sql(), QStringLiteral("SHOW TABLES"));
    QVERIFY(!editor.document()->isUndoAvailable());
    QCOMPARE(edits.size(), 0);
}

void TestSQLEditor::typingReportsTheWholeText_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("typed");
    QTest::newRow("letters") << QStringLiteral("SELECT ") << QStringLiteral("12");
    // The closing quote turns the first line into a string, so the highlighter goes back and
    // colours it again; that is no edit of the user's.
    QTest::newRow("a quote that recolours earlier lines") << QStringLiteral("'a\nb\nc") << QStringLiteral("'");
}

void TestSQLEditor::typingReportsTheWholeText()
{
    QFETCH(QString, text);
    QFETCH(QString, typed);
    SQLEditor editor;
    editor.setSQL(text);
    placeCursor(editor, static_cast<int>(text.size()));
    QSignalSpy edits(&editor, &SQLEditor::sqlEdited);
    QTest::keyClicks(&editor, typed);
    QCOMPARE(edits.size(), typed.size());
    QCOMPARE(edits.last().at(0).toString(), text + typed);
    // The earlier line did change colour, or the row would not test the re-colouring.
    if (typed != QStringLiteral("12")) {
        QVERIFY(!editor.document()->firstBlock().layout()->formats().isEmpty());
    }
}

void TestSQLEditor::readOnlyPreviewSelectsAndCopiesButTakesNoTyping()
{
    SQLEditor editor(true);
    editor.setSQL(QStringLiteral("SELECT 1"));
    QSignalSpy edits(&editor, &SQLEditor::sqlEdited);
    placeCursor(editor, 8);
    QTest::keyClicks(&editor, QStringLiteral("x"));
    QTest::keyClick(&editor, Qt::Key_Backspace);
    QCOMPARE(editor.sql(), QStringLiteral("SELECT 1"));
    QCOMPARE(edits.size(), 0);

    QGuiApplication::clipboard()->clear();
    QTest::keySequence(&editor, QKeySequence::SelectAll);
    QTest::keySequence(&editor, QKeySequence::Copy);
    QCOMPARE(QGuiApplication::clipboard()->text(), QStringLiteral("SELECT 1"));
}

void TestSQLEditor::completionPopupInsertsTheChosenWord()
{
    SQLEditor editor;
    editor.setCompletionWords({ QStringLiteral("film"), QStringLiteral("FILM_ACTOR") });
    editor.setSQL(QStringLiteral("SELECT * FROM fi WHERE 1"));
    editor.show();
    QVERIFY(QTest::qWaitForWindowExposed(&editor));
    placeCursor(editor, 16);
    QTest::keyClick(&editor, Qt::Key_Space, Qt::ControlModifier);

    auto *completer = editor.findChild<QCompleter *>();
    QVERIFY(completer);
    QAbstractItemView *popup = completer->popup();
    QVERIFY(popup->isVisible());
    QStringList offered;
    for (int row = 0; row < popup->model()->rowCount(); ++row) {
        offered.append(popup->model()->index(row, 0).data().toString());
    }
    QCOMPARE(offered, (QStringList { QStringLiteral("FILM_ACTOR"), QStringLiteral("film") }));

    popup->setCurrentIndex(popup->model()->index(1, 0));
    QTest::keyClick(popup, Qt::Key_Return);
    QCOMPARE(editor.sql(), QStringLiteral("SELECT * FROM film WHERE 1"));
    QCOMPARE(editor.textCursor().position(), 18);
}

void TestSQLEditor::longLinesWrapInsteadOfScrolling()
{
    SQLEditor editor;
    editor.resize(300, 200);
    editor.setSQL(QStringLiteral("SELECT ") + QStringLiteral("column_name, ").repeated(40) + QStringLiteral("x"));
    editor.show();
    QVERIFY(QTest::qWaitForWindowExposed(&editor));
    QCOMPARE(editor.horizontalScrollBar()->maximum(), 0);
    QVERIFY(editor.document()->firstBlock().layout()->lineCount() > 1);
}

void TestSQLEditor::largeScriptEditsReachTheHostOnceTypingPauses()
{
    SQLEditor editor;
    const QString big = QStringLiteral("SELECT 1;\n").repeated(SQLEditor::largeTextCharacters / 10 + 10);
    editor.setSQL(big);
    editor.show();
    QVERIFY(QTest::qWaitForWindowExposed(&editor));
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
