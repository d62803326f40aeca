#pragma once

#include "ui/TextSearch.h"

#include <QPointer>
#include <QWidget>
#include <optional>

class QCheckBox;
class QKeyEvent;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;
class QTimer;

namespace tallowick
{

// Find and replace for one editor, laid out by the host next to it and hidden until asked for.
// It takes its keys from the editor as well as from its own fields: Ctrl+F opens it for finding
// (with the selection as the pattern when that is on one line), Ctrl+H with the replace row too,
// F3 / Shift+F3 (and Enter / Shift+Enter in the pattern) go to the next / previous match round
// the whole text, and Escape closes it and hands the focus back to the editor. A read-only editor
// can be searched but never replaced in.
//
// The editor's text is copied once per search and kept until the text, the pattern or an option
// changes; typing in the pattern searches on from where the selection starts.
class FindBar final : public QWidget
{
    Q_OBJECT

public:
    explicit FindBar(QPlainTextEdit &editor, QWidget *parent = nullptr);

    void openFind();
    // Opens for finding only when the editor is read-only.
    void openReplace();
    void findNext();
    void findPrevious();
    // Replaces the selected match and goes on to the next one; with no match selected, only goes
    // to the next one.
    void replace();
    // Replaces every match as one undo step.
    void replaceAll();
    void dismiss();

    QLineEdit *findField() const { return m_find; }
    QLineEdit *replaceField() const { return m_replace; }
    QCheckBox *matchCaseBox() const { return m_matchCase; }
    QCheckBox *wholeWordBox() const { return m_wholeWord; }
    QCheckBox *regularExpressionBox() const { return m_regularExpression; }
    // "3 of 12", "No matches", a pattern's error, what Replace all did.
    QString status() const;
    bool replaceShown() const;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    enum class Command { none, find, replace, next, previous, replaceOne, dismiss };

    Command commandFor(const QObject *watched, const QKeyEvent &key) const;
    void run(Command command);
    void open(bool withReplace);
    void patternChanged();
    void searchFromSelection();
    // The matches of the current pattern in the current text, found now if need be; nullptr
    // (with the reason shown) for an empty or invalid pattern.
    const TextMatches *matches();
    void select(const TextMatch &match);
    void showPlace(const TextMatch &match);
    bool refuseReadOnly();
    void setStatus(const QString &text);

    QPointer<QPlainTextEdit> m_editor;
    QLineEdit *m_find;
    QLineEdit *m_replace;
    QCheckBox *m_matchCase;
    QCheckBox *m_wholeWord;
    QCheckBox *m_regularExpression;
    QLabel *m_status;
    QWidget *m_replaceRow; // the replace buttons, shown and hidden with m_replace
    QPushButton *m_replaceOne;
    QPushButton *m_replaceAll;
    QTimer *m_typingPause;
    // For the pattern, options and text of now; dropped when any of them changes.
    std::optional<TextMatches> m_matches;
};

} // namespace tallowick
