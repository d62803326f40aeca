#pragma once

#include <QAbstractButton>
#include <QAbstractItemView>
#include <QAction>
#include <QComboBox>
#include <QCoreApplication>
#include <QMenu>
#include <QTest>
#include <QWidget>

namespace tallowick::test
{

// The first child of `parent` of type T whose text is `text`.
template <typename T = QAbstractButton> T *titled(const QWidget &parent, const QString &text)
{
    for (T *candidate : parent.findChildren<T *>()) {
        if (candidate->text() == text) {
            return candidate;
        }
    }
    return nullptr;
}

// The action titled `text` among `actions`, separators as "-".
inline QAction *actionTitled(const QList<QAction *> &actions, const QString &text)
{
    for (QAction *action : actions) {
        if (action->text() == text) {
            return action;
        }
    }
    return nullptr;
}

inline QStringList actionTexts(const QList<QAction *> &actions)
{
    QStringList texts;
    for (const QAction *action : actions) {
        texts << (action->isSeparator() ? QStringLiteral("-") : action->text());
    }
    return texts;
}

// Opens the picker's list, moves to the item titled `text` and confirms it with Return, as a
// keyboard user would. False when there is no such item or the choice did not take.
inline bool choose(QComboBox *box, const QString &text)
{
    const int index = box ? box->findText(text) : -1;
    if (index < 0) {
        return false;
    }
    box->showPopup();
    QAbstractItemView *list = box->view();
    list->setCurrentIndex(list->model()->index(index, box->modelColumn()));
    QTest::keyClick(list, Qt::Key_Return);
    return !list->isVisible() && box->currentIndex() == index;
}

inline void clickCell(QAbstractItemView &view, const QModelIndex &index)
{
    QTest::mouseClick(view.viewport(), Qt::LeftButton, {}, view.visualRect(index).center());
}

// Selects the cell, then double-clicks it, which opens the editor of an editable cell.
inline void doubleClickCell(QAbstractItemView &view, const QModelIndex &index)
{
    clickCell(view, index);
    QTest::mouseDClick(view.viewport(), Qt::LeftButton, {}, view.visualRect(index).center());
}

} // namespace tallowick::test
