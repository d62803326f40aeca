#pragma once

#include <QList>
#include <QString>
#include <QStringView>
#include <cstddef>
#include <functional>

namespace tallowick
{

// The editor's three-colour lexical highlighting. The definition is a whole-text pass of three
// regular expressions (keywords, then quoted text, then comments; the last colour wins), and
// referenceSqlColoring() is exactly that pass. The editor cannot afford it on every keystroke, so
// the line functions below reproduce its result one line at a time: what a line needs from the
// lines before it travels in SqlLineState, and what it needs from the lines after it is asked
// through SqlLineLookahead.
//
// The keyword pattern is compiled with Unicode properties, so \b treats "é" or "ß" as letters:
// "éselect" holds no keyword. The other two patterns have no classes the option would change.

enum class SqlColor : quint8 { Plain, Keyword, Quoted, Comment };

// The three alternatives of the quoted-text pattern: 'single', "double" and `back` quotes.
enum class QuoteKind : quint8 { None, Single, Double, Back };

// A quoted-text match or a block-comment match that covers a line break and goes on into the
// next line. The two patterns are matched independently, so both can be open at once.
struct SqlLineState {
    QuoteKind quote = QuoteKind::None;
    bool blockComment = false;

    friend bool operator==(const SqlLineState &, const SqlLineState &) = default;
};

// How the greedy scan of a quoted run that enters a line at its start fares in that line: it
// meets a quote character of its kind (lone or doubled), it sticks on a backslash the line break
// cannot follow, or it passes through the whole line.
enum class RunFate : quint8 { PassesThrough, MeetsQuote, Sticks };

struct SqlLineLookahead {
    // Whether a run of this kind that leaves the line unfinished meets a quote of its kind in a
    // later line before it sticks or the text ends, so the match goes on past the line. Asked
    // only when a run actually leaves the line; the answer may differ by kind, not by run.
    std::function<bool(QuoteKind)> quoteFollows;
    // Whether a "*/" starts in some later line.
    bool closerFollows = false;
};

// The text the patterns see. Line and paragraph separators become "\n", as in
// QTextDocument::toPlainText(); an unpaired surrogate becomes U+FFFD, because the regular
// expression engine refuses a whole subject that holds one. The length never changes.
QString coloringText(const QString &text);

// The whole-text pass: one colour per UTF-16 unit of `text`. It is only as good as the engine:
// Qt's JIT-compiled matcher runs out of stack on a quoted run of more than about 21,800
// characters, and the pass then colours no further quoted text. The line functions below have
// no such limit and colour what the pattern means.
QList<SqlColor> referenceSqlColoring(const QString &text);

// Colours one line of coloringText() output (without its line break) into `colors`, resized to
// the line's length, and returns the state at the line's end.
SqlLineState colorSqlLine(
    QStringView line, SqlLineState start, const SqlLineLookahead &lookahead, QList<SqlColor> &colors);

RunFate runFateFromLineStart(QStringView line, QuoteKind kind);

// Fingerprints of what the quoted-text and comment patterns can see of a line: their special
// characters in order, every stretch of other characters counted as one. An edit that keeps both
// fingerprints cannot change where any match in the document starts or ends.
std::size_t quoteShape(QStringView line);
std::size_t commentShape(QStringView line);

QChar quoteCharacter(QuoteKind kind);

} // namespace tallowick
