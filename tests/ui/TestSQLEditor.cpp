#include "ui/SQLEditor.h"
#include "ui/SqlColoring.h"
#include "ui/SqlHighlighter.h"

#include <QAbstractItemView>
#include <QClipboard>
#include <QCompleter>
#include <QDebug>
#include <QGuiApplication>
#include <QPlainTextDocumentLayout>
#include <QRandomGenerator>
#include <QSignalSpy>
#include <QTest>
#include <QTextBlock>
#include <QTextLayout>
#include <memory>

using namespace tallowick;

namespace
{

// The colours as letters (K keyword, Q quoted, C comment, "." plain), one per position of
// toPlainText() and "|" at line breaks, which carry no colour in a document: as the highlighter
// left them, or as the whole-text pass gives them.
QString letters(const QTextDocument &document, bool reference = false)
{
    QList<SqlColor> colors
        = reference ? referenceSqlColoring(document.toPlainText()) : QList<SqlColor>(document.characterCount() - 1);
    for (QTextBlock block = document.begin(); !reference && block.isValid(); block = block.next()) {
        for (const QTextLayout::FormatRange &range : block.layout()->formats()) {
            for (int i = range.start; i < range.start + range.length && i < block.length() - 1; ++i) {
                colors[block.position() + i] = SqlHighlighter::colorClass(range.format);
            }
        }
    }
    QString text;
    for (const SqlColor color : colors) {
        text += QStringLiteral(".KQC")[static_cast<int>(color)];
    }
    for (QTextBlock block = document.begin(); block.next().isValid(); block = block.next()) {
        text[block.position() + block.length() - 1] = u'|';
    }
    return text;
}

// Empty when the document matches the whole-text pass, otherwise a report that names the text.
QString mismatch(const QTextDocument &document, QString context)
{
    if (letters(document) == letters(document, true)) {
        return {};
    }
    QDebug(&context) << "\n text:" << document.toPlainText() << "\n reference:" << letters(document, true)
                     << "\n document: " << letters(document);
    return context;
}

// Small pieces that meet in every awkward way: quotes and their doubles, backslashes before quotes
// and line breaks, comment openers inside strings and the reverse, keywords and words that merely
// contain one, and letters outside ASCII (including halves of surrogate pairs).
QString randomScript(QRandomGenerator &random, int maxPieces)
{
    static const QStringList pieces
        = QStringLiteral("'|''|\"|\"\"|`|``|\\|\\\n|\\'|\\\"|\n|\r\n|\r|--|-|#|/*|*/|/*!|*|/|"
                         "SELECT|select|SeLeCt|from|Where|null|in|selection|_from|from_|x|1|"
                         " |  |\t|;|(|)|é|éselect|ß|\u00a0|\u2028|\U0001D400|\u212Aey")
              .split(u'|')
        + QStringList { QString(QChar(0xd800)), QString(QChar(0xdc00)) };
    QString script;
    for (auto count = random.bounded(maxPieces + 1); count > 0; --count) {
        script += pieces[static_cast<qsizetype>(random.bounded(pieces.size()))];
    }
    return script;
}

// A document laid out like the editor's (without a layout a document reports no changes, and
// nothing would be highlighted), with the highlighter attached before or after the text arrives.
std::unique_ptr<QTextDocument> highlighted(const QString &text, bool attachFirst = true)
{
    auto document = std::make_unique<QTextDocument>(attachFirst ? QString() : text);
    document->setDocumentLayout(new QPlainTextDocumentLayout(document.get()));
    new SqlHighlighter(document.get());
    if (attachFirst) {
        document->setPlainText(text);
    }
    return document;
}

// Replaces `removed` characters at `at` (counted from the end when negative, -1 being the end).
void edit(QTextDocument &document, int at, int removed, const QString &inserted)
{
    QTextCursor cursor(&document);
    cursor.setPosition(at >= 0 ? at : document.characterCount() + at);
    cursor.setPosition(cursor.position() + removed, QTextCursor::KeepAnchor);
    cursor.insertText(inserted);
}

void select(SQLEditor &editor, int from, int to)
{
    QTextCursor cursor = editor.textCursor();
    cursor.setPosition(from);
    cursor.setPosition(to, QTextCursor::KeepAnchor);
    editor.setTextCursor(cursor);
}

} // namespace

