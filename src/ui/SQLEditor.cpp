#include "ui/SQLEditor.h"

#include "core/AppError.h"
#include "core/ScriptSplitter.h"
#include "ui/SqlHighlighter.h"
#include "ui/Theme.h"

#include <QAbstractItemView>
#include <QCompleter>
#include <QElapsedTimer>
#include <QFontDatabase>
#include <QKeyEvent>
#include <QLabel>
#include <QPainter>
#include <QScrollBar>
#include <QSet>
#include <QStringListModel>
#include <QTextBlock>
#include <QTimer>
#include <algorithm>
#include <utility>

namespace tallowick
{

namespace
{

const QStringList &fixedPhrases()
{
    static const QStringList phrases { QStringLiteral("SELECT"),
        QStringLiteral("FROM"),
        QStringLiteral("WHERE"),
        QStringLiteral("LEFT JOIN"),
        QStringLiteral("INNER JOIN"),
        QStringLiteral("GROUP BY"),
        QStringLiteral("ORDER BY"),
        QStringLiteral("LIMIT"),
        QStringLiteral("INSERT INTO"),
        QStringLiteral("UPDATE"),
        QStringLiteral("DELETE FROM"),
        QStringLiteral("SHOW TABLES"),
        QStringLiteral("EXPLAIN"),
        QStringLiteral("COUNT(*)") };
    return phrases;
}

// The text as the document will hold it and give it back: every kind of line break becomes
// "\n" and a no-break space a space. A host that keeps CR LF text must not make every refresh
// look like new text, or the cursor would jump to the start while the user types.
QString documentForm(const QString &text)
{
    QString result;
    result.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if (c == u'\r') {
            if (i + 1 < text.size() && text[i + 1] == u'\n') {
                ++i;
            }
            result += u'\n';
        } else if (c == QChar::ParagraphSeparator || c == QChar::LineSeparator || c.unicode() == 0xfdd0
            || c.unicode() == 0xfdd1) {
            result += u'\n';
        } else if (c == QChar::Nbsp) {
            result += u' ';
        } else {
            result += c;
        }
    }
    return result;
}

// SQL identifiers take letters (with their combining marks), digits, "_" and "$".
bool isWordCharacter(char32_t c)
{
    switch (QChar::category(c)) {
    case QChar::Mark_NonSpacing:
    case QChar::Mark_SpacingCombining:
    case QChar::Mark_Enclosing:
        return true;
    default:
        return QChar::isLetterOrNumber(c) || c == U'_' || c == U'$';
    }
}

} // namespace

SQLEditor::SQLEditor(bool readOnly, QWidget *parent)
    : QPlainTextEdit(parent)
    , m_highlighter(new SqlHighlighter(document()))
    , m_completer(new QCompleter(this))
    , m_completionModel(new QStringListModel(this))
    , m_loadTimer(new QTimer(this))
    , m_loadLabel(new QLabel(this))
{
    QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    // Device-independent pixels, like the grid's 14: as points (20 px at 96 dpi) the script
    // would tower over its results.
    font.setPixelSize(15);
    font.setWeight(QFont::Normal);
    setFont(font);

    setFrameShape(QFrame::NoFrame);
    setLineWrapMode(QPlainTextEdit::WidgetWidth);
    setWordWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    // 18 px all round from the document, which scrolls with the text, and 2 px more at the sides
    // from the viewport; the frame behind those 2 px is painted like the text background.
    document()->setDocumentMargin(18);
    setViewportMargins(2, 0, 2, 0);
    setBackgroundRole(QPalette::Base);
    setAutoFillBackground(true);
    setInputMethodHints(Qt::ImhNoAutoUppercase | Qt::ImhNoPredictiveText);
    // The caret is drawn in paintEvent(), in the accent colour.
    setCursorWidth(0);
    followTheme(this, [this] { m_highlighter->refreshColors(); });

    if (readOnly) {
        setReadOnly(true);
        setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    }
    setAccessibleName(readOnly ? QStringLiteral("Generated SQL preview") : QStringLiteral("SQL editor"));

    m_completer->setModel(m_completionModel);
    m_completer->setWidget(this);
    m_completer->setCompletionMode(QCompleter::UnfilteredPopupCompletion);
    m_completer->setCaseSensitivity(Qt::CaseInsensitive);
    QObject::connect(
        m_completer, qOverload<const QString &>(&QCompleter::activated), this, &SQLEditor::insertCompletion);

    QObject::connect(this, &QPlainTextEdit::textChanged, this, [this] {
        // Re-colouring earlier lines also reports a change; only the user's edits count.
        if (m_replacingText || m_highlighter->isRecoloring()) {
            return;
        }
        // Copying a multi-megabyte script for the host on every keystroke would make typing
        // lag, so a large text is handed over only when something needs it.
        if (document()->characterCount() > largeTextCharacters) {
            if (!m_pendingEdit) {
                m_pendingEdit = true;
                Q_EMIT editPending();
            }
            return;
        }
        Q_EMIT sqlEdited(toPlainText());
    });
    m_loadTimer->setInterval(0);
    QObject::connect(m_loadTimer, &QTimer::timeout, this, &SQLEditor::loadNextPiece);
    m_loadLabel->setObjectName(QStringLiteral("loadProgress"));
    m_loadLabel->setAutoFillBackground(true);
    m_loadLabel->setContentsMargins(10, 4, 10, 4);
    m_loadLabel->hide();
    QObject::connect(this, &QPlainTextEdit::cursorPositionChanged, this, &SQLEditor::updateCaret);
}

