#include "ui/FindBar.h"

#include <QCheckBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSignalBlocker>
#include <QTimer>
#include <QToolButton>

namespace tallowick
{

namespace
{

// Past this size the text is searched as the pattern is typed only once typing pauses, like the
// editor hands large texts to its host.
constexpr int largeTextCharacters = 1'000'000;

QToolButton *toolButton(const QString &text, const QString &tip)
{
    auto *button = new QToolButton;
    button->setText(text);
    button->setToolTip(tip);
    button->setAutoRaise(true);
    return button;
}

} // namespace

FindBar::FindBar(QPlainTextEdit &editor, QWidget *parent)
    : QWidget(parent)
    , m_editor(&editor)
    , m_find(new QLineEdit)
    , m_replace(new QLineEdit)
    , m_matchCase(new QCheckBox(QStringLiteral("Match case")))
    , m_wholeWord(new QCheckBox(QStringLiteral("Whole word")))
    , m_regularExpression(new QCheckBox(QStringLiteral("Regex")))
    , m_status(new QLabel)
    , m_replaceRow(new QWidget)
    , m_replaceOne(new QPushButton(QStringLiteral("Replace")))
    , m_replaceAll(new QPushButton(QStringLiteral("Replace all")))
    , m_typingPause(new QTimer(this))
{
    m_find->setPlaceholderText(QStringLiteral("Find"));
    m_find->setAccessibleName(QStringLiteral("Find"));
    m_find->setClearButtonEnabled(true);
    m_replace->setPlaceholderText(QStringLiteral("Replace with"));
    m_replace->setAccessibleName(QStringLiteral("Replace with"));
    m_replace->setToolTip(QStringLiteral("With Regex: \\1 to \\9 insert the groups, \\0 the whole match"));
    m_regularExpression->setToolTip(QStringLiteral("Regular expression"));
    m_status->setStyleSheet(QStringLiteral("color: palette(mid);"));
    m_status->setMinimumWidth(m_status->fontMetrics().horizontalAdvance(QStringLiteral("00000 of 10000+")));
    auto *previous = toolButton(QStringLiteral("↑"), QStringLiteral("Previous match (Shift+F3)"));
    auto *next = toolButton(QStringLiteral("↓"), QStringLiteral("Next match (F3)"));
    auto *close = toolButton(QStringLiteral("✕"), QStringLiteral("Close (Escape)"));

    auto *findRow = new QHBoxLayout;
    findRow->setSpacing(6);
    findRow->addWidget(previous);
    findRow->addWidget(next);
    findRow->addWidget(m_matchCase);
    findRow->addWidget(m_wholeWord);
    findRow->addWidget(m_regularExpression);
    findRow->addWidget(m_status);
    findRow->addWidget(close);

    auto *replaceRow = new QHBoxLayout(m_replaceRow);
    replaceRow->setContentsMargins(0, 0, 0, 0);
    replaceRow->setSpacing(6);
    replaceRow->addWidget(m_replaceOne);
    replaceRow->addWidget(m_replaceAll);
    replaceRow->addStretch(1);

    // The two fields share a column, so they line up whatever follows them.
    auto *layout = new QGridLayout(this);
    layout->setContentsMargins(8, 4, 8, 4);
    layout->setHorizontalSpacing(6);
    layout->setVerticalSpacing(4);
    layout->setColumnStretch(0, 1);
    layout->addWidget(m_find, 0, 0);
    layout->addLayout(findRow, 0, 1);
    layout->addWidget(m_replace, 1, 0);
    layout->addWidget(m_replaceRow, 1, 1);
    setTabOrder(m_find, m_replace);
    hide();

    m_typingPause->setSingleShot(true);
    m_typingPause->setInterval(250);
    QObject::connect(m_typingPause, &QTimer::timeout, this, &FindBar::searchFromSelection);
    QObject::connect(m_find, &QLineEdit::textChanged, this, &FindBar::patternChanged);
    for (QCheckBox *option : { m_matchCase, m_wholeWord, m_regularExpression }) {
        QObject::connect(option, &QCheckBox::toggled, this, &FindBar::patternChanged);
    }
    QObject::connect(previous, &QToolButton::clicked, this, &FindBar::findPrevious);
    QObject::connect(next, &QToolButton::clicked, this, &FindBar::findNext);
    QObject::connect(close, &QToolButton::clicked, this, &FindBar::dismiss);
    QObject::connect(m_replaceOne, &QPushButton::clicked, this, &FindBar::replace);
    QObject::connect(m_replaceAll, &QPushButton::clicked, this, &FindBar::replaceAll);
    // Only edits of the text report this; the highlighter's colouring reports contentsChanged().
    QObject::connect(editor.document(), &QTextDocument::contentsChange, this, [this] {
        m_matches.reset();
        setStatus({});
    });

    for (QWidget *watched : QList<QWidget *> { &editor, m_find, m_replace }) {
        watched->installEventFilter(this);
    }
}

void FindBar::openFind()
{
    open(false);
}

void FindBar::openReplace()
{
    open(true);
}

void FindBar::open(bool withReplace)
{
    const bool replacing = withReplace && !m_editor->isReadOnly();
    m_replace->setVisible(replacing);
    m_replaceRow->setVisible(replacing);
    show();
    const QString selected = m_editor->textCursor().selectedText();
    // A selection over lines holds U+2029 where they break; it is no pattern to look for.
    if (!selected.isEmpty() && !selected.contains(QChar::ParagraphSeparator)) {
        const QSignalBlocker quiet(m_find);
        m_find->setText(m_regularExpression->isChecked() ? QRegularExpression::escape(selected) : selected);
        m_matches.reset();
    }
    m_find->selectAll();
    m_find->setFocus();
    if (!m_find->text().isEmpty()) {
        searchFromSelection();
    }
}

void FindBar::patternChanged()
{
    m_matches.reset();
    m_typingPause->stop();
    if (m_find->text().isEmpty()) {
        setStatus({});
    } else if (m_editor->document()->characterCount() > largeTextCharacters) {
        m_typingPause->start();
    } else {
        searchFromSelection();
    }
}

void FindBar::searchFromSelection()
{
    m_typingPause->stop();
    const TextMatches *found = matches();
    if (!found) {
        return;
    }
    if (const auto match = found->next(m_editor->textCursor().selectionStart())) {
        select(*match);
    }
}

void FindBar::findNext()
{
    if (m_typingPause->isActive()) {
        // The selection still shows the match of a shorter pattern: search on from its start.
        searchFromSelection();
        return;
    }
    if (const TextMatches *found = matches()) {
        if (const auto match = found->next(m_editor->textCursor().selectionEnd())) {
            select(*match);
        }
    }
}

void FindBar::findPrevious()
{
    m_typingPause->stop();
    if (const TextMatches *found = matches()) {
        if (const auto match = found->previous(m_editor->textCursor().selectionStart())) {
            select(*match);
        }
    }
}

void FindBar::replace()
{
    if (refuseReadOnly()) {
        return;
    }
    const TextMatches *found = matches();
    if (!found) {
        return;
    }
    QTextCursor cursor = m_editor->textCursor();
    const TextMatch selected { cursor.selectionStart(), cursor.selectionEnd() - cursor.selectionStart() };
    if (const auto match = selected.length > 0 ? found->matchOf(selected) : std::nullopt) {
        cursor.insertText(
            m_regularExpression->isChecked() ? expandReplacement(m_replace->text(), *match) : m_replace->text());
        m_editor->setTextCursor(cursor);
    }
    findNext();
}

void FindBar::replaceAll()
{
    if (refuseReadOnly() || !matches()) {
        return;
    }
    // Copies: the edits below drop m_matches.
    const QString text = m_matches->text();
    const QRegularExpression expression = m_matches->expression();
    const bool expand = m_regularExpression->isChecked();
    QList<std::pair<TextMatch, QString>> replacements;
    for (QRegularExpressionMatchIterator found = expression.globalMatch(text); found.hasNext();) {
        const QRegularExpressionMatch match = found.next();
        replacements.append({ { match.capturedStart(), match.capturedLength() },
            expand ? expandReplacement(m_replace->text(), match) : m_replace->text() });
    }
    if (replacements.isEmpty()) {
        setStatus(QStringLiteral("No matches"));
        return;
    }
    // From the end, so the places of the matches still to replace stay where they were found.
    QTextCursor cursor(m_editor->document());
    cursor.beginEditBlock();
    for (auto replacement = replacements.crbegin(); replacement != replacements.crend(); ++replacement) {
        cursor.setPosition(static_cast<int>(replacement->first.start));
        cursor.setPosition(static_cast<int>(replacement->first.end()), QTextCursor::KeepAnchor);
        cursor.insertText(replacement->second);
    }
    cursor.endEditBlock();
    setStatus(replacements.size() == 1 ? QStringLiteral("Replaced 1 match")
                                       : QStringLiteral("Replaced %1 matches").arg(replacements.size()));
}

void FindBar::dismiss()
{
    m_typingPause->stop();
    hide();
    if (m_editor) {
        m_editor->setFocus();
    }
}

QString FindBar::status() const
{
    return m_status->text();
}

bool FindBar::replaceShown() const
{
    return !isHidden() && !m_replaceRow->isHidden();
}

bool FindBar::eventFilter(QObject *watched, QEvent *event)
{
    // Claiming the shortcut override keeps window shortcuts on the same keys (Ctrl+H hides the
    // window) from taking them first.
    if (event->type() == QEvent::ShortcutOverride || event->type() == QEvent::KeyPress) {
        const Command command = commandFor(watched, *static_cast<QKeyEvent *>(event));
        if (command != Command::none) {
            event->accept();
            if (event->type() == QEvent::KeyPress) {
                run(command);
            }
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}

FindBar::Command FindBar::commandFor(const QObject *watched, const QKeyEvent &key) const
{
    const Qt::KeyboardModifiers modifiers = key.modifiers() & ~Qt::KeypadModifier;
    const bool plain = modifiers == Qt::NoModifier;
    const bool shift = modifiers == Qt::ShiftModifier;
    switch (key.key()) {
    case Qt::Key_F:
        return modifiers == Qt::ControlModifier ? Command::find : Command::none;
    case Qt::Key_H:
        return modifiers == Qt::ControlModifier ? Command::replace : Command::none;
    case Qt::Key_F3:
        return plain ? Command::next : shift ? Command::previous : Command::none;
    case Qt::Key_Escape:
        // In the editor, Escape is the editor's own while the bar is closed.
        return plain && (watched != m_editor.data() || !isHidden()) ? Command::dismiss : Command::none;
    case Qt::Key_Return:
    case Qt::Key_Enter:
        if (watched == m_find) {
            return plain ? Command::next : shift ? Command::previous : Command::none;
        }
        return watched == m_replace && plain ? Command::replaceOne : Command::none;
    default:
        return Command::none;
    }
}

void FindBar::run(Command command)
{
    switch (command) {
    case Command::find:
        openFind();
        break;
    case Command::replace:
        openReplace();
        break;
    case Command::next:
    case Command::previous:
        // With nothing to look for yet, F3 asks for a pattern.
        if (m_find->text().isEmpty()) {
            openFind();
            break;
        }
        show();
        if (command == Command::next) {
            findNext();
        } else {
            findPrevious();
        }
        break;
    case Command::replaceOne:
        replace();
        break;
    case Command::dismiss:
        dismiss();
        break;
    case Command::none:
        break;
    }
}

const TextMatches *FindBar::matches()
{
    if (m_matches) {
        return &*m_matches;
    }
    if (m_find->text().isEmpty() || !m_editor) {
        setStatus({});
        return nullptr;
    }
    QRegularExpression expression = searchExpression(
        m_find->text(), { m_matchCase->isChecked(), m_wholeWord->isChecked(), m_regularExpression->isChecked() });
    if (!expression.isValid()) {
        setStatus(QStringLiteral("Invalid regular expression: %1").arg(expression.errorString()));
        return nullptr;
    }
    m_matches.emplace(m_editor->document()->toPlainText(), std::move(expression));
    if (m_matches->listed().isEmpty()) {
        setStatus(QStringLiteral("No matches"));
    }
    return &*m_matches;
}

void FindBar::select(const TextMatch &match)
{
    QTextCursor cursor(m_editor->document());
    cursor.setPosition(static_cast<int>(match.start));
    cursor.setPosition(static_cast<int>(match.end()), QTextCursor::KeepAnchor);
    m_editor->setTextCursor(cursor);
    showPlace(match);
}

void FindBar::showPlace(const TextMatch &match)
{
    const auto index = m_matches->indexOf(match);
    QString total = QString::number(m_matches->listed().size());
    if (!m_matches->complete()) {
        total += u'+';
    }
    setStatus(index ? QStringLiteral("%1 of %2").arg(*index + 1).arg(total)
                    : QStringLiteral("Past the first %1 matches").arg(m_matches->listed().size()));
}

bool FindBar::refuseReadOnly()
{
    if (!m_editor || m_editor->isReadOnly()) {
        setStatus(QStringLiteral("This text is read-only"));
        return true;
    }
    return false;
}

void FindBar::setStatus(const QString &text)
{
    m_status->setText(text);
}

} // namespace tallowick
