#include "ui/SqlColoring.h"
#include "ui/SqlHighlighter.h"

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

// One letter per colour class, so expectations read like the text they describe.
QChar letterFor(SqlColor color)
{
    switch (color) {
    case SqlColor::Keyword:
        return u'K';
    case SqlColor::Quoted:
        return u'Q';
    case SqlColor::Comment:
        return u'C';
    case SqlColor::Plain:
        break;
    }
    return u'.';
}

QString lettersOf(const QList<SqlColor> &colors)
{
    QString letters;
    for (const SqlColor color : colors) {
        letters += letterFor(color);
    }
    return letters;
}

// The document's colours as letters, one per position of toPlainText(); line breaks between
// blocks carry no colour in a document and show as "|".
QString documentLetters(const QTextDocument &document)
{
    QString letters;
    for (QTextBlock block = document.begin(); block.isValid(); block = block.next()) {
        QList<SqlColor> colors(block.length() - 1, SqlColor::Plain);
        for (const QTextLayout::FormatRange &range : block.layout()->formats()) {
            const SqlColor color = SqlHighlighter::colorClass(range.format);
            for (int i = range.start; i < range.start + range.length && i < colors.size(); ++i) {
                colors[i] = color;
            }
        }
        letters += lettersOf(colors);
        if (block.next().isValid()) {
            letters += u'|';
        }
    }
    return letters;
}

// The whole-text reference in the same letters, with the block breaks marked alike.
QString referenceLetters(const QTextDocument &document)
{
    QString letters = lettersOf(referenceSqlColoring(document.toPlainText()));
    for (QTextBlock block = document.begin(); block.next().isValid(); block = block.next()) {
        letters[block.position() + block.length() - 1] = u'|';
    }
    return letters;
}

QString escaped(const QString &text)
{
    QString out;
    for (const QChar c : text) {
        switch (c.unicode()) {
        case u'\n':
            out += QStringLiteral("\\n");
            break;
        case u'\r':
            out += QStringLiteral("\\r");
            break;
        case u'\t':
            out += QStringLiteral("\\t");
            break;
        case u'\\':
            out += QStringLiteral("\\\\");
            break;
        default:
            if (c.unicode() < 0x20 || c.unicode() > 0x7e) {
                out += QStringLiteral("\\u%1").arg(c.unicode(), 4, 16, QLatin1Char('0'));
            } else {
                out += c;
            }
        }
    }
    return out;
}

// Empty when the document matches the reference, otherwise a report that names the text.
QString mismatch(const QTextDocument &document, const QString &context)
{
    const QString actual = documentLetters(document);
    const QString expected = referenceLetters(document);
    if (actual == expected) {
        return {};
    }
    return QStringLiteral("%1\n  text:      \"%2\"\n  reference: %3\n  document:  %4")
        .arg(context, escaped(document.toPlainText()), expected, actual);
}

// Small pieces that meet in every awkward way: quotes and their doubles, backslashes before
// quotes and line breaks, comment openers inside strings and the reverse, keywords and words
// that merely contain one, and letters outside ASCII (including halves of surrogate pairs).
const QStringList &pieces()
{
    static const QStringList list {
        QStringLiteral("'"),
        QStringLiteral("''"),
        QStringLiteral("\""),
        QStringLiteral("\"\""),
        QStringLiteral("`"),
        QStringLiteral("``"),
        QStringLiteral("\\"),
        QStringLiteral("\\\n"),
        QStringLiteral("\\'"),
        QStringLiteral("\\\""),
        QStringLiteral("\n"),
        QStringLiteral("\r\n"),
        QStringLiteral("\r"),
        QStringLiteral("--"),
        QStringLiteral("-"),
        QStringLiteral("#"),
        QStringLiteral("/*"),
        QStringLiteral("*/"),
        QStringLiteral("/*!"),
        QStringLiteral("*"),
        QStringLiteral("/"),
        QStringLiteral("SELECT"),
        QStringLiteral("select"),
        QStringLiteral("SeLeCt"),
        QStringLiteral("from"),
        QStringLiteral("Where"),
        QStringLiteral("null"),
        QStringLiteral("in"),
        QStringLiteral("selection"),
        QStringLiteral("_from"),
        QStringLiteral("from_"),
        QStringLiteral("x"),
        QStringLiteral("1"),
        QStringLiteral(" "),
        QStringLiteral("  "),
        QStringLiteral("\t"),
        QStringLiteral(";"),
        QStringLiteral("("),
        QStringLiteral(")"),
        QStringLiteral("é"),
        QStringLiteral("éselect"),
        QStringLiteral("ß"),
        QStringLiteral("\u00a0"),
        QStringLiteral("\u2028"),
        QStringLiteral("\U0001D400"),
        QStringLiteral("\u212A") + QStringLiteral("ey"),
        QString(QChar(0xd800)),
        QString(QChar(0xdc00)),
    };
    return list;
}