void SQLEditor::setSQL(const QString &text)
{
    QString form = documentForm(text);
    // The length first: comparing with a large document's text would copy all of it.
    if (!isLoading() && form.size() + 1 == document()->characterCount() && form == sql()) {
        return;
    }
    stopLoading();
    m_replacingText = true;
    if (form.size() <= largeTextCharacters) {
        setPlainText(form);
        m_replacingText = false;
        return;
    }
    setPlainText(QString());
    m_replacingText = false;
    // Loaded in pieces between paints: laying out and colouring 20 MB at once would hold the
    // window for seconds. Nothing may be typed into a text that is still arriving.
    document()->setUndoRedoEnabled(false);
    m_readOnlyBeforeLoad = isReadOnly();
    if (!m_readOnlyBeforeLoad) {
        setReadOnly(true);
    }
    m_loadText = std::move(form);
    m_loadOffset = 0;
    m_loadLabel->setText(QStringLiteral("Loading script… 0%"));
    m_loadLabel->adjustSize();
    m_loadLabel->move(viewport()->geometry().right() - m_loadLabel->width() - 12, 12);
    m_loadLabel->show();
    m_loadTimer->start();
}

void SQLEditor::loadNextPiece()
{
    // Whole lines of about 64 KB, for at most a few dozen milliseconds per turn of the event loop.
    constexpr qsizetype pieceCharacters = 64 * 1024;
    constexpr qint64 turnMilliseconds = 30;
    QElapsedTimer clock;
    clock.start();
    QTextCursor end(document());
    end.movePosition(QTextCursor::End);
    m_replacingText = true;
    while (m_loadOffset < m_loadText.size() && clock.elapsed() < turnMilliseconds) {
        const qsizetype lineEnd
            = m_loadText.indexOf(u'\n', std::min(m_loadOffset + pieceCharacters, m_loadText.size()));
        const qsizetype next = lineEnd < 0 ? m_loadText.size() : lineEnd + 1;
        end.insertText(m_loadText.mid(m_loadOffset, next - m_loadOffset));
        m_loadOffset = next;
    }
    m_replacingText = false;
    if (m_loadOffset < m_loadText.size()) {
        m_loadLabel->setText(QStringLiteral("Loading script… %1%").arg(m_loadOffset * 100 / m_loadText.size()));
        return;
    }
    stopLoading();
    moveCursor(QTextCursor::Start);
    Q_EMIT loaded();
}

void SQLEditor::stopLoading()
{
    if (!isLoading()) {
        return;
    }
    m_loadTimer->stop();
    m_loadText.clear();
    m_loadOffset = -1;
    m_loadLabel->hide();
    if (!m_readOnlyBeforeLoad) {
        setReadOnly(false);
    }
    document()->setUndoRedoEnabled(true);
}

QString SQLEditor::sql() const
{
    return toPlainText();
}

void SQLEditor::setCompletionWords(const QStringList &words)
{
    m_completionWords = words;
}

QStringList SQLEditor::completionsFor(const QString &partialWord) const
{
    const QString prefix = partialWord.toLower();
    // Sorted by code point, so "Z" comes before "a" and a letter beyond U+FFFF after U+FFxx,
    // which UTF-16 order would get the other way round.
    QList<std::pair<QList<uint>, QString>> kept;
    for (const QStringList *list : { &m_completionWords, &fixedPhrases() }) {
        for (const QString &candidate : *list) {
            if (candidate.toLower().startsWith(prefix)) {
                kept.append({ candidate.toUcs4(), candidate });
            }
        }
    }
    std::sort(kept.begin(), kept.end(), [](const auto &a, const auto &b) { return a.first < b.first; });
    QStringList result;
    result.reserve(kept.size());
    for (auto &entry : kept) {
        result.append(std::move(entry.second));
    }
    return result;
}

