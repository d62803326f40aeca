#include "ui/SqlHighlighter.h"

#include "ui/Theme.h"

#include <QTextBlock>
#include <QTextDocument>
#include <algorithm>
#include <utility>

namespace tallowick
{

namespace
{

constexpr int ColorClassProperty = QTextFormat::UserProperty + 1;
constexpr std::array<QuoteKind, 3> quoteKinds { QuoteKind::Single, QuoteKind::Double, QuoteKind::Back };

int indexOf(QuoteKind kind)
{
    return static_cast<int>(kind) - 1;
}

// What one line looked like when it was last coloured. Everything but the cached lookahead
// answers follows from the line's text alone, and only from its shapes; `stale` is set when an
// edit changed a shape and the line has not been coloured since.
struct LineInfo final : QTextBlockUserData {
    std::size_t quoteShape = 0;
    std::size_t commentShape = 0;
    std::array<RunFate, 3> fates {};
    // Per kind: whether a run leaving this line meets a quote later (1), does not (0), or not
    // asked yet (-1). Valid for the line's start state and shape it was asked under.
    std::array<qint8, 3> quoteFollows { -1, -1, -1 };
    QuoteKind askedFor = QuoteKind::None;
    quint8 quoteChars = 0;
    bool hasOpener = false;
    bool hasCloser = false;
    bool stale = true;
};

LineInfo *lineInfo(const QTextBlock &block)
{
    return static_cast<LineInfo *>(block.userData());
}

bool holdsQuote(const LineInfo *info, int kind)
{
    return (info->quoteChars & (1U << kind)) != 0;
}

int encodeState(SqlLineState state)
{
    return static_cast<int>(state.quote) | (state.blockComment ? 4 : 0);
}

SqlLineState decodeState(int state)
{
    if (state < 0) {
        return {};
    }
    return { static_cast<QuoteKind>(state & 3), (state & 4) != 0 };
}

void summarize(LineInfo &info, QStringView line)
{
    info.commentShape = commentShape(line);
    info.quoteChars = 0;
    for (const QuoteKind kind : quoteKinds) {
        const int index = indexOf(kind);
        if (line.contains(quoteCharacter(kind))) {
            info.quoteChars |= static_cast<quint8>(1U << index);
        }
        info.fates[static_cast<std::size_t>(index)] = runFateFromLineStart(line, kind);
    }
    info.hasOpener = line.contains(u"/*");
    info.hasCloser = line.contains(u"*/");
    info.stale = false;
}

} // namespace

SqlHighlighter::SqlHighlighter(QTextDocument *document)
    : QSyntaxHighlighter(static_cast<QObject *>(document))
{
    setFormatColors();

    // These run before QSyntaxHighlighter's own handler, which setDocument() connects after them:
    // the shapes stored for an edited line must be compared before that line is coloured again.
    QObject::connect(document, &QTextDocument::contentsChange, this, &SqlHighlighter::noteContentsChange);
    QObject::connect(document, &QTextDocument::contentsChanged, this, &SqlHighlighter::recolorEarlierLines);
    setDocument(document);

    m_blockCount = document->blockCount();
    m_lastCloser = QTextCursor(document);
    const int closer = findCloserBefore(document->lastBlock().next());
    m_hasCloser = closer >= 0;
    if (m_hasCloser) {
        m_lastCloser.setPosition(closer);
    }
    if (!document->isEmpty()) {
        m_recoloring = true;
        rehighlight();
        m_recoloring = false;
    }
}

SqlColor SqlHighlighter::colorClass(const QTextFormat &format)
{
    return format.hasProperty(ColorClassProperty) ? static_cast<SqlColor>(format.intProperty(ColorClassProperty))
                                                  : SqlColor::Plain;
}

QColor SqlHighlighter::keywordColor()
{
    return themeColors().sqlKeyword;
}

QColor SqlHighlighter::quotedColor()
{
    return themeColors().sqlQuoted;
}

QColor SqlHighlighter::commentColor()
{
    return themeColors().sqlComment;
}

void SqlHighlighter::setFormatColors()
{
    const std::array<std::pair<SqlColor, QColor>, 3> colors { { { SqlColor::Keyword, keywordColor() },
        { SqlColor::Quoted, quotedColor() },
        { SqlColor::Comment, commentColor() } } };
    for (const auto &[color, foreground] : colors) {
        QTextCharFormat &format = m_formats[static_cast<std::size_t>(color)];
        format.setForeground(foreground);
        format.setProperty(ColorClassProperty, static_cast<int>(color));
    }
}

void SqlHighlighter::refreshColors()
{
    setFormatColors();
    // Colouring the document again is not an edit, as with the highlighter's own recolouring.
    m_recoloring = true;
    rehighlight();
    m_recoloring = false;
}

void SqlHighlighter::highlightBlock(const QString &text)
{
    const QTextBlock block = currentBlock();
    auto *info = static_cast<LineInfo *>(currentBlockUserData());
    if (!info) {
        info = new LineInfo;
        setCurrentBlockUserData(info);
    }
    const SqlLineState start = decodeState(previousBlockState());
    const QString line = coloringText(text);
    const std::size_t shapeOfQuotes = quoteShape(line);
    if (info->stale || info->quoteShape != shapeOfQuotes || info->askedFor != start.quote) {
        info->quoteFollows.fill(-1);
    }
    info->quoteShape = shapeOfQuotes;
    info->askedFor = start.quote;

    SqlLineLookahead lookahead;
    lookahead.quoteFollows = [this, info, &block](QuoteKind kind) {
        qint8 &answer = info->quoteFollows[static_cast<std::size_t>(indexOf(kind))];
        if (answer < 0) {
            answer = quoteFollowsAfter(block.next(), kind) ? 1 : 0;
        }
        return answer == 1;
    };
    // Only an opening "/*" asks, and finding a block's position is not free.
    lookahead.closerFollows = line.contains(u"/*") && lastCloserPosition() >= block.position() + block.length();

    QList<SqlColor> colors;
    const SqlLineState end = colorSqlLine(line, start, lookahead, colors);
    qsizetype runStart = 0;
    for (qsizetype i = 1; i <= colors.size(); ++i) {
        if (i == colors.size() || colors[i] != colors[runStart]) {
            if (colors[runStart] != SqlColor::Plain) {
                setFormat(static_cast<int>(runStart),
                    static_cast<int>(i - runStart),
                    m_formats[static_cast<std::size_t>(colors[runStart])]);
            }
            runStart = i;
        }
    }
    summarize(*info, line);
    setCurrentBlockState(encodeState(end));
}

bool SqlHighlighter::quoteFollowsAfter(QTextBlock block, QuoteKind kind) const
{
    const auto index = static_cast<std::size_t>(indexOf(kind));
    for (; block.isValid(); block = block.next()) {
        const LineInfo *info = lineInfo(block);
        const RunFate fate
            = info && !info->stale ? info->fates[index] : runFateFromLineStart(coloringText(block.text()), kind);
        if (fate != RunFate::PassesThrough) {
            return fate == RunFate::MeetsQuote;
        }
    }
    return false;
}

void SqlHighlighter::noteContentsChange(int from, int charsRemoved, int charsAdded)
{
    Q_UNUSED(charsRemoved);
    if (m_recoloring) {
        return;
    }
    QTextDocument *doc = document();
    QTextBlock first = doc->findBlock(from);
    if (!first.isValid()) {
        first = doc->lastBlock();
    }
    QTextBlock last = doc->findBlock(from + charsAdded);
    if (!last.isValid()) {
        last = doc->lastBlock();
    }

    // An edit inside one line is compared shape by shape; anything that adds or removes line
    // breaks is taken as changing every shape.
    bool quotesChanged = true;
    bool commentsChanged = true;
    const int blockCount = doc->blockCount();
    if (first == last && blockCount == m_blockCount) {
        const LineInfo *info = lineInfo(first);
        if (info && !info->stale) {
            const QString line = coloringText(first.text());
            quotesChanged = quoteShape(line) != info->quoteShape;
            commentsChanged = commentShape(line) != info->commentShape;
        }
    }
    // Retyping the last "*/" over itself keeps every shape but leaves the cursor behind it.
    commentsChanged = commentsChanged || !closerIntact();
    m_blockCount = blockCount;
    if (!quotesChanged && !commentsChanged) {
        return;
    }
    for (QTextBlock block = first; block.isValid(); block = block.next()) {
        if (LineInfo *info = lineInfo(block)) {
            info->stale = true;
        }
        if (block == last) {
            break;
        }
    }
    if (commentsChanged) {
        trackLastCloser(first, last);
    }
    if (quotesChanged) {
        findRunsReaching(first);
    }
}

void SqlHighlighter::findRunsReaching(const QTextBlock &first)
{
    // A run of some kind that reached the edit from an earlier line entered every line in between
    // at its start and passed through it. So walking back, the first line that stops such runs
    // (it meets a quote of the kind, or makes them stick) ends the search: a run from further
    // back ends there, or goes on with its match already reaching past that line, whatever the
    // edit did. Up to there, each line that holds the quote character (even escaped, as the
    // scan may still open a run at it) can have looked past the edit, so it is coloured again
    // with its lookahead forgotten.
    std::array<bool, 3> searching { true, true, true };
    int remaining = 3;
    for (QTextBlock block = first.previous(); block.isValid() && remaining > 0; block = block.previous()) {
        LineInfo *info = lineInfo(block);
        const bool known = info && !info->stale;
        const QString text = known ? QString() : coloringText(block.text());
        bool pending = false;
        for (const QuoteKind kind : quoteKinds) {
            const auto index = static_cast<std::size_t>(indexOf(kind));
            if (!searching[index]) {
                continue;
            }
            const bool holds = known ? holdsQuote(info, indexOf(kind)) : text.contains(quoteCharacter(kind));
            const RunFate fate = known ? info->fates[index] : runFateFromLineStart(text, kind);
            if (holds) {
                if (info) {
                    info->quoteFollows[index] = -1;
                }
                pending = true;
            }
            if (fate != RunFate::PassesThrough) {
                searching[index] = false;
                --remaining;
            }
        }
        if (pending) {
            m_pendingLines.append(block.position());
        }
    }
}

void SqlHighlighter::trackLastCloser(const QTextBlock &first, const QTextBlock &last)
{
    QTextDocument *doc = document();
    // The cursor is checked after every edit, so a broken one was broken by this edit: the old
    // last "*/" lay in the edited text, and none can follow the edited lines.
    const int old = lastCloserPosition();
    const bool oldIntact = old >= 0 && closerIntact();
    int now = oldIntact ? old : -1;
    for (QTextBlock block = last; block.isValid(); block = block.previous()) {
        const int at = static_cast<int>(block.text().lastIndexOf(u"*/"));
        if (at >= 0) {
            now = std::max(now, block.position() + at);
            break;
        }
        if (block == first) {
            break;
        }
    }
    if (now < 0) {
        now = findCloserBefore(first);
    }
    m_hasCloser = now >= 0;
    if (m_hasCloser) {
        m_lastCloser.setPosition(now);
    }
    if (now == old && oldIntact) {
        return;
    }
    // An opening "/*" with no "*/" in its own line matches exactly when the last "*/" lies past
    // it, so the openers between the old and the new last "*/" change. The edited lines and
    // everything after them are coloured anyway; collect the earlier lines that hold one.
    const int low = old < 0 || now < 0 ? 0 : std::min(old, now);
    const int firstPosition = first.position();
    for (QTextBlock block = doc->findBlock(std::max(0, low - 2)); block.isValid() && block.position() < firstPosition;
         block = block.next()) {
        const LineInfo *info = lineInfo(block);
        if (!info || info->stale || info->hasOpener) {
            m_pendingLines.append(block.position());
        }
    }
}

int SqlHighlighter::findCloserBefore(const QTextBlock &block) const
{
    QTextBlock previous = block.isValid() ? block.previous() : document()->lastBlock();
    for (; previous.isValid(); previous = previous.previous()) {
        const LineInfo *info = lineInfo(previous);
        if (info && !info->stale && !info->hasCloser) {
            continue;
        }
        const int at = static_cast<int>(previous.text().lastIndexOf(u"*/"));
        if (at >= 0) {
            return previous.position() + at;
        }
    }
    return -1;
}

bool SqlHighlighter::closerIntact() const
{
    if (!m_hasCloser) {
        return true;
    }
    const int at = m_lastCloser.position();
    return document()->characterAt(at) == u'*' && document()->characterAt(at + 1) == u'/';
}

int SqlHighlighter::lastCloserPosition() const
{
    return m_hasCloser ? m_lastCloser.position() : -1;
}

void SqlHighlighter::recolorEarlierLines()
{
    if (m_recoloring || m_pendingLines.isEmpty()) {
        return;
    }
    QList<int> lines = std::exchange(m_pendingLines, {});
    std::sort(lines.begin(), lines.end());
    lines.erase(std::unique(lines.begin(), lines.end()), lines.end());
    // Colouring a line goes on into the following lines while their start states change.
    m_recoloring = true;
    for (const int position : std::as_const(lines)) {
        const QTextBlock block = document()->findBlock(position);
        if (block.isValid()) {
            rehighlightBlock(block);
        }
    }
    m_recoloring = false;
}

} // namespace tallowick