QString randomScript(QRandomGenerator &random, int maxPieces)
{
    QString script;
    const int count = static_cast<int>(random.bounded(maxPieces + 1));
    for (int i = 0; i < count; ++i) {
        script += pieces()[static_cast<qsizetype>(random.bounded(pieces().size()))];
    }
    return script;
}

// Indices of the blocks whose layouts carry formats.
QList<int> formattedBlocks(const QTextDocument &document)
{
    QList<int> numbers;
    for (QTextBlock block = document.begin(); block.isValid(); block = block.next()) {
        if (!block.layout()->formats().isEmpty()) {
            numbers.append(block.blockNumber());
        }
    }
    return numbers;
}

// A document laid out like the editor's, with the highlighter attached. Without a layout a
// document reports no changes, and nothing would be highlighted.
std::unique_ptr<QTextDocument> highlightedDocument(const QString &text = QString())
{
    auto document = std::make_unique<QTextDocument>();
    document->setDocumentLayout(new QPlainTextDocumentLayout(document.get()));
    new SqlHighlighter(document.get());
    document->setPlainText(text);
    return document;
}

} // namespace

class TestSqlHighlighting final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void namedCases_data();
    void namedCases();
    void generatedScriptsMatchTheReference();
    void highlighterAttachedToAFilledDocument();
    void randomEditsMatchTheReference();
    void editsThatReachBack_data();
    void editsThatReachBack();
    void retypingTheLastCloserKeepsTrackOfIt();
    void longQuotedTextStaysWhole();
    void editsThatChangeNoMatchRecolourOneLine_data();
    void editsThatChangeNoMatchRecolourOneLine();
};

void TestSqlHighlighting::namedCases_data()
{
    // Expectations worked out from the patterns by hand: K keyword, Q quoted, C comment,
    // "." plain, "|" a line break.
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected");
    QTest::newRow("dashes inside a string start a comment")
        << QStringLiteral("select 'a -- b' from t") << QStringLiteral("KKKKKK.QQQCCCCCCCCCCCC");
    QTest::newRow("unterminated quote opens nothing") << QStringLiteral("a 'b select") << QStringLiteral(".....KKKKKK");
    QTest::newRow("backtracks into the last doubled quote") << QStringLiteral("'a''b") << QStringLiteral("QQQ..");
    QTest::newRow("string across a line break") << QStringLiteral("'a\nb' c") << QStringLiteral("QQ|QQ..");
    QTest::newRow("backslash before a line break sticks")
        << QStringLiteral("'a''b\\\nc'") << QStringLiteral("QQQ...|..");
    QTest::newRow("backslash escapes a quote") << QStringLiteral("'it\\'s' x") << QStringLiteral("QQQQQQQ..");
    QTest::newRow("back quotes double but never escape")
        << QStringLiteral("`a``b` `a\\` b`") << QStringLiteral("QQQQQQ.QQQQ...");
    QTest::newRow("block comment without a closer is plain")
        << QStringLiteral("/* select") << QStringLiteral("...KKKKKK");
    QTest::newRow("block comment across lines")
        << QStringLiteral("/* a\n*/ select") << QStringLiteral("CCCC|CC.KKKKKK");
    QTest::newRow("its own star does not close a block comment")
        << QStringLiteral("/*/ x */") << QStringLiteral("CCCCCCCC");
    QTest::newRow("quote inside a hash comment still opens a string")
        << QStringLiteral("x # 'a\n'b'") << QStringLiteral("..CCCC|Q..");
    QTest::newRow("line comment swallows a block opener")
        << QStringLiteral("-- /* x\n*/ y") << QStringLiteral("CCCCCCC|....");
    QTest::newRow("no blank needed after the dashes") << QStringLiteral("--x") << QStringLiteral("CCC");
    QTest::newRow("words that merely contain a keyword")
        << QStringLiteral("selection fromage _from from_ FROM") << QStringLiteral("..............................KKKK");
    QTest::newRow("accented letters are word characters")
        << QStringLiteral("éselect select") << QStringLiteral("........KKKKKK");
    QTest::newRow("line separator ends a line comment")
        << QStringLiteral("# a\u2028select") << QStringLiteral("CCC.KKKKKK");
}