void SQLEditor::keyPressEvent(QKeyEvent *event)
{
    if (m_completer->popup()->isVisible()) {
        switch (event->key()) {
        case Qt::Key_Enter:
        case Qt::Key_Return:
        case Qt::Key_Escape:
        case Qt::Key_Tab:
        case Qt::Key_Backtab:
            // The completer picks or dismisses on these.
            event->ignore();
            return;
        default:
            break;
        }
    }

    const Qt::KeyboardModifiers modifiers = event->modifiers();
    // Keypad Enter arrives as Key_Enter, so it never runs anything.
    if (event->key() == Qt::Key_Return && modifiers == (Qt::ControlModifier | Qt::ShiftModifier)) {
        runStatementAtCursor();
        event->accept();
        return;
    }
    if (event->key() == Qt::Key_Return && modifiers.testFlag(Qt::ControlModifier)) {
        const QTextCursor cursor = textCursor();
        std::optional<QString> selection;
        if (cursor.hasSelection()) {
            selection = documentForm(cursor.selectedText());
        }
        flushEdits();
        Q_EMIT runRequested(selection);
        event->accept();
        return;
    }
    if (event->key() == Qt::Key_Tab && !modifiers.testFlag(Qt::ShiftModifier) && !isReadOnly()) {
        QTextCursor cursor = textCursor();
        cursor.insertText(QStringLiteral("    "));
        setTextCursor(cursor);
        event->accept();
        return;
    }
    if (event->key() == Qt::Key_Space && modifiers.testFlag(Qt::ControlModifier)) {
        showCompletions();
        event->accept();
        return;
    }

    QPlainTextEdit::keyPressEvent(event);
    if (m_completer->popup()->isVisible()) {
        showCompletions();
    }
}

QTextCursor SQLEditor::partialWordCursor() const
{
    QTextCursor cursor = textCursor();
    const int position = cursor.position();
    const QTextBlock block = cursor.block();
    const QString text = block.text();
    int start = position - block.position();
    while (start > 0) {
        char32_t c = text[start - 1].unicode();
        int width = 1;
        if (QChar::isLowSurrogate(c) && start > 1 && text[start - 2].isHighSurrogate()) {
            c = QChar::surrogateToUcs4(text[start - 2], text[start - 1]);
            width = 2;
        }
        if (!isWordCharacter(c)) {
            break;
        }
        start -= width;
    }
    cursor.setPosition(block.position() + start);
    cursor.setPosition(position, QTextCursor::KeepAnchor);
    return cursor;
}

void SQLEditor::setCatalog(std::shared_ptr<const SchemaCatalog> catalog, const std::string &currentDatabase)
{
    m_catalog = std::move(catalog);
    m_currentDatabase = currentDatabase;
    if (m_completer->popup()->isVisible()) {
        showCompletions();
    }
}

QStringList SQLEditor::completionsAtCursor()
{
    const QString partial = partialWordCursor().selectedText();
    if (!m_catalog) {
        return completionsFor(partial);
    }
    // Whole lines around the cursor, never the whole script: a statement rarely spans more, and
    // a 20 MB script must not be copied per keystroke.
    constexpr int linesBefore = 200;
    constexpr int linesAfter = 50;
    const QTextCursor at = textCursor();
    QTextBlock first = at.block();
    for (int i = 0; i < linesBefore && first.previous().isValid(); ++i) {
        first = first.previous();
    }
    QTextBlock last = at.block();
    for (int i = 0; i < linesAfter && last.next().isValid(); ++i) {
        last = last.next();
    }
    // And never more than a few thousand characters either side: a dump's lines can be megabytes.
    constexpr int charactersBefore = 20'000;
    constexpr int charactersAfter = 5'000;
    QTextCursor span(document());
    span.setPosition(std::max(first.position(), at.position() - charactersBefore));
    span.setPosition(
        std::min(last.position() + last.length() - 1, at.position() + charactersAfter), QTextCursor::KeepAnchor);
    const QString window = span.selectedText().replace(QChar::ParagraphSeparator, u'\n');
    const qsizetype split = at.position() - span.selectionStart();
    const QByteArray before = window.left(split).toUtf8();
    const QByteArray text = before + window.mid(split).toUtf8();
    const CompletionList list = completeAt(*m_catalog,
        m_currentDatabase,
        std::string_view(text.constData(), static_cast<std::size_t>(text.size())),
        static_cast<std::size_t>(before.size()));
    for (const std::string &database : list.missingDatabases) {
        Q_EMIT catalogNeeded(QString::fromStdString(database));
    }
    QStringList result;
    QSet<QString> seen;
    for (const CompletionItem &item : list.items) {
        result << QString::fromStdString(item.text);
        seen.insert(result.back().toLower());
    }
    if (!list.namesOnly) {
        for (const QString &word : completionsFor(partial)) {
            if (!seen.contains(word.toLower())) {
                result << word;
            }
        }
    }
    return result;
}

