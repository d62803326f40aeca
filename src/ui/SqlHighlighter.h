#pragma once

#include "ui/SqlColoring.h"

#include <QList>
#include <QSyntaxHighlighter>
#include <QTextCharFormat>
#include <QTextCursor>
#include <array>

class QTextDocument;

namespace tallowick
{

// Colours a document exactly as referenceSqlColoring() colours its whole text, while touching
// only the lines an edit can affect.
//
// Each line's start state (SqlLineState, packed into the block state) carries what the patterns
// carry across line breaks. What a line needs from later lines is looked up when a quoted run or
// a block comment leaves it unfinished, and that makes the colouring of earlier lines depend on
// later text, which QSyntaxHighlighter alone never revisits. So each line also keeps a summary of
// what the patterns can see of it (its shapes), and an edit that changes a shape sends the
// highlighter back to the nearest earlier line whose lookahead could have reached the edit. Edits
// that keep every shape, such as typing a letter or a space, cost one line.
//
// Owned by the document. Main thread only.
class SqlHighlighter final : public QSyntaxHighlighter
{
    Q_OBJECT

public:
    explicit SqlHighlighter(QTextDocument *document);

    // The colour class a format applied by this highlighter stands for.
    static SqlColor colorClass(const QTextFormat &format);
    static QColor keywordColor();
    static QColor quotedColor();
    static QColor commentColor();
    // Takes the colours of the appearance now applied and colours the whole document again.
    void refreshColors();

    // True while the highlighter re-colours earlier lines on its own after an edit; the text
    // change notifications this causes are not user edits.
    bool isRecoloring() const { return m_recoloring; }

protected:
    void highlightBlock(const QString &text) override;

private:
    void setFormatColors();
    void noteContentsChange(int from, int charsRemoved, int charsAdded);
    void recolorEarlierLines();
    bool quoteFollowsAfter(QTextBlock block, QuoteKind kind) const;
    void findRunsReaching(const QTextBlock &first);
    void trackLastCloser(const QTextBlock &first, const QTextBlock &last);
    int findCloserBefore(const QTextBlock &block) const;
    bool closerIntact() const;
    int lastCloserPosition() const;

    std::array<QTextCharFormat, 4> m_formats;
    // Start of the last "*/" in the document, kept by a cursor so edits elsewhere move it along.
    QTextCursor m_lastCloser;
    bool m_hasCloser = false;
    int m_blockCount = 0;
    bool m_recoloring = false;
    // Starts of earlier lines to colour again once the document has finished the edit.
    QList<int> m_pendingLines;
};

} // namespace tallowick
