#include "ui/TextSearch.h"

#include <algorithm>
#include <utility>

namespace tallowick
{

namespace
{

bool startsBefore(const TextMatch &match, qsizetype position)
{
    return match.start < position;
}

} // namespace

QRegularExpression searchExpression(const QString &pattern, const SearchOptions &options)
{
    QRegularExpression::PatternOptions flags = QRegularExpression::UseUnicodePropertiesOption;
    if (!options.matchCase) {
        flags |= QRegularExpression::CaseInsensitiveOption;
    }
    QString body = options.regularExpression ? pattern : QRegularExpression::escape(pattern);
    if (options.regularExpression) {
        flags |= QRegularExpression::MultilineOption;
        // Checked alone first: wrapped in a group, "a)(b" would compile.
        const QRegularExpression typed(pattern, flags);
        if (!typed.isValid()) {
            return typed;
        }
    }
    if (options.wholeWord) {
        static const QString edge = QStringLiteral("[\\p{L}\\p{M}\\p{N}_$]");
        body = QStringLiteral("(?<!%1)(?:%2)(?!%1)").arg(edge, body);
    }
    // An empty match selects nothing and would make stepping through matches stand still.
    QRegularExpression expression(QStringLiteral("(*NOTEMPTY)") + body, flags);
    return expression;
}

QString expandReplacement(const QString &replacement, const QRegularExpressionMatch &match)
{
    QString result;
    result.reserve(replacement.size());
    for (qsizetype i = 0; i < replacement.size(); ++i) {
        const QChar c = replacement[i];
        if (c != u'\\' || i + 1 == replacement.size()) {
            result += c;
            continue;
        }
        const QChar next = replacement[i + 1];
        if (next.isDigit() && next.unicode() < 0x80) {
            result += match.captured(next.digitValue());
        } else if (next == u'n') {
            result += u'\n';
        } else if (next == u't') {
            result += u'\t';
        } else if (next == u'\\') {
            result += u'\\';
        } else {
            result += c;
            result += next;
        }
        ++i;
    }
    return result;
}

TextMatches::TextMatches(QString text, QRegularExpression expression)
    : m_text(std::move(text))
    , m_expression(std::move(expression))
{
    Q_ASSERT(m_expression.isValid());
    QRegularExpressionMatchIterator found = m_expression.globalMatch(m_text);
    while (found.hasNext()) {
        if (m_listed.size() == listLimit) {
            m_complete = false;
            break;
        }
        const QRegularExpressionMatch match = found.next();
        m_listed.append({ match.capturedStart(), match.capturedLength() });
    }
}

std::optional<TextMatch> TextMatches::next(qsizetype from) const
{
    if (m_listed.isEmpty()) {
        return std::nullopt;
    }
    const auto listed = std::partition_point(
        m_listed.begin(), m_listed.end(), [from](const TextMatch &match) { return startsBefore(match, from); });
    if (listed != m_listed.end()) {
        return *listed;
    }
    if (!m_complete) {
        if (const auto beyond = firstFrom(std::max(from, m_listed.last().end()))) {
            return beyond;
        }
    }
    return m_listed.first();
}

std::optional<TextMatch> TextMatches::previous(qsizetype before) const
{
    if (m_listed.isEmpty()) {
        return std::nullopt;
    }
    if (!m_complete && before > m_listed.last().end()) {
        if (const auto beyond = lastBetween(m_listed.last().end(), before)) {
            return beyond;
        }
    }
    const auto listed = std::partition_point(
        m_listed.begin(), m_listed.end(), [before](const TextMatch &match) { return startsBefore(match, before); });
    if (listed != m_listed.begin()) {
        return *std::prev(listed);
    }
    if (!m_complete) {
        if (const auto last = lastBetween(m_listed.last().end(), m_text.size() + 1)) {
            return last;
        }
    }
    return m_listed.last();
}

std::optional<QRegularExpressionMatch> TextMatches::matchOf(const TextMatch &range) const
{
    QRegularExpressionMatch match = m_expression.match(
        m_text, range.start, QRegularExpression::NormalMatch, QRegularExpression::AnchorAtOffsetMatchOption);
    if (!match.hasMatch() || match.capturedLength() != range.length) {
        return std::nullopt;
    }
    return match;
}

std::optional<qsizetype> TextMatches::indexOf(const TextMatch &match) const
{
    const auto listed = std::partition_point(m_listed.begin(), m_listed.end(), [&match](const TextMatch &entry) {
        return startsBefore(entry, match.start);
    });
    if (listed == m_listed.end() || *listed != match) {
        return std::nullopt;
    }
    return listed - m_listed.begin();
}

std::optional<TextMatch> TextMatches::firstFrom(qsizetype from) const
{
    const QRegularExpressionMatch match = m_expression.match(m_text, from);
    if (!match.hasMatch()) {
        return std::nullopt;
    }
    return TextMatch { match.capturedStart(), match.capturedLength() };
}

std::optional<TextMatch> TextMatches::lastBetween(qsizetype from, qsizetype before) const
{
    std::optional<TextMatch> last;
    QRegularExpressionMatchIterator found = m_expression.globalMatch(m_text, from);
    while (found.hasNext()) {
        const QRegularExpressionMatch match = found.next();
        if (match.capturedStart() >= before) {
            break;
        }
        last = TextMatch { match.capturedStart(), match.capturedLength() };
    }
    return last;
}

} // namespace tallowick
