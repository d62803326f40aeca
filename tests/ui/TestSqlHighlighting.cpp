#include "ui/SqlColoring.h"
#include "ui/SqlHighlighter.h"

#include <QDebug>
#include <QPlainTextDocumentLayout>
#include <QRandomGenerator>
#include <QTest>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>
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
    auto document = std::make_unique<QTextDocument>();
    document->setDocumentLayout(new QPlainTextDocumentLayout(document.get()));
    if (attachFirst) {
        new SqlHighlighter(document.get());
    }
    document->setPlainText(text);
    if (!attachFirst) {
        new SqlHighlighter(document.get());
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

} // namespace

class TestSqlHighlighting final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void coloring_data();
    void coloring();
    void editsThatReachBack();
    void randomScriptsAndEditsMatchTheReference();
    void longQuotedTextStaysWhole();
    void editsThatChangeNoMatchRecolourOneLine();
};

void TestSqlHighlighting::coloring_data()
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

void TestSqlHighlighting::coloring()
{
    QFETCH(QString, text);
    QFETCH(QString, expected);
    const auto document = highlighted(text);
    QCOMPARE(letters(*document, true), expected);
    QCOMPARE(letters(*document), expected);
}

// Each edit decides how a line far above it is coloured.
void TestSqlHighlighting::editsThatReachBack()
{
    const QString filler = QStringLiteral("x\n").repeated(300);
    const struct {
        QString text;
        int at, removed;
        QString inserted, start, thenAtTheStart = {};
    } cases[] = {
        { "'abc\n" + filler, -1, 0, "'", "QQQQ|Q" }, // a closing quote ends an open string
        { "'a''b\n" + filler + "c' select", 5, 0, "\\\n", "QQQ...|" }, // the backslash cuts back to the doubled quote
        { "/* one\n" + filler + "/* two\n", -1, 0, "*/", "CCCCCC|C" }, // the first closer makes block comments
        { "/* one\n" + filler + "*/", -3, 2, "", "......|." }, // removing the last closer unmakes them
        // A backslash-escaped quote lets runs from above pass, so the search must go on past it.
        { "\"a\"\"b\nx\\\"y\n" + filler, -1, 0, "\"", "QQQQQ|QQQQ|Q" },
        // Typing "*/" over the last "*/" changes no shape, but it did lose the highlighter's hold on
        // where the last closer is, so a later opener above it found none.
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

void TestSqlHighlighting::randomScriptsAndEditsMatchTheReference()
{
    // Generated scripts, with the highlighter attached before or after the text arrives; the first
    // rounds then go on with insertions, deletions and replacements anywhere, some grouped in one
    // undo step, some undone and redone: every kind of change notification the document sends.
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

void TestSqlHighlighting::longQuotedTextStaysWhole()
{
    // The regular expression engine gives up on a run this long (its JIT stack runs out near
    // 22,000 characters) and then colours nothing after it; the highlighter keeps to what the
    // pattern means.
    const QString body = QStringLiteral("a''b\\'c\n").repeated(20000);
    const QString colored = letters(*highlighted(QStringLiteral("select '") + body + QStringLiteral("' from `t`")));
    QCOMPARE(colored.left(8), QStringLiteral("KKKKKK.Q"));
    QCOMPARE(colored.count(u'.'), 3);
    QCOMPARE(colored.right(10), QStringLiteral("Q.KKKK.QQQ"));
}

void TestSqlHighlighting::editsThatChangeNoMatchRecolourOneLine()
{
    // Typing must not send the highlighter through the document: a letter in a keyword, dashes
    // that start a line comment, a letter inside a block comment. Formats wiped by hand from every
    // line show which lines it coloured again.
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

QTEST_MAIN(TestSqlHighlighting)
#include "TestSqlHighlighting.moc"
