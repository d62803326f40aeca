#include "ui/FindBar.h"
#include "ui/SQLEditor.h"
#include "ui/SqlColoring.h"
#include "ui/SqlHighlighter.h"
#include "ui/TextSearch.h"

#include <QAbstractItemView>
#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QCompleter>
#include <QDebug>
#include <QGuiApplication>
#include <QLineEdit>
#include <QPlainTextDocumentLayout>
#include <QRandomGenerator>
#include <QSignalSpy>
#include <QTest>
#include <QTextBlock>
#include <QTextLayout>
#include <QVBoxLayout>
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

// Matches as "start+length" in order, or "invalid" for a pattern that does not compile.
QString matchList(const QString &text, const QString &pattern, const SearchOptions &options)
{
    const QRegularExpression expression = searchExpression(pattern, options);
    if (!expression.isValid()) {
        return expression.errorString().isEmpty() ? QStringLiteral("invalid, without a reason")
                                                  : QStringLiteral("invalid");
    }
    const TextMatches matches(text, expression);
    QStringList found;
    for (const TextMatch &match : matches.listed()) {
        found << QStringLiteral("%1+%2").arg(match.start).arg(match.length);
    }
    return found.join(u' ');
}

// An editor and its find bar in a window of their own, so focus moves as it does for a user.
struct EditorWithFindBar {
    QWidget window;
    SQLEditor *editor;
    FindBar *bar;

    explicit EditorWithFindBar(const QString &text, bool readOnly = false)
        : editor(new SQLEditor(readOnly))
        , bar(new FindBar(*editor))
    {
        auto *layout = new QVBoxLayout(&window);
        layout->addWidget(editor);
        layout->addWidget(bar);
        // Like the results under the query editor: where the focus would go by itself.
        layout->addWidget(new QLineEdit);
        editor->setSQL(text);
    }

    bool show()
    {
        window.show();
        window.activateWindow();
        return QTest::qWaitForWindowActive(&window);
    }

