#pragma once

#include <QWidget>

class QLineEdit;
class QToolButton;

namespace tallowick
{

// A password entry that can show its text in clear: a masked field and a plain field sharing one
// text, only one of them visible, and a button at the field's right end that switches between
// them. Switching never loses the text, and keyboard focus follows the visible field so typing
// carries on. The button sits inside the field, so the entry is as wide as any other field.
class RevealablePasswordField final : public QWidget
{
    Q_OBJECT

public:
    explicit RevealablePasswordField(QWidget *parent = nullptr);

    QString text() const;
    void setText(const QString &text);

    bool isRevealed() const;
    // Moves focus to the field that becomes visible when the widget had focus.
    void setRevealed(bool revealed);

    // The inner pieces, for the sheet's tests and accessibility checks.
    QLineEdit *maskedField() const { return m_masked; }
    QLineEdit *plainField() const { return m_plain; }
    QToolButton *toggleButton() const { return m_toggle; }

Q_SIGNALS:
    void textChanged(const QString &text);

protected:
    void resizeEvent(QResizeEvent *event) override;

private:
    void updateToggle();
    void placeToggle();

    QLineEdit *m_masked;
    QLineEdit *m_plain;
    QToolButton *m_toggle;
};

} // namespace tallowick
