#pragma once

#include "core/SqlCompletion.h"

#include <QPlainTextEdit>
#include <QStringList>
#include <memory>
#include <optional>

class QCompleter;
class QLabel;
class QTimer;
class QStringListModel;

namespace tallowick
{

class SqlHighlighter;

// The SQL text of a query tab, or, read-only, the preview of generated SQL: monospaced plain
// text with three-colour highlighting, word completion on Ctrl+Space, four spaces for Tab, and
// Ctrl+Return to run the selection or the whole script, Ctrl+Shift+Return the statement at the
// cursor. It knows nothing of sessions; the host owns the text and hands it back in with setSQL()
// on every refresh.
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
    // The schema behind completion in context, and the database unqualified names belong to.
    void setCatalog(std::shared_ptr<const SchemaCatalog> catalog, const std::string &currentDatabase);
    // What Ctrl+Space offers at the cursor: names that fit there from the catalog (tables after
    // FROM, an alias's columns after "alias.", the statement's columns and keywords elsewhere),
    // then the host words and fixed phrases where a keyword may stand.
    QStringList completionsAtCursor();
    // Texts over this size load in pieces between paints (with their progress shown, read-only
    // until complete), and edits of them reach the host only when something needs the text (a
    // run, a save, another tab, leaving the editor): never a whole-text copy per keystroke.
    static constexpr int largeTextCharacters = 1'000'000;
    // Hands a held-back edit of a large text to the host now.
    void flushEdits();
    bool hasPendingEdit() const { return m_pendingEdit; }
    bool isLoading() const { return m_loadOffset >= 0; }
    // Asks to run the statement the cursor is in, or the one before the cursor between two, as
    // the session splits the script. A script it cannot split goes whole, so the run reports why.
    void runStatementAtCursor();

Q_SIGNALS:
    void sqlEdited(const QString &text);
    // A large text was edited; its text follows with the next flushEdits().
    void editPending();
    // A large text has finished loading.
    void loaded();
    void runRequested(const std::optional<QString> &selection);
    // The statement names a database whose tables or columns the catalog does not hold yet.
    void catalogNeeded(const QString &database);

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
    std::shared_ptr<const SchemaCatalog> m_catalog;
    std::string m_currentDatabase;
    bool m_replacingText = false;
    bool m_pendingEdit = false;
    // A large text loading: what is still to come from m_loadOffset on (-1 when none loads).
    void loadNextPiece();
    void stopLoading();
    QString m_loadText;
    qsizetype m_loadOffset = -1;
    bool m_readOnlyBeforeLoad = false;
    QTimer *m_loadTimer;
    QLabel *m_loadLabel;
    QRect m_paintedCaret;
};

} // namespace tallowick