    QString selection() const
    {
        const QTextCursor cursor = editor->textCursor();
        return QStringLiteral("%1+%2")
            .arg(cursor.selectionStart())
            .arg(cursor.selectionEnd() - cursor.selectionStart());
    }
};

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

    // With a catalog, what Ctrl+Space offers depends on where the cursor stands: names alone after
    // FROM or "alias.", columns before keywords and the host's phrases elsewhere; a database the
    // catalog lacks is asked for; typing narrows the open list.
    void completionsInContext()
    {
        auto catalog = std::make_shared<SchemaCatalog>();
        catalog->databases = { "crm", "shop" };
        catalog->tables["shop"] = { { "orders", "BASE TABLE" }, { "order_view", "VIEW" } };
        catalog->columns["shop"] = { { "orders", { "id", "count_total" } } };
        SQLEditor editor;
        editor.setCatalog(catalog, "shop");
        QSignalSpy needed(&editor, &SQLEditor::catalogNeeded);
        const auto offeredAt = [&editor](const QString &script) {
            const qsizetype cursor = script.indexOf(u'|');
            editor.setSQL(QString(script).remove(cursor, 1));
            QTextCursor at = editor.textCursor();
            at.setPosition(static_cast<int>(cursor));
            editor.setTextCursor(at);
            return editor.completionsAtCursor().join(u',');
        };
        QCOMPARE(offeredAt(QStringLiteral("SELECT 1;\nSELECT * FROM o|")), QStringLiteral("orders,order_view"));
        QCOMPARE(offeredAt(QStringLiteral("SELECT o.| FROM orders o")), QStringLiteral("id,count_total"));
        QCOMPARE(offeredAt(QStringLiteral("SELECT cou| FROM orders")), QStringLiteral("count_total,COUNT,COUNT(*)"));
        QVERIFY(needed.isEmpty());
        QCOMPARE(offeredAt(QStringLiteral("SELECT * FROM crm.|")), QString());
        QCOMPARE(needed.size(), 1);
        QCOMPARE(needed[0][0].toString(), QStringLiteral("crm"));

        editor.setSQL(QStringLiteral("SELECT * FROM "));
        editor.moveCursor(QTextCursor::End);
        editor.show();
        QVERIFY(QTest::qWaitForWindowExposed(&editor));
        QTest::keyClick(&editor, Qt::Key_Space, Qt::ControlModifier);
        QAbstractItemView *popup = editor.findChild<QCompleter *>()->popup();
        QVERIFY(popup->isVisible());
        QCOMPARE(popup->model()->rowCount(), 4); // two tables, two databases
        QTest::keyClicks(&editor, QStringLiteral("order_"));
        QCOMPARE(popup->model()->rowCount(), 1);
        QCOMPARE(popup->model()->index(0, 0).data().toString(), QStringLiteral("order_view"));
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

    // A large script arrives in pieces, read-only until complete, and without undo history; its
    // edits mark the tab at once but hand the text over only when it is needed, never on a pause.
    void largeScriptsLoadInPiecesAndHandEditsOverWhenNeeded()
    {
        SQLEditor editor;
        QSignalSpy loaded(&editor, &SQLEditor::loaded);
        const QString script = QStringLiteral("SELECT 1;\n").repeated(SQLEditor::largeTextCharacters / 10 + 1);
        editor.setSQL(script);
        QVERIFY(editor.isLoading() && editor.isReadOnly());
        QVERIFY(editor.sql().size() < script.size());
        QVERIFY(loaded.wait(20000));
        QCOMPARE(editor.sql(), script);
        QVERIFY(!editor.isLoading() && !editor.isReadOnly() && !editor.document()->isUndoAvailable());

        QSignalSpy edits(&editor, &SQLEditor::sqlEdited);
        QSignalSpy pending(&editor, &SQLEditor::editPending);
        QSignalSpy runs(&editor, &SQLEditor::runRequested);
        editor.moveCursor(QTextCursor::End);
        QTest::keyClicks(&editor, "abc");
        QCOMPARE(edits.count(), 0);
        QCOMPARE(pending.count(), 1);
        // Running hands the text over first, so the run sees what is on screen.
        QTest::keyClick(&editor, Qt::Key_Return, Qt::ControlModifier);
        QCOMPARE(edits.count(), 1);
        QCOMPARE(runs.count(), 1);
        QVERIFY(edits.at(0).at(0).toString().endsWith(QStringLiteral("abc")));
        QTest::keyClicks(&editor, "d");
        QCOMPARE(pending.count(), 2);
        QTest::qWait(500);
        QCOMPARE(edits.count(), 1);

        // Another text replaces one still arriving.
        editor.setSQL(script + QStringLiteral("-- again\n"));
        QVERIFY(editor.isLoading());
        editor.setSQL(QStringLiteral("SELECT 2"));
        QVERIFY(!editor.isLoading() && !editor.isReadOnly());
        QTest::qWait(50);
        QCOMPARE(editor.sql(), QStringLiteral("SELECT 2"));
    }

    void searchOptions_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("pattern");
        QTest::addColumn<QString>("options"); // c: match case, w: whole word, r: regular expression
        QTest::addColumn<QString>("expected");
        const auto row
            = [](const char *name, const char *text, const char *pattern, const char *options, const char *expected) {
                  QTest::newRow(name) << QString::fromUtf8(text) << QString::fromUtf8(pattern)
                                      << QString::fromUtf8(options) << QString::fromUtf8(expected);
              };
        row("any case by default", "Select sELECT", "select", "", "0+6 7+6");
        row("match case", "Select select", "select", "c", "7+6");
        row("letters beyond ASCII in any case", "ÉTÉ été", "été", "", "0+3 4+3");
        row("pattern characters are plain text", "a.b axb a\\.b", "a.b", "", "0+3");
        row("regular expression", "a.b axb", "a.b", "r", "0+3 4+3");
        row("whole word: no name character either side", "id user_id id2 $id éid id", "id", "w", "0+2 23+2");
        row("whole word tries the other alternative", "ab abc cab", "ab|abc", "wr", "0+2 3+3");
        row("^ and $ at line ends", "x\nyx\nx", "^x$", "r", "0+1 5+1");
        row("empty matches are never found", "abc", "x*", "r", "");
        row("invalid expression", "abc", "a(", "r", "invalid");
        // Wrapped in a group for whole words, this one would compile.
        row("invalid even where a wrapper would balance it", "a)(b", "a)(b", "wr", "invalid");
        row("an invalid expression is plain text without Regex", "f(x", "(", "", "1+1");
    }

    void searchOptions()
    {
        QFETCH(QString, text);
        QFETCH(QString, pattern);
        QFETCH(QString, options);
        QFETCH(QString, expected);
        const SearchOptions chosen { options.contains(u'c'), options.contains(u'w'), options.contains(u'r') };
        QCOMPARE(matchList(text, pattern, chosen), expected);
    }

    // \0 to \9, \n, \t and \\ in a regular expression's replacement; anything else as typed.
    void replacementTakesGroups()
    {
        const QRegularExpressionMatch match
            = QRegularExpression(QStringLiteral("(\\w+)@(\\w+)(x)?")).match(QStringLiteral("ann@host"));
        QCOMPARE(expandReplacement(QStringLiteral("\\2 at \\1 (\\0)[\\3\\9]\\n\\t\\\\1 \\q \\"), match),
            QStringLiteral("host at ann (ann@host)[]\n\t\\1 \\q \\"));
    }

    // Past the listed matches of a large text, stepping searches the text itself; wrapping backwards
    // from the first match must reach the very last one, not the last listed.
    void stepsPastTheListedMatches()
    {
        const qsizetype count = TextMatches::listLimit + 5;
        const TextMatches matches(QStringLiteral("x ").repeated(count), searchExpression(QStringLiteral("x"), {}));
        QVERIFY(!matches.complete());
        QCOMPARE(matches.listed().size(), TextMatches::listLimit);
        const qsizetype lastListed = 2 * (TextMatches::listLimit - 1);
        QCOMPARE(matches.next(lastListed + 1), TextMatch({ lastListed + 2, 1 }));
        QCOMPARE(matches.indexOf(*matches.next(lastListed + 1)), std::nullopt);
        QCOMPARE(matches.previous(0), TextMatch({ 2 * (count - 1), 1 }));
        QCOMPARE(matches.previous(2 * (count - 1)), TextMatch({ 2 * (count - 2), 1 }));
        QCOMPARE(matches.next(2 * count), TextMatch({ 0, 1 }));
        QCOMPARE(matches.indexOf({ lastListed, 1 }), std::optional<qsizetype>(TextMatches::listLimit - 1));
    }

    // Ctrl+F takes the selected line's text and finds from it; F3 and Enter step on, Shift back,
    // round the ends; a changed option searches again from the selection; a pattern that finds
    // nothing or does not compile leaves the selection. Escape hands the focus back. Ctrl+H opens
    // the replace row in the editor, though a window shortcut has the same keys.
    void findBarStepsThroughMatches()
    {
        EditorWithFindBar f(QStringLiteral("SELECT a;\nselect b;\nSelect c"));
        QAction hide(QStringLiteral("Hide"));
        hide.setShortcut(QKeySequence(Qt::CTRL | Qt::Key_H));
        f.window.addAction(&hide);
        QSignalSpy hidden(&hide, &QAction::triggered);
        QVERIFY(f.show());
        select(*f.editor, 10, 16);
        f.editor->setFocus();
        QTest::keyClick(f.editor, Qt::Key_F, Qt::ControlModifier);
        QVERIFY(f.bar->isVisible() && !f.bar->replaceShown());
        QCOMPARE(QApplication::focusWidget(), f.bar->findField());
        QCOMPARE(f.bar->findField()->text(), QStringLiteral("select"));
        QCOMPARE(f.bar->status(), QStringLiteral("2 of 3"));

        QLineEdit *field = f.bar->findField();
        const struct {
            QWidget *target;
            Qt::Key key;
            Qt::KeyboardModifiers modifiers;
            const char *selection, *status;
        } steps[] = {
            { field, Qt::Key_F3, {}, "20+6", "3 of 3" },
            { field, Qt::Key_Return, {}, "0+6", "1 of 3" },
            { field, Qt::Key_Return, Qt::ShiftModifier, "20+6", "3 of 3" },
            { field, Qt::Key_F3, Qt::ShiftModifier, "10+6", "2 of 3" },
            { f.editor, Qt::Key_F3, {}, "20+6", "3 of 3" },
        };
        for (const auto &step : steps) {
            QTest::keyClick(step.target, step.key, step.modifiers);
            QCOMPARE(f.selection(), QString::fromLatin1(step.selection));
            QCOMPARE(f.bar->status(), QString::fromLatin1(step.status));
        }
        f.bar->matchCaseBox()->setChecked(true);
        QCOMPARE(f.selection(), QStringLiteral("10+6"));
        QCOMPARE(f.bar->status(), QStringLiteral("1 of 1"));
        field->setText(QStringLiteral("zzz"));
        QCOMPARE(f.bar->status(), QStringLiteral("No matches"));
        f.bar->regularExpressionBox()->setChecked(true);
        field->setText(QStringLiteral("sel("));
        QVERIFY(f.bar->status().startsWith(QStringLiteral("Invalid regular expression: ")));
        QTest::keyClick(field, Qt::Key_F3);
        QCOMPARE(f.selection(), QStringLiteral("10+6"));

        QTest::keyClick(field, Qt::Key_Escape);
        QVERIFY(f.bar->isHidden());
        QCOMPARE(QApplication::focusWidget(), f.editor);
        QTest::keyClick(f.editor, Qt::Key_H, Qt::ControlModifier);
        QVERIFY(f.bar->replaceShown());
        QCOMPARE(QApplication::focusWidget(), field);
        QCOMPARE(hidden.size(), 0);
    }

    // Replace takes the selected match and moves on; Replace all is one undo step. A regular
    // expression's groups fill the replacement, which is plain text otherwise. The read-only preview
    // is searched but never changed.
    void replaceAndReplaceAll()
    {
        EditorWithFindBar f(QStringLiteral("a1 b2 a3 a4"));
        f.bar->openReplace();
        f.bar->regularExpressionBox()->setChecked(true);
        f.bar->findField()->setText(QStringLiteral("a(\\d)"));
        f.bar->replaceField()->setText(QStringLiteral("[\\1]"));
        QCOMPARE(f.selection(), QStringLiteral("0+2"));
        f.bar->replace();
        QCOMPARE(f.editor->sql(), QStringLiteral("[1] b2 a3 a4"));
        QCOMPARE(f.selection(), QStringLiteral("7+2"));
        QCOMPARE(f.bar->status(), QStringLiteral("1 of 2"));
        f.bar->replaceAll();
        QCOMPARE(f.editor->sql(), QStringLiteral("[1] b2 [3] [4]"));
        QCOMPARE(f.bar->status(), QStringLiteral("Replaced 2 matches"));
        f.editor->undo();
        QCOMPARE(f.editor->sql(), QStringLiteral("[1] b2 a3 a4"));
        f.editor->undo();
        QCOMPARE(f.editor->sql(), QStringLiteral("a1 b2 a3 a4"));
        QVERIFY(!f.editor->document()->isUndoAvailable());

        f.bar->regularExpressionBox()->setChecked(false);
        f.bar->findField()->setText(QStringLiteral("a"));
        f.bar->replaceAll();
        QCOMPARE(f.editor->sql(), QStringLiteral("[\\1]1 b2 [\\1]3 [\\1]4"));

        EditorWithFindBar preview(QStringLiteral("a1 a2"), true);
        preview.bar->openReplace();
        QVERIFY(!preview.bar->replaceShown());
        preview.bar->findField()->setText(QStringLiteral("a"));
        preview.bar->replaceField()->setText(QStringLiteral("b"));
        preview.bar->replace();
        preview.bar->replaceAll();
        QCOMPARE(preview.editor->sql(), QStringLiteral("a1 a2"));
        QCOMPARE(preview.bar->status(), QStringLiteral("This text is read-only"));
    }

    // Ctrl+Shift+Return asks to run the statement at the cursor, counted in the UTF-8 the splitter
    // reads; a script the splitter refuses goes whole, for the run to say why.
    void runsTheStatementAtTheCursor()
    {
        const std::pair<const char *, const char *> cases[] = {
            { "SELECT 'éééé'; |SELECT 2", "SELECT 2" },
            { "SELECT 1;\n-- a note\n;|\nSELECT 2", "SELECT 1" },
            { "DELIMITER $$\nCREATE PROCEDURE p() BEGIN SELECT 1; END$$\n|",
                "DELIMITER $$\nCREATE PROCEDURE p() BEGIN SELECT 1; END\n$$" },
            { "SELECT 1;| SELECT 'open", "SELECT 1; SELECT 'open" },
        };
        for (const auto &[marked, expected] : cases) {
            QString script = QString::fromUtf8(marked);
            const auto cursor = static_cast<int>(script.indexOf(u'|'));
            script.remove(cursor, 1);
            SQLEditor editor;
            editor.setSQL(script);
            select(editor, cursor, cursor);
            QSignalSpy runs(&editor, &SQLEditor::runRequested);
            QTest::keyClick(&editor, Qt::Key_Return, Qt::ControlModifier | Qt::ShiftModifier);
            QCOMPARE(runs.size(), 1);
            QCOMPARE(runs[0][0].value<std::optional<QString>>(), std::optional<QString>(QString::fromUtf8(expected)));
        }
    }
};

QTEST_MAIN(TestSQLEditor)
#include "TestSQLEditor.moc"