// The query editor: its keys, completions and what it tells the host, and the highlighter, which
// must colour every state of the text as the whole-text pass does while touching few lines.
class TestSQLEditor final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void coloring_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected"); // worked out from the patterns by hand
        const auto row = [](const char *name, const char *text, const char *expected) {
            QTest::newRow(name) << QString::fromUtf8(text) << QString::fromUtf8(expected);
        };
        row("dashes inside a string start a comment", "select 'a -- b' from t", "KKKKKK.QQQCCCCCCCCCCCC");
        row("unterminated quote opens nothing", "a 'b select", ".....KKKKKK");
        row("backtracks into the last doubled quote", "'a''b", "QQQ..");
        row("string across a line break", "'a\nb' c", "QQ|QQ..");
        row("backslash before a line break sticks", "'a''b\\\nc'", "QQQ...|..");
        row("backslash escapes a quote", "'it\\'s' x", "QQQQQQQ..");
        row("back quotes double but never escape", "`a``b` `a\\` b`", "QQQQQQ.QQQQ...");
        row("back-quoted name across a line break", "`a\nb` select", "QQ|QQ.KKKKKK");
        row("block comment without a closer is plain", "/* select", "...KKKKKK");
        row("block comment across lines", "/* a\n*/ select", "CCCC|CC.KKKKKK");
        row("its own star does not close a block comment", "/*/ x */", "CCCCCCCC");
        row("quote inside a hash comment still opens a string", "x # 'a\n'b'", "..CCCC|Q..");
        row("line comment swallows a block opener", "-- /* x\n*/ y", "CCCCCCC|....");
        row("no blank needed after the dashes", "--x", "CCC");
        row("words that merely contain a keyword", "selection _from from_ FROM", "......................KKKK");
        row("accented letters are word characters", "éselect select", "........KKKKKK");
        row("line separator ends a line comment", "# a\u2028select", "CCC.KKKKKK");
    }

    void coloring()
    {
        QFETCH(QString, text);
        QFETCH(QString, expected);
        const auto document = highlighted(text);
        QCOMPARE(letters(*document, true), expected);
        QCOMPARE(letters(*document), expected);
    }

    // Each edit decides how a line far above it is coloured.
    void editsThatReachBack()
    {
        const QString filler = QStringLiteral("x\n").repeated(300);
        const struct {
            QString text;
            int at, removed;
            QString inserted, start, thenAtTheStart = {};
        } cases[] = {
            { "'abc\n" + filler, -1, 0, "'", "QQQQ|Q" }, // a closing quote ends an open string
            { "'a''b\n" + filler + "c' select", 5, 0, "\\\n", "QQQ...|" }, // the backslash cuts back to the ''
            { "/* one\n" + filler + "/* two\n", -1, 0, "*/", "CCCCCC|C" }, // the first closer makes comments
            { "/* one\n" + filler + "*/", -3, 2, "", "......|." }, // removing the last closer unmakes them
            // A backslash-escaped quote lets runs from above pass, so the search must go on past it.
            { "\"a\"\"b\nx\\\"y\n" + filler, -1, 0, "\"", "QQQQQ|QQQQ|Q" },
            // Typing "*/" over the last "*/" changes no shape, but it did lose the highlighter's hold
            // on where the last closer is, so a later opener above it found none.
            { QStringLiteral("x\n").repeated(50) + "*/ y", -5, 2, "*/", "CCC|C", "/*" },
        };
        for (const auto &test : cases) {
            const auto document = highlighted(test.text);
            edit(*document, test.at, test.removed, test.inserted);
            if (!test.thenAtTheStart.isEmpty()) {
                edit(*document, 0, 0, test.thenAtTheStart);
            }
            QCOMPARE(letters(*document), letters(*document, true));
            QCOMPARE(letters(*document).left(test.start.size()), test.start);
        }
    }

    // Generated scripts, with the highlighter attached before or after the text arrives; the first
    // rounds then go on with insertions, deletions and replacements anywhere, some grouped in one
    // undo step, some undone and redone: every kind of change notification the document sends.
    void randomScriptsAndEditsMatchTheReference()
    {
        QRandomGenerator random(20240611);
        for (int round = 0; round < 4000; ++round) {
            const auto document = highlighted(randomScript(random, 40), round % 8 != 0);
            QString problem = mismatch(*document, QStringLiteral("script %1").arg(round));
            QVERIFY2(problem.isEmpty(), qPrintable(problem));
            for (int step = 0; round < 400 && step < 40; ++step) {
                const int choice = static_cast<int>(random.bounded(10));
                if (choice == 0 && document->isUndoAvailable()) {
                    document->undo();
                } else if (choice == 1 && document->isRedoAvailable()) {
                    document->redo();
                } else {
                    QTextCursor group(document.get());
                    group.beginEditBlock();
                    for (int part = 0; part < (choice == 2 ? 2 : 1); ++part) {
                        const int length = document->characterCount() - 1;
                        const int at = static_cast<int>(random.bounded(length + 1));
                        const int removed = std::min(static_cast<int>(random.bounded(6)), length - at);
                        edit(*document, at, removed, randomScript(random, 3));
                    }
                    group.endEditBlock();
                }
                problem = mismatch(*document, QStringLiteral("round %1 step %2").arg(round).arg(step));
                QVERIFY2(problem.isEmpty(), qPrintable(problem));
            }
        }
    }

    // The regular expression engine gives up on a run this long (its JIT stack runs out near 22,000
    // characters) and then colours nothing after it; the highlighter keeps to what the pattern means.
    void longQuotedTextStaysWhole()
    {
        const QString body = QStringLiteral("a''b\\'c\n").repeated(20000);
        const QString colored = letters(*highlighted(QStringLiteral("select '") + body + QStringLiteral("' from `t`")));
        QCOMPARE(colored.left(8), QStringLiteral("KKKKKK.Q"));
        QCOMPARE(colored.count(u'.'), 3);
        QCOMPARE(colored.right(10), QStringLiteral("Q.KKKK.QQQ"));
    }

    // Typing must not send the highlighter through the document: a letter in a keyword, dashes that
    // start a line comment, a letter inside a block comment. Formats wiped by hand from every line
    // show which lines it coloured again.
    void editsThatChangeNoMatchRecolourOneLine()
    {
        for (const auto &[offset, inserted] : { std::pair { 2, "x" }, std::pair { 0, "--" }, std::pair { 30, "y" } }) {
            const QString line = QStringLiteral("SELECT 'a''b', \"c\" FROM `t` /* x */ -- it's\n");
            const auto document = highlighted("/* open\n" + line.repeated(2000) + "*/ 'z\\\n");
            for (QTextBlock block = document->begin(); block.isValid(); block = block.next()) {
                block.layout()->clearFormats();
            }
            // Wiping formats notes the lines as changed; let the layout take that in now, or the next
            // edit would report the whole document as changed.
            document->markContentsDirty(0, 0);
            edit(*document, document->findBlockByNumber(1000).position() + offset, 0, QString::fromUtf8(inserted));
            QList<int> coloured;
            for (QTextBlock block = document->begin(); block.isValid(); block = block.next()) {
                if (!block.layout()->formats().isEmpty()) {
                    coloured.append(block.blockNumber());
                }
            }
            QCOMPARE(coloured, QList<int> { 1000 });
        }
    }

    // Ctrl+Return asks to run the selection as the document holds it, or with none the whole script
    // (no text); keypad Enter runs nothing. Tab puts four spaces in place of the selection.
    void runAndTabKeys()
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
        // The read-only preview takes no Tab, yet selects and copies from the keyboard.
        SQLEditor preview(true);
        preview.setSQL(script);
        QTest::keyClick(&preview, Qt::Key_Tab);
        QCOMPARE(preview.sql(), script);
        QTest::keySequence(&preview, QKeySequence::SelectAll);
        QTest::keySequence(&preview, QKeySequence::Copy);
        QCOMPARE(QGuiApplication::clipboard()->text(), script);
    }

    // The fixed phrases and the host's words that start with the typed part in any case, duplicates
    // kept, ordered by code point (upper case first, and a letter beyond U+FFFF after U+FFxx).
    // Ctrl+Space offers them for the word before the cursor, and the chosen one replaces that part.
    void completions()
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

    // Each keystroke reports the whole text, and only keystrokes do: a closing quote turns the first
    // line into a string, and the highlighter's going back to colour it is no edit of the user's.
    // The host echoes every edit back, maybe with CR LF where the document has "\n": the same text
    // again keeps the cursor and the undo history, other text replaces both without an echo.
    void typingReportsTheTextAndEchoesKeepTheCursor()
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
            editor.setSQL(QStringLiteral("SHOW TABLES"));
            QCOMPARE(editor.sql(), QStringLiteral("SHOW TABLES"));
            QVERIFY(!editor.document()->isUndoAvailable());
            QCOMPARE(edits.size(), 0);
        }
    }

    void largeScriptEditsReachTheHostOnceTypingPauses()
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
};

QTEST_MAIN(TestSQLEditor)
#include "TestSQLEditor.moc"
