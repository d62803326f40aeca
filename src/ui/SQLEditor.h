#pragma once

#include <QPlainTextEdit>
#include <QStringList>
#include <optional>

class QCompleter;
class QTimer;
class QStringListModel;

namespace tallowick
{

class SqlHighlighter;

// The SQL text of a query tab, or, read-only, the preview of generated SQL: monospaced plain
// text with three-colour highlighting, word completion on Ctrl+Space, four spaces for Tab, and
// Ctrl+Return to run the selection or the whole script. It knows nothing of sessions; the host
// owns the text and hands it back in with setSQL() on every refresh.
class SQLEditor : public QPlainTextEdit
{
    Q_OBJECT

public:
    // Read-only takes effect here and only here, as the preview never becomes editable.
    explicit SQLEditor(bool readOnly = false, QWidget *parent = nullptr);

    // The host's refresh: replaces the whole text only when it differs (cursor and undo kept otherwise).
    void setSQL(const QString &text);
    QString sql() const;
    // Host words (table and column names), offered before the fourteen fixed phrases.
    void setCompletionWords(const QStringList &words);
    QStringList completionsFor(const QString &partialWord) const;
    // Texts over this size reach the host when typing pauses rather than on every keystroke.
    static constexpr int largeTextCharacters = 1'000'000;
    // Hands a held-back edit of a large text to the host now.
    void flushEdits();
    bool hasPendingEdit() const { return m_pendingEdit; }

Q_SIGNALS:
    void sqlEdited(const QString &text);
    void runRequested(const std::optional<QString> &selection);

protected:
    bool event(QEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void focusInEvent(QFocusEvent *event) override;
    void focusOutEvent(QFocusEvent *event) override;

private:
    QTextCursor partialWordCursor() const;
    void showCompletions();
    void insertCompletion(const QString &completion);
    QRect caretRect() const;
    void updateCaret();

    SqlHighlighter *m_highlighter;
    QCompleter *m_completer;
    QStringListModel *m_completionModel;
    QStringList m_completionWords;
    bool m_replacingText = false;
    bool m_pendingEdit = false;
    QTimer *m_editPause;
    QRect m_paintedCaret;
};

} // namespace tallowick