void TestSqlHighlighting::namedCases()
{
    QFETCH(QString, text);
    QFETCH(QString, expected);
    const auto document = highlightedDocument(text);
    QCOMPARE(referenceLetters(*document), expected);
    QCOMPARE(documentLetters(*document), expected);
}

void TestSqlHighlighting::generatedScriptsMatchTheReference()
{
    QRandomGenerator random(20240611);
    for (int round = 0; round < 4000; ++round) {
        const QString script = randomScript(random, 40);
        const auto document = highlightedDocument(script);
        const QString problem = mismatch(*document, QStringLiteral("script %1").arg(round));
        QVERIFY2(problem.isEmpty(), qPrintable(problem));
    }
}

void TestSqlHighlighting::highlighterAttachedToAFilledDocument()
{
    QRandomGenerator random(77);
    for (int round = 0; round < 500; ++round) {
        QTextDocument document;
        document.setDocumentLayout(new QPlainTextDocumentLayout(&document));
        document.setPlainText(randomScript(random, 40));
        new SqlHighlighter(&document);
        const QString problem = mismatch(document, QStringLiteral("script %1").arg(round));
        QVERIFY2(problem.isEmpty(), qPrintable(problem));
    }
}

void TestSqlHighlighting::randomEditsMatchTheReference()
{
    // Insertions, deletions and replacements anywhere, some grouped in one undo step, some undone
    // and redone: every kind of change notification the document sends.
    QRandomGenerator random(4242);
    for (int round = 0; round < 400; ++round) {
        const auto document = highlightedDocument(randomScript(random, 30));
        for (int step = 0; step < 40; ++step) {
            const QString before = document->toPlainText();
            const int choice = static_cast<int>(random.bounded(10));
            QString edit;
            if (choice == 0 && document->isUndoAvailable()) {
                document->undo();
                edit = QStringLiteral("undo");
            } else if (choice == 1 && document->isRedoAvailable()) {
                document->redo();
                edit = QStringLiteral("redo");
            } else {
                QTextCursor cursor(document.get());
                const int grouped = choice == 2 ? 2 : 1;
                cursor.beginEditBlock();
                for (int part = 0; part < grouped; ++part) {
                    const int length = document->characterCount() - 1;
                    const int at = static_cast<int>(random.bounded(length + 1));
                    const int removed = std::min(static_cast<int>(random.bounded(6)), length - at);
                    const QString inserted = randomScript(random, 3);
                    cursor.setPosition(at);
                    cursor.setPosition(at + removed, QTextCursor::KeepAnchor);
                    cursor.insertText(inserted);
                    edit += QStringLiteral("[at %1 remove %2 insert \"%3\"]")
                                .arg(at)
                                .arg(removed)
                                .arg(escaped(inserted));
                }
                cursor.endEditBlock();
            }
            const QString problem = mismatch(*document,
                QStringLiteral("round %1 step %2, %3 on \"%4\"").arg(round).arg(step).arg(edit, escaped(before)));
            QVERIFY2(problem.isEmpty(), qPrintable(problem));
        }
    }
}

void TestSqlHighlighting::editsThatReachBack_data()
{
    // Each edit decides how a line far above it is coloured.
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("inserted");
    QTest::addColumn<bool>("atEnd");
    QTest::addColumn<int>("removedFromEnd");
    const QString filler = QStringLiteral("x\n").repeated(300);
    QTest::newRow("closing quote ends an open string")
        << QStringLiteral("'abc\n") + filler << QStringLiteral("'") << true << 0;
    QTest::newRow("backslash at a line end cuts back to a doubled quote")
        << QStringLiteral("'a''b\n") + filler + QStringLiteral("c' select") << QStringLiteral("\\\n") << false << 0;
    QTest::newRow("first closer makes block comments")
        << QStringLiteral("/* one\n") + filler + QStringLiteral("/* two\n") << QStringLiteral("*/") << true << 0;
    QTest::newRow("removing the last closer unmakes them")
        << QStringLiteral("/* one\n") + filler + QStringLiteral("*/") << QString() << true << 2;
    // A backslash-escaped quote lets runs from above pass, so the search must go on past it.
    QTest::newRow("escaped quote on the way")
        << QStringLiteral("\"a\"\"b\nx\\\"y\n") + filler << QStringLiteral("\"") << true << 0;
}

