#pragma once

#include "core/AppError.h"
#include "core/QueryResult.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <functional>

namespace tallowick::test
{

// The exact sentence an action throws as AppError, or "(no error)" when it returns normally, so
// QCOMPARE against the user-facing message shows both sides when it fails.
inline QString errorFrom(const std::function<void()> &action)
{
    try {
        action();
    } catch (const AppError &error) {
        return QString::fromStdString(error.message());
    }
    return QStringLiteral("(no error)");
}

// Rows as "a|b|c", with SQL NULL as <null>, so a whole table compares in one line.
inline QStringList rowTexts(const RowList &rows)
{
    QStringList lines;
    for (const Row &row : rows) {
        QStringList cells;
        for (const Cell &cell : row) {
            cells << (cell ? QString::fromStdString(*cell) : QStringLiteral("<null>"));
        }
        lines << cells.join(QLatin1Char('|'));
    }
    return lines;
}

using Cells = QList<QVariant>; // a null QVariant stands for SQL NULL
using Grid = QList<Cells>;

// Rows as QVariant lists, which QCOMPARE prints cell by cell when they differ.
template <typename Rows> Grid grid(const Rows &rows)
{
    Grid result;
    for (const Row &row : rows) {
        Cells cells;
        for (const Cell &cell : row) {
            cells.append(cell ? QVariant(QByteArray::fromStdString(*cell)) : QVariant());
        }
        result.append(cells);
    }
    return result;
}

inline QVariant text(const char *value)
{
    return QVariant(QByteArray(value));
}

} // namespace tallowick::test
