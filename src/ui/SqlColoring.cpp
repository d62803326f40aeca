#include "ui/SqlColoring.h"

#include <QRegularExpression>
#include <algorithm>

namespace tallowick
{

namespace
{

const QRegularExpression &keywordPattern()
{
    static const QRegularExpression pattern(
        QStringLiteral("(?i)\\b(SELECT|FROM|WHERE|JOIN|LEFT|RIGHT|INNER|OUTER|ON|AND|OR|NOT|NULL|IS|AS|LIMIT|OFFSET|"
                       "ORDER|GROUP|BY|HAVING|ASC|DESC|DISTINCT|INSERT|INTO|VALUES|UPDATE|SET|DELETE|CREATE|ALTER|"
                       "DROP|TABLE|DATABASE|INDEX|PRIMARY|KEY|REFERENCES|CONSTRAINT|DEFAULT|AUTO_INCREMENT|IF|"
                       "EXISTS|SHOW|DESCRIBE|EXPLAIN|START|TRANSACTION|COMMIT|ROLLBACK|USE|COUNT|SUM|AVG|MIN|MAX|"
                       "LIKE|IN|CASE|WHEN|THEN|ELSE|END|UNION|ALL|WITH|TRUNCATE|USER|GRANT|REVOKE)\\b"),
        QRegularExpression::UseUnicodePropertiesOption);
    return pattern;
}

const QRegularExpression &quotedPattern()
{
    static const QRegularExpression pattern(
        QStringLiteral(R"('(?:''|\\.|[^'\\])*'|"(?:""|\\.|[^"\\])*"|`(?:``|[^`])*`)"));
    return pattern;
}

const QRegularExpression &commentPattern()
{
    static const QRegularExpression pattern(QStringLiteral(R"((?m)--[^\n]*|#[^\n]*|/\*[\s\S]*?\*/)"));
    return pattern;
}

void paint(QList<SqlColor> &colors, qsizetype from, qsizetype to, SqlColor color)
{
    std::fill(colors.begin() + from, colors.begin() + to, color);
}

void paintMatches(const QRegularExpression &pattern, QStringView text, SqlColor color, QList<SqlColor> &colors)
{
    // A pattern that does not compile is skipped; the others still apply.
    if (!pattern.isValid()) {
        return;
    }
    QRegularExpressionMatchIterator matches = pattern.globalMatch(text);
    while (matches.hasNext()) {
        const QRegularExpressionMatch match = matches.next();
        paint(colors, match.capturedStart(), match.capturedEnd(), color);
    }
}

QuoteKind kindOf(QChar c)
{
    switch (c.unicode()) {
    case u'\'':
        return QuoteKind::Single;
    case u'"':
        return QuoteKind::Double;
    case u'`':
        return QuoteKind::Back;
    default:
        return QuoteKind::None;
    }
}

// Where the greedy scan of a quoted run stopped inside one line.
struct RunStop {
    enum Kind { Lone, Stuck, Exhausted };
    Kind kind;
    qsizetype at; // Lone: the closing quote; Stuck: the backslash
    qsizetype lastPair; // first quote of the last doubled quote passed in this line, or -1
};

// The pattern's repeat takes a doubled quote first, then a backslash with any character but a
// line break ('.' without dot-all), then any character that is neither quote nor backslash; the
// engine tries that greedily before it backtracks. A lone quote ends the match at once. Anywhere
// else the greedy run sticks, and the engine backtracks into the last doubled quote, whose first
// half then closes the match; with no doubled quote there is no match at the opening quote.
RunStop scanRun(QStringView line, qsizetype from, QuoteKind kind)
{
    const QChar quote = quoteCharacter(kind);
    const bool backslashEscapes = kind != QuoteKind::Back;
    const qsizetype size = line.size();
    qsizetype lastPair = -1;
    qsizetype i = from;
    while (i < size) {
        const QChar c = line[i];
        if (c == quote) {
            if (i + 1 < size && line[i + 1] == quote) {
                lastPair = i;
                i += 2;
                continue;
            }
            return { RunStop::Lone, i, lastPair };
        }
        if (backslashEscapes && c == u'\\') {
            // '.' takes no line break, and the line's last backslash has nothing else after it.
            if (i + 1 == size || line[i + 1] == u'\n') {
                return { RunStop::Stuck, i, lastPair };
            }
            i += 2;
            continue;
        }
        ++i;
    }
    return { RunStop::Exhausted, size, lastPair };
}

qsizetype nextQuote(QStringView line, qsizetype from)
{
    for (qsizetype i = from; i < line.size(); ++i) {
        if (kindOf(line[i]) != QuoteKind::None) {
            return i;
        }
    }
    return -1;
}

QuoteKind colorQuotedText(QStringView line, QuoteKind open, const SqlLineLookahead &lookahead, QList<SqlColor> &colors)
{
    const qsizetype size = line.size();
    qsizetype i = 0;
    if (open != QuoteKind::None) {
        // A match from an earlier line covers this line's start, so it ends at a quote of its
        // kind in this line or later; with none here it simply goes on.
        const RunStop run = scanRun(line, 0, open);
        if (run.kind == RunStop::Lone) {
            paint(colors, 0, run.at + 1, SqlColor::Quoted);
            i = run.at + 1;
        } else if (run.kind == RunStop::Exhausted && (run.lastPair < 0 || lookahead.quoteFollows(open))) {
            paint(colors, 0, size, SqlColor::Quoted);
            return open;
        } else if (run.lastPair >= 0) {
            paint(colors, 0, run.lastPair + 1, SqlColor::Quoted);
            i = run.lastPair + 2;
        }
    }
    while (i < size) {
        const qsizetype start = nextQuote(line, i);
        if (start < 0) {
            break;
        }
        const QuoteKind kind = kindOf(line[start]);
        const RunStop run = scanRun(line, start + 1, kind);
        if (run.kind == RunStop::Lone) {
            paint(colors, start, run.at + 1, SqlColor::Quoted);
            i = run.at + 1;
        } else if (run.kind == RunStop::Exhausted && lookahead.quoteFollows(kind)) {
            paint(colors, start, size, SqlColor::Quoted);
            return kind;
        } else if (run.lastPair >= 0) {
            // The second half of that doubled quote opens nothing: the run from it meets no
            // further quote before it sticks.
            paint(colors, start, run.lastPair + 1, SqlColor::Quoted);
            i = run.lastPair + 2;
        } else {
            i = start + 1;
        }
    }
    return QuoteKind::None;
}

bool colorComments(QStringView line, bool open, bool closerFollows, QList<SqlColor> &colors)
{
    const qsizetype size = line.size();
    qsizetype i = 0;
    if (open) {
        const qsizetype close = line.indexOf(u"*/");
        if (close < 0) {
            paint(colors, 0, size, SqlColor::Comment);
            return true;
        }
        paint(colors, 0, close + 2, SqlColor::Comment);
        i = close + 2;
    }
    while (i < size) {
        const QChar c = line[i];
        const QChar next = i + 1 < size ? line[i + 1] : QChar();
        if (c == u'#' || (c == u'-' && next == u'-')) {
            qsizetype end = line.indexOf(u'\n', i);
            if (end < 0) {
                end = size;
            }
            paint(colors, i, end, SqlColor::Comment);
            i = end;
            continue;
        }
        if (c == u'/' && next == u'*') {
            const qsizetype close = line.indexOf(u"*/", i + 2);
            if (close >= 0) {
                paint(colors, i, close + 2, SqlColor::Comment);
                i = close + 2;
                continue;
            }
            // Lazy as it is, the pattern still needs some "*/" after the opening; without one
            // the engine moves on to the next character.
            if (closerFollows) {
                paint(colors, i, size, SqlColor::Comment);
                return true;
            }
        }
        ++i;
    }
    return false;
}

template <typename IsSpecial> std::size_t shape(QStringView line, IsSpecial isSpecial)
{
    // FNV-1a over the special characters, with one zero for each stretch of others.
    quint64 hash = 14695981039346656037ULL;
    const auto mix = [&hash](char16_t unit) {
        hash ^= unit;
        hash *= 1099511628211ULL;
    };
    bool inStretch = false;
    for (const QChar c : line) {
        if (isSpecial(c.unicode())) {
            mix(c.unicode());
            inStretch = false;
        } else if (!inStretch) {
            mix(0);
            inStretch = true;
        }
    }
    return static_cast<std::size_t>(hash);
}

} // namespace

QChar quoteCharacter(QuoteKind kind)
{
    switch (kind) {
    case QuoteKind::Single:
        return u'\'';
    case QuoteKind::Double:
        return u'"';
    case QuoteKind::Back:
        return u'`';
    case QuoteKind::None:
        break;
    }
    return QChar();
}

QString coloringText(const QString &text)
{
    QString result = text;
    QChar *data = result.data();
    const qsizetype size = result.size();
    for (qsizetype i = 0; i < size; ++i) {
        const char16_t unit = data[i].unicode();
        if (unit == QChar::LineSeparator || unit == QChar::ParagraphSeparator || unit == 0xfdd0 || unit == 0xfdd1) {
            data[i] = u'\n';
        } else if (QChar::isHighSurrogate(unit)) {
            if (i + 1 < size && QChar::isLowSurrogate(data[i + 1].unicode())) {
                ++i;
            } else {
                data[i] = QChar::ReplacementCharacter;
            }
        } else if (QChar::isLowSurrogate(unit)) {
            data[i] = QChar::ReplacementCharacter;
        }
    }
    return result;
}

QList<SqlColor> referenceSqlColoring(const QString &text)
{
    const QString subject = coloringText(text);
    QList<SqlColor> colors(subject.size(), SqlColor::Plain);
    paintMatches(keywordPattern(), subject, SqlColor::Keyword, colors);
    paintMatches(quotedPattern(), subject, SqlColor::Quoted, colors);
    paintMatches(commentPattern(), subject, SqlColor::Comment, colors);
    return colors;
}

SqlLineState colorSqlLine(
    QStringView line, SqlLineState start, const SqlLineLookahead &lookahead, QList<SqlColor> &colors)
{
    colors.fill(SqlColor::Plain, line.size());
    // A keyword never spans a line break, and the break is no word character, so the pattern
    // finds the same keywords in the line alone as in the whole text.
    paintMatches(keywordPattern(), line, SqlColor::Keyword, colors);
    SqlLineState end;
    end.quote = colorQuotedText(line, start.quote, lookahead, colors);
    end.blockComment = colorComments(line, start.blockComment, lookahead.closerFollows, colors);
    return end;
}

RunFate runFateFromLineStart(QStringView line, QuoteKind kind)
{
    const RunStop run = scanRun(line, 0, kind);
    if (run.kind == RunStop::Lone || run.lastPair >= 0) {
        return RunFate::MeetsQuote;
    }
    return run.kind == RunStop::Stuck ? RunFate::Sticks : RunFate::PassesThrough;
}

std::size_t quoteShape(QStringView line)
{
    return shape(line, [](char16_t c) { return c == u'\'' || c == u'"' || c == u'`' || c == u'\\' || c == u'\n'; });
}

std::size_t commentShape(QStringView line)
{
    return shape(line, [](char16_t c) { return c == u'-' || c == u'#' || c == u'/' || c == u'*' || c == u'\n'; });
}

} // namespace tallowick