void TestSqlHighlighting::editsThatReachBack()
{
    QFETCH(QString, text);
    QFETCH(QString, inserted);
    QFETCH(bool, atEnd);
    QFETCH(int, removedFromEnd);
    const auto document = highlightedDocument(text);
    QTextCursor cursor(document.get());
    if (atEnd) {
        cursor.movePosition(QTextCursor::End);
        cursor.movePosition(QTextCursor::Left, QTextCursor::KeepAnchor, removedFromEnd);
    } else {
        // Right after the first line.
        cursor.setPosition(document->firstBlock().length() - 1);
    }
    const QString before = documentLetters(*document);
    cursor.insertText(inserted);
    const QString problem = mismatch(*document, QStringLiteral("after the edit"));
    QVERIFY2(problem.isEmpty(), qPrintable(problem));
    // The first line's colouring had to change for the edit to have reached it.
    QVERIFY(documentLetters(*document).left(4) != before.left(4));
}

void TestSqlHighlighting::retypingTheLastCloserKeepsTrackOfIt()
{
    // Typing "*/" over the last "*/" changes no shape, but it did lose the highlighter's hold on
    // where the last closer is, so a later opener above it found none.
    const auto document = highlightedDocument(QStringLiteral("x\n").repeated(50) + QStringLiteral("*/ y"));
    QTextCursor cursor(document.get());
    cursor.movePosition(QTextCursor::End);
    cursor.movePosition(QTextCursor::Left, QTextCursor::MoveAnchor, 2);
    cursor.movePosition(QTextCursor::Left, QTextCursor::KeepAnchor, 2);
    cursor.insertText(QStringLiteral("*/"));
    cursor.setPosition(0);
    cursor.insertText(QStringLiteral("/*"));
    QCOMPARE(documentLetters(*document).left(5), QStringLiteral("CCC|C"));
    const QString problem = mismatch(*document, QStringLiteral("after the edits"));
    QVERIFY2(problem.isEmpty(), qPrintable(problem));
}

void TestSqlHighlighting::longQuotedTextStaysWhole()
{
    // The regular expression engine gives up on a run this long (its JIT stack runs out near
    // 22,000 characters) and then colours nothing after it; the highlighter keeps to what the
    // pattern means.
    const QString body = QStringLiteral("a''b\\'c\n").repeated(20000);
    const auto document = highlightedDocument(QStringLiteral("select '") + body + QStringLiteral("' from `t`"));
    QCOMPARE(documentLetters(*document).left(8), QStringLiteral("KKKKKK.Q"));
    QTextBlock block = document->firstBlock().next();
    for (; block.next().isValid(); block = block.next()) {
        QCOMPARE(block.layout()->formats().size(), 1);
        QCOMPARE(SqlHighlighter::colorClass(block.layout()->formats().first().format), SqlColor::Quoted);
    }
    QCOMPARE(block.text(), QStringLiteral("' from `t`"));
    QCOMPARE(documentLetters(*document).right(10), QStringLiteral("Q.KKKK.QQQ"));
}

void TestSqlHighlighting::editsThatChangeNoMatchRecolourOneLine_data()
{
    QTest::addColumn<QString>("inserted");
    QTest::addColumn<int>("offset");
    QTest::newRow("letter in a keyword") << QStringLiteral("x") << 2;
    QTest::newRow("dashes start a line comment") << QStringLiteral("--") << 0;
    QTest::newRow("letter inside a block comment") << QStringLiteral("y") << 30;
}

void TestSqlHighlighting::editsThatChangeNoMatchRecolourOneLine()
{
    // Typing must not send the highlighter through the document-> Formats wiped by hand from
    // every line show which lines it coloured again.
    QFETCH(QString, inserted);
    QFETCH(int, offset);
    const QString line = QStringLiteral("SELECT 'a''b', \"c\" FROM `t` /* x */ -- it's\n");
    const auto document
        = highlightedDocument(QStringLiteral("/* open\n") + line.repeated(2000) + QStringLiteral("*/ 'z\\\n"));
    for (QTextBlock block = document->begin(); block.isValid(); block = block.next()) {
        block.layout()->clearFormats();
    }
    // Wiping formats notes the lines as changed; let the layout take that in now, or the next
    // edit would report the whole document as changed.
    document->markContentsDirty(0, 0);
    const QTextBlock middle = document->findBlockByNumber(1000);
    QTextCursor cursor(document.get());
    cursor.setPosition(middle.position() + offset);
    cursor.insertText(inserted);
    QCOMPARE(formattedBlocks(*document), QList<int> { 1000 });
}

QTEST_MAIN(TestSqlHighlighting)
#include "TestSqlHighlighting.moc"