void SQLEditor::showCompletions()
{
    const QStringList candidates = completionsAtCursor();
    m_completionModel->setStringList(candidates);
    QAbstractItemView *popup = m_completer->popup();
    if (candidates.isEmpty()) {
        popup->hide();
        return;
    }
    QRect anchor = cursorRect();
    // Measured on the longest names only: asking the view would lay out every row, and a FROM in
    // a large schema offers thousands.
    QStringList longest = candidates;
    const qsizetype measured = std::min<qsizetype>(longest.size(), 20);
    std::partial_sort(
        longest.begin(), longest.begin() + measured, longest.end(), [](const QString &a, const QString &b) {
            return a.size() > b.size();
        });
    int width = 0;
    for (qsizetype i = 0; i < measured; ++i) {
        width = std::max(width, popup->fontMetrics().horizontalAdvance(longest[i]));
    }
    anchor.setWidth(width + 24 + popup->verticalScrollBar()->sizeHint().width());
    m_completer->complete(anchor);
}

void SQLEditor::insertCompletion(const QString &completion)
{
    QTextCursor cursor = partialWordCursor();
    cursor.insertText(completion);
    setTextCursor(cursor);
}

void SQLEditor::paintEvent(QPaintEvent *event)
{
    QPlainTextEdit::paintEvent(event);
    // The read-only preview keeps a caret too, for selecting with the keyboard.
    if (hasFocus()) {
        QPainter painter(viewport());
        // The insertion point's colour: the program's accent.
        painter.fillRect(caretRect(), themeColors().accent);
    }
}

void SQLEditor::focusInEvent(QFocusEvent *event)
{
    QPlainTextEdit::focusInEvent(event);
    updateCaret();
}

bool SQLEditor::event(QEvent *event)
{
    // Ctrl+Return runs the selection. A window shortcut on the same keys (the main window's
    // "Run Query") would otherwise take the key first and run the whole script.
    if (event->type() == QEvent::ShortcutOverride) {
        const auto *key = static_cast<QKeyEvent *>(event);
        if (key->key() == Qt::Key_Return && key->modifiers().testFlag(Qt::ControlModifier)) {
            event->accept();
            return true;
        }
    }
    return QPlainTextEdit::event(event);
}

void SQLEditor::runStatementAtCursor()
{
    // A text still arriving may cut a statement short.
    if (isLoading()) {
        return;
    }
    flushEdits();
    const QString script = toPlainText();
    const QByteArray utf8 = script.toUtf8();
    const auto offset = QStringView(script).first(textCursor().position()).toUtf8().size();
    std::string statement;
    try {
        statement = SQL::statementToRunAt(std::string_view(utf8.constData(), static_cast<std::size_t>(utf8.size())),
            static_cast<std::size_t>(offset));
    } catch (const AppError &) {
        // The session's own split of the same text fails the same way and says so.
        statement = utf8.toStdString();
    }
    Q_EMIT runRequested(QString::fromStdString(statement));
}

void SQLEditor::flushEdits()
{
    if (m_pendingEdit) {
        m_pendingEdit = false;
        Q_EMIT sqlEdited(toPlainText());
    }
}

void SQLEditor::focusOutEvent(QFocusEvent *event)
{
    flushEdits();
    QPlainTextEdit::focusOutEvent(event);
    updateCaret();
}

QRect SQLEditor::caretRect() const
{
    const QRect line = cursorRect();
    return QRect(line.left(), line.top(), 2, line.height());
}

void SQLEditor::updateCaret()
{
    viewport()->update(m_paintedCaret.adjusted(-1, 0, 1, 0));
    m_paintedCaret = caretRect();
    viewport()->update(m_paintedCaret.adjusted(-1, 0, 1, 0));
}

} // namespace tallowick
