#pragma once

#include <QList>
#include <QRegularExpression>
#include <QString>
#include <optional>

namespace tallowick
{

struct SearchOptions {
    bool matchCase = false;
    bool wholeWord = false;
    bool regularExpression = false;
};

// The expression that finds `pattern` under `options`: the text as typed, or a regular
// expression in which ^ and $ match at line ends. A whole word has no letter, mark, digit, "_"
// or "$" (the characters of SQL names) on either side. Only non-empty text is ever found.
// Invalid, with errorString() saying why, for a regular expression that does not compile.
QRegularExpression searchExpression(const QString &pattern, const SearchOptions &options);

// The text that takes the place of `match` when a regular expression search replaces it: \0 is
// the whole match, \1 to \9 its groups (empty for a group that took no part or does not exist),
// \n a line break, \t a tab and \\ one backslash; any other backslash stays as typed.
QString expandReplacement(const QString &replacement, const QRegularExpressionMatch &match);

struct TextMatch {
    qsizetype start = 0;
    qsizetype length = 0;

    qsizetype end() const { return start + length; }
    bool operator==(const TextMatch &) const = default;
};

// One search over one text: the matches are listed in a single pass, up to `listLimit` of them,
// so a pattern that matches everywhere in a large script still answers at once. Stepping past
// the listed ones searches the text from there.
class TextMatches
{
public:
    static constexpr qsizetype listLimit = 10'000;

    // `expression` must be valid.
    TextMatches(QString text, QRegularExpression expression);

    const QString &text() const { return m_text; }
    const QRegularExpression &expression() const { return m_expression; }
    const QList<TextMatch> &listed() const { return m_listed; }
    // Whether every match of the text is listed.
    bool complete() const { return m_complete; }

    // The first match starting at or after `from`, else (wrapping round) the first of the text.
    std::optional<TextMatch> next(qsizetype from) const;
    // The last match starting before `before`, else (wrapping round) the last of the text.
    std::optional<TextMatch> previous(qsizetype before) const;
    // The match of exactly this range, with its groups, when there is one.
    std::optional<QRegularExpressionMatch> matchOf(const TextMatch &range) const;
    // 0-based place of a listed match.
    std::optional<qsizetype> indexOf(const TextMatch &match) const;

private:
    std::optional<TextMatch> firstFrom(qsizetype from) const;
    std::optional<TextMatch> lastBetween(qsizetype from, qsizetype before) const;

    QString m_text;
    QRegularExpression m_expression;
    QList<TextMatch> m_listed;
    bool m_complete = true;
};

} // namespace tallowick
